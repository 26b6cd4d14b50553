#pragma once
// Notices that the clipboard changed and reads it once per change. Every
// 0.3 s it compares the pasteboard's change counter with the last one seen
// (on X11 the counter moves on selection-owner events, so an idle tick does
// no X request); on a difference it reads one snapshot, adds the frontmost
// application and hands it on. It decides nothing about what stays.
//
// Paused by the user or suspended by the system (sleep, lock, a session
// switch), it stops ticking; when it starts again the count is taken afresh,
// so nothing copied meanwhile is captured. Main thread only.

#include <functional>
#include <memory>
#include <string>

#include "foundation/Lifetime.h"
#include "foundation/Log.h"
#include "foundation/MainLoop.h"
#include "foundation/Observable.h"
#include "platform/Pasteboard.h"
#include "platform/Workspace.h"

namespace tamarind {

inline constexpr Duration kClipboardPollInterval = std::chrono::milliseconds(300);

class ClipboardMonitor {
public:
    // Takes the current count: what is on the clipboard at launch is not captured.
    ClipboardMonitor(MainLoop& loop, Pasteboard& pasteboard, Workspace& workspace);
    ~ClipboardMonitor();
    ClipboardMonitor(const ClipboardMonitor&) = delete;
    ClipboardMonitor& operator=(const ClipboardMonitor&) = delete;

    const Observable<bool>& isPaused() const { return isPaused_; }
    const Observable<bool>& isSuspended() const { return isSuspended_; }
    bool isPolling() const { return timer_.isPending(); }

    void setOnChange(std::function<void(PasteboardSnapshot)> onChange) { onChange_ = std::move(onChange); }

    // Starts ticking unless paused, suspended or already ticking.
    void start();
    void stop();
    void setPaused(bool value);
    // One flag, not a count: the first resuming event clears it, whatever suspended it.
    void setSuspended(bool value, const std::string& reason);

    // One tick, as the timer runs it.
    void tick();

private:
    void schedule();

    MainLoop& loop_;
    Pasteboard& pasteboard_;
    Workspace& workspace_;
    Observable<bool> isPaused_;
    Observable<bool> isSuspended_;
    std::function<void(PasteboardSnapshot)> onChange_;
    TaskHandle timer_;
    long long lastChangeCount_ = 0;
    // Reads finish after the monitor may be gone; they check this first.
    Lifetime lifetime_;
    Log log_{"capture"};
};

}  // namespace tamarind
