#include "capture/SensitiveContent.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Regex.h"
#include "foundation/Text.h"

namespace tamarind {

// --- What to do with a flagged clip ---------------------------------------------------------------

std::string_view rawValue(SensitiveHandling handling) {
    switch (handling) {
    case SensitiveHandling::skip: return "skip";
    case SensitiveHandling::storeBlurred: return "storeBlurred";
    case SensitiveHandling::storeNormally: return "storeNormally";
    }
    return "storeBlurred";
}

std::string_view pickerLabel(SensitiveHandling handling) {
    switch (handling) {
    case SensitiveHandling::skip: return "Don't store them";
    case SensitiveHandling::storeBlurred: return "Store, blurred until revealed";
    case SensitiveHandling::storeNormally: return "Store them normally";
    }
    return "Store, blurred until revealed";
}

std::string_view explanation(SensitiveHandling handling) {
    switch (handling) {
    case SensitiveHandling::skip: return "Safest. A false positive means losing a clip you wanted.";
    case SensitiveHandling::storeBlurred:
        return "Recommended. The clip is kept but never rendered in passing \u2014 not in a card, a preview, or a "
               "notification.";
    case SensitiveHandling::storeNormally:
        return "The flag is recorded but nothing is hidden. Choose this only if the blur gets in your way.";
    }
    return "";
}

SensitiveHandling sensitiveHandlingFromRawValue(std::string_view raw) {
    for (SensitiveHandling handling : kAllSensitiveHandlings)
        if (rawValue(handling) == raw) return handling;
    return kDefaultSensitiveHandling;
}

// --- Detection -------------------------------------------------------------------------------------

namespace {

// The text split into what the user sees as characters.
using Characters = std::vector<std::string_view>;

struct KeyPrefix {
    std::string_view prefix;    // ASCII
    std::size_t minimumLength;  // in characters, prefix included
};

constexpr std::array<KeyPrefix, 11> kKeyPrefixes = {{
    {"sk-", 20},
    {"pk_live", 20},
    {"sk_live", 20},
    {"ghp_", 20},
    {"gho_", 20},
    {"github_pat_", 30},
    {"AKIA", 20},
    {"ASIA", 20},
    {"xoxb-", 20},
    {"xoxp-", 20},
    {"AIza", 30},
}};

constexpr std::string_view kCardNumberPattern = "(?<![0-9])(?:[0-9]{4}[ -]?){3,4}[0-9]{1,4}(?![0-9])";
constexpr std::size_t kMinCardDigits = 13;
constexpr std::size_t kMaxCardDigits = 19;

constexpr std::string_view kEmailAddressPattern = "^[A-Za-z0-9._%+-]+@[A-Za-z0-9.-]+\\.[A-Za-z]{2,}$";
constexpr std::size_t kMinPasswordLength = 12;
constexpr std::size_t kMaxPasswordLength = 128;
constexpr double kMinPasswordNonLetterShare = 0.15;

// The property tables live in ICU, which only Text and Regex may talk to; Regex reads them through
// \p{...}. These are compiled once and shared, as a compiled Regex allows.
const std::optional<Regex>& numericCodePoint() {
    static const std::optional<Regex> expression = Regex::compile("\\P{Numeric_Type=None}");
    return expression;
}

// Group n + 1 takes part when the code point stands for the whole number n.
const std::optional<Regex>& digitValueGroups() {
    static const std::optional<Regex> expression = Regex::compile(
        "(\\p{Numeric_Value=0})|(\\p{Numeric_Value=1})|(\\p{Numeric_Value=2})|(\\p{Numeric_Value=3})|"
        "(\\p{Numeric_Value=4})|(\\p{Numeric_Value=5})|(\\p{Numeric_Value=6})|(\\p{Numeric_Value=7})|"
        "(\\p{Numeric_Value=8})|(\\p{Numeric_Value=9})");
    return expression;
}

const std::optional<Regex>& lowercaseCodePoint() {
    static const std::optional<Regex> expression = Regex::compile("\\p{Lowercase}");
    return expression;
}

const std::optional<Regex>& uppercaseCodePoint() {
    static const std::optional<Regex> expression = Regex::compile("\\p{Uppercase}");
    return expression;
}

const std::optional<Regex>& emailAddress() {
    static const std::optional<Regex> expression = Regex::compile(kEmailAddressPattern);
    return expression;
}

bool matchesWhole(const std::optional<Regex>& expression, std::string_view text) {
    return expression && expression->matches(text);
}

bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

// A one-byte character; "\r\n" is ASCII too but two bytes, and goes the general way.
bool isAsciiCharacter(std::string_view character) {
    return character.size() == 1 && static_cast<unsigned char>(character[0]) < 0x80;
}

std::string_view firstCodePointOf(std::string_view character) {
    std::size_t end = 0;
    if (!character.empty()) decodeCodePoint(character, end);
    return character.substr(0, end);
}

char32_t firstCodePoint(std::string_view character) {
    std::size_t offset = 0;
    return character.empty() ? kReplacementCharacter : decodeCodePoint(character, offset);
}

bool isSingleCodePoint(std::string_view character) {
    return !character.empty() && firstCodePointOf(character).size() == character.size();
}

// Like the rest of the character properties here, white space, letters and numbers are decided by
// the first code point: " " + U+0301 is white space, "e" + U+0301 a letter.
bool isWhiteSpaceCharacter(std::string_view character) {
    if (isAsciiCharacter(character)) return character[0] == ' ' || (character[0] >= '\t' && character[0] <= '\r');
    return isWhiteSpace(firstCodePoint(character));
}

bool isLetterCharacter(std::string_view character) {
    if (isAsciiCharacter(character))
        return (character[0] >= 'a' && character[0] <= 'z') || (character[0] >= 'A' && character[0] <= 'Z');
    return isLetter(firstCodePoint(character));
}

// Any numeric type, not only decimal digits: "٣", "Ⅻ", "½", "²" and the Han "五" are numbers.
bool isNumberCharacter(std::string_view character) {
    if (isAsciiCharacter(character)) return isAsciiDigit(character[0]);
    if (isDecimalDigit(firstCodePoint(character))) return true;
    return matchesWhole(numericCodePoint(), firstCodePointOf(character));
}

// 0...9 for a single code point that stands for that whole number, in any script or form ("٣",
// "Ⅲ", "③", "³"); -1 for anything else, larger numbers ("Ⅻ") and fractions included.
int digitValue(std::string_view character) {
    if (isAsciiCharacter(character)) return isAsciiDigit(character[0]) ? character[0] - '0' : -1;
    if (!isSingleCodePoint(character)) return -1;
    if (int value = decimalDigitValue(firstCodePoint(character)); value >= 0) return value;
    const std::optional<Regex>& groups = digitValueGroups();
    if (!groups) return -1;
    std::optional<RegexMatch> match = groups->firstMatch(character);
    if (!match || match->begin != 0 || match->end != character.size()) return -1;
    for (std::size_t group = 0; group < match->groups.size(); ++group)
        if (match->groups[group]) return static_cast<int>(group);
    return -1;
}

// Case belongs to the whole character: "e" + U+0301 is lowercase because lowercasing leaves it
// as it is while uppercasing changes it. A lone code point with the Lowercase property counts too,
// which takes in letters no uppercase exists for ("ĸ", "ª").
bool isLowercaseCharacter(std::string_view character) {
    if (isAsciiCharacter(character)) return character[0] >= 'a' && character[0] <= 'z';
    if (isSingleCodePoint(character) && matchesWhole(lowercaseCodePoint(), character)) return true;
    return lowercased(character) == character && uppercased(character) != character;
}

bool isUppercaseCharacter(std::string_view character) {
    if (isAsciiCharacter(character)) return character[0] >= 'A' && character[0] <= 'Z';
    if (isSingleCodePoint(character) && matchesWhole(uppercaseCodePoint(), character)) return true;
    return uppercased(character) == character && lowercased(character) != character;
}

// Whether chars[begin...] starts with `ascii`, each of its bytes a character of its own: ":/" +
// "/" + U+0301 does not hold "://".
bool startsWithCharacters(const Characters& chars, std::size_t begin, std::string_view ascii) {
    if (chars.size() - begin < ascii.size()) return false;
    for (std::size_t k = 0; k < ascii.size(); ++k)
        if (chars[begin + k].size() != 1 || chars[begin + k][0] != ascii[k]) return false;
    return true;
}

bool containsCharacters(const Characters& chars, std::string_view ascii) {
    for (std::size_t begin = 0; begin + ascii.size() <= chars.size(); ++begin)
        if (startsWithCharacters(chars, begin, ascii)) return true;
    return false;
}

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Where a window of text may end without cutting a code point: at a lead byte at most three back,
// or at `at` itself when it is a fourth continuation byte in a row, which belongs to no code point
// before it.
std::size_t codePointBoundaryNear(std::string_view text, std::size_t at) {
    std::size_t cut = at;
    for (int k = 0; k < 3 && isContinuationByte(text[cut]); ++k) --cut;
    return isContinuationByte(text[cut]) ? at : cut;
}

// Calls `visit(character)` for each character in order until it returns false, in one pass that
// stops there: Text splits only a whole text at once, and the scan must neither split a huge text
// it will turn down nor split an accepted one twice.
//
// Whether two code points are split depends only on what comes before the split and the code point
// after it, so the characters Text finds in a window are the text's own, except that the last one
// may go on past the window. It is left for the next window to start with.
template <class Visit>
void forEachCharacter(std::string_view text, Visit&& visit) {
    std::size_t window = 64 * 1024;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const bool reachesEnd = text.size() - begin <= window;
        const std::size_t end = reachesEnd ? text.size() : codePointBoundaryNear(text, begin + window);
        Characters chars = graphemes(text.substr(begin, end - begin));
        if (!reachesEnd) {
            if (chars.size() < 2) {  // one character fills the window
                window *= 2;
                continue;
            }
            chars.pop_back();
        }
        for (std::string_view character : chars)
            if (!visit(character)) return;
        begin = static_cast<std::size_t>(chars.back().data() + chars.back().size() - text.data());
    }
}

// A white-space-separated token, described by what the key table needs.
struct Token {
    std::string_view text;
    std::size_t length = 0;     // in characters
    std::size_t asciiLead = 0;  // how many characters at its start are one ASCII byte each
};

bool isKnownKey(const Token& token) {
    for (const KeyPrefix& row : kKeyPrefixes)
        if (token.length >= row.minimumLength && token.asciiLead >= row.prefix.size() &&
            token.text.starts_with(row.prefix))
            return true;
    return false;
}

struct CharacterWalk {
    bool isOverLimit = false;  // more than the limit; nothing else is then known
    bool hasKnownKey = false;
    std::size_t count = 0;  // characters seen, which is all of them unless the walk stopped early
};

// One walk over the characters that both counts them against `limit` and looks for a key, so the
// detector's largest texts are split into characters only once.
CharacterWalk walkCharacters(std::string_view text, std::size_t limit, bool stopsAtKey) {
    CharacterWalk walk;
    Token token;
    std::size_t tokenBegin = 0;
    auto endToken = [&](std::size_t tokenEnd) {
        if (token.length == 0) return;
        token.text = text.substr(tokenBegin, tokenEnd - tokenBegin);
        walk.hasKnownKey = walk.hasKnownKey || isKnownKey(token);
        token = Token{};
    };
    forEachCharacter(text, [&](std::string_view character) {
        if (++walk.count > limit) {
            walk.isOverLimit = true;
            return false;
        }
        const auto offset = static_cast<std::size_t>(character.data() - text.data());
        if (isWhiteSpaceCharacter(character)) {
            endToken(offset);
            return !(stopsAtKey && walk.hasKnownKey);
        }
        if (token.length == 0) tokenBegin = offset;
        if (token.asciiLead == token.length && isAsciiCharacter(character)) ++token.asciiLead;
        ++token.length;
        return true;
    });
    if (!walk.isOverLimit) endToken(text.size());
    return walk;
}

// Byte classes as tables: the web-token and card scans read every byte of texts up to megabytes long.
using ByteClass = std::array<bool, 256>;

constexpr ByteClass kWebTokenBytes = [] {
    ByteClass bytes{};
    for (int c = 0; c < 256; ++c)
        bytes[c] = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    return bytes;
}();

constexpr ByteClass kCardNumberBytes = [] {
    ByteClass bytes{};
    for (int c = 0; c < 256; ++c) bytes[c] = (c >= '0' && c <= '9') || c == ' ' || c == '-';
    return bytes;
}();

bool isWebTokenByte(char c) { return kWebTokenBytes[static_cast<unsigned char>(c)]; }

// Whether "eyJ[A-Za-z0-9_-]{8,}\.[A-Za-z0-9_-]{8,}\.[A-Za-z0-9_-]*" occurs anywhere, decided in
// one pass. ICU backtracks from every "eyJ" to the end of its run, which is quadratic on a long
// run of them with no dot, and past its step limit it would give up and miss a later token.
//
// The pattern's characters are all ASCII, and the dot is not one of them, so a match is: a run of
// token bytes holding "eyJ" with at least 8 more bytes after it, a dot, a run of at least 8, a dot.
// The third part may be empty. The earliest "eyJ" in a run leaves the most bytes after it.
bool containsWebToken(std::string_view text) {
    const std::size_t size = text.size();
    std::size_t index = 0;
    while (index < size) {
        if (!isWebTokenByte(text[index])) {
            ++index;
            continue;
        }
        const std::size_t runBegin = index;
        while (index < size && isWebTokenByte(text[index])) ++index;
        if (index == size || text[index] != '.') continue;
        const std::string_view header = text.substr(runBegin, index - runBegin);
        const std::size_t marker = header.find("eyJ");
        if (marker == std::string_view::npos || header.size() - marker - 3 < 8) continue;
        std::size_t payloadEnd = index + 1;
        while (payloadEnd < size && isWebTokenByte(text[payloadEnd])) ++payloadEnd;
        if (payloadEnd - (index + 1) >= 8 && payloadEnd < size && text[payloadEnd] == '.') return true;
        // The payload run may still be the header of a later token; the loop comes back to it.
    }
    return false;
}

bool isCardNumberByte(char c) { return kCardNumberBytes[static_cast<unsigned char>(c)]; }

// The parts of `text` the card expression can find a long enough number in, each on a line of its
// own: runs of digits, blanks and hyphens holding at least 13 digits. A match never leaves such a
// run, and what its look-behind and look-ahead see at a run's ends, something other than a digit,
// is the same here as in the text. The expression then runs over a few bytes instead of a
// 100,000-character text that holds only a card number, or none.
std::string cardNumberCandidates(std::string_view text) {
    std::string candidates;
    std::size_t index = 0;
    while (index < text.size()) {
        if (!isCardNumberByte(text[index])) {
            ++index;
            continue;
        }
        const std::size_t runBegin = index;
        std::size_t digits = 0;
        for (; index < text.size() && isCardNumberByte(text[index]); ++index) digits += isAsciiDigit(text[index]);
        if (digits < kMinCardDigits) continue;
        candidates.append(text.substr(runBegin, index - runBegin));
        candidates += '\n';
    }
    return candidates;
}

// Every step must hold. The order puts the cheap bounds before the e-mail expression.
//
// This is the "high-entropy single token" of the settings text, a name kept from an earlier
// design: no entropy is computed. The character classes and the share of non-letters are the rule,
// and a Shannon-entropy measure must never replace them: it would change which clips are skipped
// or hidden without anything in the settings saying so.
bool looksLikePasswordIn(std::string_view text, const Characters& chars) {
    for (std::string_view character : chars)
        if (isWhiteSpaceCharacter(character)) return false;
    if (chars.size() < kMinPasswordLength || chars.size() > kMaxPasswordLength) return false;
    if (containsCharacters(chars, "://")) return false;
    if (const std::optional<Regex>& email = emailAddress(); email && email->containsMatch(text)) return false;

    bool hasLowercase = false;
    bool hasUppercase = false;
    bool hasNumber = false;
    bool hasOther = false;
    std::size_t nonLetters = 0;
    for (std::string_view character : chars) {
        const bool letter = isLetterCharacter(character);
        const bool number = isNumberCharacter(character);
        if (!letter) ++nonLetters;
        hasNumber = hasNumber || number;
        hasOther = hasOther || (!letter && !number);
        hasLowercase = hasLowercase || isLowercaseCharacter(character);
        hasUppercase = hasUppercase || isUppercaseCharacter(character);
    }
    const int classes = int{hasLowercase} + int{hasUppercase} + int{hasNumber} + int{hasOther};
    if (classes < 3) return false;
    return static_cast<double>(nonLetters) / static_cast<double>(chars.size()) >= kMinPasswordNonLetterShare;
}

}  // namespace

