#pragma once
// Collect mode: while it is on, each copy is staged on a stack instead of
// going to the history; finishing stores the stack as one multiClip clip,
// whose text is the items joined with the separator in force then. Nothing of
// the stack survives a quit; staged images left behind are orphans for the
// store's maintenance. Main thread only.

#include <functional>

#include "capture/CapturePreferences.h"
#include "capture/MultiClipPayload.h"
#include "library/ClipStore.h"

namespace tamarind {

// What the shortcut's settings row says of it.
inline constexpr const char* kCollectModeShortcutDetail = "Stage several copies, then store them as one clip.";
// The panel's texts.
inline constexpr const char* kCollectModeHint = "Copy anything \u2014 each item is added to this stack.";
inline constexpr const char* kCollectModeCancelButton = "Cancel collecting";
// The HUD after a finish: "Collected 3 items" over this detail.
inline constexpr const char* kCollectModeStoredDetail = "Stored as one clip";
std::string collectFinishTitle(long long count);

class CollectModeService {
public:
    CollectModeService(MainLoop& loop, ClipStore& store, BlobStore blobStore, CapturePreferences& preferences);

    const Observable<bool>& isActive() const { return isActive_; }
    const Observable<MultiClipPayload>& payload() const { return payload_; }
    void setOnStateChange(std::function<void(bool)> onStateChange) { onStateChange_ = std::move(onStateChange); }
    // Called once a finish has stored the stack as a clip, with the number of items, for the HUD.
    void setOnStored(std::function<void(long long count)> onStored) { onStored_ = std::move(onStored); }

    void begin();
    // Stores the stack as one clip (none when it is empty, or collect mode is off) and ends
    // collecting, telling the state either way. The new clip's id, if one was stored; when the
    // store fails, collecting goes on with the stack as it was.
    std::optional<Uuid> finish();
    void cancel();
    // Begins, or finishes while collecting.
    void toggle();
    // The capture service's stageInsteadOfStoring: true when the copy went on the stack.
    bool stage(const PasteboardSnapshot& snapshot, ClipKind kind);

private:
    MainLoop& loop_;
    ClipStore& store_;
    BlobStore blobStore_;
    CapturePreferences& preferences_;
    Observable<bool> isActive_;
    Observable<MultiClipPayload> payload_;
    std::function<void(bool)> onStateChange_;
    std::function<void(long long)> onStored_;
    Log log_{"capture"};
};

}  // namespace tamarind
