#include "paste/PasteService.h"

#include <algorithm>

#include "capture/MultiClipPayload.h"
#include "library/FileBookmark.h"
#include "paste/ClipActions.h"
#include "foundation/Files.h"

namespace tamarind {

namespace {

std::vector<FileURL> fileURLs(const std::vector<std::string>& paths) {
    std::vector<FileURL> files;
    for (const std::string& path : paths) files.push_back(FileURL{path});
    return files;
}

}  // namespace

std::string_view rawValue(PasteOutcome outcome) {
    switch (outcome) {
    case PasteOutcome::pasted: return "pasted";
    case PasteOutcome::accessibilityMissing: return "accessibilityMissing";
    case PasteOutcome::noTarget: return "noTarget";
    case PasteOutcome::nothingToPaste: return "nothingToPaste";
    }
    return "pasted";
}

std::optional<ClipboardContent> pasteContent(const Clip& clip, bool asPlainText, std::string_view multiClipSeparator,
                                             const BlobStore& blobStore) {
    ClipboardContent content;
    auto nonEmptyText = [&]() -> std::optional<std::string> {
        if (!clip.text || clip.text->empty()) return std::nullopt;
        return clip.text;
    };
    if (asPlainText) {
        content.text = nonEmptyText();
        if (!content.text) return std::nullopt;
        return content;
    }
    switch (clip.clipKind()) {
    case ClipKind::text:
    case ClipKind::link:
    case ClipKind::code:
    case ClipKind::color: content.text = nonEmptyText(); break;
    case ClipKind::richText:
        content.rtf = clip.richTextData;
        content.html = clip.htmlString;
        content.text = clip.text;
        break;
    case ClipKind::image:
    case ClipKind::screenshot: {
        content.image = pngForClipboard(clip, blobStore);
        if (!content.image) return std::nullopt;
        content.imageExtension = "png";
        break;
    }
    case ClipKind::file: {
        if (clip.fileBookmarks) content.files = decodeFileBookmarks(*clip.fileBookmarks);
        if (content.files.empty()) content.text = nonEmptyText();
        break;
    }
    case ClipKind::multiClip: {
        MultiClipPayload payload;
        if (clip.multiClipData)
            if (auto decoded = MultiClipPayload::decode(*clip.multiClipData)) payload = std::move(*decoded);
        std::string text = payload.items.empty() ? clip.text.value_or("") : payload.joinedText(multiClipSeparator);
        content.files = fileURLs(payload.filePaths());
        if (!text.empty()) content.text = std::move(text);
        break;
    }
    }
    if (!content.text && !content.html && !content.rtf && !content.image && content.files.empty()) return std::nullopt;
    return content;
}

PasteService::PasteService(MainLoop& loop, PlatformForPaste platform, BlobStore blobStore,
                           const CapturePreferences& preferences, Worker* imageWorker)
    : loop_(loop),
      platform_(platform),
      blobStore_(std::move(blobStore)),
      preferences_(preferences),
      imageWorker_(imageWorker),
      needsAccessibilityOnboarding_(loop, false) {}

PasteService::~PasteService() { lifetime_.end(); }

void PasteService::recordTargetApplication() {
    std::optional<RunningApplication> frontmost = platform_.workspace.frontmostApplication();
    if (!frontmost) return;
    // Our own surface in front: the last real target stays.
    if (frontmost->bundleID.value_or("") == kOwnBundleID) return;
    targetApplication_ = frontmost;
    log_.debug("Paste target recorded: %{public}s", frontmost->bundleID.value_or(""));
}

bool PasteService::write(const Clip& clip, bool asPlainText) {
    std::string joiner = separator(preferences_.multiClipJoiner().value(), preferences_.multiClipCustomSeparator().value());
    return write(pasteContent(clip, asPlainText, joiner, blobStore_));
}

bool PasteService::write(std::optional<ClipboardContent> content) {
    if (!content) {
        platform_.pasteboard.write(ClipboardContent{});
        return false;
    }
    return platform_.pasteboard.write(std::move(*content));
}

void PasteService::prepareContent(const Clip& clip, bool asPlainText,
                                  std::function<void(std::optional<ClipboardContent>)> then) {
    std::string joiner = separator(preferences_.multiClipJoiner().value(), preferences_.multiClipCustomSeparator().value());
    bool isImage = clip.clipKind() == ClipKind::image || clip.clipKind() == ClipKind::screenshot;
    if (!imageWorker_ || asPlainText || !isImage) return then(pasteContent(clip, asPlainText, joiner, blobStore_));
    // Reading a 4K screenshot and encoding it as PNG take tens of milliseconds.
    imageWorker_->run([&loop = loop_, clip, joiner, blobs = blobStore_, then = std::move(then)] {
        loop.post([content = pasteContent(clip, false, joiner, blobs), then] { then(content); });
    });
}

void PasteService::paste(const Clip& clip, Request request, std::function<void(PasteOutcome)> done) {
    bool asPlainText = request.asPlainText;
    prepareContent(clip, asPlainText, [this, alive = lifetime_.weak(), request = std::move(request),
                                       done = std::move(done)](std::optional<ClipboardContent> content) mutable {
        if (!alive.isAlive()) return;
        // The archive is only kept for the restore, so with the restore off none is taken: reading
        // every type of another application's clipboard costs a round trip each.
        if (!preferences_.restoresPasteboardAfterPaste().value())
            return pasteAfterArchive(std::move(content), std::move(request), std::nullopt, std::move(done));
        platform_.pasteboard.readArchive([this, alive, content = std::move(content), request = std::move(request),
                                          done = std::move(done)](PasteboardArchive archive) mutable {
            if (!alive.isAlive()) return;
            pasteAfterArchive(std::move(content), std::move(request), std::move(archive), std::move(done));
        });
    });
}

void PasteService::pasteAfterArchive(std::optional<ClipboardContent> content, Request request,
                                      std::optional<PasteboardArchive> archive, std::function<void(PasteOutcome)> done) {
    auto finish = [this, done = std::move(done)](PasteOutcome outcome) {
        loop_.post([done, outcome] { done(outcome); });
    };
    if (!write(std::move(content))) return finish(PasteOutcome::nothingToPaste);
    if (request.onWritten) request.onWritten();
    if (request.hidePanel) request.hidePanel();
    if (platform_.permissions && !platform_.permissions->hasAccessibilityAccess()) {
        needsAccessibilityOnboarding_.set(true);
        log_.log("Paste blocked: Accessibility not granted. Content was copied.");
        return finish(PasteOutcome::accessibilityMissing);
    }
    if (!targetApplication_ || platform_.workspace.isTerminated(*targetApplication_)) {
        log_.log("Paste blocked: no target application. Content was copied.");
        return finish(PasteOutcome::noTarget);
    }
    RunningApplication target = *targetApplication_;
    platform_.workspace.activate(target);
    std::erase_if(waits_, [](const TaskHandle& wait) { return !wait.isPending(); });
    waits_.push_back(loop_.postDelayed(kPasteActivationWait, [this, target, archive = std::move(archive),
                                                              finish]() mutable {
        pressPaste(std::move(target), std::move(archive), finish);
    }));
}

void PasteService::pressPaste(RunningApplication target, std::optional<PasteboardArchive> archive,
                              std::function<void(PasteOutcome)> done) {
    auto afterKeystroke = [this, alive = lifetime_.weak(), target, archive = std::move(archive),
                           done = std::move(done)](bool isSent) mutable {
        if (!alive.isAlive()) return;
        if (!isSent) log_.error("Could not create an event source for the paste keystroke.");
        log_.info("Pasted into %{public}s.", target.name.value_or("unknown"));
        if (archive && preferences_.restoresPasteboardAfterPaste().value()) {
            std::erase_if(waits_, [](const TaskHandle& wait) { return !wait.isPending(); });
            waits_.push_back(loop_.postDelayed(kPasteRestoreWait, [this, archive = std::move(*archive)]() mutable {
                restore(std::move(archive));
            }));
        }
        done(PasteOutcome::pasted);
    };
    if (!platform_.keyEvents) return afterKeystroke(false);
    platform_.keyEvents->sendPaste(std::move(afterKeystroke));
}

void PasteService::restore(PasteboardArchive archive) {
    if (archive.isEmpty()) return;
    std::erase_if(archive.items, [](const PasteboardArchive::Item& item) { return item.empty(); });
    platform_.pasteboard.writeArchive(archive);
    log_.info("Original pasteboard contents restored.");
}

void PasteService::requestAccessibility() {
    bool isGranted = platform_.permissions ? platform_.permissions->requestAccessibilityAccess() : true;
    if (isGranted) return;
    log_.info("Requesting Accessibility access.");
    needsAccessibilityOnboarding_.set(true);
}

}  // namespace tamarind