SensitiveVerdict detectSensitive(std::string_view input) {
    const std::string_view text = trimmed(input);
    if (text.empty()) return SensitiveVerdict::noSignal;
    const CharacterWalk walk = walkCharacters(text, kMaxSensitiveScanCharacters, false);
    if (walk.isOverLimit) return SensitiveVerdict::noSignal;
    if (walk.hasKnownKey) return SensitiveVerdict::apiKey;
    if (containsWebToken(text)) return SensitiveVerdict::webToken;
    if (containsValidCardNumber(text)) return SensitiveVerdict::cardNumber;
    // The walk's count already rules out long texts, which would otherwise be counted again.
    if (walk.count <= kMaxPasswordLength && looksLikePassword(text)) return SensitiveVerdict::passwordLike;
    return SensitiveVerdict::noSignal;
}

bool containsKnownKeyPrefix(std::string_view text) {
    return walkCharacters(text, std::numeric_limits<std::size_t>::max(), true).hasKnownKey;
}

bool containsValidCardNumber(std::string_view text) {
    // Most texts hold no run of 13 digits at all, and need no expression.
    const std::string candidates = cardNumberCandidates(text);
    if (candidates.empty()) return false;
    static const std::optional<Regex> expression = Regex::compile(kCardNumberPattern);
    if (!expression) return false;
    for (const RegexMatch& match : expression->allMatches(candidates)) {
        // The expression admits only ASCII digits, blanks and hyphens.
        std::string digits;
        for (char c : match.text(candidates))
            if (isAsciiDigit(c)) digits += c;
        if (digits.size() < kMinCardDigits || digits.size() > kMaxCardDigits) continue;
        if (passesLuhn(digits)) return true;
    }
    return false;
}

