#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "rules/SmartRule.h"

namespace tamarind {
namespace {

using Field = RuleCondition::Field;

constexpr const char* kActionKeysError = "Invalid number of keys found, expected one.";

Uuid parsed(std::string_view text) { return *Uuid::parse(text); }

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

std::string decodeError(std::string_view text) {
    DecodedRules decoded = decodeRules(text);
    if (decoded.rules) return decoded.error.empty() ? "ok" : "ok with error " + decoded.error;
    return decoded.error.empty() ? "failed without a reason" : decoded.error;
}

TEST(SmartRule, NewRuleAndSummaries) {
    SmartRule rule = SmartRule::makeNew();
    EXPECT_FALSE(rule.id.isNil());
    EXPECT_NE(rule.id, SmartRule::makeNew().id);
    EXPECT_EQ(rule.summary(), "No conditions \u2014 this rule never matches.");
    rule.matchMode = RuleMatchMode::any;
    EXPECT_EQ(rule.summary(), "No conditions \u2014 this rule never matches.");
    EXPECT_EQ(rule.actionsSummary(), "");

    rule = sampleRules()[0];
    EXPECT_EQ(rule.summary(),
              "content type is “ value of contentType\n” or source app is “ value of sourceApp\n” or "
              "text matches regex “ value of textMatchesRegex\n” or text contains “ value of textContains\n” or "
              "url domain is “ value of urlDomain\n” or "
              "image width is greater than “ value of imageWidthGreaterThan\n” or "
              "image height is greater than “ value of imageHeightGreaterThan\n”");
    rule.matchMode = RuleMatchMode::all;
    rule.conditions.resize(2);
    EXPECT_EQ(rule.summary(), "content type is “ value of contentType\n” and source app is “ value of sourceApp\n”");
    EXPECT_EQ(rule.actionsSummary(), "Add to “Work”, Mark as favourite, Mark as sensitive, Do not capture");
}

TEST(SmartRuleJson, WritesTheStoredShape) {
    SmartRule rule;
    rule.id = parsed("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    rule.name = "Screenshots";
    rule.isEnabled = true;
    rule.conditions = {{parsed("00000000-0000-4000-8000-00000000000a"), Field::imageWidthGreaterThan, "800"}};
    rule.actions = {RuleAction::addToCollection(parsed("00000000-0000-4000-8000-0000000000bc"), "Shots"),
                    RuleAction::skipCapture()};
    rule.sortIndex = 3;
    Json expected = Json::parse(R"([{
        "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "name": "Screenshots", "isEnabled": true,
        "matchMode": "all",
        "conditions": [{"id": "00000000-0000-4000-8000-00000000000A", "field": "imageWidthGreaterThan",
                        "value": "800"}],
        "actions": [{"addToCollection": {"id": "00000000-0000-4000-8000-0000000000BC", "name": "Shots"}},
                    {"skipCapture": {}}],
        "stopsOnMatch": false, "sortIndex": 3
    }])");
    EXPECT_EQ(Json::parse(encodeRules({rule})), expected);
    EXPECT_EQ(encodeRules({}), "[]");
}

TEST(SmartRuleJson, RoundTripsExactly) {
    std::vector<SmartRule> rules = sampleRules();
    std::string encoded = encodeRules(rules);
    DecodedRules decoded = decodeRules(encoded);
    ASSERT_TRUE(decoded.rules) << decoded.error;
    EXPECT_EQ(*decoded.rules, rules);
    EXPECT_EQ(decoded.error, "");
    EXPECT_EQ(encodeRules(*decoded.rules), encoded);
}

TEST(SmartRuleJson, ReadsLowerCaseIdsAndEveryCase) {
    DecodedRules decoded = decodeRules(R"([{
        "id": "e621e1f8-c36c-495a-93fc-0c247a3e6e5f", "name": "", "isEnabled": false, "matchMode": "any",
        "conditions": [{"id": "00000000-0000-4000-8000-00000000000a", "field": "urlDomain", "value": " x "}],
        "actions": [{"markSensitive": {}},
                    {"addToCollection": {"name": "N", "id": "00000000-0000-4000-8000-0000000000bc"}},
                    {"markFavorite": {}}, {"skipCapture": {}}],
        "stopsOnMatch": true, "sortIndex": -7
    }])");
    ASSERT_TRUE(decoded.rules) << decoded.error;
    ASSERT_EQ(decoded.rules->size(), 1u);
    const SmartRule& rule = decoded.rules->front();
    EXPECT_EQ(rule.id.uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(rule.summary(), "url domain is “ x ”");
    EXPECT_EQ(rule.actionsSummary(), "Mark as sensitive, Add to “N”, Mark as favourite, Do not capture");
    EXPECT_EQ(std::get<RuleAction::AddToCollection>(rule.actions[1].payload).id.uuidString(),
              "00000000-0000-4000-8000-0000000000BC");
    EXPECT_TRUE(rule.stopsOnMatch);
    EXPECT_EQ(rule.sortIndex, -7);
}

