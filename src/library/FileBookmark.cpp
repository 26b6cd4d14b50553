#include "library/FileBookmark.h"

#include "foundation/Json.h"

namespace tamarind {

FileBookmark FileBookmark::from(const FileURL& file) { return FileBookmark{file.path, file.uri()}; }

Data FileBookmark::blob() const {
    Json json = {{"version", 1}, {"path", path}, {"uri", uri}};
    // A Linux path may hold any bytes; "path" is for people (ill-formed UTF-8
    // replaced), "uri" is percent-encoded and so exact.
    return dataFromString(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::optional<FileBookmark> FileBookmark::fromBlob(const Data& blob) {
    auto json = parseJson(stringFromData(blob));
    if (!json || !json->is_object()) return std::nullopt;
    auto uri = json->find("uri");
    if (uri != json->end() && uri->is_string()) {
        if (auto file = FileURL::fromUri(uri->get<std::string>())) return from(*file);
    }
    auto path = json->find("path");
    if (path == json->end() || !path->is_string()) return std::nullopt;
    std::string text = path->get<std::string>();
    if (text.empty() || text[0] != '/') return std::nullopt;
    return from(FileURL{text});
}

Data encodeFileBookmarks(const std::vector<FileURL>& files) {
    Json array = Json::array();
    for (const FileURL& file : files) array.push_back(dataToJson(FileBookmark::from(file).blob()));
    return dataFromString(array.dump());
}

std::vector<Data> decodeFileBookmarkBlobs(const Data& fileBookmarks) {
    auto json = parseJson(stringFromData(fileBookmarks));
    if (!json || !json->is_array()) return {};
    std::vector<Data> blobs;
    for (const Json& element : *json) {
        if (!element.is_string()) return {};
        auto blob = base64Decode(element.get_ref<const std::string&>());
        if (!blob) return {};
        blobs.push_back(std::move(*blob));
    }
    return blobs;
}

std::vector<FileURL> decodeFileBookmarks(const Data& fileBookmarks) {
    std::vector<FileURL> files;
    for (const Data& blob : decodeFileBookmarkBlobs(fileBookmarks))
        if (auto bookmark = FileBookmark::fromBlob(blob)) files.push_back(bookmark->fileURL());
    return files;
}

}  // namespace tamarind
