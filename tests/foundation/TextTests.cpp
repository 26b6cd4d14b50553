#include <gtest/gtest.h>

#include <cstdint>

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

TEST(TextGraphemes, CountsWhatTheUserSeesAsOneCharacter) {
    EXPECT_EQ(graphemeCount(""), 0u);
    EXPECT_EQ(graphemeCount(kDecomposedE), 1u);
    EXPECT_EQ(graphemeCount(kFamily), 1u);
    EXPECT_EQ(graphemeCount(kFrenchFlag), 1u);
    EXPECT_EQ(graphemeCount(kFrenchFlag + kFrenchFlag), 2u);
    EXPECT_EQ(graphemeCount("\r\n"), 1u);
    EXPECT_EQ(graphemeCount("\r\r\n\n"), 3u);
    EXPECT_EQ(graphemeCount("1\uFE0F\u20E3"), 1u);           // keycap
    EXPECT_EQ(graphemeCount("\u1112\u1161\u11AB"), 1u);      // Hangul jamo L V T
    // ASCII next to non-ASCII is not always a boundary: a mark extends the letter before it, and
    // an Arabic number sign (Prepend) joins the digit after it.
    EXPECT_EQ(graphemeCount("a" + kDecomposedE + "b"), 3u);
    EXPECT_EQ(graphemeCount("\u06001"), 1u);
    EXPECT_EQ(graphemeCount("ab\u0600" "12"), 4u);
    EXPECT_EQ(graphemeCount("\u0915\u093E"), 1u);                  // Devanagari letter + spacing vowel sign
    EXPECT_EQ(graphemeCount("\U0001F44D\U0001F3FD"), 1u);          // thumbs up + skin tone
    EXPECT_EQ(graphemeCount("\U0001F600" + kFamily + "\U0001F600"), 3u);
    EXPECT_EQ(graphemeCount("\u0301\r\n\u0301"), 3u);              // a mark never joins a line break
    EXPECT_EQ(graphemeCount("a\u0301\u0302b\r\n"), 3u);
    // The same units, long enough that the ASCII shortcut and ICU hand over many times.
    std::string unit = "a" + kDecomposedE + kFamily + kFrenchFlag + " x\r\n";
    EXPECT_EQ(graphemeCount(repeated(unit, 5000)), 7u * 5000);
}

TEST(TextGraphemes, SplitsIntoViewsAndTakesWholeCharacterPrefixes) {
    std::string text = "a" + kDecomposedE + kFamily + kFrenchFlag + "\r\n";
    std::vector<std::string_view> pieces = graphemes(text);
    ASSERT_EQ(pieces.size(), 5u);
    EXPECT_EQ(pieces[0], "a");
    EXPECT_EQ(pieces[1], kDecomposedE);
    EXPECT_EQ(pieces[2], kFamily);
    EXPECT_EQ(pieces[3], kFrenchFlag);
    EXPECT_EQ(pieces[4], "\r\n");
    EXPECT_EQ(pieces[2].data(), text.data() + 4);  // views into the input, not copies
    EXPECT_TRUE(graphemes("").empty());

    EXPECT_EQ(graphemePrefix(text, 0), "");
    EXPECT_EQ(graphemePrefix(text, 2), "a" + kDecomposedE);
    EXPECT_EQ(graphemePrefix(text, 3), "a" + kDecomposedE + kFamily);
    EXPECT_EQ(graphemePrefix(text, 5), text);
    EXPECT_EQ(graphemePrefix(text, 99), text);
    EXPECT_EQ(graphemePrefix(kFamily + "x", 1), kFamily);
    EXPECT_EQ(graphemePrefix("", 3), "");
}

