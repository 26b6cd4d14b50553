#include "foundation/Json.h"

#include <cmath>
#include <cstdint>
#include <limits>

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

void throwMemberError(std::string_view key, std::string_view what) {
    throw JsonDecodeError("member \"" + std::string(key) + "\": " + std::string(what));
}

namespace {

const std::string& stringFrom(const Json& value, std::string_view key) {
    if (!value.is_string()) throwMemberError(key, "expected a string");
    return value.get_ref<const std::string&>();
}

Uuid uuidFrom(const Json& value, std::string_view key) {
    try {
        return uuidFromJson(value);
    } catch (const JsonDecodeError& error) {
        throwMemberError(key, error.what());
    }
}

}  // namespace

const std::string& requiredString(const Json& object, std::string_view key) {
    return stringFrom(requireMember(object, key), key);
}

std::optional<std::string> optionalString(const Json& object, std::string_view key) {
    const Json* value = optionalMember(object, key);
    if (!value) return std::nullopt;
    return stringFrom(*value, key);
}

bool requiredBool(const Json& object, std::string_view key) {
    const Json& value = requireMember(object, key);
    if (!value.is_boolean()) throwMemberError(key, "expected a Boolean");
    return value.get<bool>();
}

double requiredNumber(const Json& object, std::string_view key) {
    const Json& value = requireMember(object, key);
    if (!value.is_number()) throwMemberError(key, "expected a number");
    double number = value.get<double>();
    if (!std::isfinite(number)) throwMemberError(key, "number out of range");
    return number;
}

std::optional<long long> optionalInteger(const Json& object, std::string_view key) {
    const Json* value = optionalMember(object, key);
    if (!value) return std::nullopt;
    bool fits = value->is_number_integer() &&
                !(value->is_number_unsigned() &&
                  value->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<long long>::max()));
    if (!fits) throwMemberError(key, "expected an integer");
    return value->get<long long>();
}

const Json& requiredArray(const Json& object, std::string_view key) {
    const Json& value = requireMember(object, key);
    if (!value.is_array()) throwMemberError(key, "expected an array");
    return value;
}

Uuid requiredUuid(const Json& object, std::string_view key) { return uuidFrom(requireMember(object, key), key); }

std::optional<Uuid> optionalUuid(const Json& object, std::string_view key) {
    const Json* value = optionalMember(object, key);
    if (!value) return std::nullopt;
    return uuidFrom(*value, key);
}

}  // namespace tamarind
