#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "foundation/Log.h"
#include "rules/SmartRuleStore.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

const Date kNow = Date::fromReferenceSeconds(788918400);  // the manual loop's wall start

std::string names(const std::vector<SmartRule>& rules) {
    std::string out;
    for (const SmartRule& rule : rules) out += (out.empty() ? "" : ", ") + rule.name;
    return out;
}

std::optional<std::string> storedText(const Defaults& defaults, const char* key) {
    auto data = defaults.data(key);
    if (!data) return std::nullopt;
    return stringFromData(*data);
}

std::vector<SmartRule> storedRules(const Defaults& defaults) {
    auto text = storedText(defaults, ruleKeys::smartRules);
    if (!text) return {};
    return decodeRules(*text).rules.value_or(std::vector<SmartRule>{});
}

SmartRule ruleNamed(std::string name, double sortIndex = 0) {
    SmartRule rule = SmartRule::makeNew();
    rule.name = std::move(name);
    rule.sortIndex = sortIndex;
    rule.conditions = {{Uuid::random(), RuleCondition::Field::textContains, "x"}};
    return rule;
}

// Defaults as a user who has been through the first run and kept these rules.
InMemoryDefaults seededDefaults(const std::vector<SmartRule>& rules) {
    return InMemoryDefaults({{ruleKeys::smartRules, dataFromString(encodeRules(rules))},
                             {ruleKeys::examplesSeeded, true}});
}

SmartCollection sampleCollection() {
    SmartCollection collection;
    collection.id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    collection.name = "Recent links";
    collection.iconName = "link";
    collection.colorHex = "#12A594";
    collection.searchText = "docs";
    return collection;
}

TEST(SmartRuleStore, TheExamplesGoInSwitchedOffOnTheFirstRunOnlyAndOnlyIntoAnEmptyList) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    std::vector<SmartRule> seeded;
    {
        SmartRuleStore first(defaults, loop);
        seeded = *first.rules();
        ASSERT_EQ(seeded.size(), 3u);
        std::set<Uuid> ids{Uuid()};
        for (const SmartRule& rule : seeded) {
            ids.insert(rule.id);
            for (const RuleCondition& condition : rule.conditions) ids.insert(condition.id);
        }
        EXPECT_EQ(ids.size(), 8u) << "every rule and condition has its own fresh id";
        EXPECT_TRUE(first.activeRules().empty());
        EXPECT_EQ(storedRules(defaults), seeded);
        EXPECT_FALSE(storedText(defaults, ruleKeys::smartCollections)) << "reading the empty list writes nothing";
        first.setRuleEnabled(seeded[1].id, true);
        seeded[1].isEnabled = true;
    }
    {
        SmartRuleStore second(defaults, loop);
        EXPECT_EQ(*second.rules(), seeded) << "ids and edits survive a relaunch";
        for (const SmartRule& rule : seeded) second.deleteRule(rule.id);
    }
    EXPECT_TRUE(SmartRuleStore(defaults, loop).rules()->empty()) << "deleted examples never come back";
    EXPECT_EQ(storedText(defaults, ruleKeys::smartRules), "[]");

    // A first run on settings that already hold rules adds none, then or later.
    SmartRule own = ruleNamed("Mine", 7);
    InMemoryDefaults holding({{ruleKeys::smartRules, dataFromString(encodeRules({own}))}});
    SmartRuleStore store(holding, loop);
    EXPECT_EQ(*store.rules(), std::vector<SmartRule>{own});
    store.deleteRule(own.id);
    EXPECT_TRUE(SmartRuleStore(holding, loop).rules()->empty()) << "the flag was set though nothing was seeded";
}

