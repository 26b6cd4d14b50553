#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "foundation/Defaults.h"

namespace tamarind {
namespace {

// A pointer or a uint64 would otherwise become a Boolean or wrap without a word.
static_assert(!std::is_constructible_v<PlistValue, std::nullptr_t>);
static_assert(!std::is_constructible_v<PlistValue, int*>);
static_assert(!std::is_constructible_v<PlistValue, const std::string*>);
static_assert(!std::is_constructible_v<PlistValue, std::uint64_t>);
static_assert(!std::is_constructible_v<PlistValue, char>);

TEST(PlistValue, ConstructorsKeepTheTypeTheCallerMeant) {
    char buffer[] = "mutable";
    EXPECT_EQ(PlistValue(PlistArray{"text", buffer, std::string_view("view"), 5, short{-3}, 7u,
                                    std::numeric_limits<std::int64_t>::min(), 5.0, 2.5f, false})
                  .describe(),
              R"(("text", "mutable", "view", 5, -3, 7, -9223372036854775808, 5.0, 2.5, false))");

    // The getters never convert.
    EXPECT_EQ(PlistValue(1).asDouble(), nullptr);
    EXPECT_EQ(PlistValue(1.0).asInteger(), nullptr);
    EXPECT_EQ(PlistValue(true).asInteger(), nullptr);
    EXPECT_EQ(PlistValue("1").asBool(), nullptr);
}

TEST(PlistValue, EqualityComparesTypesAndStoredBits) {
    EXPECT_NE(PlistValue(1), PlistValue(1.0));
    EXPECT_NE(PlistValue(1), PlistValue(true));
    EXPECT_NE(PlistValue(1.0), PlistValue(true));
    EXPECT_NE(PlistValue("1"), PlistValue(1));
    EXPECT_NE(PlistValue(Data{}), PlistValue(""));
    EXPECT_EQ(PlistValue(0.1), PlistValue(0.1));

    EXPECT_NE(PlistValue(0.0), PlistValue(-0.0));
    double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(PlistValue(nan), PlistValue(nan));
    EXPECT_EQ(PlistValue(nan), PlistValue(-nan));
    EXPECT_NE(PlistValue(nan), PlistValue(0.0));
    EXPECT_EQ(PlistValue(Date::fromReferenceSeconds(nan)), PlistValue(Date::fromReferenceSeconds(nan)));

    // The same rules hold deep inside containers.
    PlistDictionary nested{{"list", PlistArray{1, PlistDictionary{{"zero", 0.0}}}}};
    PlistDictionary same = nested;
    PlistDictionary negativeZero{{"list", PlistArray{1, PlistDictionary{{"zero", -0.0}}}}};
    PlistDictionary integerZero{{"list", PlistArray{1, PlistDictionary{{"zero", 0}}}}};
    EXPECT_EQ(PlistValue(nested), PlistValue(same));
    EXPECT_NE(PlistValue(nested), PlistValue(negativeZero));
    EXPECT_NE(PlistValue(nested), PlistValue(integerZero));
    EXPECT_NE(PlistValue(PlistArray{1}), PlistValue(PlistArray{1, 1}));
}

TEST(Defaults, BoolValueReadsNumbersAndWordsAsThePlatformDoes) {
    InMemoryDefaults defaults;
    for (PlistValue yes : {PlistValue(true), PlistValue(1), PlistValue(-1), PlistValue(0.5), PlistValue("YES"),
                           PlistValue("yes"), PlistValue("Yes"), PlistValue("true"), PlistValue("TRUE"),
                           PlistValue("1"), PlistValue(" 2 "), PlistValue("0.5"), PlistValue("-3")}) {
        defaults.set("flag", yes);
        EXPECT_TRUE(defaults.boolValue("flag")) << yes;
    }
    for (PlistValue no :
         {PlistValue(false), PlistValue(0), PlistValue(0.0), PlistValue("NO"), PlistValue("false"), PlistValue("0"),
          PlistValue("0.0"), PlistValue(""), PlistValue("yes please"), PlistValue("y"), PlistValue(Data{1}),
          PlistValue(PlistArray{true}), PlistValue(Date::fromReferenceSeconds(5))}) {
        defaults.set("flag", no);
        EXPECT_FALSE(defaults.boolValue("flag")) << no;
    }
}

TEST(Defaults, IntegerAndDoubleConvertNumbersBooleansAndNumericStrings) {
    InMemoryDefaults defaults;
    struct Case {
        PlistValue value;
        std::int64_t integer;
        double real;
    };
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    constexpr auto min = std::numeric_limits<std::int64_t>::min();
    for (const Case& test : {
             Case{3.9, 3, 3.9},
             Case{-3.9, -3, -3.9},
             Case{true, 1, 1.0},
             Case{false, 0, 0.0},
             Case{max, max, 9223372036854775807.0},
             Case{1e300, max, 1e300},
             Case{-1e300, min, -1e300},
             Case{"42", 42, 42.0},
             Case{" -7\n", -7, -7.0},
             Case{"+8", 8, 8.0},
             Case{"12.8", 12, 12.8},
             Case{"1e3", 1000, 1000.0},
             Case{".5", 0, 0.5},
             Case{"9223372036854775807", max, 9223372036854775807.0},  // exact, past a double's 53 bits
             Case{"99999999999999999999", max, 1e20},
             Case{"12abc", 0, 0.0},
             Case{"inf", 0, 0.0},
             Case{"", 0, 0.0},
             Case{Data{1}, 0, 0.0},
             Case{PlistArray{5}, 0, 0.0},
         }) {
        defaults.set("number", test.value);
        EXPECT_EQ(defaults.integer("number"), test.integer) << test.value;
        EXPECT_EQ(defaults.doubleValue("number"), test.real) << test.value;
    }
    defaults.set("number", std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(defaults.integer("number"), 0);
    EXPECT_TRUE(std::isnan(defaults.doubleValue("number")));
}

TEST(Defaults, StringRendersNumbersAndTheOtherReadersWantTheirOwnTypeOrGiveNothing) {
    InMemoryDefaults defaults(PlistDictionary{
        {"strings", PlistArray{"a", "", "c"}}, {"empty", PlistArray{}}, {"mixed", PlistArray{"a", 1}},
        {"nested", PlistArray{"a", PlistArray{"b"}}}, {"string", "text"}, {"integer", -42}, {"double", 0.1},
        {"wholeDouble", 2.0}, {"true", true}, {"data", Data{1, 2}}, {"date", Date::fromReferenceSeconds(10)},
        {"dictionary", PlistDictionary{{"k", 1}}}});
    std::string shown;
    for (const char* key : {"string", "integer", "double", "wholeDouble", "true", "data", "date", "strings", "absent"})
        shown += std::string(key) + "=" + defaults.string(key).value_or("none") + " ";
    EXPECT_EQ(shown, "string=text integer=-42 double=0.1 wholeDouble=2 true=1 data=none date=none strings=none "
                     "absent=none ");

    EXPECT_EQ(defaults.data("data"), (Data{1, 2}));
    EXPECT_EQ(defaults.date("date"), Date::fromReferenceSeconds(10));
    EXPECT_EQ(PlistValue(*defaults.dictionary("dictionary")), PlistValue(PlistDictionary{{"k", 1}}));
    EXPECT_EQ(PlistValue(*defaults.array("nested")), PlistValue(PlistArray{"a", PlistArray{"b"}}));
    EXPECT_FALSE(defaults.data("string") || defaults.date("double") || defaults.array("dictionary") ||
                 defaults.dictionary("strings"));

    // A string array needs every element to be a string.
    EXPECT_EQ(defaults.stringArray("strings"), (std::vector<std::string>{"a", "", "c"}));
    EXPECT_EQ(defaults.stringArray("empty"), std::vector<std::string>{});
    EXPECT_FALSE(defaults.stringArray("mixed") || defaults.stringArray("nested") || defaults.stringArray("string"));
    // An absent key reads as false, zero or nothing.
    EXPECT_FALSE(defaults.boolValue("absent") || defaults.integer("absent") || defaults.doubleValue("absent") ||
                 defaults.data("absent") || defaults.stringArray("absent"));
}

TEST(DefaultsObservers, HearEverySetAndRemoveAfterTheChange) {
    InMemoryDefaults defaults;
    std::vector<std::string> heard;
    std::vector<std::optional<PlistValue>> seen;
    auto first = defaults.observe([&](const std::string& key) {
        heard.push_back("first " + key);
        seen.push_back(defaults.object(key));
    });
    auto second = defaults.observe([&](const std::string& key) { heard.push_back("second " + key); });

    defaults.set("a", 1);
    defaults.set("a", 1);  // equal, still a change to tell of
    defaults.remove("a");
    defaults.remove("never there");
    EXPECT_EQ(heard, (std::vector<std::string>{"first a", "second a", "first a", "second a", "first a", "second a",
                                               "first never there", "second never there"}));
    EXPECT_EQ(seen, (std::vector<std::optional<PlistValue>>{PlistValue(1), PlistValue(1), std::nullopt, std::nullopt}));

    // A moved handle keeps the observation; only the one holding it ends it.
    heard.clear();
    DefaultsObservation moved = std::move(second);
    second = DefaultsObservation();
    EXPECT_TRUE(moved.isActive());
    defaults.set("b", 2);
    EXPECT_EQ(heard, (std::vector<std::string>{"first b", "second b"}));

    heard.clear();
    first.cancel();
    { DefaultsObservation gone = std::move(moved); }
    defaults.set("c", 3);
    EXPECT_TRUE(heard.empty());
    EXPECT_FALSE(first.isActive());

    // A handle may outlive its defaults.
    auto shortLived = std::make_unique<InMemoryDefaults>();
    auto orphan = shortLived->observe([&](const std::string& key) { heard.push_back(key); });
    shortLived.reset();
    EXPECT_FALSE(orphan.isActive());
    orphan.cancel();
}

TEST(DefaultsObservers, MayDropObserversAndChangeKeysFromInsideACallback) {
    InMemoryDefaults defaults;
    std::vector<std::string> heard;
    DefaultsObservation self;
    DefaultsObservation later;
    DefaultsObservation added;
    // Registered first, so it runs first: it drops itself and the one after it.
    self = defaults.observe([&](const std::string& key) {
        heard.push_back("self " + key);
        self = DefaultsObservation();
        later.cancel();
        added = defaults.observe([&](const std::string& key) { heard.push_back("added " + key); });
    });
    later = defaults.observe([&](const std::string& key) { heard.push_back("later " + key); });
    defaults.set("x", 1);
    EXPECT_EQ(heard, (std::vector<std::string>{"self x"}));
    defaults.set("y", 2);
    EXPECT_EQ(heard, (std::vector<std::string>{"self x", "added y"}));

    // A set from inside a callback is told at once, to everyone, before the outer change goes on.
    heard.clear();
    auto echo = defaults.observe([&](const std::string& key) {
        heard.push_back("echo " + key);
        if (key == "ping") defaults.set("pong", defaults.integer("ping") + 1);
    });
    defaults.set("ping", 1);
    EXPECT_EQ(heard, (std::vector<std::string>{"added ping", "echo ping", "added pong", "echo pong"}));
    EXPECT_EQ(defaults.integer("pong"), 2);
}

}  // namespace
}  // namespace tamarind
