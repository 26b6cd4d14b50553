#include "foundation/PlistValue.h"

#include <plist/plist.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <ostream>
#include <vector>

namespace tamarind {

namespace {

template <class... Fs>
struct Overloaded : Fs... {
    using Fs::operator()...;
};
template <class... Fs>
Overloaded(Fs...) -> Overloaded<Fs...>;

bool sameDouble(double a, double b) {
    if (std::isnan(a) && std::isnan(b)) return true;  // a payload is not something the file can keep
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// The dates whose ISO 8601 text has a four-digit year, which is what Date::parseIso8601 reads.
bool isWritableDate(Date date) {
    static const double first = Date::parseIso8601("0001-01-01T00:00:00Z")->secondsSinceReferenceDate();
    static const double pastLast = Date::parseIso8601("9999-12-31T23:59:59Z")->secondsSinceReferenceDate() + 1;
    double seconds = date.secondsSinceReferenceDate();
    return std::isfinite(seconds) && seconds >= first && seconds < pastLast;
}

std::string_view trimXmlSpace(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    std::size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
        if (x != b[i]) return false;
    }
    return true;
}

// Infinities as Apple's tools write them, so that they read our files.
std::string formatReal(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "+infinity" : "-infinity";
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

// Locale-independent and exact, unlike the atof libplist uses.
std::optional<double> parseReal(std::string_view text) {
    text = trimXmlSpace(text);
    for (std::string_view name : {"nan", "+nan", "-nan"})
        if (equalsIgnoringCase(text, name)) return std::numeric_limits<double>::quiet_NaN();
    for (std::string_view name : {"inf", "+inf", "infinity", "+infinity"})
        if (equalsIgnoringCase(text, name)) return std::numeric_limits<double>::infinity();
    for (std::string_view name : {"-inf", "-infinity"})
        if (equalsIgnoringCase(text, name)) return -std::numeric_limits<double>::infinity();
    if (text.starts_with('+')) {
        text.remove_prefix(1);  // from_chars takes no '+'
        if (text.starts_with('-')) return std::nullopt;
    }
    double value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
    return value;
}

// Decimal, or hexadecimal after "0x". A leading zero is not octal, as libplist's strtoull would take it.
std::optional<PlistValue> parseInteger(std::string_view text) {
    text = trimXmlSpace(text);
    bool isNegative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        isNegative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (isNegative) {
        if (magnitude > largest + 1) return std::nullopt;
        return PlistValue(static_cast<std::int64_t>(0 - magnitude));  // two's complement, so INT64_MIN too
    }
    if (magnitude > largest) return PlistValue(static_cast<double>(magnitude));
    return PlistValue(static_cast<std::int64_t>(magnitude));
}

std::optional<Data> parseBase64(std::string_view text) {
    std::string compact;
    for (char c : text)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') compact += c;
    return base64Decode(compact);
}

// Up to 40 characters of a value that could not be read, for the reason text.
std::string quoted(std::string_view text) {
    text = trimXmlSpace(text);
    std::string shown(text.substr(0, 40));
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || c == '"') c = '?';
    return "\"" + shown + (text.size() > 40 ? "...\"" : "\"");
}

// --- The leaf elements we read and write ourselves -------------------------------------------------------------
//
// libplist 2.2 writes dates without their fraction and holds them as int32 seconds, writes -0.0 as 0.0, reads
// reals with the locale's atof, integers with strtoull (so "010" is eight, and overflow saturates), and skips
// what is not base64. So the text of these elements is ours: before libplist sees a document, each one's text
// is replaced by a placeholder numbering it, and the numbers lead back to the values we parsed.

using LeafRewrite =
    std::function<std::optional<std::string>(std::string_view tag, std::string_view text, std::string& error)>;

// Returns `xml` with the text of every element named in `tags` replaced by what `rewrite` gives for it (a
// self-closing element counts as empty text). Comments, CDATA sections, processing instructions and the DOCTYPE
// are copied as they are, since what looks like an element there isn't one. A construct left open is copied as
// it is too: libplist rejects the document then.
std::optional<std::string> rewriteLeaves(std::string_view xml, std::initializer_list<std::string_view> tags,
                                         const LeafRewrite& rewrite, std::string& error) {
    std::string out;
    out.reserve(xml.size());
    std::size_t at = 0;
    auto skipPast = [&](std::size_t from, std::string_view end) {
        std::size_t found = xml.find(end, from);
        return found == std::string_view::npos ? xml.size() : found + end.size();
    };
    while (at < xml.size()) {
        std::size_t open = xml.find('<', at);
        if (open == std::string_view::npos) break;
        std::string_view rest = xml.substr(open);
        std::size_t next = 0;
        if (rest.starts_with("<!--")) {
            next = skipPast(open + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            next = skipPast(open + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            next = skipPast(open + 2, "?>");
        } else if (rest.starts_with("<!")) {
            int depth = 0;  // a DOCTYPE's internal subset may hold '>'
            next = open + 2;
            while (next < xml.size() && (xml[next] != '>' || depth > 0)) {
                if (xml[next] == '[') ++depth;
                if (xml[next] == ']') --depth;
                ++next;
            }
            next = std::min(next + 1, xml.size());
        } else {
            std::size_t nameEnd = xml.find_first_of(" \t\r\n/>", open + 1);
            std::string_view name = xml.substr(open + 1, nameEnd == std::string_view::npos ? 0 : nameEnd - open - 1);
            bool isLeaf = false;
            for (std::string_view tag : tags) isLeaf = isLeaf || name == tag;
            std::size_t startEnd = isLeaf ? xml.find('>', nameEnd) : std::string_view::npos;
            if (startEnd == std::string_view::npos) {
                next = open + 1;
            } else {
                std::string_view text;
                if (xml[startEnd - 1] == '/') {
                    next = startEnd + 1;
                } else {
                    std::size_t close = xml.find("</" + std::string(name), startEnd + 1);
                    std::size_t closeEnd = close == std::string_view::npos ? close : xml.find('>', close);
                    if (closeEnd == std::string_view::npos) {
                        error = "a <" + std::string(name) + "> is not closed";
                        return std::nullopt;
                    }
                    text = xml.substr(startEnd + 1, close - startEnd - 1);
                    next = closeEnd + 1;
                }
                auto replacement = rewrite(name, text, error);
                if (!replacement) return std::nullopt;
                out.append(xml.substr(at, open - at));
                out.append("<").append(name).append(">").append(*replacement).append("</").append(name).append(">");
                at = next;
                continue;
            }
        }
        out.append(xml.substr(at, next - at));
        at = next;
    }
    out.append(xml.substr(std::min(at, xml.size())));
    return out;
}

// The values behind the placeholders of one document, by number.
struct Leaves {
    std::vector<PlistValue> integers;  // int64, or a double beyond it
    std::vector<double> reals;
    std::vector<Date> dates;
    std::vector<Data> datas;
};

// --- libplist nodes ---------------------------------------------------------------------------------------------

struct NodeDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

Node makeNode(const PlistValue& value, Leaves& leaves) {
    return std::visit(Overloaded{
                          [](bool flag) { return Node(plist_new_bool(flag ? 1 : 0)); },
                          [](std::int64_t number) { return Node(plist_new_uint(static_cast<std::uint64_t>(number))); },
                          [&](double number) {
                              leaves.reals.push_back(number);
                              return Node(plist_new_real(static_cast<double>(leaves.reals.size() - 1)));
                          },
                          [](const std::string& text) { return Node(plist_new_string(text.c_str())); },
                          [](const Data& bytes) {
                              return Node(plist_new_data(
                                  bytes.empty() ? "" : reinterpret_cast<const char*>(bytes.data()), bytes.size()));
                          },
                          [&](Date date) {
                              leaves.dates.push_back(date);
                              return Node(plist_new_date(static_cast<std::int32_t>(leaves.dates.size() - 1), 0));
                          },
                          [&](const PlistArray& array) {
                              Node node(plist_new_array());
                              for (const PlistValue& item : array)
                                  plist_array_append_item(node.get(), makeNode(item, leaves).release());
                              return node;
                          },
                          [&](const PlistDictionary& dictionary) {
                              Node node(plist_new_dict());
                              for (const auto& [key, item] : dictionary)
                                  plist_dict_set_item(node.get(), key.c_str(), makeNode(item, leaves).release());
                              return node;
                          },
                      },
                      value.storage);
}

std::string_view typeName(plist_type type) {
    switch (type) {
    case PLIST_BOOLEAN:
        return "a Boolean";
    case PLIST_UINT:
        return "an integer";
    case PLIST_REAL:
        return "a real";
    case PLIST_STRING:
        return "a string";
    case PLIST_ARRAY:
        return "an array";
    case PLIST_DICT:
        return "a dictionary";
    case PLIST_DATE:
        return "a date";
    case PLIST_DATA:
        return "data";
    case PLIST_KEY:
        return "a key";
    case PLIST_UID:
        return "a UID";
    default:
        return "nothing";
    }
}

// libplist 2.2 aborts the process (an assert in plist_get_key_val) on a dictionary key in UTF-16 that holds
// U+0000, and cuts an ASCII key short at a NUL; only a binary list can carry either. So such a list is
// refused before libplist reads it: every dictionary in the object table is walked, and each of its keys
// that is a string is looked at once. What this walk can't follow (a bad offset, a count past the end) it
// leaves to libplist.
bool binaryListHasKeyWithNul(std::string_view bytes) {
    constexpr std::size_t trailerSize = 32;  // after "bplist00" and the objects
    if (bytes.size() < 8 + trailerSize) return false;
    auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    auto readBigEndian = [&](std::size_t at, std::size_t size, std::uint64_t& out) {
        if (size == 0 || size > 8 || at > bytes.size() || bytes.size() - at < size) return false;
        out = 0;
        for (std::size_t i = 0; i < size; ++i) out = out << 8 | byteAt(at + i);
        return true;
    };
    const std::size_t trailer = bytes.size() - trailerSize;
    const std::size_t offsetSize = byteAt(trailer + 6), referenceSize = byteAt(trailer + 7);
    std::uint64_t objectCount = 0, tableOffset = 0;
    if (!readBigEndian(trailer + 8, 8, objectCount) || !readBigEndian(trailer + 24, 8, tableOffset)) return false;
    if (offsetSize == 0 || offsetSize > 8 || referenceSize == 0 || referenceSize > 8) return false;
    if (tableOffset > trailer || objectCount > (trailer - tableOffset) / offsetSize) return false;

    auto objectAt = [&](std::uint64_t index, std::size_t& at) {
        std::uint64_t offset = 0;
        if (index >= objectCount || !readBigEndian(tableOffset + index * offsetSize, offsetSize, offset)) return false;
        at = static_cast<std::size_t>(offset);
        return offset < trailer;
    };
    // The count in a marker's low four bits, or, when they are all set, in the integer object after it; of
    // a 16-byte integer libplist takes the low 8 bytes.
    auto readCount = [&](std::size_t& at, std::uint64_t& count) {
        count = byteAt(at++) & 0xF;
        if (count != 0xF) return true;
        if (at >= trailer || (byteAt(at) & 0xF0) != 0x10 || (byteAt(at) & 0xF) > 4) return false;
        std::size_t size = std::size_t{1} << (byteAt(at++) & 0xF);
        if (!readBigEndian(at + (size > 8 ? size - 8 : 0), std::min<std::size_t>(size, 8), count)) return false;
        at += size;
        return true;
    };
    std::vector<bool> looked(static_cast<std::size_t>(objectCount));
    for (std::uint64_t index = 0; index < objectCount; ++index) {
        std::size_t at = 0;
        std::uint64_t count = 0;
        if (!objectAt(index, at) || byteAt(at) >> 4 != 0xD || !readCount(at, count)) continue;
        if (count > (trailer - std::min(at, trailer)) / referenceSize) continue;
        for (std::uint64_t entry = 0; entry < count; ++entry) {
            std::uint64_t key = 0;
            std::size_t keyAt = 0;
            std::uint64_t length = 0;
            if (!readBigEndian(at + entry * referenceSize, referenceSize, key) || !objectAt(key, keyAt)) continue;
            if (looked[key]) continue;
            looked[key] = true;
            unsigned type = byteAt(keyAt) >> 4;  // 5: ASCII, 6: UTF-16
            if ((type != 0x5 && type != 0x6) || !readCount(keyAt, length)) continue;
            std::size_t unit = type == 0x6 ? 2 : 1;
            if (length > (trailer - std::min(keyAt, trailer)) / unit) continue;
            for (std::size_t character = 0; character < length; ++character) {
                std::size_t first = keyAt + character * unit;
                if (byteAt(first) == 0 && byteAt(first + unit - 1) == 0) return true;
            }
        }
    }
    return false;
}

// `leaves` is null for a binary list, whose values libplist reads exactly (dates to the microsecond).
std::optional<PlistValue> valueFromNode(plist_t node, const Leaves* leaves, int depth, std::string& error) {
    auto leafIndex = [&](double number, std::size_t count) -> std::optional<std::size_t> {
        if (number >= 0 && number < static_cast<double>(count) && number == std::floor(number))
            return static_cast<std::size_t>(number);
        error = "a value could not be read";  // a leaf element we did not see, e.g. inside markup we don't know
        return std::nullopt;
    };
    if (depth > kMaxPlistDepth) {
        error = "it is nested too deeply";
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return PlistValue(flag != 0);
    }
    case PLIST_UINT: {
        std::uint64_t number = 0;
        plist_get_uint_val(node, &number);
        if (!leaves) return PlistValue(static_cast<std::int64_t>(number));
        auto index = leafIndex(static_cast<double>(number), leaves->integers.size());
        if (!index) return std::nullopt;
        return leaves->integers[*index];
    }
    case PLIST_REAL: {
        double number = 0;
        plist_get_real_val(node, &number);
        if (!leaves) return PlistValue(number);
        auto index = leafIndex(number, leaves->reals.size());
        if (!index) return std::nullopt;
        return PlistValue(leaves->reals[*index]);
    }
    case PLIST_STRING: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return PlistValue(std::string(text ? text : "", text ? length : 0));
    }
    case PLIST_DATA: {
        std::uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        Data data(bytes, bytes ? bytes + length : bytes);
        if (!leaves) return PlistValue(std::move(data));
        std::size_t number = 0;
        auto parsed = std::from_chars(reinterpret_cast<const char*>(data.data()),
                                      reinterpret_cast<const char*>(data.data() + data.size()), number);
        auto index = leafIndex(parsed.ec == std::errc() ? static_cast<double>(number) : -1, leaves->datas.size());
        if (!index) return std::nullopt;
        return PlistValue(leaves->datas[*index]);
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        if (!leaves) return PlistValue(Date::fromReferenceSeconds(seconds + microseconds / 1e6));
        auto index = leafIndex(microseconds == 0 ? seconds : -1, leaves->dates.size());
        if (!index) return std::nullopt;
        return PlistValue(leaves->dates[*index]);
    }
    case PLIST_ARRAY: {
        PlistArray array;
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator, &item);
            if (!item) break;
            auto value = valueFromNode(item, leaves, depth + 1, error);
            if (!value) {
                std::free(iterator);
                return std::nullopt;
            }
            array.push_back(std::move(*value));
        }
        std::free(iterator);
        return PlistValue(std::move(array));
    }
    case PLIST_DICT: {
        PlistDictionary dictionary;
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &key, &item);
            std::string name(key ? key : "");
            std::free(key);
            if (!item) break;
            auto value = valueFromNode(item, leaves, depth + 1, error);
            if (!value) {
                std::free(iterator);
                return std::nullopt;
            }
            dictionary.insert_or_assign(std::move(name), std::move(*value));
        }
        std::free(iterator);
        return PlistValue(std::move(dictionary));
    }
    default:
        error = "it holds " + std::string(typeName(plist_get_node_type(node))) + ", which settings never use";
        return std::nullopt;
    }
}