TEST(SmartRuleStore, UnreadableStoredListsReadAsEmptyAndStayStoredAsTheyAre) {
    ManualMainLoop loop;
    LogCapture capture;
    std::string collectionWithoutSearch = R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"a",)"
                                          R"("iconName":"b","colorHex":"#000000","onlyFavorites":false,)"
                                          R"("onlyPinned":false}])";
    InMemoryDefaults defaults({{ruleKeys::smartRules, dataFromString("{not json")},
                               {ruleKeys::smartCollections, dataFromString(collectionWithoutSearch)},
                               {ruleKeys::examplesSeeded, true}});
    SmartRuleStore store(defaults, loop);
    EXPECT_TRUE(store.rules()->empty());
    EXPECT_TRUE(store.smartCollections()->empty());
    EXPECT_EQ(storedText(defaults, ruleKeys::smartRules), "{not json") << "a read never writes";
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), collectionWithoutSearch);
    EXPECT_TRUE(capture.records().empty());

    // Writing over an unreadable list keeps it aside first, and never over one kept earlier.
    store.addRule(ruleNamed("new", 0));
    EXPECT_TRUE(store.saveSmartCollection("x", "", {}));
    defaults.set(ruleKeys::smartRules, dataFromString("{again"));
    store.addRule(ruleNamed("newer", 0));
    auto kept = [&](const std::string& key) { return storedText(defaults, key.c_str()).value_or("none"); };
    EXPECT_EQ(kept(std::string(ruleKeys::smartRules) + ".unreadable"), "{not json");
    EXPECT_EQ(kept(std::string(ruleKeys::smartRules) + ".unreadable-2"), "{again");
    EXPECT_EQ(kept(std::string(ruleKeys::smartCollections) + ".unreadable"), collectionWithoutSearch);
    EXPECT_EQ(store.rules()->size(), 1u) << "the list read after the outside write was empty";
    EXPECT_THAT(capture.messages("settings"),
                ElementsAre("The stored value of rules.smartRules could not be read; it is kept as "
                            "rules.smartRules.unreadable.",
                            "The stored value of rules.smartCollections could not be read; it is kept as "
                            "rules.smartCollections.unreadable.",
                            "The stored value of rules.smartRules could not be read; it is kept as "
                            "rules.smartRules.unreadable-2."));

    // Data of the wrong type counts as missing; on a first run the examples then go in.
    InMemoryDefaults wrongType(PlistDictionary{{ruleKeys::smartRules, "[]"}});
    EXPECT_EQ(SmartRuleStore(wrongType, loop).rules()->size(), 3u);
}

TEST(SmartRuleStore, AddedRulesGoAfterTheHighestIndex) {
    ManualMainLoop loop;
    InMemoryDefaults empty = seededDefaults({});
    SmartRuleStore fresh(empty, loop);
    fresh.addRule(ruleNamed("first", 500));
    fresh.addRule(ruleNamed("second", -3));
    EXPECT_EQ(names(*fresh.rules()), "first, second");
    EXPECT_EQ(fresh.rules()->at(0).sortIndex, 0) << "the first rule's index is zero, whatever it came with";
    EXPECT_EQ(fresh.rules()->at(1).sortIndex, 1024);

    // The highest index decides, not the last rule's; a deleted highest is given again.
    InMemoryDefaults unordered = seededDefaults({ruleNamed("high", 5000), ruleNamed("low", 10)});
    SmartRuleStore store(unordered, loop);
    SmartRule added = ruleNamed("new");
    store.addRule(added);
    EXPECT_EQ(store.rules()->back().sortIndex, 6024);
    store.deleteRule(added.id);
    store.addRule(ruleNamed("again"));
    EXPECT_EQ(store.rules()->back().sortIndex, 6024);
    EXPECT_EQ(storedRules(unordered), *store.rules());
}