TEST(SmartRuleJson, ActionsNeedExactlyOneKnownKey) {
    Json good = Json::parse(encodeRules(sampleRules()));
    for (const char* action :
         {R"({})", R"({"markFavorite": {}, "markSensitive": {}})", R"({"archive": {}})", R"({"MarkFavorite": {}})"}) {
        Json rules = good;
        // The bad action is in the second rule, after valid ones: one bad element refuses the list.
        rules[1]["actions"] = Json::array({Json::parse(R"({"markFavorite": {}})"), Json::parse(action)});
        EXPECT_EQ(decodeError(rules.dump()), kActionKeysError) << action;
    }
    for (const char* action :
         {R"("markFavorite")", R"(["markFavorite"])", R"({"markFavorite": null})", R"({"markFavorite": true})",
          R"({"addToCollection": {"id": "not-a-uuid", "name": "A"}})", R"({"addToCollection": {"name": "A"}})",
          R"({"addToCollection": {"id": null, "name": "A"}})",
          R"({"addToCollection": {"id": "00000000-0000-4000-8000-0000000000BC"}})",
          R"({"addToCollection": {"id": "00000000-0000-4000-8000-0000000000BC", "name": 5}})"}) {
        Json rules = good;
        rules[0]["actions"] = Json::array({Json::parse(action)});
        std::string error = decodeError(rules.dump());
        EXPECT_NE(error, "ok") << action;
        EXPECT_NE(error, "failed without a reason") << action;
    }
}

TEST(SmartRuleJson, EveryKeyIsRequiredAndTyped) {
    const Json good = Json::parse(encodeRules(sampleRules()));
    ASSERT_EQ(decodeError(good.dump()), "ok");
    auto expectRefused = [](const Json& rules, const std::string& what) {
        std::string error = decodeError(rules.dump());
        EXPECT_NE(error, "ok") << what;
        EXPECT_NE(error, "failed without a reason") << what;
    };

    // A value of each wrong type for each key, a Boolean for the index and numbers for the flags
    // among them; "x" names no UUID, mode or field.
    const Json wrongValues = Json::array({nullptr, 1, 1.5, true, "x", Json::array(), Json::object()});
    auto isAcceptable = [](const std::string& key, const Json& original, const Json& replacement) {
        if (key == "id" || key == "matchMode" || key == "field") return false;
        return replacement.type() == original.type() || (replacement.is_number() && original.is_number());
    };
    auto refusesEachWrongMember = [&](const Json::json_pointer& object) {
        for (const auto& [key, value] : good[object].items()) {
            Json missing = good;
            missing[object].erase(key);
            expectRefused(missing, object.to_string() + " without " + key);
            for (const Json& wrong : wrongValues) {
                if (isAcceptable(key, value, wrong)) continue;
                Json retyped = good;
                retyped[object][key] = wrong;
                expectRefused(retyped, object.to_string() + "/" + key + " = " + wrong.dump());
            }
        }
    };
    refusesEachWrongMember(Json::json_pointer("/0"));
    refusesEachWrongMember(Json::json_pointer("/0/conditions/0"));
    refusesEachWrongMember(Json::json_pointer("/0/actions/0/addToCollection"));

    // Raw strings are matched exactly.
    Json mode = good;
    mode[0]["matchMode"] = "ALL";
    expectRefused(mode, "matchMode ALL");
    Json field = good;
    field[0]["conditions"][0]["field"] = "TextContains";
    expectRefused(field, "field TextContains");

    // An index JSON cannot write back, whether as text or as a value built in code.
    std::string huge = good.dump();
    ASSERT_NE(huge.find("\"sortIndex\":2.5"), std::string::npos);
    huge.replace(huge.find("\"sortIndex\":2.5"), 15, "\"sortIndex\":-1e400");
    EXPECT_NE(decodeError(huge), "ok");
    Json infinite = good[0];
    infinite["sortIndex"] = std::numeric_limits<double>::infinity();
    EXPECT_THROW(smartRuleFromJson(infinite), JsonDecodeError);
}

TEST(SmartRuleJson, GarbageIsRefusedWithoutThrowing) {
    std::string deep = std::string(100000, '[') + std::string(100000, ']');
    std::string deepObject;
    for (int i = 0; i < 50000; ++i) deepObject += R"({"a":)";
    deepObject += "0" + std::string(50000, '}');
    for (const std::string& text :
         {std::string(""), std::string("nope"), std::string("{}"), std::string("null"), std::string("[1]"),
          std::string("[null]"), std::string("[[]]"), std::string("[{}]"), std::string("[{\"id\":5}]"),
          std::string("[{"), std::string("[\"\xFF\"]"), std::string("\"[]\""), deep, "[" + deepObject + "]"}) {
        std::string error;
        EXPECT_NO_THROW(error = decodeError(text)) << text.substr(0, 40);
        EXPECT_NE(error, "ok") << text.substr(0, 40);
        EXPECT_NE(error, "failed without a reason") << text.substr(0, 40);
    }
    EXPECT_EQ(decodeError("[]"), "ok");
    EXPECT_EQ(decodeError(" [ ] \n"), "ok");
}

TEST(SmartRuleJson, IllFormedTextIsWrittenAsReplacementCharacters) {
    SmartRule rule = SmartRule::makeNew();
    rule.name = "bad \xFF byte";
    std::string encoded;
    ASSERT_NO_THROW(encoded = encodeRules({rule}));
    DecodedRules decoded = decodeRules(encoded);
    ASSERT_TRUE(decoded.rules) << decoded.error;
    EXPECT_EQ(decoded.rules->front().name, "bad \uFFFD byte");
}

}  // namespace
}  // namespace tamarind