TEST(TextGraphemes, IllFormedBytesCountAsReplacementCharacters) {
    EXPECT_EQ(graphemeCount("\xE2\x82" "a"), 2u);  // truncated sequence: one U+FFFD
    EXPECT_EQ(graphemeCount("\xFF\xFE"), 2u);
    EXPECT_EQ(graphemeCount("a\xC3"), 2u);
    std::string text = "x\xF0\x9F" "y\x80";
    std::vector<std::string_view> pieces = graphemes(text);
    ASSERT_EQ(pieces.size(), 4u);
    EXPECT_EQ(pieces[1], "\xF0\x9F");
    EXPECT_EQ(pieces[3], "\x80");
    EXPECT_EQ(graphemePrefix(text, 2), "x\xF0\x9F");
}

TEST(TextTrimming, StripsUnicodeWhiteSpaceOnlyAtTheEnds) {
    EXPECT_EQ(trimmed(" \t\r\n hello world \n"), "hello world");
    EXPECT_EQ(trimmed("\u00A0\u2028\u3000\u0085x y\u2029\u202F\u00A0"), "x y");
    EXPECT_EQ(trimmed("\u200Bx\u200B"), "\u200Bx\u200B");  // not White_Space
    EXPECT_EQ(trimmed(" \u00A0\t "), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\u00E9 "), "\u00E9");
    // Ill-formed bytes are not white space, even a lone 0xA0 (the last byte of U+00A0).
    EXPECT_EQ(trimmed(" \xC3 "), "\xC3");
    EXPECT_EQ(trimmed("x\xA0"), "x\xA0");
    EXPECT_EQ(trimmed(" \xA0"), "\xA0");
    EXPECT_EQ(trimmed("x\u00A0\xA0"), "x\u00A0\xA0");
    EXPECT_EQ(trimmed("\xA0 x"), "\xA0 x");
    EXPECT_EQ(trimmed("x\xE3\x80\x80"), "x");  // U+3000
    EXPECT_EQ(trimmed("x\x80\x80"), "x\x80\x80");
}

// White space is tried through trimmed() above.
TEST(TextProperties, FollowGeneralCategoriesAcrossScripts) {
    for (char32_t c : {U'\n', U'\v', U'\f', U'\r', U'\u0085', U'\u2028', U'\u2029'}) EXPECT_TRUE(isNewline(c));
    for (char32_t c : {U'\t', U' ', U'\u00A0', U'\u000E'}) EXPECT_FALSE(isNewline(c));

    EXPECT_TRUE(isLetter(U'é'));
    EXPECT_TRUE(isLetter(U'ж'));
    EXPECT_TRUE(isLetter(U'字'));
    EXPECT_FALSE(isLetter(U'1'));
    EXPECT_FALSE(isLetter(U'\u0301'));
    EXPECT_TRUE(isMark(U'\u0301'));

    EXPECT_TRUE(isDecimalDigit(U'7'));
    EXPECT_TRUE(isDecimalDigit(U'\u0663'));   // ARABIC-INDIC DIGIT THREE
    EXPECT_FALSE(isDecimalDigit(U'\u00B2'));  // superscript two is No, not Nd
    EXPECT_FALSE(isDecimalDigit(U'\u2163'));  // ROMAN NUMERAL FOUR is Nl
    EXPECT_EQ(decimalDigitValue(U'\u0663'), 3);
    EXPECT_EQ(decimalDigitValue(U'9'), 9);
    EXPECT_EQ(decimalDigitValue(U'\u00B2'), -1);
    EXPECT_EQ(decimalDigitValue(U'x'), -1);

    EXPECT_TRUE(isUppercase(U'É'));
    EXPECT_FALSE(isUppercase(U'\u01C5'));  // Dž is title case (Lt)
    EXPECT_TRUE(isLowercase(U'ß'));
    EXPECT_FALSE(isLowercase(U'A'));

    for (char32_t c : {U'!', U'-', U'«', U'。', U'¿', U'_'})
        EXPECT_TRUE(isPunctuation(c)) << std::hex << static_cast<std::uint32_t>(c);
    for (char32_t c : {U'$', U'+', U'€', U'^', U'\U0001F600'}) {
        EXPECT_TRUE(isSymbol(c)) << std::hex << static_cast<std::uint32_t>(c);
        EXPECT_FALSE(isPunctuation(c)) << std::hex << static_cast<std::uint32_t>(c);
    }
    EXPECT_TRUE(isControl(U'\t'));
    EXPECT_FALSE(isControl(U'\u200B'));  // a format character (Cf)
}

TEST(TextCodePoints, DecodeIllFormedBytesAsOneReplacementPerMaximalSubpart) {
    constexpr char32_t fffd = kReplacementCharacter;
    EXPECT_EQ(codePoints("a\u00E9\U0001F600"), U"a\u00E9\U0001F600");
    EXPECT_EQ(codePoints("a\xE2\x82" "b\xFF"), (std::u32string{U'a', fffd, U'b', fffd}));
    EXPECT_EQ(codePoints("\xED\xA0\x80"), std::u32string(3, fffd));  // an encoded surrogate
    EXPECT_EQ(codePoints("\xC0\xAF"), std::u32string(2, fffd));      // overlong "/"
    EXPECT_EQ(codePoints("\xF4\x90\x80\x80"), std::u32string(4, fffd));  // past U+10FFFF
    EXPECT_EQ(codePointCount("\xF0\x9F\x98"), 1u);
    EXPECT_EQ(codePointCount("\U0001F600\u00E9"), 2u);

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

    EXPECT_TRUE(isValidUtf8("plain \u00E9\U0001F600"));
    EXPECT_FALSE(isValidUtf8("\xC0\xAF"));
    EXPECT_FALSE(isValidUtf8("abc\xE2\x82"));
    EXPECT_EQ(validUtf8("a\xE2\x82" "b\xFF\xFE"), "a\uFFFDb\uFFFD\uFFFD");
    EXPECT_EQ(validUtf8("ok \u00E9"), "ok \u00E9");
}

TEST(TextCase, UsesFullLocaleIndependentMappingsThatMayChangeLength) {
    EXPECT_EQ(uppercased("straße"), "STRASSE");
    EXPECT_EQ(uppercased("\uFB01"), "FI");         // ﬁ ligature
    EXPECT_EQ(uppercased("\u0149"), "\u02BCN");    // ŉ
    EXPECT_EQ(uppercased("abc \u00E9t\u00E9"), "ABC \u00C9T\u00C9");
    EXPECT_EQ(uppercased("i"), "I");              // not the Turkish dotted capital
    EXPECT_EQ(lowercased("\u0130"), "i\u0307");    // İ keeps its dot as a combining mark
    EXPECT_EQ(lowercased("I"), "i");
    EXPECT_EQ(lowercased("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C2");  // final sigma
    EXPECT_EQ(lowercased("HELLO"), "hello");
    EXPECT_EQ(uppercased("a\xFFz"), "A\uFFFDZ");
    EXPECT_EQ(lowercased("A\xE2\x82" "\u00C9"), "a\uFFFD\u00E9");
    EXPECT_EQ(uppercased(""), "");
}

TEST(TextCase, CapitalizesEachWordAtIcuWordBoundaries) {
    EXPECT_EQ(capitalized("hello wORLD"), "Hello World");
    EXPECT_EQ(capitalized("o'neil"), "O'neil");  // the apostrophe does not end the word
    EXPECT_EQ(capitalized("\u01C6emal"), "\u01C5emal");  // ǆ takes its title-case form, not Ǆ
    EXPECT_EQ(capitalized("\uFB01sh"), "Fish");
    EXPECT_EQ(capitalized("49ers (\u00E9T\u00C9)"), "49ers (\u00C9t\u00E9)");
    EXPECT_EQ(capitalized("x\xFF y"), "X\uFFFD Y");
    EXPECT_EQ(capitalized(""), "");
}

TEST(TextFolding, SearchFoldDropsCaseAndDiacritics) {
    EXPECT_EQ(searchFold("Café"), "cafe");
    EXPECT_EQ(searchFold("ÉCOLE"), "ecole");
    EXPECT_EQ(searchFold("Straße"), "strasse");
    EXPECT_EQ(searchFold("\u00E9"), "e");
    EXPECT_EQ(searchFold(kDecomposedE), "e");
    EXPECT_EQ(searchFold("x" + kDecomposedE + "Y"), "xey");
    EXPECT_EQ(searchFold("\u212B"), "a");  // ANGSTROM SIGN
    EXPECT_EQ(searchFold("\u1F08\u03B8\u1FC6\u03BD\u03B1\u03B9"), "\u03B1\u03B8\u03B7\u03BD\u03B1\u03B9");
    // Composition comes back at the end: Hangul stays in syllables, whatever form it came in.
    EXPECT_EQ(searchFold("\uD55C\uAD6D"), "\uD55C\uAD6D");
    EXPECT_EQ(searchFold("\u1112\u1161\u11AB"), "\uD55C");
    EXPECT_EQ(searchFold("\u00C7A \xFF"), "ca \uFFFD");
    // Code points 1024 apart share a slot in the per-thread cache and must not get each other's fold.
    EXPECT_EQ(searchFold("\u00C9\u04E8\u00C9\u04E8"), "e\u04E9e\u04E9");
    EXPECT_EQ(searchFold(""), "");
    std::string unit = "Crème Brûlée ÉTÉ " + kFamily + " Straße ";
    EXPECT_EQ(searchFold(repeated(unit, 2000)), repeated("creme brulee ete " + kFamily + " strasse ", 2000));
}

TEST(TextFolding, CaseInsensitiveFoldKeepsDiacriticsInComposedForm) {
    EXPECT_EQ(caseInsensitiveFold("Café"), "café");
    EXPECT_EQ(caseInsensitiveFold("CAFE\u0301"), "café");  // precomposed after folding
    EXPECT_EQ(caseInsensitiveFold("Straße"), "strasse");
    EXPECT_EQ(caseInsensitiveFold("\u01C4\u01C5"), "\u01C6\u01C6");
    // A mark after a precomposed letter is reordered and composed with it, not folded apart.
    EXPECT_EQ(caseInsensitiveFold("\u00C9\u0323"), "\u1EB9\u0301");
    EXPECT_EQ(caseInsensitiveFold("\u1100\u1161"), "\uAC00");
}

TEST(TextFolding, StandardContainsIgnoresCaseAndDiacriticsButCaseInsensitiveContainsOnlyCase) {
    EXPECT_TRUE(localizedStandardContains("Café au lait", "cafe"));
    EXPECT_TRUE(localizedStandardContains("RÉSUMÉ", "resume"));
    EXPECT_TRUE(localizedStandardContains("resume", "RÉSUMÉ"));
    EXPECT_TRUE(localizedStandardContains("Cafe\u0301", "CAFÉ"));
    EXPECT_TRUE(localizedStandardContains("Hello World", "o w"));
    EXPECT_FALSE(localizedStandardContains("Hello World", "o  w"));
    EXPECT_FALSE(localizedStandardContains("Hello", "hellO!"));
    EXPECT_FALSE(localizedStandardContains("Hello", ""));
    EXPECT_FALSE(localizedStandardContains("", ""));
    EXPECT_FALSE(localizedStandardContains("e\u0301", "\u0301"));

    EXPECT_TRUE(localizedCaseInsensitiveContains("Hello", "ELL"));
    EXPECT_FALSE(localizedCaseInsensitiveContains("Café", "cafe"));
    EXPECT_TRUE(localizedCaseInsensitiveContains("Café", "CAFÉ"));
    EXPECT_TRUE(localizedCaseInsensitiveContains("Cafe\u0301 noir", "café"));
    EXPECT_TRUE(localizedCaseInsensitiveContains("STRASSE", "straße"));
    EXPECT_TRUE(localizedCaseInsensitiveContains("Straße", "STRASSE"));
    EXPECT_FALSE(localizedCaseInsensitiveContains("Hello", ""));
    EXPECT_FALSE(localizedCaseInsensitiveContains("Hello", "hellO!"));

    EXPECT_TRUE(caseInsensitiveEquals("straße", "STRASSE"));
    EXPECT_TRUE(caseInsensitiveEquals("\u00E9", kDecomposedE));
    EXPECT_TRUE(caseInsensitiveEquals("HeLLo", "hello"));
    EXPECT_FALSE(caseInsensitiveEquals("Café", "CAFE"));
    EXPECT_FALSE(caseInsensitiveEquals("abc", "abcd"));
    EXPECT_TRUE(caseInsensitiveEquals("", ""));
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

TEST(TextLines, SplitsAtEveryUnicodeNewlineWithCrLfAsOne) {
    std::vector<std::string_view> expected = {"a", "b", "c", "d", "e", "f", "g", "h", "i"};
    EXPECT_EQ(lines("a\r\nb\rc\nd\u2028e\u2029f\u0085g\vh\fi"), expected);
    EXPECT_EQ(lines("a\n"), (std::vector<std::string_view>{"a", ""}));
    EXPECT_EQ(lines(""), (std::vector<std::string_view>{""}));
    EXPECT_EQ(lines("\r\n\r\n"), (std::vector<std::string_view>{"", "", ""}));
    EXPECT_EQ(lines("\n\r"), (std::vector<std::string_view>{"", "", ""}));
    EXPECT_EQ(lines("a\xE2\x80" "b\xC2"), (std::vector<std::string_view>{"a\xE2\x80" "b\xC2"}));
    EXPECT_EQ(lines("\u00E9\u2028\u00E8"), (std::vector<std::string_view>{"\u00E9", "\u00E8"}));

    EXPECT_EQ(firstLine("one\u2028two"), "one");
    EXPECT_EQ(firstLine("no newline"), "no newline");
    EXPECT_EQ(firstLine("\r\nsecond"), "");
    EXPECT_EQ(firstLine(""), "");

    EXPECT_EQ(replacingNewlinesWithSpaces("a\r\nb\n\nc\u2028d\u0085"), "a b  c d ");
    EXPECT_EQ(replacingNewlinesWithSpaces("x\xFF\ny"), "x\uFFFD y");
}

TEST(TextLines, SplitKeepsEmptyPiecesAndJoinUndoesIt) {
    EXPECT_EQ(split("a,,b,", ","), (std::vector<std::string_view>{"a", "", "b", ""}));
    EXPECT_EQ(split("a::b", "::"), (std::vector<std::string_view>{"a", "b"}));
    EXPECT_EQ(split("aaa", "aa"), (std::vector<std::string_view>{"", "a"}));
    EXPECT_EQ(split("", ","), (std::vector<std::string_view>{""}));
    EXPECT_EQ(split("abc", ""), (std::vector<std::string_view>{"abc"}));
    EXPECT_EQ(split("a\r\nb", "\n"), (std::vector<std::string_view>{"a\r", "b"}));

    for (std::string_view text : {"a,,b,", "", ",", "x"}) EXPECT_EQ(join(split(text, ","), ","), text);
    EXPECT_EQ(join(std::vector<std::string>{"a", "b", "c"}, " - "), "a - b - c");
    EXPECT_EQ(join(std::vector<std::string>{}, ","), "");
}

// A cluster longer than the stretch handed to ICU at once must still be one character.
TEST(TextGraphemes, AHugePileOfCombiningMarksStaysOneCharacter) {
    std::string pile = "e";
    for (int i = 0; i < 50000; ++i) pile += "\u0301";  // 100,000 bytes of marks
    std::string text = pile + "xy" + pile;
    EXPECT_EQ(graphemeCount(text), 4u);
    EXPECT_EQ(graphemePrefix(text, 1), pile);
    EXPECT_EQ(graphemePrefix(text, 3), pile + "xy");
    EXPECT_EQ(graphemes(text).back().size(), pile.size());
}

}  // namespace
}  // namespace tamarind
