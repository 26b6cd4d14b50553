#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "rules/SmartRule.h"

namespace tamarind {
namespace {

using Field = RuleCondition::Field;

Uuid parsed(std::string_view text) { return *Uuid::parse(text); }

// Every field, every action and the other mode, with values that are easy to get wrong.
std::vector<SmartRule> sampleRules() {
    SmartRule first;
    first.id = parsed("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    first.name = "Work links — “quoted”";
    first.isEnabled = true;
    first.matchMode = RuleMatchMode::any;
    for (Field field : kAllRuleConditionFields)
        first.conditions.push_back({Uuid::random(), field, " value of " + std::string(rawValue(field)) + "\n"});
    first.actions = {RuleAction::addToCollection(Uuid::random(), "Work"), RuleAction::markFavorite(),
                     RuleAction::markSensitive(), RuleAction::skipCapture()};
    first.stopsOnMatch = true;
    first.sortIndex = 2.5;

    SmartRule second = SmartRule::makeNew();
    second.sortIndex = -0.001;
    return {first, second};
}

// "ok", or why the list was refused.
std::string decodeError(std::string_view text) {
    DecodedRules decoded = decodeRules(text);
    if (decoded.rules) return decoded.error.empty() ? "ok" : "ok with error " + decoded.error;
    return decoded.error.empty() ? "failed without a reason" : decoded.error;
}

// Refused, and with a reason to log.
void expectRefused(const std::string& text, const std::string& what) {
    std::string error = decodeError(text);
    EXPECT_NE(error, "ok") << what;
    EXPECT_NE(error, "failed without a reason") << what;
}

TEST(SmartRule, SummariesJoinConditionsByTheModeAndListTheActions) {
    SmartRule rule = SmartRule::makeNew();
    EXPECT_FALSE(rule.id.isNil());
    EXPECT_NE(rule.id, SmartRule::makeNew().id);
    EXPECT_EQ(rule.summary(), "No conditions \u2014 this rule never matches.");
    EXPECT_EQ(rule.actionsSummary(), "");

    rule = sampleRules()[0];
    rule.conditions.resize(2);
    EXPECT_EQ(rule.summary(), "content type is “ value of contentType\n” or source app is “ value of sourceApp\n”");
    rule.matchMode = RuleMatchMode::all;
    EXPECT_EQ(rule.summary(), "content type is “ value of contentType\n” and source app is “ value of sourceApp\n”");
    EXPECT_EQ(rule.actionsSummary(), "Add to “Work”, Mark as favourite, Mark as sensitive, Do not capture");
}

TEST(SmartRuleJson, WritesTheStoredShapeAndReadsItsIdsInEitherCase) {
    SmartRule rule;
    rule.id = parsed("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    rule.name = "Screenshots";
    rule.isEnabled = true;
    rule.conditions = {{parsed("00000000-0000-4000-8000-00000000000a"), Field::imageWidthGreaterThan, "800"}};
    rule.actions = {RuleAction::addToCollection(parsed("00000000-0000-4000-8000-0000000000bc"), "Shots"),
                    RuleAction::skipCapture()};
    rule.sortIndex = 3;
    Json stored = Json::parse(R"([{
        "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "name": "Screenshots", "isEnabled": true,
        "matchMode": "all",
        "conditions": [{"id": "00000000-0000-4000-8000-00000000000A", "field": "imageWidthGreaterThan",
                        "value": "800"}],
        "actions": [{"addToCollection": {"id": "00000000-0000-4000-8000-0000000000BC", "name": "Shots"}},
                    {"skipCapture": {}}],
        "stopsOnMatch": false, "sortIndex": 3
    }])");
    EXPECT_EQ(Json::parse(encodeRules({rule})), stored);
    EXPECT_EQ(encodeRules({}), "[]");

    stored[0]["id"] = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";
    stored[0]["actions"][0]["addToCollection"]["id"] = "00000000-0000-4000-8000-0000000000bc";
    DecodedRules decoded = decodeRules(stored.dump());
    ASSERT_TRUE(decoded.rules) << decoded.error;
    EXPECT_EQ(*decoded.rules, std::vector<SmartRule>{rule});
}

TEST(SmartRuleJson, RoundTripsExactlyAndWritesIllFormedTextAsReplacementCharacters) {
    std::vector<SmartRule> rules = sampleRules();
    std::string encoded = encodeRules(rules);
    DecodedRules decoded = decodeRules(encoded);
    ASSERT_TRUE(decoded.rules) << decoded.error;
    EXPECT_EQ(*decoded.rules, rules);
    EXPECT_EQ(decoded.error, "");
    EXPECT_EQ(encodeRules(*decoded.rules), encoded);

    rules[1].name = "bad \xFF byte";
    ASSERT_NO_THROW(encoded = encodeRules(rules));
    decoded = decodeRules(encoded);
    ASSERT_TRUE(decoded.rules) << decoded.error;
    EXPECT_EQ(decoded.rules->at(1).name, "bad \uFFFD byte");
}

// One element it cannot read exactly refuses the whole list, with a reason.
TEST(SmartRuleJson, EveryKeyIsRequiredAndTypedAndAnActionHasExactlyOneKnownKey) {
    const Json good = Json::parse(encodeRules(sampleRules()));
    ASSERT_EQ(decodeError(good.dump()), "ok");

    // The bad action follows a valid one in the second rule.
    for (const char* action :
         {R"({})", R"({"markFavorite": {}, "markSensitive": {}})", R"({"archive": {}})", R"({"MarkFavorite": {}})"}) {
        Json rules = good;
        rules[1]["actions"] = Json::array({Json::parse(R"({"markFavorite": {}})"), Json::parse(action)});
        EXPECT_EQ(decodeError(rules.dump()), "Invalid number of keys found, expected one.") << action;
    }
    for (const char* action : {R"("markFavorite")", R"(["markFavorite"])", R"({"markFavorite": null})",
                               R"({"markFavorite": true})"}) {
        Json rules = good;
        rules[0]["actions"] = Json::array({Json::parse(action)});
        expectRefused(rules.dump(), action);
    }

    // Each key left out, and given each wrong type ("x" names no UUID, mode or field).
    const Json wrongValues = Json::array({nullptr, 1, 1.5, true, "x", Json::array(), Json::object()});
    auto isAcceptable = [](const std::string& key, const Json& original, const Json& replacement) {
        if (key == "id" || key == "matchMode" || key == "field") return false;
        return replacement.type() == original.type() || (replacement.is_number() && original.is_number());
    };
    for (const char* pointer : {"/0", "/0/conditions/0", "/0/actions/0/addToCollection"}) {
        Json::json_pointer object(pointer);
        for (const auto& [key, value] : good[object].items()) {
            Json missing = good;
            missing[object].erase(key);
            expectRefused(missing.dump(), std::string(pointer) + " without " + key);
            for (const Json& wrong : wrongValues) {
                if (isAcceptable(key, value, wrong)) continue;
                Json retyped = good;
                retyped[object][key] = wrong;
                expectRefused(retyped.dump(), std::string(pointer) + "/" + key + " = " + wrong.dump());
            }
        }
    }
    // Raw strings are matched exactly.
    Json mode = good;
    mode[0]["matchMode"] = "ALL";
    expectRefused(mode.dump(), "matchMode ALL");
    Json field = good;
    field[0]["conditions"][0]["field"] = "TextContains";
    expectRefused(field.dump(), "field TextContains");

    // An index JSON cannot write back, whether as text or as a value built in code.
    std::string huge = good.dump();
    ASSERT_NE(huge.find("\"sortIndex\":2.5"), std::string::npos);
    huge.replace(huge.find("\"sortIndex\":2.5"), 15, "\"sortIndex\":-1e400");
    expectRefused(huge, "sortIndex -1e400");
    Json infinite = good[0];
    infinite["sortIndex"] = std::numeric_limits<double>::infinity();
    EXPECT_THROW(smartRuleFromJson(infinite), JsonDecodeError);
}

TEST(SmartRuleJson, GarbageIsRefusedWithoutThrowing) {
    std::string deepObject;
    for (int i = 0; i < 50000; ++i) deepObject += R"({"a":)";
    deepObject += "0" + std::string(50000, '}');
    for (const std::string& text :
         {std::string(""), std::string("nope"), std::string("{}"), std::string("null"), std::string("[1]"),
          std::string("[null]"), std::string("[[]]"), std::string("[{}]"), std::string("[{\"id\":5}]"),
          std::string("[{"), std::string("[\"\xFF\"]"), std::string("\"[]\""),
          std::string(100000, '[') + std::string(100000, ']'), "[" + deepObject + "]"}) {
        EXPECT_NO_THROW(expectRefused(text, text.substr(0, 40)));
    }
    EXPECT_EQ(decodeError(" [ ] \n"), "ok");
}

}  // namespace
}  // namespace tamarind