TEST(SmartRuleStore, EditsGoByIdKeepTheOrderPublishAndWriteThrough) {
    ManualMainLoop loop;
    SmartRule a = ruleNamed("a", 2048), b = ruleNamed("b", 0), c = ruleNamed("c", 1024);
    SmartRule twin = ruleNamed("a twin", 9);
    twin.id = a.id;
    InMemoryDefaults defaults = seededDefaults({a, b, twin, c});
    SmartRuleStore store(defaults, loop);
    std::vector<std::size_t> published;
    Subscription subscription =
        store.rules().subscribe([&](const auto& list) { published.push_back(list.size()); }, true);

    SmartRule changed = b;
    changed.name = "b changed";
    store.updateRule(changed);
    store.setRuleEnabled(c.id, true);
    store.setRuleEnabled(b.id, true);
    SmartRule stranger = ruleNamed("stranger");
    store.updateRule(stranger);
    store.setRuleEnabled(stranger.id, true);
    EXPECT_EQ(names(*store.rules()), "a, b changed, a twin, c");
    EXPECT_EQ(names(store.activeRules()), "b changed, c") << "enabled only, by ascending index";
    EXPECT_EQ(store.rule(b.id)->name, "b changed");
    EXPECT_EQ(store.rule(stranger.id), std::nullopt);

    store.deleteRule(a.id);
    EXPECT_EQ(names(*store.rules()), "b changed, c") << "every rule with the id goes";
    EXPECT_EQ(storedRules(defaults), *store.rules());
    loop.runUntilIdle();
    EXPECT_EQ(published, (std::vector<std::size_t>{4, 4, 4, 2}));

    store.addSmartCollection(sampleCollection());
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), encodeSmartCollections({sampleCollection()}));
    store.deleteSmartCollection(sampleCollection().id);
    EXPECT_TRUE(store.smartCollections()->empty());
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), "[]");
}

TEST(SmartRuleStore, ActiveRulesWithEqualIndexesKeepTheirListOrder) {
    ManualMainLoop loop;
    // Enough rules that an unstable sort would really reorder them, not just insertion-sort a few.
    std::vector<SmartRule> rules;
    std::string expected = "first";
    for (int i = 0; i < 40; ++i) {
        rules.push_back(ruleNamed("r" + std::to_string(i), i % 2 ? 1024 : 0));
        rules.back().isEnabled = true;
    }
    for (int i = 0; i < 40; i += 2) expected += ", r" + std::to_string(i);
    for (int i = 1; i < 40; i += 2) expected += ", r" + std::to_string(i);
    rules.push_back(ruleNamed("first", -1));
    rules.back().isEnabled = true;
    InMemoryDefaults defaults = seededDefaults(rules);
    EXPECT_EQ(names(SmartRuleStore(defaults, loop).activeRules()), expected);
}

TEST(SmartRuleStore, AListThatCannotBeEncodedIsLoggedAndLeavesTheStoredOneAlone) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    SmartRuleStore store(defaults, loop);
    auto before = storedText(defaults, ruleKeys::smartRules);
    LogCapture capture;

    SmartRule broken = ruleNamed("bad \xff name");
    store.addRule(broken);
    SmartCollection brokenCollection = sampleCollection();
    brokenCollection.searchText = "\xc3";
    store.addSmartCollection(brokenCollection);

    // The description after the key is the JSON library's own wording.
    std::vector<std::string> messages = capture.messages("rules");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(capture.records()[0].level, LogLevel::error);
    EXPECT_TRUE(messages[0].starts_with("Could not save rules.smartRules: ") && messages[0].find("UTF-8") != std::string::npos)
        << messages[0];
    EXPECT_TRUE(messages[1].starts_with("Could not save rules.smartCollections: ")) << messages[1];
    EXPECT_EQ(storedText(defaults, ruleKeys::smartRules), before);
    EXPECT_FALSE(storedText(defaults, ruleKeys::smartCollections));
    EXPECT_EQ(store.rules()->size(), 4u) << "the list in memory stands";
    EXPECT_EQ(store.smartCollections()->size(), 1u);

    store.deleteRule(broken.id);
    EXPECT_EQ(storedRules(defaults), *store.rules()) << "the next encodable list is written";
}

