#include "cli/ClipFormat.h"

#include <cmath>
#include <cstdio>

#include "foundation/Text.h"
#include "library/FileBookmark.h"

namespace tamarind::cli {

namespace {

constexpr const char* kSensitiveTitle = "Sensitive";
constexpr std::size_t kKindColumn = 10;  // "screenshot"

OrderedJson optionalDate(const std::optional<Date>& date) {
    return date ? OrderedJson(isoDate(*date)) : OrderedJson(nullptr);
}

void putIfPresent(OrderedJson& object, const char* key, const std::optional<std::string>& value) {
    if (value) object[key] = *value;
}

}  // namespace

std::string isoDate(Date date) {
    double seconds = date.secondsSinceReferenceDate();
    double whole = std::floor(seconds);
    auto micros = std::llround((seconds - whole) * 1e6);
    if (micros == 1'000'000) {
        whole += 1;
        micros = 0;
    }
    std::string text = Date::fromReferenceSeconds(whole).iso8601();  // no fraction: "…:41Z"
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%06lldZ", static_cast<long long>(micros));
    return text.substr(0, text.size() - 1) + fraction;
}

std::string compactAge(Date createdAt, Date now) {
    double seconds = std::max(0.0, now.secondsSinceReferenceDate() - createdAt.secondsSinceReferenceDate());
    struct Unit {
        double seconds;
        const char* suffix;
    };
    static constexpr Unit kUnits[] = {{31'536'000, "y"}, {604'800, "w"}, {86'400, "d"}, {3'600, "h"}, {60, "m"}};
    for (const Unit& unit : kUnits)
        if (seconds >= unit.seconds) return std::to_string(static_cast<long long>(seconds / unit.seconds)) + unit.suffix;
    return std::to_string(static_cast<long long>(seconds)) + "s";
}

std::string clipLine(const Clip& clip, Date now, bool reveal, std::size_t width) {
    std::string title = clip.isSensitive && !reveal ? kSensitiveTitle
                                                    : std::string(trimmed(replacingNewlinesWithSpaces(clip.displayTitle())));
    std::string kind = clip.kind;
    if (kind.size() < kKindColumn) kind.append(kKindColumn - kind.size(), ' ');
    char age[8];
    std::snprintf(age, sizeof age, "%4s", compactAge(clip.createdAt, now).c_str());
    std::string line = clip.id.uuidString().substr(0, 8) + "  " + kind + "  " + age + "  " +
                       (clip.isFavorite ? "F" : "-") + (clip.isPinned ? "P" : "-") + "  ";
    if (width > line.size()) {
        line += graphemePrefix(title, width - line.size());
    } else {
        line += title;
    }
    return line;
}

OrderedJson clipJson(const Clip& clip, bool reveal) {
    OrderedJson object = OrderedJson::object();
    object["id"] = clip.id.uuidString();
    object["kind"] = clip.kind;
    object["createdAt"] = isoDate(clip.createdAt);
    object["lastUsedAt"] = optionalDate(clip.lastUsedAt);
    object["useCount"] = clip.useCount;
    object["isFavorite"] = clip.isFavorite;
    object["isPinned"] = clip.isPinned;
    object["isSensitive"] = clip.isSensitive;
    bool withholds = clip.isSensitive && !reveal;
    object["displayTitle"] = withholds ? std::string(kSensitiveTitle) : clip.displayTitle();
    if (withholds) {
        object["redacted"] = true;
    } else {
        putIfPresent(object, "text", clip.text);
        putIfPresent(object, "htmlString", clip.htmlString);
        putIfPresent(object, "urlString", clip.urlString);
        putIfPresent(object, "hexColor", clip.hexColor);
        putIfPresent(object, "ocrText", clip.ocrText);
        object["searchText"] = clip.searchText;
        if (clip.fileBookmarks) {
            OrderedJson paths = OrderedJson::array();
            for (const FileURL& file : decodeFileBookmarks(*clip.fileBookmarks)) paths.push_back(file.path);
            object["filePaths"] = paths;
        }
        if (clip.multiClipData) {
            OrderedJson payload = OrderedJson::parse(stringFromData(*clip.multiClipData), nullptr, false);
            if (!payload.is_discarded()) object["multiClip"] = std::move(payload);
        }
    }
    object["hasRichText"] = clip.richTextData.has_value();
    putIfPresent(object, "blobFilename", clip.blobFilename);
    putIfPresent(object, "sourceAppBundleID", clip.sourceAppBundleID);
    putIfPresent(object, "sourceAppName", clip.sourceAppName);
    object["charCount"] = clip.charCount;
    object["imageWidth"] = clip.imageWidth;
    object["imageHeight"] = clip.imageHeight;
    object["byteSize"] = clip.byteSize;
    OrderedJson collections = OrderedJson::array();
    for (const Uuid& id : clip.collectionIDs) collections.push_back(id.uuidString());
    object["collectionIDs"] = collections;
    putIfPresent(object, "boardColumn", clip.boardColumn);
    object["sortIndex"] = clip.sortIndex;
    object["reminderDate"] = optionalDate(clip.reminderDate);
    putIfPresent(object, "reminderAppBundleID", clip.reminderAppBundleID);
    object["reminderDelivered"] = clip.reminderDelivered;
    if (!withholds) putIfPresent(object, "aiTitle", clip.aiTitle);
    object["aiTitleAttemptedAt"] = optionalDate(clip.aiTitleAttemptedAt);
    if (clip.aiSuggestedCollectionID) object["aiSuggestedCollectionID"] = clip.aiSuggestedCollectionID->uuidString();
    object["aiCategorizedAt"] = optionalDate(clip.aiCategorizedAt);
    putIfPresent(object, "expansionTrigger", clip.expansionTrigger);
    putIfPresent(object, "originDeviceID", clip.originDeviceID);
    object["contentHash"] = clip.contentHash;
    return object;
}

}  // namespace tamarind::cli
