#include "foundation/Json.h"

namespace tamarind {

std::optional<Json> parseJson(std::string_view text) {
    Json value = Json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

Json uuidToJson(const Uuid& id) { return id.uuidString(); }

Json dateToJson(Date date) { return date.secondsSinceReferenceDate(); }

Json dataToJson(const Data& data) { return base64Encode(data); }

Uuid uuidFromJson(const Json& value) {
    if (!value.is_string()) throw JsonDecodeError("expected a UUID string");
    auto id = Uuid::parse(value.get_ref<const std::string&>());
    if (!id) throw JsonDecodeError("not a UUID: " + value.get<std::string>());
    return *id;
}

Date dateFromJson(const Json& value) {
    if (!value.is_number()) throw JsonDecodeError("expected a date as a number");
    return Date::fromReferenceSeconds(value.get<double>());
}

Data dataFromJson(const Json& value) {
    if (!value.is_string()) throw JsonDecodeError("expected base64 data");
    auto data = base64Decode(value.get_ref<const std::string&>());
    if (!data) throw JsonDecodeError("invalid base64 data");
    return *data;
}

const Json& requireMember(const Json& object, std::string_view key) {
    if (!object.is_object()) throw JsonDecodeError("expected an object");
    auto found = object.find(key);
    if (found == object.end()) throw JsonDecodeError("missing member \"" + std::string(key) + "\"");
    return *found;
}

const Json* optionalMember(const Json& object, std::string_view key) {
    if (!object.is_object()) throw JsonDecodeError("expected an object");
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return nullptr;
    return &*found;
}

}  // namespace tamarind
