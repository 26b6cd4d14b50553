#pragma once
// What a global hotkey reaches when the user pastes without opening a window:
// the ten direct slots, paste-next back through history, and shortcuts bound
// to one clip. It picks the clip, has PasteService paste it, and says what
// happened on the HUD. Main thread only.

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "foundation/Lifetime.h"
#include "foundation/Defaults.h"
#include "foundation/Log.h"
#include "foundation/Observable.h"
#include "library/ClipStore.h"
#include "paste/HUD.h"
#include "paste/PasteService.h"
#include "paste/hotkeys/GlobalShortcuts.h"

namespace tamarind {

inline constexpr Duration kPasteNextRunBreak = std::chrono::seconds(5);
inline constexpr Duration kPasteHUDDuration = std::chrono::milliseconds(600);
inline constexpr int kPasteNextReach = 50;
inline constexpr const char* kBoundClipIDsKey = "shortcuts.boundClipIDs";

// Where paste-next stands. A run walks back from the newest clip; it breaks (back to the newest)
// after 5 s without a press, or when something else was copied since the last paste of the run.
struct SequentialPasteCursor {
    int index = 0;
    std::optional<MonotonicTime> lastAdvance;
    std::optional<long long> observedChangeCount;
    int lastPosition = 0;  // counted from 1, for display

    // The position to paste now, none with no clips.
    std::optional<int> advance(int count, MonotonicTime now, long long changeCount);
};

// The clips with a shortcut of their own, kept in the settings as an array of UUID strings.
class ClipShortcutBindings {
public:
    explicit ClipShortcutBindings(Defaults& defaults);
    const std::set<Uuid>& boundClipIDs() const { return boundClipIDs_; }
    bool isBound(const Uuid& id) const { return boundClipIDs_.contains(id); }
    // Each persists the whole set; false when nothing changed.
    bool insert(const Uuid& id);
    bool erase(const Uuid& id);

private:
    void persist();

    Defaults& defaults_;
    std::set<Uuid> boundClipIDs_;
};

class PasteCoordinator {
public:
    PasteCoordinator(MainLoop& loop, ClipStore& store, PasteService& paste, HUD& hud, KeyboardShortcuts& shortcuts,
                     Defaults& defaults, KeyEvents* keyEvents, std::function<void()> onAccessibilityRequired);
    ~PasteCoordinator();
    PasteCoordinator(const PasteCoordinator&) = delete;
    PasteCoordinator& operator=(const PasteCoordinator&) = delete;

    // The slots' defaults once, then the handlers of the slots, paste-next and bound clips.
    void registerShortcuts();

    void pasteSlot(int index);
    void pasteNext();
    void pasteBoundClip(const Uuid& id);

    void bind(const Uuid& id);
    void unbind(const Uuid& id);
    ClipShortcutBindings& bindings() { return bindings_; }

private:
    void deliver(const Clip& clip, const std::string& title, std::optional<std::string> subtitle,
                 bool recordsChangeCount = false);
    void showOutcome(PasteOutcome outcome, const Clip& clip, const std::string& title,
                     const std::optional<std::string>& subtitle, bool isPlain);
    void addBoundHandler(const Uuid& id);

    MainLoop& loop_;
    ClipStore& store_;
    PasteService& paste_;
    HUD& hud_;
    KeyboardShortcuts& shortcuts_;
    Defaults& defaults_;
    KeyEvents* keyEvents_;
    std::function<void()> onAccessibilityRequired_;
    ClipShortcutBindings bindings_;
    SequentialPasteCursor cursor_;
    Lifetime lifetime_;
    Log log_{"paste"};
};

}  // namespace tamarind
