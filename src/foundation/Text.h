#pragma once
// Unicode text as the rest of the program needs it: characters as the user sees them, trimming,
// case mappings, the folds that search uses, lines, and per-code-point properties. This module
// and Regex are the only places that talk to ICU.
//
// Pure functions; any thread may call (each thread keeps its own ICU iterators and fold cache).
//
// Text is UTF-8. Ill-formed bytes never crash anything: they read as U+FFFD, one per maximal
// ill-formed subsequence (ICU's and the WHATWG decoder's count), so "\xE2\x82" is one U+FFFD and
// "\xFF\xFE" two. Functions returning views into their input leave such bytes as they are;
// functions that transform text (case, folds, replacingNewlinesWithSpaces, validUtf8) write U+FFFD
// in their place, so what they return is valid UTF-8. join only concatenates.

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tamarind {

// --- Code points ---------------------------------------------------------------------------------

inline constexpr char32_t kReplacementCharacter = U'\uFFFD';

// Decodes the code point starting at `offset` and moves `offset` past it; an ill-formed
// subsequence gives U+FFFD. At or past the end: U+FFFD, and `offset` stays.
char32_t decodeCodePoint(std::string_view text, std::size_t& offset);

// Calls `callback(char32_t)` for each code point in order. A callback returning bool stops the
// walk by returning false.
template <class Callback>
void forEachCodePoint(std::string_view text, Callback&& callback) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        auto byte = static_cast<unsigned char>(text[offset]);
        char32_t codePoint = byte < 0x80 ? (++offset, char32_t{byte}) : decodeCodePoint(text, offset);
        if constexpr (std::is_same_v<std::invoke_result_t<Callback&, char32_t>, bool>) {
            if (!callback(codePoint)) return;
        } else {
            callback(codePoint);
        }
    }
}

std::u32string codePoints(std::string_view text);
std::size_t codePointCount(std::string_view text);
// Surrogates and values past U+10FFFF append U+FFFD.
void appendUtf8(std::string& out, char32_t codePoint);
bool isValidUtf8(std::string_view text);
// The text with every ill-formed subsequence replaced by U+FFFD.
std::string validUtf8(std::string_view text);

// --- Per-code-point properties (Unicode general categories unless said otherwise) -----------------

bool isWhiteSpace(char32_t c);    // the White_Space property: tabs, CR/LF, U+00A0, U+2028, U+3000...
bool isNewline(char32_t c);       // U+000A..U+000D, U+0085, U+2028, U+2029
bool isLetter(char32_t c);        // L*
bool isMark(char32_t c);          // M*
bool isDecimalDigit(char32_t c);  // Nd, in any script
int decimalDigitValue(char32_t c);  // 0...9 for an Nd code point, -1 for anything else
bool isUppercase(char32_t c);     // Lu
bool isLowercase(char32_t c);     // Ll
bool isPunctuation(char32_t c);   // P*
bool isSymbol(char32_t c);        // S*
bool isControl(char32_t c);       // Cc

// --- Characters (extended grapheme clusters) ------------------------------------------------------

// "e" + U+0301, a ZWJ family, a flag and "\r\n" each count as one.
std::size_t graphemeCount(std::string_view text);
// Views into `text`, in order; together they cover it exactly.
std::vector<std::string_view> graphemes(std::string_view text);
// The first `count` characters, never cutting one; the whole text if it has fewer.
std::string_view graphemePrefix(std::string_view text, std::size_t count);

// Without White_Space at either end. U+200B ZERO WIDTH SPACE is not White_Space and stays.
std::string_view trimmed(std::string_view text);

// --- Case (full mappings, root locale, so the same result whatever the user's language) -----------

std::string uppercased(std::string_view text);  // "ß" -> "SS", "ﬁ" -> "FI"
std::string lowercased(std::string_view text);  // "İ" -> "i̇" (i + U+0307)
// Each word's first cased letter in title case, the rest lower case; words are ICU's word
// boundaries, which keep an apostrophe between letters inside the word: "o'neil" -> "O'neil".
std::string capitalized(std::string_view text);

// --- Folds and comparisons ------------------------------------------------------------------------

// NFD, non-spacing marks (Mn) dropped, full case fold, NFC: "Café" -> "cafe", "Straße" -> "strasse".
// Searching folds both sides with this; a caller searching one text many times may fold it once.
std::string searchFold(std::string_view text);
// Full case fold and NFC, diacritics kept: "Straße" -> "strasse", "Café" -> "café".
std::string caseInsensitiveFold(std::string_view text);

// Case- and diacritic-insensitive substring test on searchFold of both sides. An empty needle,
// or one that folds to nothing (only combining marks), is never contained.
bool localizedStandardContains(std::string_view haystack, std::string_view needle);
// Case-insensitive, diacritic-sensitive substring test on caseInsensitiveFold of both sides; an
// empty needle is never contained.
bool localizedCaseInsensitiveContains(std::string_view haystack, std::string_view needle);
bool caseInsensitiveEquals(std::string_view a, std::string_view b);
// For sorting names the way a file manager does: root-locale collation with digits compared as
// numbers ("file 9" < "file 10"); texts the collator finds equal are ordered by their bytes, so
// only identical texts compare equal.
std::strong_ordering localizedStandardCompare(std::string_view a, std::string_view b);

// --- Lines and pieces -----------------------------------------------------------------------------

// Split at each newline ("\r\n" is one); keeps empty lines, so "a\n" is {"a", ""} and "" is {""}.
std::vector<std::string_view> lines(std::string_view text);
std::string_view firstLine(std::string_view text);
// Each newline ("\r\n" counting as one) becomes one space.
std::string replacingNewlinesWithSpaces(std::string_view text);
// Split at each exact occurrence of `separator`, keeping empty pieces; an empty separator gives
// the whole text as the only piece.
std::vector<std::string_view> split(std::string_view text, std::string_view separator);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);
std::string join(const std::vector<std::string_view>& pieces, std::string_view separator);

}  // namespace tamarind