TEST(SmartCollection, JsonLeavesOutAbsentOptionalsAndRequiresTheRest) {
    SmartCollection plain = sampleCollection();
    std::string plainJson = R"([{"colorHex":"#12A594","iconName":"link","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
                            R"("name":"Recent links","onlyFavorites":false,"onlyPinned":false,"searchText":"docs"}])";
    EXPECT_EQ(encodeSmartCollections({plain}), plainJson);
    EXPECT_EQ(decodeSmartCollections(plainJson).collections, std::vector<SmartCollection>{plain});

    SmartCollection full = plain;
    full.kind = ClipKind::richText;
    full.appBundleID = "org.gnome.TextEditor";
    full.collectionID = *Uuid::parse("00000000-0000-4000-8000-0000000000ab");
    full.onlyFavorites = full.onlyPinned = true;
    full.withinDays = 0;
    EXPECT_EQ(toJson(full)["kind"], "richText");
    EXPECT_EQ(toJson(full)["collectionID"], "00000000-0000-4000-8000-0000000000AB");
    EXPECT_EQ(decodeSmartCollections(encodeSmartCollections({full, plain})).collections,
              (std::vector<SmartCollection>{full, plain}));
    Json nulls = toJson(plain);
    for (const char* key : {"kind", "appBundleID", "collectionID", "withinDays"}) nulls[key] = nullptr;
    EXPECT_EQ(decodeSmartCollections(Json::array({nulls}).dump()).collections, std::vector<SmartCollection>{plain})
        << "null reads as absent";

    auto failsWholeList = [&](const char* what, auto change) {
        Json element = toJson(full);
        change(element);
        DecodedSmartCollections decoded = decodeSmartCollections(Json::array({toJson(plain), element}).dump());
        EXPECT_EQ(decoded.collections, std::nullopt) << what;
        EXPECT_FALSE(decoded.error.empty()) << what;
    };
    for (const char* key : {"id", "name", "iconName", "colorHex", "onlyFavorites", "onlyPinned", "searchText"})
        failsWholeList(key, [&](Json& e) { e.erase(key); });
    failsWholeList("unknown kind", [](Json& e) { e["kind"] = "hologram"; });
    failsWholeList("fractional days", [](Json& e) { e["withinDays"] = 7.5; });
    failsWholeList("days beyond 64 bits", [](Json& e) { e["withinDays"] = 18446744073709551615ull; });
    failsWholeList("number as Boolean", [](Json& e) { e["onlyPinned"] = 1; });
    failsWholeList("collection id that is no UUID", [](Json& e) { e["collectionID"] = "not-a-uuid"; });
    EXPECT_EQ(decodeSmartCollections("{}").collections, std::nullopt);
}