void describeTo(const PlistValue& value, std::string& out) {
    std::visit(Overloaded{
                   [&](bool flag) { out += flag ? "true" : "false"; },
                   [&](std::int64_t number) { out += std::to_string(number); },
                   [&](double number) {
                       std::string text = formatReal(number);
                       if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
                       out += text;
                   },
                   [&](const std::string& text) {
                       out += '"';
                       for (char c : text) {
                           if (c == '"' || c == '\\') {
                               out += '\\';
                               out += c;
                           } else if (c == '\n') {
                               out += "\\n";
                           } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                               char escape[8];
                               std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
                               out += escape;
                           } else {
                               out += c;
                           }
                       }
                       out += '"';
                   },
                   [&](const Data& bytes) {
                       out += '<';
                       for (std::uint8_t byte : bytes) {
                           char hex[3];
                           std::snprintf(hex, sizeof hex, "%02x", byte);
                           out += hex;
                       }
                       out += '>';
                   },
                   [&](Date date) {
                       out += isWritableDate(date) ? date.iso8601()
                                                   : "date(" + formatReal(date.secondsSinceReferenceDate()) + ")";
                   },
                   [&](const PlistArray& array) {
                       out += '(';
                       for (std::size_t i = 0; i < array.size(); ++i) {
                           if (i > 0) out += ", ";
                           describeTo(array[i], out);
                       }
                       out += ')';
                   },
                   [&](const PlistDictionary& dictionary) {
                       out += '{';
                       for (const auto& [key, item] : dictionary) {
                           if (out.back() != '{') out += ' ';
                           describeTo(PlistValue(key), out);
                           out += " = ";
                           describeTo(item, out);
                           out += ';';
                       }
                       out += '}';
                   },
               },
               value.storage);
}

}  // namespace

