#pragma once
// Copying a clip back to the clipboard with no paste, optionally changing its
// text on the way: what the surfaces' "copy" and "copy as" menus and the
// command line's `copy` do.

#include <array>
#include <optional>
#include <string>

#include "library/BlobStore.h"
#include "library/Clip.h"
#include "library/ColorFormat.h"
#include "foundation/Log.h"
#include "platform/Pasteboard.h"

namespace tamarind {

enum class CopyTransform { plain, uppercase, lowercase, capitalized, trimmed };

inline constexpr std::array<CopyTransform, 5> kAllCopyTransforms = {
    CopyTransform::plain, CopyTransform::uppercase, CopyTransform::lowercase, CopyTransform::capitalized,
    CopyTransform::trimmed};

std::string_view rawValue(CopyTransform transform);
std::optional<CopyTransform> copyTransformFromRawValue(std::string_view raw);
std::string applying(CopyTransform transform, std::string_view text);

// A clip's full image: its file in the blob store, else the bytes sync carried. None when neither
// can be read.
std::optional<Data> fullImage(const Clip& clip, const BlobStore& blobStore);

// An image clip as the clipboard takes it: the blob file, or the inline data when the clip has no
// file, as PNG (another format is converted). None when the file can't be read, even with inline
// data, or the bytes aren't an image.
std::optional<Data> pngForClipboard(const Clip& clip, const BlobStore& blobStore);

// What a copy of the clip puts on the clipboard. Text kinds: the text through the transform;
// rich text: its RTF and HTML unchanged, and the plain text through the transform; images: the
// pngForClipboard(), never transformed; files: their paths as files, or else the
// text. None when there is nothing to write (no text; an image that can't be read).
std::optional<ClipboardContent> copyContent(const Clip& clip, CopyTransform transform, const BlobStore& blobStore);

class ClipActionService {
public:
    ClipActionService(Pasteboard& pasteboard, BlobStore blobStore)
        : pasteboard_(pasteboard), blobStore_(std::move(blobStore)) {}

    // Writes the clip; with nothing to write, the clipboard is cleared.
    void copy(const Clip& clip, CopyTransform transform);

private:
    Pasteboard& pasteboard_;
    BlobStore blobStore_;
    Log log_{"paste"};
};

}  // namespace tamarind
