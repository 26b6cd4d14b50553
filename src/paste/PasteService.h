#pragma once
// Puts a clip back: writes it to the clipboard in the richest form its kind
// allows, brings back the application the user was in, types the paste
// keystroke for them, and can put the clipboard back as it was. It remembers
// that application when one of this program's own surfaces opens, since by
// the time the user picks a clip the surface is in front. An image is read
// from its blob and made PNG on the image worker. Main thread only.

#include <functional>
#include <optional>
#include <vector>

#include "capture/CapturePreferences.h"
#include "foundation/Lifetime.h"
#include "foundation/Log.h"
#include "foundation/Observable.h"
#include "foundation/Worker.h"
#include "library/BlobStore.h"
#include "library/Clip.h"
#include "platform/KeyEvents.h"
#include "platform/Pasteboard.h"
#include "platform/Permissions.h"
#include "platform/Workspace.h"

namespace tamarind {

enum class PasteOutcome { pasted, accessibilityMissing, noTarget, nothingToPaste };

std::string_view rawValue(PasteOutcome outcome);

inline constexpr Duration kPasteActivationWait = std::chrono::milliseconds(50);
inline constexpr Duration kPasteRestoreWait = std::chrono::milliseconds(200);

// What a paste of the clip writes: none when there is nothing to write. Plain text is the clip's
// text for every kind; a multi-clip is joined with the separator given (the setting of now).
std::optional<ClipboardContent> pasteContent(const Clip& clip, bool asPlainText, std::string_view multiClipSeparator,
                                             const BlobStore& blobStore);

struct PlatformForPaste {
    Pasteboard& pasteboard;
    Workspace& workspace;
    Permissions* permissions = nullptr;  // none: always granted
    KeyEvents* keyEvents = nullptr;      // none: no keystroke can be made
};

class PasteService {
public:
    // Without `imageWorker` (the command line, which has no loop to keep free) an image is read
    // and converted during the paste. It must outlive the service.
    PasteService(MainLoop& loop, PlatformForPaste platform, BlobStore blobStore, const CapturePreferences& preferences,
                 Worker* imageWorker = nullptr);
    ~PasteService();
    PasteService(const PasteService&) = delete;
    PasteService& operator=(const PasteService&) = delete;

    // Remembers the application in front as the target, unless it is this program itself.
    void recordTargetApplication();
    const std::optional<RunningApplication>& targetApplication() const { return targetApplication_; }
    Pasteboard& platformPasteboard() { return platform_.pasteboard; }

    // Writes without pasting; true when something was written (else the clipboard is cleared).
    bool write(const Clip& clip, bool asPlainText);

    struct Request {
        bool asPlainText = false;
        std::function<void()> hidePanel;  // takes a surface off the screen first
        std::function<void()> onWritten;  // right after the clip is on the clipboard
    };
    // Asynchronous: `done` comes on the main loop with the outcome.
    void paste(const Clip& clip, Request request, std::function<void(PasteOutcome)> done);

    // Asks for the grant; a refusal raises the onboarding flag.
    void requestAccessibility();
    // Raised when a paste was blocked for lack of the grant; the onboarding surface clears it.
    Observable<bool>& needsAccessibilityOnboarding() { return needsAccessibilityOnboarding_; }

private:
    // pasteContent(), on the worker for an image; `then` on the loop.
    void prepareContent(const Clip& clip, bool asPlainText,
                        std::function<void(std::optional<ClipboardContent>)> then);
    bool write(std::optional<ClipboardContent> content);
    void pasteAfterArchive(std::optional<ClipboardContent> content, Request request,
                           std::optional<PasteboardArchive> archive, std::function<void(PasteOutcome)> done);
    void pressPaste(RunningApplication target, std::optional<PasteboardArchive> archive,
                    std::function<void(PasteOutcome)> done);
    void restore(PasteboardArchive archive);

    MainLoop& loop_;
    PlatformForPaste platform_;
    BlobStore blobStore_;
    const CapturePreferences& preferences_;
    Worker* imageWorker_;
    std::optional<RunningApplication> targetApplication_;
    Observable<bool> needsAccessibilityOnboarding_;
    std::vector<TaskHandle> waits_;  // activation waits and restores under way
    Lifetime lifetime_;
    Log log_{"paste"};
};

}  // namespace tamarind