std::string PlistValue::describe() const {
    std::string out;
    describeTo(*this, out);
    return out;
}

bool operator==(const PlistValue& a, const PlistValue& b) {
    if (a.storage.index() != b.storage.index()) return false;
    if (auto number = a.asDouble()) return sameDouble(*number, *b.asDouble());
    if (auto date = a.asDate())
        return sameDouble(date->secondsSinceReferenceDate(), b.asDate()->secondsSinceReferenceDate());
    return a.storage == b.storage;  // arrays and dictionaries come back here for each element
}

std::ostream& operator<<(std::ostream& stream, const PlistValue& value) { return stream << value.describe(); }

namespace {

bool isStorable(std::string_view key, const PlistValue& value, int depth) {
    if (key.find('\0') != std::string_view::npos || depth > kMaxPlistDepth) return false;
    if (auto text = value.asString()) return text->find('\0') == std::string::npos;
    if (auto date = value.asDate()) return isWritableDate(*date);
    if (auto array = value.asArray()) {
        for (const PlistValue& item : *array)
            if (!isStorable({}, item, depth + 1)) return false;
    }
    if (auto dictionary = value.asDictionary()) {
        for (const auto& [name, item] : *dictionary)
            if (!isStorable(name, item, depth + 1)) return false;
    }
    return true;
}

}  // namespace

