#include "library/ClipBuilder.h"

#include "foundation/Text.h"
#include "library/ClipClassifier.h"
#include "library/FileBookmark.h"
#include "foundation/ImageCodec.h"

namespace tamarind {

Clip ClipBuilder::build(const PasteboardSnapshot& snapshot, ClipKind kind, std::string hash, bool isSensitive,
                        Thumbnail thumbnailWhen, std::optional<std::string> writtenBlob) const {
    Uuid blobID = Uuid::random();

    std::optional<std::string> blobFilename = std::move(writtenBlob);
    std::optional<Data> thumbnail;
    long long width = 0, height = 0;
    if (snapshot.imageData && !blobFilename) {
        auto written = blobStore_.write(*snapshot.imageData, blobID, snapshot.imageFileExtension.value_or("png"),
                                        thumbnailWhen == Thumbnail::now ? Durability::now : Durability::later);
        if (auto* name = std::get_if<std::string>(&written)) blobFilename = *name;
        else log_.log("Blob write failed: %{public}s", std::get<FileError>(written).message);
    }
    if (snapshot.imageData) {
        if (thumbnailWhen == Thumbnail::now) thumbnail = makeThumbnail(*snapshot.imageData);
        if (snapshot.imagePixelSize) {
            width = static_cast<long long>(snapshot.imagePixelSize->width);
            height = static_cast<long long>(snapshot.imagePixelSize->height);
        }
    }

    std::optional<std::string> urlString;
    std::optional<std::string> hexColor;
    if (kind == ClipKind::link) urlString = snapshot.string;
    if (kind == ClipKind::color && snapshot.string) hexColor = normalizedHex(*snapshot.string);

    std::optional<Data> bookmarks;
    std::vector<std::string> fileNames;
    if (!snapshot.fileURLs.empty()) {
        bookmarks = encodeFileBookmarks(snapshot.fileURLs);
        for (const FileURL& file : snapshot.fileURLs) fileNames.push_back(file.lastPathComponent());
    }

    Clip clip = Clip::make(snapshot.capturedAt);
    clip.kind = std::string(rawValue(kind));
    clip.text = snapshot.string;
    clip.richTextData = snapshot.rtfData;
    clip.htmlString = snapshot.htmlString;
    clip.urlString = std::move(urlString);
    clip.hexColor = std::move(hexColor);
    clip.fileBookmarks = std::move(bookmarks);
    clip.thumbnailData = std::move(thumbnail);
    clip.blobFilename = std::move(blobFilename);
    clip.sourceAppBundleID = snapshot.sourceAppBundleID;
    clip.sourceAppName = snapshot.sourceAppName;
    clip.charCount = snapshot.string ? static_cast<long long>(graphemeCount(*snapshot.string)) : 0;
    clip.imageWidth = width;
    clip.imageHeight = height;
    clip.byteSize = snapshot.estimatedByteSize();
    clip.isSensitive = isSensitive;
    clip.contentHash = std::move(hash);
    clip.originDeviceID = originDeviceID_;

    std::vector<std::string_view> parts;
    if (snapshot.string) parts.push_back(*snapshot.string);
    if (snapshot.sourceAppName) parts.push_back(*snapshot.sourceAppName);
    for (const std::string& name : fileNames) parts.push_back(name);
    clip.searchText = lowercased(join(parts, " "));
    return clip;
}

}  // namespace tamarind
