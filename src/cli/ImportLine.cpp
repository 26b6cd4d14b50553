#include "cli/ImportLine.h"

#include <stdexcept>

#include "foundation/ImageCodec.h"
#include "foundation/Json.h"

namespace tamarind::cli {

namespace {

std::optional<Data> base64Member(const Json& line, const char* key) {
    auto member = line.find(key);
    if (member == line.end() || !member->is_string()) return std::nullopt;
    auto data = base64Decode(member->get<std::string>());
    if (!data) throw std::runtime_error(std::string(key) + " is not base64");
    return data;
}

std::optional<std::string> stringMember(const Json& line, const char* key) {
    auto member = line.find(key);
    if (member == line.end() || member->is_null()) return std::nullopt;
    if (!member->is_string()) throw std::runtime_error(std::string(key) + " is not a string");
    return member->get<std::string>();
}

// The clipboard as it was when the clip was made, as near as its fields tell.
PasteboardSnapshot snapshotOfLine(const Json& line, Date importedAt) {
    if (!line.is_object()) throw std::runtime_error("not a JSON object");
    PasteboardSnapshot snapshot;
    snapshot.capturedAt = importedAt;
    snapshot.string = stringMember(line, "text");
    if (!snapshot.string) snapshot.string = stringMember(line, "urlString");
    if (!snapshot.string) snapshot.string = stringMember(line, "hexColor");
    if (snapshot.string) snapshot.types.push_back("text/plain;charset=utf-8");
    snapshot.htmlString = stringMember(line, "htmlString");
    if (snapshot.htmlString) snapshot.types.push_back("text/html");
    snapshot.rtfData = base64Member(line, "richTextData");
    if (snapshot.rtfData) snapshot.types.push_back("text/rtf");
    snapshot.imageData = base64Member(line, "imageData");
    if (snapshot.imageData) {
        snapshot.imageFileExtension = stringMember(line, "imageFileExtension").value_or("png");
        snapshot.imagePixelSize = imagePixelSize(*snapshot.imageData);
        snapshot.types.push_back("image/" + *snapshot.imageFileExtension);
    }
    if (auto paths = line.find("filePaths"); paths != line.end() && paths->is_array()) {
        for (const Json& path : *paths)
            if (path.is_string()) snapshot.fileURLs.push_back(FileURL{path.get<std::string>()});
        if (!snapshot.fileURLs.empty()) snapshot.types.push_back("text/uri-list");
    }
    snapshot.sourceAppBundleID = stringMember(line, "sourceAppBundleID");
    snapshot.sourceAppName = stringMember(line, "sourceAppName");
    if (auto createdAt = stringMember(line, "createdAt")) {
        auto date = Date::parseIso8601(*createdAt);
        if (!date) throw std::runtime_error("createdAt is not an ISO 8601 date");
        snapshot.capturedAt = *date;
    }
    return snapshot;
}

}  // namespace

ImportLine readImportLine(std::string_view text, Date importedAt) {
    ImportLine read;
    try {
        Json line = Json::parse(text);
        PasteboardSnapshot snapshot = snapshotOfLine(line, importedAt);
        read.isFavorite = line.value("isFavorite", false);
        read.isPinned = line.value("isPinned", false);
        read.snapshot = std::move(snapshot);
    } catch (const std::exception& error) {
        read.error = error.what();
    }
    return read;
}

}  // namespace tamarind::cli
