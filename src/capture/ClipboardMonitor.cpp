#include "capture/ClipboardMonitor.h"

namespace tamarind {

ClipboardMonitor::ClipboardMonitor(MainLoop& loop, Pasteboard& pasteboard, Workspace& workspace)
    : loop_(loop),
      pasteboard_(pasteboard),
      workspace_(workspace),
      isPaused_(loop, false),
      isSuspended_(loop, false),
      lastChangeCount_(pasteboard.changeCount()) {}

ClipboardMonitor::~ClipboardMonitor() { lifetime_.end(); }

void ClipboardMonitor::start() {
    if (isPaused_.value() || isSuspended_.value() || timer_.isPending()) return;
    schedule();
    log_.debug("Clipboard polling started.");
}

void ClipboardMonitor::stop() {
    if (!timer_.isPending()) return;
    timer_.cancel();
    log_.debug("Clipboard polling stopped.");
}

void ClipboardMonitor::schedule() {
    timer_ = loop_.postDelayed(kClipboardPollInterval, [this] {
        schedule();
        tick();
    });
}

void ClipboardMonitor::tick() {
    if (isPaused_.value() || isSuspended_.value()) return;
    long long count = pasteboard_.changeCount();
    if (count == lastChangeCount_) return;
    lastChangeCount_ = count;
    if (!onChange_) return;
    // The frontmost application is read first, as near to the copy as can be.
    std::optional<RunningApplication> source = workspace_.frontmostApplication();
    pasteboard_.readSnapshot([this, alive = lifetime_.weak(), source](PasteboardSnapshot snapshot) {
        if (!alive.isAlive() || !onChange_) return;
        if (source) {
            snapshot.sourceAppBundleID = source->bundleID;
            snapshot.sourceAppName = source->name;
        }
        snapshot.capturedAt = loop_.clock().wallNow();
        onChange_(std::move(snapshot));
    });
}

void ClipboardMonitor::setPaused(bool value) {
    if (value == isPaused_.value()) return;
    isPaused_.set(value);
    if (value) {
        stop();
    } else {
        lastChangeCount_ = pasteboard_.changeCount();
        start();
    }
    log_.log("Capture %{public}s.", value ? "paused" : "resumed");
}

void ClipboardMonitor::setSuspended(bool value, const std::string& reason) {
    if (value == isSuspended_.value()) return;
    isSuspended_.set(value);
    log_.info("Capture %{public}s (%{public}s).", value ? "suspended" : "unsuspended", reason);
    if (value) {
        stop();
    } else {
        lastChangeCount_ = pasteboard_.changeCount();
        start();
    }
}

}  // namespace tamarind
