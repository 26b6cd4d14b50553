#include "paste/ClipActions.h"

#include <algorithm>

#include "foundation/Files.h"
#include "foundation/Text.h"
#include "library/FileBookmark.h"
#include "foundation/ImageCodec.h"

namespace tamarind {

std::string_view rawValue(CopyTransform transform) {
    switch (transform) {
    case CopyTransform::plain: return "plain";
    case CopyTransform::uppercase: return "uppercase";
    case CopyTransform::lowercase: return "lowercase";
    case CopyTransform::capitalized: return "capitalized";
    case CopyTransform::trimmed: return "trimmed";
    }
    return "plain";
}

std::optional<CopyTransform> copyTransformFromRawValue(std::string_view raw) {
    for (CopyTransform transform : kAllCopyTransforms)
        if (rawValue(transform) == raw) return transform;
    return std::nullopt;
}

std::string applying(CopyTransform transform, std::string_view text) {
    switch (transform) {
    case CopyTransform::plain: return std::string(text);
    case CopyTransform::uppercase: return uppercased(text);
    case CopyTransform::lowercase: return lowercased(text);
    case CopyTransform::capitalized: return capitalized(text);
    case CopyTransform::trimmed: return std::string(trimmed(text));
    }
    return std::string(text);
}

std::optional<Data> fullImage(const Clip& clip, const BlobStore& blobStore) {
    if (clip.blobFilename)
        if (auto bytes = readWholeFile(blobStore.url(*clip.blobFilename)).bytes) return dataFromString(*bytes);
    return clip.fullImageData;
}

namespace {

bool isPng(const Data& bytes) {
    static constexpr std::uint8_t kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return bytes.size() >= sizeof kSignature && std::equal(std::begin(kSignature), std::end(kSignature), bytes.begin());
}

}  // namespace

std::optional<Data> pngForClipboard(const Clip& clip, const BlobStore& blobStore) {
    std::optional<Data> image = clip.fullImageData;
    if (clip.blobFilename) {
        auto bytes = readWholeFile(blobStore.url(*clip.blobFilename)).bytes;
        image = bytes ? std::optional<Data>(dataFromString(*bytes)) : std::nullopt;
    }
    if (!image) return std::nullopt;
    // Labelled PNG whatever the blob is; readers decode by the label, so the bytes become PNG.
    if (!isPng(*image)) image = convertToPng(*image);
    return image;
}

std::optional<ClipboardContent> copyContent(const Clip& clip, CopyTransform transform, const BlobStore& blobStore) {
    ClipboardContent content;
    auto transformedText = [&]() -> std::optional<std::string> {
        if (!clip.text) return std::nullopt;
        return applying(transform, *clip.text);
    };
    switch (clip.clipKind()) {
    case ClipKind::image:
    case ClipKind::screenshot: {
        content.image = pngForClipboard(clip, blobStore);
        if (!content.image) return std::nullopt;
        content.imageExtension = "png";
        return content;
    }
    case ClipKind::file:
        if (clip.fileBookmarks) content.files = decodeFileBookmarks(*clip.fileBookmarks);
        if (!content.files.empty()) return content;
        content.text = transformedText();
        break;
    case ClipKind::richText:
        // Only the plain form changes: an application that prefers the rich one gets it as it was.
        content.rtf = clip.richTextData;
        content.html = clip.htmlString;
        content.text = transformedText();
        break;
    default: content.text = transformedText(); break;
    }
    if (!content.text && !content.rtf && !content.html) return std::nullopt;
    return content;
}

void ClipActionService::copy(const Clip& clip, CopyTransform transform) {
    pasteboard_.write(copyContent(clip, transform, blobStore_).value_or(ClipboardContent{}));
    log_.debug("Copied %{public}s clip to the pasteboard.", clip.kind);
}

}  // namespace tamarind
