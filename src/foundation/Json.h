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