bool isStorableInPlist(std::string_view key, const PlistValue& value) { return isStorable(key, value, 1); }

std::optional<std::string> encodePlistXml(const PlistDictionary& dictionary) {
    for (const auto& [key, value] : dictionary)
        if (!isStorableInPlist(key, value)) return std::nullopt;
    Leaves leaves;
    Node root = makeNode(PlistValue(dictionary), leaves);
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    if (!xml) return std::nullopt;
    std::string text(xml, length);
    plist_to_xml_free(xml);

    std::string error;
    return rewriteLeaves(
        text, {"real", "date"},
        [&](std::string_view tag, std::string_view placeholder, std::string&) -> std::optional<std::string> {
            if (tag == "real") {
                auto index = parseReal(placeholder);
                if (!index || *index < 0 || *index >= static_cast<double>(leaves.reals.size())) return std::nullopt;
                return formatReal(leaves.reals[static_cast<std::size_t>(*index)]);
            }
            auto index = Date::parseIso8601(trimXmlSpace(placeholder));
            double number = index ? index->secondsSinceReferenceDate() : -1;
            if (number < 0 || number >= static_cast<double>(leaves.dates.size())) return std::nullopt;
            return leaves.dates[static_cast<std::size_t>(number)].iso8601();
        },
        error);
}

