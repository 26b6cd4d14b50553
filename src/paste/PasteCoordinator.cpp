#include "paste/PasteCoordinator.h"

namespace tamarind {

std::optional<int> SequentialPasteCursor::advance(int count, MonotonicTime now, long long changeCount) {
    if (count < 1) {
        *this = SequentialPasteCursor{};
        return std::nullopt;
    }
    bool breaksRun = !lastAdvance || now - *lastAdvance > kPasteNextRunBreak ||
                     (observedChangeCount && *observedChangeCount != changeCount);
    if (breaksRun) index = 0;
    int position = index >= count ? 0 : index;
    lastPosition = position + 1;
    index = position + 1;
    lastAdvance = now;
    return position;
}

ClipShortcutBindings::ClipShortcutBindings(Defaults& defaults) : defaults_(defaults) {
    for (const std::string& text : defaults_.stringArray(kBoundClipIDsKey).value_or(std::vector<std::string>{}))
        if (auto id = Uuid::parse(text)) boundClipIDs_.insert(*id);
}

bool ClipShortcutBindings::insert(const Uuid& id) {
    if (!boundClipIDs_.insert(id).second) return false;
    persist();
    return true;
}

bool ClipShortcutBindings::erase(const Uuid& id) {
    if (boundClipIDs_.erase(id) == 0) return false;
    persist();
    return true;
}

void ClipShortcutBindings::persist() {
    PlistArray ids;
    for (const Uuid& id : boundClipIDs_) ids.push_back(PlistValue(id.uuidString()));
    defaults_.set(kBoundClipIDsKey, PlistValue(std::move(ids)));
}

PasteCoordinator::PasteCoordinator(MainLoop& loop, ClipStore& store, PasteService& paste, HUD& hud,
                                   KeyboardShortcuts& shortcuts, Defaults& defaults, KeyEvents* keyEvents,
                                   std::function<void()> onAccessibilityRequired)
    : loop_(loop),
      store_(store),
      paste_(paste),
      hud_(hud),
      shortcuts_(shortcuts),
      defaults_(defaults),
      keyEvents_(keyEvents),
      onAccessibilityRequired_(std::move(onAccessibilityRequired)),
      bindings_(defaults) {}

PasteCoordinator::~PasteCoordinator() {
    lifetime_.end();
    for (int index = 0; index < kPasteSlotCount; ++index) shortcuts_.removeHandler(pasteSlotShortcutName(index));
    shortcuts_.removeHandler("sequentialPaste");
    for (const Uuid& id : bindings_.boundClipIDs()) shortcuts_.removeHandler(clipShortcutName(id));
}

void PasteCoordinator::registerShortcuts() {
    installSlotDefaults(shortcuts_, defaults_);
    // Shift with a slot's keys pastes plain text, so the Shift combination reaches the handler too.
    for (int index = 0; index < kPasteSlotCount; ++index)
        shortcuts_.onKeyDown(pasteSlotShortcutName(index), [this, index] { pasteSlot(index); }, true);
    shortcuts_.onKeyDown("sequentialPaste", [this] { pasteNext(); }, true);
    for (const Uuid& id : bindings_.boundClipIDs()) addBoundHandler(id);
    log_.info("Restored %{public}ld per-clip shortcuts.", static_cast<long>(bindings_.boundClipIDs().size()));
    log_.info("Registered %{public}ld paste slots and sequential paste.", static_cast<long>(kPasteSlotCount));
}

void PasteCoordinator::pasteSlot(int index) {
    std::vector<Clip> newest = store_.fetchPage(0, ClipQuery{}, ClipSortOrder::newest, kPasteSlotCount);
    if (index < 0 || index >= static_cast<int>(newest.size())) {
        hud_.show(HUDContent{"tray", "No clip in slot " + std::to_string(index + 1), std::nullopt, true},
                  kPasteHUDDuration);
        return;
    }
    deliver(newest[index], "Pasted slot " + std::to_string(index + 1), std::nullopt);
}

void PasteCoordinator::pasteNext() {
    std::vector<Clip> clips = store_.fetchPage(0, ClipQuery{}, ClipSortOrder::newest, kPasteNextReach);
    auto count = static_cast<int>(clips.size());
    std::optional<int> position =
        cursor_.advance(count, loop_.clock().now(), paste_.platformPasteboard().changeCount());
    if (!position) {
        hud_.show(HUDContent{"tray", "History is empty", std::nullopt, true}, kPasteHUDDuration);
        return;
    }
    deliver(clips[*position], "Pasted", std::to_string(cursor_.lastPosition) + " of " + std::to_string(count), true);
}

void PasteCoordinator::pasteBoundClip(const Uuid& id) {
    std::optional<Clip> clip = store_.clip(id);
    if (!clip) {
        unbind(id);
        hud_.show(HUDContent{"trash", "That clip no longer exists", std::nullopt, true}, kPasteHUDDuration);
        return;
    }
    deliver(*clip, "Pasted saved clip", std::nullopt);
}

void PasteCoordinator::bind(const Uuid& id) {
    bindings_.insert(id);
    addBoundHandler(id);
}

void PasteCoordinator::unbind(const Uuid& id) {
    if (!bindings_.erase(id)) return;
    std::string name = clipShortcutName(id);
    shortcuts_.removeHandler(name);
    shortcuts_.reset(name);
}

void PasteCoordinator::addBoundHandler(const Uuid& id) {
    shortcuts_.onKeyDown(clipShortcutName(id), [this, id] { pasteBoundClip(id); }, true);
}

void PasteCoordinator::deliver(const Clip& clip, const std::string& title, std::optional<std::string> subtitle,
                               bool recordsChangeCount) {
    bool isPlain = keyEvents_ && (keyEvents_->currentModifierFlags() & ModifierFlag::shift);
    // No surface opened for a hotkey: the application in front is where the clip goes.
    paste_.recordTargetApplication();
    PasteService::Request request;
    request.asPlainText = isPlain;
    if (recordsChangeCount)
        request.onWritten = [this, alive = lifetime_.weak()] {
            if (!!alive.isAlive()) cursor_.observedChangeCount = paste_.platformPasteboard().changeCount();
        };
    paste_.paste(clip, std::move(request),
                 [this, alive = lifetime_.weak(), clip, title, subtitle, isPlain](PasteOutcome outcome) {
                     if (!alive.isAlive()) return;
                     showOutcome(outcome, clip, title, subtitle, isPlain);
                 });
    store_.markUsed(clip.id, loop_.clock().wallNow());
}

void PasteCoordinator::showOutcome(PasteOutcome outcome, const Clip& clip, const std::string& title,
                                   const std::optional<std::string>& subtitle, bool isPlain) {
    switch (outcome) {
    case PasteOutcome::pasted:
        hud_.show(HUDContent{isPlain ? "textformat" : "doc.on.clipboard", isPlain ? title + " as plain text" : title,
                             subtitle ? subtitle : std::optional<std::string>(clip.displayTitle()), false},
                  kPasteHUDDuration);
        break;
    case PasteOutcome::accessibilityMissing:
        hud_.show(HUDContent{"lock.shield", "Copied — paste needs Accessibility", "Open Settings to grant it", true},
                  kPasteHUDDuration);
        if (onAccessibilityRequired_) onAccessibilityRequired_();
        break;
    case PasteOutcome::noTarget:
        hud_.show(HUDContent{"doc.on.clipboard", "Copied to the clipboard", "No app to paste into", false},
                  kPasteHUDDuration);
        break;
    case PasteOutcome::nothingToPaste:
        hud_.show(HUDContent{"questionmark", "That clip is empty", std::nullopt, true}, kPasteHUDDuration);
        break;
    }
}

}  // namespace tamarind