TEST(SmartCollection, SavingTheFilterTakesItsOneRestrictionOpensAsItsQueryAndASmartCollectionIsNotSavedAgain) {
    Uuid folder = *Uuid::parse("00000000-0000-4000-8000-0000000000AB");
    // The saved collection's JSON without what every saved filter shares.
    auto saved = [&](const LibraryFilter& filter) -> std::string {
        auto collection = makeSmartCollection("Saved", "  q ", filter);
        if (!collection) return "nothing";
        Json json = toJson(*collection);
        EXPECT_EQ(json["iconName"], "line.3.horizontal.decrease.circle");
        EXPECT_EQ(json["colorHex"], "#3B5BFD");
        EXPECT_EQ(json["searchText"], "  q ");
        for (const char* shared : {"id", "name", "iconName", "colorHex", "searchText"}) json.erase(shared);
        return json.dump();
    };
    EXPECT_EQ(saved(LibraryFilter::all()), R"({"onlyFavorites":false,"onlyPinned":false})");
    EXPECT_EQ(saved(LibraryFilter::ofKind(ClipKind::color)), R"({"kind":"color","onlyFavorites":false,"onlyPinned":false})");
    EXPECT_EQ(saved(LibraryFilter::fromApp("org.mozilla.firefox", "Firefox")),
              R"({"appBundleID":"org.mozilla.firefox","onlyFavorites":false,"onlyPinned":false})");
    EXPECT_EQ(saved(LibraryFilter::inCollection(folder, "Work")),
              R"({"collectionID":")" + folder.uuidString() + R"(","onlyFavorites":false,"onlyPinned":false})");
    EXPECT_EQ(saved(LibraryFilter::favorites()), R"({"onlyFavorites":true,"onlyPinned":false})");
    EXPECT_EQ(saved(LibraryFilter::pinned()), R"({"onlyFavorites":false,"onlyPinned":true})");
    EXPECT_EQ(saved(LibraryFilter::inSmartCollection(folder, "Open")), "nothing");
    EXPECT_NE(makeSmartCollection("a", "", {})->id, makeSmartCollection("a", "", {})->id);

    // Saved, it opens as its query, with the search field's text in place of its own; the other filters
    // are copied into the query as they are, and the command line's smart lists try them.
    ManualMainLoop loop;
    InMemoryDefaults defaults = seededDefaults({});
    SmartRuleStore store(defaults, loop);
    auto links = store.saveSmartCollection("Links", "docs", LibraryFilter::ofKind(ClipKind::link));
    ASSERT_TRUE(links);
    EXPECT_EQ(store.smartCollection(links->id), links);
    EXPECT_EQ(store.queryFor(links->id, "").text, "docs");
    ClipQuery searched = store.queryFor(links->id, "api");
    EXPECT_EQ(searched.text, "api");
    EXPECT_EQ(searched.kind, ClipKind::link);
    EXPECT_TRUE(store.queryFor(Uuid::random(), "api").isEmpty()) << "a deleted collection gives the default query";

    auto before = storedText(defaults, ruleKeys::smartCollections);
    EXPECT_EQ(store.saveSmartCollection("Again", "x", LibraryFilter::inSmartCollection(links->id, "Links")),
              std::nullopt);
    EXPECT_EQ(*store.smartCollections(), std::vector<SmartCollection>{*links});
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), before);
}

TEST(SmartCollection, WithinDaysKeepsClipsFromTheCutOffOn) {
    auto clipMade = [](const char* name, double secondsAgo) {
        Clip clip = Clip::make(kNow.addingSeconds(-secondsAgo));
        clip.text = name;
        return clip;
    };
    const double week = 7 * 86'400;
    std::vector<Clip> page = {clipMade("future", -60), clipMade("edge", week), clipMade("old", week + 1),
                              clipMade("new", 0), clipMade("ancient", 400 * 86'400)};
    auto kept = [&](std::optional<long long> days) {
        std::string out;
        for (const Clip& clip : clipsWithinDays(page, days, kNow)) out += (out.empty() ? "" : ",") + *clip.text;
        return out;
    };
    EXPECT_EQ(kept(7), "future,edge,new");
    EXPECT_EQ(kept(1), "future,new");
    for (std::optional<long long> noLimit : {std::optional<long long>(), std::optional<long long>(0),
                                             std::optional<long long>(-3)})
        EXPECT_EQ(kept(noLimit), "future,edge,old,new,ancient");
}

// The summaries of no clips and of no match are tried through the command line.
TEST(RulePreview, CountsEveryMatchOfADisabledRuleAndListsTheFirstEight) {
    SmartRule rule = ruleNamed("wants x");
    rule.isEnabled = false;
    std::vector<Clip> clips;
    for (int i = 0; i < 20; ++i) {
        clips.push_back(Clip::make(kNow));
        clips.back().text = (i < 11 ? "x" : "y") + std::to_string(i);
    }
    RulePreview preview = previewRule(rule, clips);
    EXPECT_EQ(preview.summary, "11 of 20 recent clips match");
    EXPECT_EQ(preview.matchCount, 11);
    std::string listed;
    for (const Clip& clip : preview.matches) listed += (listed.empty() ? "" : ",") + *clip.text;
    EXPECT_EQ(listed, "x0,x1,x2,x3,x4,x5,x6,x7");
    EXPECT_EQ(previewRule(rule, {}).summary, ruleTexts::previewNoClips);
}

}  // namespace
}  // namespace tamarind
