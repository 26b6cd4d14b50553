#pragma once
// A property-list value, the shape of every stored setting: a Boolean, a
// 64-bit integer, a double, a string, bytes, a date, or an array or dictionary
// of those. And its XML file form, which the settings file and anything that
// trades settings with other programs share.
//
// A plain value: any thread may use its own copies, and call the codec functions.

#include <concepts>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "foundation/Data.h"
#include "foundation/Date.h"

namespace tamarind {

struct PlistValue;
using PlistArray = std::vector<PlistValue>;
// Ordered by key, so the file is written the same way every time; std::less<> lets a string_view look up.
using PlistDictionary = std::map<std::string, PlistValue, std::less<>>;

// There is no empty or null value: a property list has none, and an absent setting is an absent optional.
struct PlistValue {
    using Storage = std::variant<bool, std::int64_t, double, std::string, Data, Date, PlistArray, PlistDictionary>;

    PlistValue(bool value) : storage(value) {}
    // Every integer that fits int64 exactly, and no more: a uint64 or size_t might not fit, so it must be cast
    // where it is known to. `char` is left out because a character stored as a number is always a slip.
    template <std::integral T>
        requires(!std::same_as<T, bool> && !std::same_as<T, char> &&
                 (std::is_signed_v<T> || sizeof(T) < sizeof(std::int64_t)))
    PlistValue(T value) : storage(static_cast<std::int64_t>(value)) {}
    PlistValue(double value) : storage(value) {}
    PlistValue(const char* value) : storage(std::string(value)) {}
    PlistValue(std::string_view value) : storage(std::string(value)) {}
    PlistValue(std::string value) : storage(std::move(value)) {}
    PlistValue(Data value) : storage(std::move(value)) {}
    PlistValue(Date value) : storage(value) {}
    PlistValue(PlistArray value) : storage(std::move(value)) {}
    PlistValue(PlistDictionary value) : storage(std::move(value)) {}
    // Any other pointer would quietly become a Boolean.
    PlistValue(std::nullptr_t) = delete;
    template <class T>
        requires(!std::same_as<std::remove_cv_t<T>, char>)
    PlistValue(T*) = delete;

    bool isBool() const { return std::holds_alternative<bool>(storage); }
    bool isInteger() const { return std::holds_alternative<std::int64_t>(storage); }
    bool isDouble() const { return std::holds_alternative<double>(storage); }
    bool isString() const { return std::holds_alternative<std::string>(storage); }
    bool isData() const { return std::holds_alternative<Data>(storage); }
    bool isDate() const { return std::holds_alternative<Date>(storage); }
    bool isArray() const { return std::holds_alternative<PlistArray>(storage); }
    bool isDictionary() const { return std::holds_alternative<PlistDictionary>(storage); }

    // The value when it is of that type, null otherwise; no conversions (Defaults' typed readers do those).
    const bool* asBool() const { return std::get_if<bool>(&storage); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&storage); }
    const double* asDouble() const { return std::get_if<double>(&storage); }
    const std::string* asString() const { return std::get_if<std::string>(&storage); }
    const Data* asData() const { return std::get_if<Data>(&storage); }
    const Date* asDate() const { return std::get_if<Date>(&storage); }
    const PlistArray* asArray() const { return std::get_if<PlistArray>(&storage); }
    const PlistDictionary* asDictionary() const { return std::get_if<PlistDictionary>(&storage); }

    // For logs and test failures, in the old plist style: {"key" = (1, 2.0, <0aff>, 2001-01-01T00:00:00Z);}.
    // A double always shows a point or exponent so that it can't be mistaken for an integer.
    std::string describe() const;

    // Same type and same contents. Doubles and dates compare by their bits: the question is "would this read
    // back as the same stored value", so -0.0 differs from 0.0 and a NaN equals itself. 1 (integer), 1.0 and
    // true are three different values.
    friend bool operator==(const PlistValue& a, const PlistValue& b);

    Storage storage;
};

std::ostream& operator<<(std::ostream& stream, const PlistValue& value);

// How many arrays and dictionaries may nest in a stored dictionary, its own level not counted: far more than
// settings need, and a cap so that a crafted file can't exhaust the stack when read.
constexpr int kMaxPlistDepth = 512;

// Whether an entry of a dictionary can be written: no NUL character in a string or key (XML can't carry one),
// dates within the years 1 to 9999 (an ISO 8601 year has four digits), nesting within kMaxPlistDepth.
bool isStorableInPlist(std::string_view key, const PlistValue& value);

// The XML property-list text of a dictionary, as Apple's tools and libplist read it. Dates keep their
// fractional seconds (exactly from 2001 on, see Date::iso8601); doubles are written with the shortest digits
// that read back bit for bit. Absent when an entry is not storable.
std::optional<std::string> encodePlistXml(const PlistDictionary& dictionary);

// The dictionary in an XML or binary ("bplist00") property list, or why there is none: not a property list,
// truncated, a top level that is not a dictionary, a key holding a NUL (binary lists only), or a date,
// number or base64 that can't be read exactly (rather than guessing a value, which libplist would). An integer beyond int64 but within uint64 comes back
// as the nearest double. Binary lists keep dates to the microsecond only.
struct PlistDecoding {
    std::optional<PlistDictionary> dictionary;
    std::string error;  // "the top level is an array, not a dictionary"; empty on success
};
PlistDecoding decodePlist(std::string_view bytes);

}  // namespace tamarind