PlistDecoding decodePlist(std::string_view bytes) {
    PlistDecoding result;
    if (bytes.empty()) {
        result.error = "the file is empty";
        return result;
    }
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        result.error = "the file is too large";
        return result;
    }
    auto length = static_cast<std::uint32_t>(bytes.size());
    plist_t parsed = nullptr;
    Leaves leaves;
    bool isBinary = plist_is_binary(bytes.data(), length) != 0;
    if (isBinary) {
        if (binaryListHasKeyWithNul(bytes)) {
            result.error = "a key holds a NUL character";
            return result;
        }
        plist_from_bin(bytes.data(), length, &parsed);
    } else {
        auto marked = rewriteLeaves(
            bytes, {"integer", "real", "date", "data"},
            [&](std::string_view tag, std::string_view text, std::string& error) -> std::optional<std::string> {
                if (tag == "integer") {
                    auto number = parseInteger(text);
                    if (!number) {
                        error = "the integer " + quoted(text) + " can't be read";
                        return std::nullopt;
                    }
                    leaves.integers.push_back(std::move(*number));
                    return std::to_string(leaves.integers.size() - 1);
                }
                if (tag == "real") {
                    auto number = parseReal(text);
                    if (!number) {
                        error = "the real " + quoted(text) + " can't be read";
                        return std::nullopt;
                    }
                    leaves.reals.push_back(*number);
                    return std::to_string(leaves.reals.size() - 1);
                }
                if (tag == "date") {
                    auto date = Date::parseIso8601(trimXmlSpace(text));
                    if (!date) {
                        error = "the date " + quoted(text) + " can't be read";
                        return std::nullopt;
                    }
                    leaves.dates.push_back(*date);
                    return Date::fromReferenceSeconds(static_cast<double>(leaves.dates.size() - 1)).iso8601();
                }
                auto data = parseBase64(text);
                if (!data) {
                    error = "a <data> holds something other than base64";  // its bytes might be private
                    return std::nullopt;
                }
                leaves.datas.push_back(std::move(*data));
                return base64Encode(dataFromString(std::to_string(leaves.datas.size() - 1)));
            },
            result.error);
        if (!marked) return result;
        if (marked->size() <= std::numeric_limits<std::uint32_t>::max())
            plist_from_xml(marked->data(), static_cast<std::uint32_t>(marked->size()), &parsed);
    }
    Node root(parsed);
    if (!root) {
        result.error = isBinary ? "not a readable binary property list" : "not a property list, or cut short";
        return result;
    }
    if (plist_get_node_type(root.get()) != PLIST_DICT) {
        result.error =
            "the top level is " + std::string(typeName(plist_get_node_type(root.get()))) + ", not a dictionary";
        return result;
    }
    auto value = valueFromNode(root.get(), isBinary ? nullptr : &leaves, 0, result.error);
    if (!value) return result;
    result.dictionary = std::get<PlistDictionary>(std::move(value->storage));
    return result;
}

}  // namespace tamarind
