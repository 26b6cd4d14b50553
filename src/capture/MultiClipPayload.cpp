#include "capture/MultiClipPayload.h"

#include "foundation/Json.h"
#include "foundation/Text.h"
#include "library/ClipKind.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

namespace {

bool isImageKind(std::string_view kind) {
    return kind == rawValue(ClipKind::image) || kind == rawValue(ClipKind::screenshot);
}

}  // namespace

std::string MultiClipItem::summary() const {
    if (isImageKind(kind)) return "Image";
    if (kind == rawValue(ClipKind::file)) {
        std::vector<std::string> names;
        for (const std::string& path : filePaths) names.push_back(FileURL{path}.lastPathComponent());
        return join(names, ", ");
    }
    if (text) {
        for (std::string_view line : lines(trimmed(*text)))
            if (!line.empty()) return std::string(line);
    }
    return "Empty";
}

std::string MultiClipPayload::joinedText(std::string_view separator) const {
    std::vector<std::string> parts;
    for (const MultiClipItem& item : items) {
        std::string line;
        if (isImageKind(item.kind)) line = item.summary();
        else if (item.kind == rawValue(ClipKind::file)) line = join(item.filePaths, separator);
        else line = item.text.value_or("");
        if (!line.empty()) parts.push_back(std::move(line));
    }
    return join(parts, separator);
}

std::vector<std::string> MultiClipPayload::filePaths() const {
    std::vector<std::string> paths;
    for (const MultiClipItem& item : items) paths.insert(paths.end(), item.filePaths.begin(), item.filePaths.end());
    return paths;
}

Data MultiClipPayload::encode() const {
    Json list = Json::array();
    for (const MultiClipItem& item : items) {
        Json object = {{"id", uuidToJson(item.id)},
                       {"kind", item.kind},
                       {"filePaths", item.filePaths},
                       {"capturedAt", dateToJson(item.capturedAt)}};
        if (item.text) object["text"] = *item.text;
        if (item.blobFilename) object["blobFilename"] = *item.blobFilename;
        list.push_back(std::move(object));
    }
    return dataFromString(Json{{"items", std::move(list)}}.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::optional<MultiClipPayload> MultiClipPayload::decode(const Data& data) {
    return decodeJson(stringFromData(data), [](const Json& json) {
        const Json& list = requireMember(json, "items");
        if (!list.is_array()) throw JsonDecodeError("items: expected an array");
        MultiClipPayload payload;
        for (const Json& object : list) {
            MultiClipItem item;
            item.id = uuidFromJson(requireMember(object, "id"));
            item.kind = decodeMember<std::string>(object, "kind");
            if (const Json* text = optionalMember(object, "text")) item.text = text->get<std::string>();
            if (const Json* blob = optionalMember(object, "blobFilename")) item.blobFilename = blob->get<std::string>();
            item.filePaths = decodeMember<std::vector<std::string>>(object, "filePaths");
            item.capturedAt = dateFromJson(requireMember(object, "capturedAt"));
            payload.items.push_back(std::move(item));
        }
        return payload;
    });
}

std::string_view rawValue(MultiClipJoiner joiner) {
    switch (joiner) {
    case MultiClipJoiner::newline: return "newline";
    case MultiClipJoiner::comma: return "comma";
    case MultiClipJoiner::doubleNewline: return "doubleNewline";
    case MultiClipJoiner::space: return "space";
    case MultiClipJoiner::custom: return "custom";
    }
    return "newline";
}

MultiClipJoiner multiClipJoinerOrNewline(std::string_view raw) {
    for (MultiClipJoiner joiner : kAllMultiClipJoiners)
        if (rawValue(joiner) == raw) return joiner;
    return MultiClipJoiner::newline;
}

std::string separator(MultiClipJoiner joiner, std::string_view customSeparator) {
    switch (joiner) {
    case MultiClipJoiner::newline: return "\n";
    case MultiClipJoiner::comma: return ", ";
    case MultiClipJoiner::doubleNewline: return "\n\n";
    case MultiClipJoiner::space: return " ";
    case MultiClipJoiner::custom: return std::string(customSeparator);
    }
    return "\n";
}

}  // namespace tamarind
