#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "library/Clip.h"
#include "platform/PasteboardSnapshot.h"
#include "rules/RuleEvaluation.h"

namespace tamarind {
namespace {

using Field = RuleCondition::Field;

Uuid uuid(int n) {
    std::array<std::uint8_t, 16> bytes{};
    bytes[15] = static_cast<std::uint8_t>(n);
    return Uuid(bytes);
}

std::string numbers(const std::vector<Uuid>& ids) {
    std::string out;
    for (const Uuid& id : ids) out += (out.empty() ? "" : ",") + std::to_string(id.bytes()[15]);
    return out;
}

std::string describe(const RuleOutcome& outcome) {
    return "collections=" + numbers(outcome.collectionIDs) + " favorite=" + std::to_string(outcome.markFavorite) +
           " sensitive=" + std::to_string(outcome.markSensitive) + " skip=" + std::to_string(outcome.skipCapture) +
           " matched=" + numbers(outcome.matchedRuleIDs);
}

std::string describe(const RuleSubject& subject) {
    auto optional = [](const std::optional<std::string>& value) { return value ? "'" + *value + "'" : "none"; };
    return std::string(rawValue(subject.kind)) + " text=" + optional(subject.text) +
           " bundle=" + optional(subject.sourceAppBundleID) + " app=" + optional(subject.sourceAppName) +
           " url=" + optional(subject.urlString) + " size=" + std::to_string(subject.imageWidth) + "x" +
           std::to_string(subject.imageHeight);
}

RuleCondition when(Field field, std::string value) { return RuleCondition{Uuid::random(), field, std::move(value)}; }

bool holds(Field field, std::string value, const RuleSubject& subject) {
    return when(field, std::move(value)).matches(subject);
}

// '1' for each value the condition on the field holds with, '0' for each it does not.
std::string holding(Field field, const RuleSubject& subject, std::initializer_list<std::string> values) {
    std::string out;
    for (const std::string& value : values) out += holds(field, value, subject) ? '1' : '0';
    return out;
}

RuleSubject textSubject(std::string text) {
    RuleSubject subject;
    subject.text = std::move(text);
    return subject;
}

// A condition every test subject below satisfies, and one none does.
RuleCondition always() { return when(Field::textContains, "hello"); }
RuleCondition never() { return when(Field::textContains, "absent"); }

SmartRule rule(int id, double sortIndex, std::vector<RuleAction> actions, bool stopsOnMatch = false) {
    SmartRule rule;
    rule.id = uuid(id);
    rule.isEnabled = true;
    rule.conditions = {always()};
    rule.actions = std::move(actions);
    rule.stopsOnMatch = stopsOnMatch;
    rule.sortIndex = sortIndex;
    return rule;
}

TEST(RuleSubject, IsBuiltFromACaptureOrAStoredClip) {
    PasteboardSnapshot snapshot;
    snapshot.string = "https://example.com/a";
    snapshot.sourceAppBundleID = "org.mozilla.firefox";
    snapshot.imagePixelSize = PixelSize{1919.9, -3.7};
    EXPECT_EQ(describe(RuleSubject::from(snapshot, ClipKind::link)),
              "link text='https://example.com/a' bundle='org.mozilla.firefox' app=none "
              "url='https://example.com/a' size=1919x-3");
    snapshot.imagePixelSize.reset();
    snapshot.sourceAppName = "Firefox";
    EXPECT_EQ(describe(RuleSubject::from(snapshot, ClipKind::text)),
              "text text='https://example.com/a' bundle='org.mozilla.firefox' app='Firefox' url=none size=0x0");

    Clip clip;
    clip.kind = "hologram";
    clip.text = "caption";
    clip.urlString = "https://example.org";
    clip.imageWidth = 2560;
    EXPECT_EQ(describe(RuleSubject::from(clip)), "text text='caption' bundle=none app=none url='https://example.org' "
                                                 "size=2560x0") << "an unknown kind reads as text";
}

TEST(RuleCondition, BlankValuesNeverHoldAndPaddedOnesAreTrimmed) {
    // Each of these would hold for an untrimmed or unguarded value: an empty bundle ID equals an
    // empty value, and an empty or all-blank pattern matches this text.
    RuleSubject subject = textSubject("a   b");
    subject.sourceAppBundleID = "";
    subject.sourceAppName = "";
    subject.imageWidth = 10;
    for (Field field : kAllRuleConditionFields)
        for (std::string blank : {"", " \n\t\r\n"}) EXPECT_FALSE(holds(field, blank, subject)) << rawValue(field);

    RuleSubject link;
    link.kind = ClipKind::link;
    link.text = link.urlString = "https://example.com";
    link.sourceAppName = "Firefox";
    link.imageHeight = 10;
    EXPECT_TRUE(holds(Field::contentType, " link\n", link));
    EXPECT_TRUE(holds(Field::sourceApp, "\tfirefox ", link));
    EXPECT_TRUE(holds(Field::textMatchesRegex, " ^https:// ", link));
    EXPECT_TRUE(holds(Field::textContains, "\nexample.com\n", link));
    EXPECT_TRUE(holds(Field::urlDomain, "  example.com  ", link));
    EXPECT_TRUE(holds(Field::imageHeightGreaterThan, " 9 ", link));
}

TEST(RuleCondition, KindAndAppAreEqualIgnoringCaseAndTextIsSearchedWithoutCase) {
    RuleSubject subject = textSubject("Invoice #4521\ndue Friday, Straße");
    subject.kind = ClipKind::richText;
    EXPECT_EQ(holding(Field::contentType, subject, {"RICHTEXT", "Rich Text"}), "10") << "the raw string, not the label";
    EXPECT_FALSE(holds(Field::sourceApp, "Firefox", subject));
    subject.sourceAppBundleID = "org.mozilla.firefox";
    subject.sourceAppName = "Firefox";
    EXPECT_EQ(holding(Field::sourceApp, subject, {"ORG.Mozilla.Firefox", "firefox", "mozilla"}), "110")
        << "the bundle ID or the name, equal and not contained";
    // Anywhere in the text, with only the case-insensitive option: ^ is the start of the text, and
    // . stops at a newline.
    EXPECT_EQ(holding(Field::textMatchesRegex, subject, {"invoice\\s+#\\d{4}", "^due", "4521.due", "[unbalanced"}),
              "1000");
    EXPECT_EQ(holding(Field::textContains, subject, {"DUE friday", "STRASSE", "Strasse!"}), "110");
    EXPECT_FALSE(holds(Field::textContains, "cafe", textSubject("Café"))) << "diacritics count";
    RuleSubject image;
    image.kind = ClipKind::image;
    EXPECT_EQ(holding(Field::textMatchesRegex, image, {".*"}) + holding(Field::textContains, image, {"x"}), "00");
}

TEST(RuleCondition, UrlDomainMatchesWholeLabelsOfTheHost) {
    RuleSubject link;
    link.kind = ClipKind::link;
    link.urlString = "https://www.Example.com:8443/path?q=1";
    link.text = "https://other.org";  // the URL wins over the text
    EXPECT_EQ(holding(Field::urlDomain, link, {"EXAMPLE.com", "www.example.com", "ample.com", "other.org",
                                                 "www.example.com:8443"}),
              "11000");
    // Without a URL, the text if it is one, with a host.
    std::string fromText;
    for (const char* text : {"http://docs.EXAMPLE.org/a", "see http://example.org", "mailto:ann@example.org"})
        fromText += holds(Field::urlDomain, "example.org", textSubject(text)) ? '1' : '0';
    EXPECT_EQ(fromText, "100");
    EXPECT_FALSE(holds(Field::urlDomain, "example.org", RuleSubject{}));
}

TEST(RuleCondition, ImageSizeComparesWithADecimalInteger) {
    RuleSubject subject;
    subject.imageWidth = 800;
    subject.imageHeight = 100;
    // After the boundary, values that are no decimal integers: each would pass a laxer parser and
    // compare as something below 800.
    EXPECT_EQ(holding(Field::imageWidthGreaterThan, subject,
                      {"800", "+0799", "7e2", "799px", "0x10", "+-1", "--1", "1 0", "799.5", "٧٩٩", "-", "+"}),
              "010000000000");
    EXPECT_EQ(holding(Field::imageHeightGreaterThan, subject, {"100", "99"}), "01");

    RuleSubject unsized;
    EXPECT_EQ(holding(Field::imageWidthGreaterThan, unsized, {"-9223372036854775808", "0"}), "10");
    // One past the range does not parse, rather than saturating.
    unsized.imageWidth = LLONG_MAX;
    EXPECT_FALSE(holds(Field::imageWidthGreaterThan, "-9223372036854775809", unsized));
}

TEST(SmartRule, MatchesByMode) {
    RuleSubject subject = textSubject("hello");
    RuleCondition blank = when(Field::textMatchesRegex, " ");
    auto matches = [&](RuleMatchMode mode, std::vector<RuleCondition> conditions) {
        SmartRule rule;
        rule.matchMode = mode;
        rule.conditions = std::move(conditions);
        return rule.matches(subject);
    };
    for (RuleMatchMode mode : kAllRuleMatchModes) {
        EXPECT_FALSE(matches(mode, {})) << rawValue(mode);
        EXPECT_TRUE(matches(mode, {always(), always()})) << rawValue(mode);
        EXPECT_FALSE(matches(mode, {never(), blank})) << rawValue(mode);
    }
    EXPECT_FALSE(matches(RuleMatchMode::all, {always(), blank}));
    EXPECT_TRUE(matches(RuleMatchMode::any, {blank, always()}));
}

TEST(Evaluate, RunsEnabledRulesInSortIndexOrderUntilASkipOrAStop) {
    RuleSubject subject = textSubject("hello");
    EXPECT_EQ(describe(evaluate({}, subject)), "collections= favorite=0 sensitive=0 skip=0 matched=");

    SmartRule disabled = rule(3, 0, {RuleAction::addToCollection(uuid(30), "C"), RuleAction::markFavorite()});
    disabled.isEnabled = false;
    SmartRule unmatched = rule(5, 0.5, {RuleAction::markFavorite()}, /*stopsOnMatch=*/true);
    unmatched.conditions = {never()};
    SmartRule noConditions = rule(6, 0.5, {RuleAction::markFavorite()});
    noConditions.conditions.clear();
    std::vector<SmartRule> rules = {
        rule(1, 2, {RuleAction::addToCollection(uuid(10), "A")}),
        rule(2, 1, {RuleAction::addToCollection(uuid(20), "B")}),
        disabled,
        unmatched,
        noConditions,
        // Same index as rule 2, so it runs after it; it files into A first.
        rule(4, 1, {RuleAction::addToCollection(uuid(10), "A, renamed"), RuleAction::markSensitive()}),
    };
    EXPECT_EQ(describe(evaluate(rules, subject)), "collections=20,10 favorite=0 sensitive=1 skip=0 matched=2,4,1");

    // A skip ends the run at once, even within its rule.
    std::vector<SmartRule> skipping = {
        rule(1, 0, {RuleAction::addToCollection(uuid(10), "A")}),
        rule(2, 1, {RuleAction::markFavorite(), RuleAction::skipCapture(), RuleAction::markSensitive()}),
        rule(3, 2, {RuleAction::addToCollection(uuid(30), "C")}),
    };
    EXPECT_EQ(describe(evaluate(skipping, subject)), "collections=10 favorite=1 sensitive=0 skip=1 matched=1,2");
    // A matching rule without actions is recorded, changes nothing, and still stops the run.
    std::vector<SmartRule> stopping = {
        rule(1, 0, {RuleAction::markFavorite()}),
        rule(2, 1, {}, /*stopsOnMatch=*/true),
        rule(3, 2, {RuleAction::markSensitive()}),
    };
    EXPECT_EQ(describe(evaluate(stopping, subject)), "collections= favorite=1 sensitive=0 skip=0 matched=1,2");
}

}  // namespace
}  // namespace tamarind
