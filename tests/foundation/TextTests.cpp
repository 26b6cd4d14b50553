#include <gtest/gtest.h>

#include <type_traits>

#include "foundation/Text.h"

namespace tamarind {
namespace {

// man ZWJ woman ZWJ girl ZWJ boy
const std::string kFamily = "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";
const std::string kFrenchFlag = "\U0001F1EB\U0001F1F7";
const std::string kDecomposedE = "e\u0301";

std::string repeated(std::string_view unit, std::size_t times) {
    std::string out;
    for (std::size_t k = 0; k < times; ++k) out += unit;
    return out;
}

// f of each input, joined by "|": one comparison shows every case.
template <class F> std::string each(F f, std::initializer_list<std::string> inputs) {
    std::string out;
    for (const std::string& input : inputs) {
        auto result = f(input);
        if (!out.empty()) out += "|";
        if constexpr (std::is_arithmetic_v<decltype(result)>)
            out += std::to_string(result);
        else
            out += std::string(result);
    }
    return out;
}

// Each piece in angle brackets, so that an empty piece shows.
std::string joined(const std::vector<std::string_view>& pieces) {
    std::string out;
    for (std::string_view piece : pieces) out += "<" + std::string(piece) + ">";
    return out;
}

TEST(TextGraphemes, CountsWhatTheUserSeesAsOneCharacter) {
    EXPECT_EQ(each(graphemeCount, {"", kDecomposedE, kFamily, kFrenchFlag, kFrenchFlag + kFrenchFlag, "\r\n",
                                   "\r\r\n\n", "1\uFE0F\u20E3" /* keycap */, "\u1112\u1161\u11AB" /* Hangul L V T */,
                                   "\u0915\u093E" /* Devanagari letter and vowel sign */,
                                   "\U0001F44D\U0001F3FD" /* skin tone */, "\U0001F600" + kFamily + "\U0001F600"}),
              "0|1|1|1|2|1|3|1|1|1|1|3");
    // ASCII next to non-ASCII is not always a boundary: a mark extends the letter before it, and
    // an Arabic number sign (Prepend) joins the digit after it; a mark never joins a line break.
    EXPECT_EQ(each(graphemeCount, {"a" + kDecomposedE + "b", "\u06001", "ab\u0600" "12", "\u0301\r\n\u0301",
                                   "a\u0301\u0302b\r\n"}),
              "3|1|4|3|3");
    // The same units, long enough that the ASCII shortcut and ICU hand over many times.
    std::string unit = "a" + kDecomposedE + kFamily + kFrenchFlag + " x\r\n";
    EXPECT_EQ(graphemeCount(repeated(unit, 5000)), 7u * 5000);
    // Ill-formed bytes count as U+FFFD, a truncated sequence as one.
    EXPECT_EQ(each(graphemeCount, {"\xE2\x82" "a", "\xFF\xFE", "a\xC3"}), "2|2|2");
}

TEST(TextGraphemes, SplitsIntoViewsAndTakesWholeCharacterPrefixes) {
    std::string text = "a" + kDecomposedE + kFamily + kFrenchFlag + "\r\n";
    std::vector<std::string_view> pieces = graphemes(text);
    EXPECT_EQ(joined(pieces), "<a><" + kDecomposedE + "><" + kFamily + "><" + kFrenchFlag + "><\r\n>");
    ASSERT_EQ(pieces.size(), 5u);
    EXPECT_EQ(pieces[2].data(), text.data() + 4);  // views into the input, not copies
    EXPECT_TRUE(graphemes("").empty());
    EXPECT_EQ(joined(graphemes("x\xF0\x9F" "y\x80")), "<x><\xF0\x9F><y><\x80>");

    auto prefix = [&](std::size_t count) { return std::string(graphemePrefix(text, count)); };
    EXPECT_EQ(prefix(0), "");
    EXPECT_EQ(prefix(3), "a" + kDecomposedE + kFamily);
    EXPECT_EQ(prefix(5), text);
    EXPECT_EQ(prefix(99), text);
    EXPECT_EQ(graphemePrefix("x\xF0\x9F" "y\x80", 2), "x\xF0\x9F");
}

// A cluster longer than the stretch handed to ICU at once must still be one character.
TEST(TextGraphemes, AHugePileOfCombiningMarksStaysOneCharacter) {
    std::string pile = "e";
    for (int i = 0; i < 50000; ++i) pile += "\u0301";  // 100,000 bytes of marks
    std::string text = pile + "xy" + pile;
    EXPECT_EQ(graphemeCount(text), 4u);
    EXPECT_EQ(graphemePrefix(text, 3), pile + "xy");
    EXPECT_EQ(graphemes(text).back().size(), pile.size());
}

TEST(TextTrimming, StripsUnicodeWhiteSpaceOnlyAtTheEnds) {
    // U+200B is not White_Space; ill-formed bytes are not white space, even a lone 0xA0 (the last
    // byte of U+00A0).
    EXPECT_EQ(each(trimmed, {" \t\r\n hello world \n", "\u00A0\u2028\u3000\u0085x y\u2029\u202F\u00A0",
                             "\u200Bx\u200B", " \u00A0\t ", "", "\u00E9 ", " \xC3 ", "x\xA0", " \xA0",
                             "x\u00A0\xA0", "\xA0 x", "x\x80\x80"}),
              "hello world|x y|\u200Bx\u200B|||\u00E9|\xC3|x\xA0|\xA0|x\u00A0\xA0|\xA0 x|x\x80\x80");
}

TEST(TextCodePoints, DecodeIllFormedBytesAsOneReplacementPerMaximalSubpart) {
    // An encoded surrogate, an overlong "/", and a sequence past U+10FFFF.
    EXPECT_EQ(each(validUtf8, {"a\u00E9\U0001F600", "a\xE2\x82" "b\xFF\xFE", "\xED\xA0\x80", "\xC0\xAF",
                               "\xF4\x90\x80\x80"}),
              "a\u00E9\U0001F600|a\uFFFDb\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD|\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(codePoints("a\xE2\x82" "b"), (std::u32string{U'a', kReplacementCharacter, U'b'}));
    EXPECT_EQ(each(codePointCount, {"\xF0\x9F\x98", "\U0001F600\u00E9"}), "1|2");
    EXPECT_EQ(each(isValidUtf8, {"plain \u00E9\U0001F600", "\xC0\xAF", "abc\xE2\x82"}), "1|0|0");

    std::size_t offset = 1;
    EXPECT_EQ(decodeCodePoint("a\U0001F600b", offset), U'\U0001F600');
    EXPECT_EQ(offset, 5u);
    std::u32string seen;
    forEachCodePoint("abc", [&](char32_t c) {
        seen += c;
        return c != U'b';
    });
    EXPECT_EQ(seen, U"ab");
    std::string out;
    for (char32_t c : {U'A', U'\u00E9', U'\u20AC', U'\U0001F600', char32_t{0xD800}, char32_t{0x110000}})
        appendUtf8(out, c);
    EXPECT_EQ(out, "A\u00E9\u20AC\U0001F600\uFFFD\uFFFD");
}

TEST(TextCase, UsesFullLocaleIndependentMappingsThatMayChangeLength) {
    // Not the Turkish dotted capital for "i"; ill-formed bytes as U+FFFD.
    EXPECT_EQ(each(uppercased, {"straße", "\uFB01", "\u0149", "abc \u00E9t\u00E9", "i", "a\xFFz", ""}),
              "STRASSE|FI|\u02BCN|ABC \u00C9T\u00C9|I|A\uFFFDZ|");
    // İ keeps its dot as a combining mark; a final sigma.
    EXPECT_EQ(each(lowercased, {"\u0130", "I", "\u039F\u0394\u039F\u03A3", "A\xE2\x82" "\u00C9"}),
              "i\u0307|i|\u03BF\u03B4\u03BF\u03C2|a\uFFFD\u00E9");
    // The apostrophe does not end a word; ǆ takes its title-case form, not Ǆ.
    EXPECT_EQ(each(capitalized, {"hello wORLD", "o'neil", "\u01C6emal", "\uFB01sh", "49ers (\u00E9T\u00C9)", "x\xFF y"}),
              "Hello World|O'neil|\u01C5emal|Fish|49ers (\u00C9t\u00E9)|X\uFFFD Y");
}

TEST(TextFolding, SearchFoldDropsCaseAndDiacriticsAndTheCaseFoldKeepsThemComposed) {
    // The Angstrom sign; Hangul stays in syllables whatever form it came in; code points 1024
    // apart share a slot in the per-thread cache and must not get each other's fold.
    EXPECT_EQ(each(searchFold, {"Café", "Straße", "x" + kDecomposedE + "Y", "\u212B",
                                "\u1F08\u03B8\u1FC6\u03BD\u03B1\u03B9", "\uD55C\uAD6D", "\u1112\u1161\u11AB",
                                "\u00C7A \xFF", "\u00C9\u04E8\u00C9\u04E8", ""}),
              "cafe|strasse|xey|a|\u03B1\u03B8\u03B7\u03BD\u03B1\u03B9|\uD55C\uAD6D|\uD55C|ca \uFFFD|"
              "e\u04E9e\u04E9|");
    std::string unit = "Crème Brûlée ÉTÉ " + kFamily + " Straße ";
    EXPECT_EQ(searchFold(repeated(unit, 2000)), repeated("creme brulee ete " + kFamily + " strasse ", 2000));
    // A mark after a precomposed letter is reordered and composed with it, not folded apart.
    EXPECT_EQ(each(caseInsensitiveFold, {"Café", "CAFE\u0301", "Straße", "\u01C4\u01C5", "\u00C9\u0323", "\u1100\u1161"}),
              "café|café|strasse|\u01C6\u01C6|\u1EB9\u0301|\uAC00");
}

TEST(TextFolding, StandardContainsIgnoresCaseAndDiacriticsButCaseInsensitiveContainsOnlyCase) {
    auto within = [](auto contains, std::initializer_list<std::pair<std::string, std::string>> cases) {
        std::string out;
        for (const auto& [text, part] : cases) out += contains(text, part) ? "1" : "0";
        return out;
    };
    EXPECT_EQ(within(localizedStandardContains, {{"Café au lait", "cafe"}, {"resume", "RÉSUMÉ"}, {"Cafe\u0301", "CAFÉ"},
                                                 {"Hello World", "o w"}, {"Hello World", "o  w"}, {"Hello", "hellO!"},
                                                 {"Hello", ""}, {"", ""}, {"e\u0301", "\u0301"}}),
              "111100000");
    EXPECT_EQ(within(localizedCaseInsensitiveContains, {{"Hello", "ELL"}, {"Café", "cafe"}, {"Cafe\u0301 noir", "café"},
                                                        {"STRASSE", "straße"}, {"Straße", "STRASSE"}, {"Hello", ""},
                                                        {"Hello", "hellO!"}}),
              "1011100");
    EXPECT_EQ(within(caseInsensitiveEquals, {{"straße", "STRASSE"}, {"\u00E9", kDecomposedE}, {"Café", "CAFE"},
                                             {"abc", "abcd"}, {"", ""}}),
              "11001");
}

TEST(TextCompare, SortsNumbersByValueAndOnlyIdenticalTextsAreEqual) {
    EXPECT_TRUE(localizedStandardCompare("file 9", "file 10") < 0);
    EXPECT_TRUE(localizedStandardCompare("file 10", "file 9") > 0);
    EXPECT_TRUE(localizedStandardCompare("apple", "Banana") < 0);
    EXPECT_TRUE(localizedStandardCompare("Apple", "banana") < 0);
    EXPECT_TRUE(localizedStandardCompare("\u00E9clair", "fudge") < 0);
    EXPECT_TRUE(localizedStandardCompare("same", "same") == 0);
    // Canonically equivalent, so the collator ties them; the order must still be strict and consistent.
    std::strong_ordering forward = localizedStandardCompare("\u00E9", kDecomposedE);
    EXPECT_TRUE(forward != 0);
    EXPECT_TRUE(localizedStandardCompare(kDecomposedE, "\u00E9") == (0 <=> forward));
    EXPECT_TRUE(localizedStandardCompare("apple", "Apple") != 0);
}

TEST(TextLines, SplitAtEveryUnicodeNewlineWithCrLfAsOneAndSplitKeepsEmptyPieces) {
    auto lined = [](std::string_view text) { return joined(lines(text)); };
    EXPECT_EQ(each(lined, {"a\r\nb\rc\nd\u2028e\u2029f\u0085g\vh\fi", "a\n", "", "\r\n\r\n", "\n\r",
                           "a\xE2\x80" "b\xC2", "\u00E9\u2028\u00E8"}),
              "<a><b><c><d><e><f><g><h><i>|<a><>|<>|<><><>|<><><>|<a\xE2\x80" "b\xC2>|<\u00E9><\u00E8>");
    EXPECT_EQ(each(firstLine, {"one\u2028two", "no newline", "\r\nsecond", ""}), "one|no newline||");
    EXPECT_EQ(each(replacingNewlinesWithSpaces, {"a\r\nb\n\nc\u2028d\u0085", "x\xFF\ny"}), "a b  c d |x\uFFFD y");

    auto pieces = [](std::string_view text, std::string_view separator) { return joined(split(text, separator)) + " "; };
    EXPECT_EQ(pieces("a,,b,", ",") + pieces("a::b", "::") + pieces("aaa", "aa") + pieces("", ",") + pieces("abc", "") +
                  pieces("a\r\nb", "\n"),
              "<a><><b><> <a><b> <><a> <> <abc> <a\r><b> ");
    for (std::string_view text : {"a,,b,", "", ",", "x"}) EXPECT_EQ(join(split(text, ","), ","), text);
    EXPECT_EQ(join(std::vector<std::string>{"a", "b", "c"}, " - "), "a - b - c");
    EXPECT_EQ(join(std::vector<std::string>{}, ","), "");
}

}  // namespace
}  // namespace tamarind
