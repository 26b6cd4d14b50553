#pragma once
// Turns a clipboard snapshot into a finished clip: blob file, thumbnail, link,
// colour, file bookmarks, sizes, hash and search text. Never fails: a blob
// that can't be written leaves a clip with its thumbnail and no file. The
// thumbnail, which decodes the whole image, may be left for a worker, with the
// blob's fsync.
// Any thread that may write the blob folder; the store calls it on the main thread.

#include <string>

#include "foundation/Log.h"
#include "library/BlobStore.h"
#include "library/Clip.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

class ClipBuilder {
public:
    // `originDeviceID` is this machine's identifier, stamped on every clip.
    ClipBuilder(BlobStore blobStore, std::string originDeviceID)
        : blobStore_(std::move(blobStore)), originDeviceID_(std::move(originDeviceID)) {}

    enum class Thumbnail { now, later };
    // `hash` is contentHash(snapshot, kind), which the ingest has already made for its duplicate test.
    // `writtenBlob` names the image's blob when a worker has already written it.
    Clip build(const PasteboardSnapshot& snapshot, ClipKind kind, std::string hash, bool isSensitive,
               Thumbnail thumbnail = Thumbnail::now, std::optional<std::string> writtenBlob = std::nullopt) const;

    const BlobStore& blobStore() const { return blobStore_; }
    const std::string& originDeviceID() const { return originDeviceID_; }

private:
    BlobStore blobStore_;
    std::string originDeviceID_;
    Log log_{"library"};
};

}  // namespace tamarind
