#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/Regex.h"

namespace tamarind {
namespace {

using Range = std::pair<std::size_t, std::size_t>;

Regex compiled(std::string_view pattern, RegexOptions options = {}) {
    std::optional<Regex> regex = Regex::compile(pattern, options);
    if (!regex) ADD_FAILURE() << "did not compile: " << pattern;
    return regex ? *regex : *Regex::compile("(?!)");
}

std::string repeatedEmoji(std::size_t count) {
    std::string out;
    for (std::size_t k = 0; k < count; ++k) out += "\U0001F600";
    return out;
}

std::vector<Range> ranges(const std::vector<RegexMatch>& matches) {
    std::vector<Range> out;
    for (const RegexMatch& match : matches) out.emplace_back(match.begin, match.end);
    return out;
}

TEST(Regex, ReportsUtf8ByteOffsetsForMatchesAndGroups) {
    auto digit = compiled(R"(\d)").firstMatch("\u00E91");
    ASSERT_TRUE(digit);
    EXPECT_EQ(digit->begin, 2u);
    EXPECT_EQ(digit->end, 3u);

    std::string text = "\U0001F600 \u00E9l\u00E8ve@\u00E9cole.fr";
    auto email = compiled(R"((\p{L}+)@(\p{L}+)(?:\.(\d+))?)").firstMatch(text);
    ASSERT_TRUE(email);
    EXPECT_EQ(email->begin, 5u);
    EXPECT_EQ(email->text(text), "\u00E9l\u00E8ve@\u00E9cole");
    ASSERT_EQ(email->groups.size(), 3u);
    EXPECT_EQ(email->groups[0], Range(5, 12));
    EXPECT_EQ(email->groups[1], Range(13, 19));
    EXPECT_FALSE(email->groups[2]);  // the optional group took no part
    EXPECT_EQ(email->groupText(0, text), "\u00E9l\u00E8ve@\u00E9cole");
    EXPECT_EQ(email->groupText(2, text), "\u00E9cole");
    EXPECT_FALSE(email->groupText(3, text));
    EXPECT_FALSE(email->groupText(4, text));

    EXPECT_EQ(ranges(compiled(R"(\b\w+\b)").allMatches("\u00C9t\u00E9 \U0001F600 caf\u00E9")),
              (std::vector<Range>{{0, 5}, {11, 16}}));
    EXPECT_FALSE(compiled("x").firstMatch("abc"));
}

TEST(Regex, KeepsByteOffsetsRightThroughLongMultiByteText) {
    // Offsets far into the text, after many multi-byte characters, emoji and ill-formed bytes.
    std::string text;
    std::vector<std::string> numbers;
    for (int k = 0; k < 3000; ++k) {
        numbers.push_back(std::to_string(k * 7));
        text += (k % 3 == 0 ? "\u00E9t\u00E9 " : k % 3 == 1 ? "\U0001F600\U0001F1EB\U0001F1F7 " : "x\xE2\x82 ");
        text += numbers.back() + " ";
    }
    std::vector<RegexMatch> found = compiled(R"(\d+)").allMatches(text);
    ASSERT_EQ(found.size(), numbers.size());
    for (std::size_t k = 0; k < found.size(); ++k) EXPECT_EQ(found[k].text(text), numbers[k]) << k;

    // A lookbehind group lies before its match, and before the previous match's end.
    std::vector<RegexMatch> behind = compiled(R"((?<=(\p{L}{2}) ?)(\d))").allMatches("\u00E9t\u00E9 1 \u00E0\u00EF2");
    ASSERT_EQ(behind.size(), 2u);
    EXPECT_EQ(behind[0].groupText(1, "\u00E9t\u00E9 1 \u00E0\u00EF2"), "t\u00E9");
    EXPECT_EQ(behind[1].groupText(1, "\u00E9t\u00E9 1 \u00E0\u00EF2"), "\u00E0\u00EF");
    EXPECT_EQ(behind[1].begin, 12u);

    // The last match of a long text, reached in one jump.
    std::string tail = repeatedEmoji(5000) + "end";
    auto last = compiled("end").firstMatch(tail);
    ASSERT_TRUE(last);
    EXPECT_EQ(last->begin, 20000u);
}

TEST(Regex, MatchesWholeOrAnywhereNamesGroupsAndRejectsBadPatternsQuietly) {
    // matches() is the whole text, containsMatch() anywhere.
    Regex digits = compiled(R"(\d+)");
    EXPECT_TRUE(digits.matches("123"));
    EXPECT_FALSE(digits.matches("123a"));
    EXPECT_FALSE(digits.matches("a123"));
    EXPECT_TRUE(digits.containsMatch("a123"));
    EXPECT_TRUE(compiled("a*").matches(""));

    Regex named = compiled(R"((?<user>\w+)@(?<host>\w+))");
    EXPECT_EQ(named.captureGroupCount(), 2u);
    EXPECT_EQ(named.groupNumber("host"), 2u);
    EXPECT_FALSE(named.groupNumber("port"));

    for (std::string_view bad : {"(", "[a-", "a{2,1}", "\\", "*a", "(?<n>a)(?<n>b)", "\\p{NoSuchProperty}"})
        EXPECT_FALSE(Regex::compile(bad)) << bad;
}

TEST(Regex, OptionsChangeCaseLineAndDotBehaviour) {
    // Where each pattern first matches, without and with its option.
    auto at = [](std::string_view pattern, RegexOptions options, std::string_view text) {
        auto match = compiled(pattern, options).firstMatch(text);
        return match ? std::to_string(match->begin) : "none";
    };
    EXPECT_EQ(at("hello", {}, "HELLO") + "|" + at("hello", {.caseInsensitive = true}, "HELLO") + "|" +
                  at("\u00E9t\u00E9", {.caseInsensitive = true}, "\u00C9T\u00C9"),
              "none|0|0");
    EXPECT_EQ(at("^b$", {}, "a\nb\nc") + "|" + at("^b$", {.multiline = true}, "a\nb\nc"), "none|2");
    EXPECT_EQ(at("a.b", {}, "a\nb") + "|" + at("a.b", {.dotMatchesNewlines = true}, "a\nb"), "none|0");
}

TEST(Regex, EmptyMatchesAdvanceByWholeCodePoints) {
    EXPECT_EQ(ranges(compiled("a*").allMatches("baaac")), (std::vector<Range>{{0, 0}, {1, 4}, {4, 4}, {5, 5}}));
    EXPECT_EQ(ranges(compiled("x*").allMatches("\u00E9\U0001F600")), (std::vector<Range>{{0, 0}, {2, 2}, {6, 6}}));
    EXPECT_EQ(compiled(R"(\b)").allMatches(std::string(10000, ' ') + "word").size(), 2u);
    EXPECT_TRUE(compiled("q*").allMatches("").size() == 1);
}

TEST(Regex, ReplacesWithLiteralText) {
    EXPECT_EQ(compiled(R"((\w+))").replacingAllMatches("one two", "$1"), "$1 $1");
    EXPECT_EQ(compiled("o").replacingAllMatches("foo", R"(\0$0)"), R"(f\0$0\0$0)");
    EXPECT_EQ(compiled("[ \t]+").replacingAllMatches("a \t b\t\tc  ", " "), "a b c ");
    EXPECT_EQ(compiled("x*").replacingAllMatches("\u00E9b", "-"), "-\u00E9-b-");
    EXPECT_EQ(compiled(R"(\d)").replacingAllMatches("\u00E91\U0001F6002", "#"), "\u00E9#\U0001F600#");
    EXPECT_EQ(compiled("z").replacingAllMatches("abc", "Z"), "abc");
    EXPECT_EQ(compiled("b").replacingAllMatches("abc", ""), "ac");
}

TEST(Regex, IllFormedUtf8ReadsAsReplacementCharacters) {
    std::string text = "a\xFF" "b\xE2\x82";
    EXPECT_EQ(ranges(compiled(".").allMatches(text)), (std::vector<Range>{{0, 1}, {1, 2}, {2, 3}, {3, 5}}));
    EXPECT_EQ(ranges(compiled(R"(\x{FFFD})").allMatches(text)), (std::vector<Range>{{1, 2}, {3, 5}}));
    EXPECT_EQ(compiled("b").replacingAllMatches(text, "B"), "a\xFF" "B\xE2\x82");
    // An ill-formed byte in a pattern is a U+FFFD too, not a reason to fail.
    EXPECT_TRUE(compiled("a\xFF").containsMatch("a\uFFFD"));
}

TEST(Regex, RunawayPatternsGiveUpInsteadOfHanging) {
    // Exponential backtracking: would take far longer than the process lives.
    Regex catastrophic = compiled("(a+)+b");
    std::string as(40, 'a');
    EXPECT_FALSE(catastrophic.containsMatch(as));
    EXPECT_TRUE(catastrophic.containsMatch("aab"));

    // A long repetition needs a deep backtracking stack but is legitimate, and must still match.
    std::string longText(100000, 'a');
    longText[5000] = 'b';
    auto whole = compiled("(a|b)*").firstMatch(longText);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->end, longText.size());
    EXPECT_TRUE(compiled("(a|b)*").matches(longText));
}

TEST(Regex, CopiesShareThePatternAndThreadsCanSearchAtOnce) {
    std::optional<Regex> original = Regex::compile(R"(\b\d{4}\b)");
    ASSERT_TRUE(original);
    Regex copy = *original;
    original.reset();
    EXPECT_EQ(ranges(copy.allMatches("in 1999 and 2024")), (std::vector<Range>{{3, 7}, {12, 16}}));

    std::string text;
    for (int k = 0; k < 200; ++k) text += "year " + std::to_string(1000 + k) + ", ";
    const std::size_t expected = copy.allMatches(text).size();
    ASSERT_EQ(expected, 200u);
    std::vector<std::size_t> counts(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < counts.size(); ++t) {
        threads.emplace_back([&, t] {
            std::size_t total = 0;
            for (int round = 0; round < 50; ++round) total += copy.allMatches(text).size();
            counts[t] = total;
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::size_t count : counts) EXPECT_EQ(count, expected * 50);
}

}  // namespace
}  // namespace tamarind
