#pragma once
// The gate between the clipboard monitor and the store: collect mode gets the
// first refusal of each copy, the store the rest; the service keeps the
// session's counters and the last result, tells the application about a new
// clip, and runs retention at start and every 6 hours. Main thread only.

#include <functional>
#include <optional>

#include "foundation/Lifetime.h"
#include "capture/ClipboardMonitor.h"
#include "capture/CapturePreferences.h"
#include "library/ClipStore.h"

namespace tamarind {

inline constexpr Duration kRetentionInterval = std::chrono::hours(6);

class ClipCaptureService {
public:
    ClipCaptureService(MainLoop& loop, ClipStore& store, CapturePreferences& preferences, ClipboardMonitor& monitor);
    ~ClipCaptureService();
    ClipCaptureService(const ClipCaptureService&) = delete;
    ClipCaptureService& operator=(const ClipCaptureService&) = delete;

    const Observable<std::optional<IngestResult>>& lastResult() const { return lastResult_; }
    const Observable<long long>& capturedThisSession() const { return capturedThisSession_; }
    const Observable<long long>& rejectedThisSession() const { return rejectedThisSession_; }

    // Called with each inserted clip and whether a rule matched it.
    void setOnClipInserted(std::function<void(const Clip&, bool matchedRule)> callback) {
        onClipInserted_ = std::move(callback);
    }
    // Collect mode: true when it took the copy instead of the store.
    void setStageInsteadOfStoring(std::function<bool(const PasteboardSnapshot&, ClipKind)> callback) {
        stageInsteadOfStoring_ = std::move(callback);
    }

    void start();
    // The monitor's onChange. The store's answer may come later (an image is hashed and written on
    // its worker first); the counters and lastResult move when it does.
    void handle(PasteboardSnapshot snapshot);

private:
    void record(const IngestResult& result);
    void applyRetention();
    void scheduleRetention();

    MainLoop& loop_;
    ClipStore& store_;
    CapturePreferences& preferences_;
    ClipboardMonitor& monitor_;
    Observable<std::optional<IngestResult>> lastResult_;
    Observable<long long> capturedThisSession_;
    Observable<long long> rejectedThisSession_;
    TaskHandle retentionTask_;
    std::function<void(const Clip&, bool)> onClipInserted_;
    std::function<bool(const PasteboardSnapshot&, ClipKind)> stageInsteadOfStoring_;
    Lifetime lifetime_;
    Log log_{"capture"};
};

}  // namespace tamarind
