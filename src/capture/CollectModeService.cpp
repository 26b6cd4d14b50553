#include "capture/CollectModeService.h"

namespace tamarind {

CollectModeService::CollectModeService(MainLoop& loop, ClipStore& store, BlobStore blobStore,
                                       CapturePreferences& preferences)
    : loop_(loop),
      store_(store),
      blobStore_(std::move(blobStore)),
      preferences_(preferences),
      isActive_(loop, false),
      payload_(loop, MultiClipPayload{}) {}

void CollectModeService::begin() {
    if (isActive_.value()) return;
    payload_.set(MultiClipPayload{});
    isActive_.set(true);
    log_.log("Collect mode on.");
    if (onStateChange_) onStateChange_(true);
}

void CollectModeService::cancel() {
    if (!isActive_.value()) return;
    isActive_.set(false);
    payload_.set(MultiClipPayload{});
    log_.log("Collect mode cancelled.");
    if (onStateChange_) onStateChange_(false);
}

void CollectModeService::toggle() {
    if (isActive_.value()) {
        finish();
    } else {
        begin();
    }
}

bool CollectModeService::stage(const PasteboardSnapshot& snapshot, ClipKind kind) {
    if (!isActive_.value()) return false;
    MultiClipItem item{Uuid::random(), std::string(rawValue(kind)), std::nullopt, std::nullopt, {}, snapshot.capturedAt};
    switch (kind) {
    case ClipKind::image:
    case ClipKind::screenshot:
        if (snapshot.imageData) {
            auto written = blobStore_.write(*snapshot.imageData, item.id, snapshot.imageFileExtension.value_or("png"));
            if (auto* filename = std::get_if<std::string>(&written)) item.blobFilename = *filename;
        }
        break;
    case ClipKind::file:
        for (const FileURL& file : snapshot.fileURLs) item.filePaths.push_back(file.path);
        break;
    default: item.text = snapshot.string; break;
    }
    MultiClipPayload payload = payload_.value();
    payload.items.push_back(std::move(item));
    auto count = static_cast<long long>(payload.items.size());
    payload_.set(std::move(payload));
    log_.log("Collected item %{public}ld.", count);
    return true;
}

std::string collectFinishTitle(long long count) {
    return "Collected " + std::to_string(count) + " item" + (count == 1 ? "" : "s");
}

std::optional<Uuid> CollectModeService::finish() {
    // Off, the stack is empty: the same answer, so that a caller always hears the state.
    const MultiClipPayload& payload = payload_.value();
    if (payload.items.empty()) {
        isActive_.set(false);
        log_.log("Collect mode off; nothing was collected.");
        if (onStateChange_) onStateChange_(false);
        return std::nullopt;
    }
    // The separator in force now; a paste later reads it again.
    std::string text = payload.joinedText(
        separator(preferences_.multiClipJoiner().value(), preferences_.multiClipCustomSeparator().value()));
    auto count = static_cast<long long>(payload.items.size());
    std::optional<Uuid> id = store_.insertMultiClip(text, payload.encode(), loop_.clock().wallNow());
    if (!id) {
        // Nothing is lost: the stack stays collected, and finishing again tries again.
        log_.error("Collect mode could not store its %{public}ld items; they stay collected.", count);
        return std::nullopt;
    }
    payload_.set(MultiClipPayload{});
    isActive_.set(false);
    log_.log("Collect mode off; stored %{public}ld items as one clip.", count);
    if (onStateChange_) onStateChange_(false);
    if (onStored_) onStored_(count);
    return id;
}

}  // namespace tamarind
