#include "library/Clip.h"

#include "foundation/Json.h"
#include "foundation/Text.h"
#include "foundation/Url.h"
#include "library/FileBookmark.h"

namespace tamarind {

Clip Clip::make(Date now) {
    Clip clip;
    clip.id = Uuid::random();
    clip.createdAt = now;
    return clip;
}

void Clip::markUsed(Date at) {
    lastUsedAt = at;
    useCount += 1;
}

void Clip::rebuildSearchText(const std::vector<std::string>& fileNames) {
    std::vector<std::string_view> parts;
    for (const auto* part : {&text, &ocrText, &sourceAppName})
        if (*part && !(*part)->empty()) parts.push_back(**part);
    for (const std::string& name : fileNames) parts.push_back(name);
    searchText = lowercased(join(parts, " "));
}

std::string Clip::displayTitle() const {
    if (aiTitle && !aiTitle->empty()) return *aiTitle;
    ClipKind kindValue = clipKind();
    std::string title;
    switch (kindValue) {
    case ClipKind::file:
        if (fileBookmarks) {
            auto blobs = decodeFileBookmarkBlobs(*fileBookmarks);
            if (blobs.size() >= 2) {
                title = std::to_string(blobs.size()) + " files";
            } else if (blobs.size() == 1) {
                if (auto bookmark = FileBookmark::fromBlob(blobs[0])) title = bookmark->fileURL().lastPathComponent();
            }
        }
        break;
    case ClipKind::color:
        if (hexColor) title = uppercased(*hexColor);
        else if (text) title = uppercased(*text);
        break;
    case ClipKind::image:
    case ClipKind::screenshot:
        if (imageWidth >= 1 && imageHeight >= 1)
            title = std::to_string(imageWidth) + " \u00D7 " + std::to_string(imageHeight);
        break;
    case ClipKind::link:
        if (urlString) {
            if (auto url = parseUrlComponents(*urlString); url && url->host) {
                std::string_view host = *url->host;
                if (host.starts_with("www.")) host.remove_prefix(4);
                title = host;
            }
        }
        break;
    default:
        if (text) {
            for (std::string_view line : lines(graphemePrefix(*text, 4000))) {
                std::string_view content = trimmed(line);
                if (content.empty()) continue;
                title = graphemePrefix(content, 120);
                break;
            }
        }
        break;
    }
    return title.empty() ? std::string(label(kindValue)) : title;
}

std::string_view rawValue(CollectionViewMode mode) {
    switch (mode) {
    case CollectionViewMode::list: return "list";
    case CollectionViewMode::card: return "card";
    case CollectionViewMode::board: return "board";
    }
    return "list";
}

CollectionViewMode collectionViewModeOrList(std::string_view raw) {
    for (auto mode : {CollectionViewMode::list, CollectionViewMode::card, CollectionViewMode::board})
        if (rawValue(mode) == raw) return mode;
    return CollectionViewMode::list;
}

Collection Collection::make(Date now) {
    Collection collection;
    collection.id = Uuid::random();
    collection.createdAt = now;
    return collection;
}

std::vector<std::string> Collection::boardColumns() const {
    if (!boardColumnsData) return {};
    auto columns = decodeJson(stringFromData(*boardColumnsData), [](const Json& json) {
        if (!json.is_array()) throw JsonDecodeError("expected an array");
        std::vector<std::string> names;
        for (const Json& name : json) {
            if (!name.is_string()) throw JsonDecodeError("expected a string");
            names.push_back(name.get<std::string>());
        }
        return names;
    });
    return columns.value_or(std::vector<std::string>{});
}

void Collection::setBoardColumns(const std::vector<std::string>& columns) {
    // Names with ill-formed UTF-8 would make the encoder throw; such a list stores none.
    try {
        boardColumnsData = dataFromString(Json(columns).dump());
    } catch (const nlohmann::json::exception&) {
        boardColumnsData.reset();
    }
}

SyncDevice SyncDevice::make(Date now) {
    SyncDevice device;
    device.id = Uuid::random();
    device.firstSeenAt = now;
    device.lastSeenAt = now;
    return device;
}

}  // namespace tamarind
