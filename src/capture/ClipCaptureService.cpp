#include "capture/ClipCaptureService.h"

#include "library/ClipClassifier.h"

namespace tamarind {

ClipCaptureService::ClipCaptureService(MainLoop& loop, ClipStore& store, CapturePreferences& preferences,
                                       ClipboardMonitor& monitor)
    : loop_(loop),
      store_(store),
      preferences_(preferences),
      monitor_(monitor),
      lastResult_(loop, std::nullopt),
      capturedThisSession_(loop, 0),
      rejectedThisSession_(loop, 0) {}

ClipCaptureService::~ClipCaptureService() {
    lifetime_.end();
    monitor_.setOnChange(nullptr);
}

void ClipCaptureService::start() {
    monitor_.setOnChange([this, alive = lifetime_.weak()](PasteboardSnapshot snapshot) {
        if (alive.isAlive()) handle(std::move(snapshot));
    });
    bool isPaused = preferences_.isPaused().value();
    log_.info("Starting capture; persisted pause state = %{bool,public}d.", isPaused);
    monitor_.setPaused(isPaused);
    if (!isPaused) monitor_.start();
    applyRetention();
    scheduleRetention();
}

void ClipCaptureService::applyRetention() {
    store_.applyRetention(preferences_.maximumClipCount().value(), preferences_.maximumAgeInDays().value(),
                          loop_.clock().wallNow());
}

// The values of the moment the sweep runs: a changed limit takes effect at the next sweep.
void ClipCaptureService::scheduleRetention() {
    retentionTask_ = loop_.postDelayed(kRetentionInterval, [this] {
        applyRetention();
        scheduleRetention();
    });
}

void ClipCaptureService::handle(PasteboardSnapshot snapshot) {
    // A setting or rule another program wrote a moment ago is in force for this copy, whichever
    // of the two events the loop took first.
    preferences_.synchronize();
    const std::set<std::string>& excluded = preferences_.excludedBundleIDs().value();
    // A refused copy never reaches collect mode; the store repeats the gate and gives the refusal
    // its result and log line.
    if (!ClipStore::captureRejection(snapshot, excluded) && stageInsteadOfStoring_ &&
        stageInsteadOfStoring_(snapshot, classify(snapshot))) {
        capturedThisSession_.set(capturedThisSession_.value() + 1);
        return;
    }
    // Moved on: a copy of a clip of hundreds of megabytes would double what it holds in memory.
    store_.submit(std::move(snapshot), excluded, [this, alive = lifetime_.weak()](const IngestResult& result) {
        if (alive.isAlive()) record(result);
    });
}

void ClipCaptureService::record(const IngestResult& result) {
    lastResult_.set(result);
    switch (result.kind) {
    case IngestResult::Kind::inserted: {
        capturedThisSession_.set(capturedThisSession_.value() + 1);
        bool matchedRule = store_.lastInsertMatchedRule();
        if (onClipInserted_)
            if (auto clip = store_.clip(result.clipID)) onClipInserted_(*clip, matchedRule);
        break;
    }
    case IngestResult::Kind::deduplicated: break;
    case IngestResult::Kind::rejected: rejectedThisSession_.set(rejectedThisSession_.value() + 1); break;
    }
}

}  // namespace tamarind