bool passesLuhn(std::string_view digits) {
    if (digits.empty()) return false;
    // Card numbers come here as ASCII digits; only other scripts need splitting into characters.
    std::vector<int> values;
    values.reserve(digits.size());
    bool ascii = true;
    for (char c : digits) {
        if (!isAsciiDigit(c)) {
            ascii = false;
            break;
        }
        values.push_back(c - '0');
    }
    if (!ascii) {
        values.clear();
        for (std::string_view character : graphemes(digits)) {
            // A number that is no single digit ("Ⅻ", "½", "1" + U+20E3) fails like a letter.
            const int value = digitValue(character);
            if (value < 0) return false;
            values.push_back(value);
        }
    }

    std::uint64_t sum = 0;
    bool doubles = false;  // the rightmost digit is added as it stands
    for (auto value = values.rbegin(); value != values.rend(); ++value) {
        if (doubles)
            sum += *value >= 5 ? *value * 2 - 9 : *value * 2;
        else
            sum += *value;
        doubles = !doubles;
    }
    return sum % 10 == 0;
}

bool looksLikePassword(std::string_view text) {
    // A long text leaves before it is split into characters; the outcome is the same as checking
    // white space first, since every step must hold.
    if (graphemePrefix(text, kMaxPasswordLength).size() < text.size()) return false;
    return looksLikePasswordIn(text, graphemes(text));
}

}  // namespace tamarind
