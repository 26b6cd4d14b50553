#pragma once
// JSON in the shape the stored data has always had: UUIDs as upper-case
// strings (either case read), dates as seconds since 2001-01-01Z as a number,
// bytes as base64 text, and absent optionals left out (a null reads as absent).
//
// Decoding helpers throw JsonDecodeError inside a decoder; decodeJson() is the
// border that turns any failure into an absent value, so nothing throws out of
// a subsystem.

#include <nlohmann/json.hpp>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/Data.h"
#include "foundation/Date.h"
#include "foundation/Uuid.h"

namespace tamarind {

using Json = nlohmann::json;

struct JsonDecodeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Absent when the text is not JSON. Never throws.
std::optional<Json> parseJson(std::string_view text);

Json uuidToJson(const Uuid& id);
Json dateToJson(Date date);
Json dataToJson(const Data& data);

// These throw JsonDecodeError on the wrong shape.
Uuid uuidFromJson(const Json& value);
Date dateFromJson(const Json& value);
Data dataFromJson(const Json& value);

// A required member; throws when it is missing.
const Json& requireMember(const Json& object, std::string_view key);
// An optional member: absent when missing or null.
const Json* optionalMember(const Json& object, std::string_view key);

// Readers of one member that check its type themselves, so that the error names the member and
// what it should have held: `member "name": expected a string`. A missing required member is
// `missing member "name"`; an optional one is absent when missing or null. These texts reach the
// user (a refused rule import), so they stay as they are.
[[noreturn]] void throwMemberError(std::string_view key, std::string_view what);
const std::string& requiredString(const Json& object, std::string_view key);
std::optional<std::string> optionalString(const Json& object, std::string_view key);
bool requiredBool(const Json& object, std::string_view key);
// Finite only: "1e400" parses as infinity, which JSON cannot write back.
double requiredNumber(const Json& object, std::string_view key);
// A whole number that fits: 7.5 or 2^63 is refused rather than read as some other count.
std::optional<long long> optionalInteger(const Json& object, std::string_view key);
const Json& requiredArray(const Json& object, std::string_view key);
Uuid requiredUuid(const Json& object, std::string_view key);
std::optional<Uuid> optionalUuid(const Json& object, std::string_view key);

// Reads a plain member through nlohmann's conversions, as a JsonDecodeError on failure.
template <class T> T decodeMember(const Json& object, std::string_view key) {
    const Json& value = requireMember(object, key);
    try {
        return value.get<T>();
    } catch (const nlohmann::json::exception& error) {
        throw JsonDecodeError("member \"" + std::string(key) + "\": " + error.what());
    }
}

// Runs a decoder that may throw, and gives absent for any failure of it.
template <class Decoder> auto decodeJson(std::string_view text, Decoder decoder)
    -> std::optional<decltype(decoder(std::declval<const Json&>()))> {
    auto json = parseJson(text);
    if (!json) return std::nullopt;
    try {
        return decoder(*json);
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

}  // namespace tamarind
