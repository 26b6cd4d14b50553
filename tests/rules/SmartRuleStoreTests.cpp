#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "foundation/Log.h"
#include "rules/SmartRuleStore.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

using Field = RuleCondition::Field;

const Date kNow = Date::fromReferenceSeconds(788918400);  // the manual loop's wall start

std::string names(const std::vector<SmartRule>& rules) {
    std::string out;
    for (const SmartRule& rule : rules) out += (out.empty() ? "" : ", ") + rule.name;
    return out;
}

std::string describe(const SmartCollection& c) {
    auto optional = [](const auto& value, auto show) { return value ? show(*value) : std::string("none"); };
    return c.name + " icon=" + c.iconName + " color=" + c.colorHex +
           " kind=" + optional(c.kind, [](ClipKind k) { return std::string(rawValue(k)); }) +
           " app=" + optional(c.appBundleID, [](const std::string& s) { return s; }) +
           " collection=" + optional(c.collectionID, [](const Uuid& id) { return id.uuidString(); }) +
           " favorites=" + std::to_string(c.onlyFavorites) + " pinned=" + std::to_string(c.onlyPinned) +
           " search='" + c.searchText + "'" +
           " days=" + optional(c.withinDays, [](long long d) { return std::to_string(d); });
}

std::string describe(const ClipQuery& q) {
    auto optional = [](const auto& value, auto show) { return value ? show(*value) : std::string("none"); };
    return "text='" + q.text + "' kind=" + optional(q.kind, [](ClipKind k) { return std::string(rawValue(k)); }) +
           " app=" + optional(q.appBundleID, [](const std::string& s) { return s; }) +
           " collection=" + optional(q.collectionID, [](const Uuid& id) { return id.uuidString(); }) +
           " favorites=" + std::to_string(q.onlyFavorites) + " pinned=" + std::to_string(q.onlyPinned) +
           " days=" + optional(q.withinDays, [](long long d) { return std::to_string(d); });
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
    rule.conditions = {{Uuid::random(), Field::textContains, "x"}};
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

// --- Start-up --------------------------------------------------------------------------------------

TEST(SmartRuleStore, FirstRunSeedsTheThreeExamplesSwitchedOff) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    SmartRuleStore store(defaults, loop);

    ASSERT_EQ(store.rules()->size(), 3u);
    std::set<Uuid> ids;
    for (const SmartRule& rule : *store.rules()) {
        ids.insert(rule.id);
        for (const RuleCondition& condition : rule.conditions) ids.insert(condition.id);
    }
    ids.insert(Uuid());
    EXPECT_EQ(ids.size(), 8u) << "every rule and condition has its own fresh id";
    EXPECT_TRUE(store.activeRules().empty());
    EXPECT_TRUE(defaults.boolValue(ruleKeys::examplesSeeded));
    EXPECT_EQ(storedRules(defaults), *store.rules());
    EXPECT_FALSE(storedText(defaults, ruleKeys::smartCollections)) << "reading the empty list writes nothing";
    EXPECT_NE(SmartRuleStore::exampleRules()[0].id, SmartRuleStore::exampleRules()[0].id);
}

TEST(SmartRuleStore, LaterRunsReadTheStoredRulesAndNeverSeedAgain) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    std::vector<SmartRule> seeded;
    {
        SmartRuleStore first(defaults, loop);
        seeded = *first.rules();
        first.setRuleEnabled(seeded[1].id, true);
        seeded[1].isEnabled = true;
    }
    {
        SmartRuleStore second(defaults, loop);
        EXPECT_EQ(*second.rules(), seeded) << "ids and edits survive a relaunch";
        for (const SmartRule& rule : seeded) second.deleteRule(rule.id);
    }
    SmartRuleStore third(defaults, loop);
    EXPECT_TRUE(third.rules()->empty()) << "a user who deleted the examples must not get them back";
    EXPECT_EQ(storedText(defaults, ruleKeys::smartRules), "[]");
}

TEST(SmartRuleStore, FirstRunOnDefaultsThatHoldRulesAddsNoExamples) {
    ManualMainLoop loop;
    SmartRule own = ruleNamed("Mine", 7);
    InMemoryDefaults defaults({{ruleKeys::smartRules, dataFromString(encodeRules({own}))}});
    SmartRuleStore store(defaults, loop);
    EXPECT_EQ(*store.rules(), std::vector<SmartRule>{own});
    EXPECT_TRUE(defaults.boolValue(ruleKeys::examplesSeeded));

    store.deleteRule(own.id);
    SmartRuleStore again(defaults, loop);
    EXPECT_TRUE(again.rules()->empty()) << "the flag was set even though nothing was seeded";
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

    // Data of the wrong type counts as missing; on a first run the examples then go in.
    InMemoryDefaults wrongType(PlistDictionary{{ruleKeys::smartRules, "[]"}});
    EXPECT_EQ(SmartRuleStore(wrongType, loop).rules()->size(), 3u);
}

// --- Editing rules --------------------------------------------------------------------------------------

TEST(SmartRuleStore, AddedRulesGoAfterTheHighestIndex) {
    ManualMainLoop loop;
    InMemoryDefaults empty = seededDefaults({});
    SmartRuleStore fresh(empty, loop);
    fresh.addRule(ruleNamed("first", 500));
    fresh.addRule(ruleNamed("second", -3));
    EXPECT_EQ(names(*fresh.rules()), "first, second");
    EXPECT_EQ(fresh.rules()->at(0).sortIndex, 0) << "the first rule's index is zero, whatever it came with";
    EXPECT_EQ(fresh.rules()->at(1).sortIndex, 1024);

    InMemoryDefaults defaults;
    SmartRuleStore store(defaults, loop);
    SmartRule added = ruleNamed("after the examples");
    store.addRule(added);
    EXPECT_EQ(store.rules()->back().sortIndex, 3072);
    store.deleteRule(added.id);
    store.addRule(ruleNamed("again"));
    EXPECT_EQ(store.rules()->back().sortIndex, 3072) << "the deleted highest index is reused";
    EXPECT_EQ(storedRules(defaults), *store.rules());

    // The highest index, not the last rule's, decides.
    InMemoryDefaults unordered = seededDefaults({ruleNamed("high", 5000), ruleNamed("low", 10)});
    SmartRuleStore other(unordered, loop);
    other.addRule(ruleNamed("new"));
    EXPECT_EQ(other.rules()->back().sortIndex, 6024);
}

TEST(SmartRuleStore, UpdateEnableAndDeleteGoByIdAndKeepTheOrder) {
    ManualMainLoop loop;
    SmartRule a = ruleNamed("a", 2048), b = ruleNamed("b", 0), c = ruleNamed("c", 1024);
    SmartRule twin = ruleNamed("a twin", 9);
    twin.id = a.id;
    InMemoryDefaults defaults = seededDefaults({a, b, twin, c});
    SmartRuleStore store(defaults, loop);

    SmartRule changed = b;
    changed.name = "b changed";
    changed.stopsOnMatch = true;
    store.updateRule(changed);
    store.setRuleEnabled(c.id, true);
    store.setRuleEnabled(b.id, true);
    SmartRule stranger = ruleNamed("stranger");
    store.updateRule(stranger);
    store.setRuleEnabled(stranger.id, true);
    store.deleteRule(stranger.id);
    EXPECT_EQ(names(*store.rules()), "a, b changed, a twin, c");
    EXPECT_EQ(names(store.activeRules()), "b changed, c") << "enabled only, by ascending index";
    EXPECT_EQ(store.rule(b.id)->name, "b changed");
    EXPECT_EQ(store.rule(stranger.id), std::nullopt);

    store.deleteRule(a.id);
    EXPECT_EQ(names(*store.rules()), "b changed, c") << "every rule with the id goes";
    EXPECT_EQ(storedRules(defaults), *store.rules());
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

TEST(SmartRuleStore, SettingAListPublishesAndWritesThrough) {
    ManualMainLoop loop;
    InMemoryDefaults defaults = seededDefaults({});
    SmartRuleStore store(defaults, loop);
    std::vector<std::size_t> ruleCounts, collectionCounts;
    Subscription rules = store.rules().subscribe([&](const auto& list) { ruleCounts.push_back(list.size()); }, true);
    Subscription collections = store.smartCollections().subscribe(
        [&](const auto& list) { collectionCounts.push_back(list.size()); }, true);

    store.setRules({ruleNamed("one"), ruleNamed("two")});
    store.addSmartCollection(sampleCollection());
    loop.runUntilIdle();
    EXPECT_EQ(ruleCounts, std::vector<std::size_t>{2});
    EXPECT_EQ(collectionCounts, std::vector<std::size_t>{1});
    EXPECT_EQ(storedRules(defaults), *store.rules());
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), encodeSmartCollections({sampleCollection()}));

    store.deleteSmartCollection(sampleCollection().id);
    EXPECT_TRUE(store.smartCollections()->empty());
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), "[]");
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

    ASSERT_EQ(capture.records().size(), 2u);
    EXPECT_EQ(capture.records()[0].level, LogLevel::error);
    // The description after the key is the JSON library's own wording.
    std::vector<std::string> messages = capture.messages("rules");
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_TRUE(messages[0].starts_with("Could not save rules.smartRules: ") && messages[0].find("UTF-8") != std::string::npos)
        << messages[0];
    EXPECT_TRUE(messages[1].starts_with("Could not save rules.smartCollections: ") &&
                messages[1].find("UTF-8") != std::string::npos)
        << messages[1];
    EXPECT_EQ(storedText(defaults, ruleKeys::smartRules), before);
    EXPECT_FALSE(storedText(defaults, ruleKeys::smartCollections));
    EXPECT_EQ(store.rules()->size(), 4u) << "the list in memory stands";
    EXPECT_EQ(store.smartCollections()->size(), 1u);

    store.deleteRule(broken.id);
    EXPECT_EQ(storedRules(defaults), *store.rules()) << "the next encodable list is written";
}

// --- Smart collections ------------------------------------------------------------------------------

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
    full.onlyFavorites = true;
    full.onlyPinned = true;
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
    for (const char* key :
         {"id", "name", "iconName", "colorHex", "onlyFavorites", "onlyPinned", "searchText"})
        failsWholeList(key, [&](Json& e) { e.erase(key); });
    failsWholeList("unknown kind", [](Json& e) { e["kind"] = "hologram"; });
    failsWholeList("fractional days", [](Json& e) { e["withinDays"] = 7.5; });
    failsWholeList("days beyond 64 bits", [](Json& e) { e["withinDays"] = 18446744073709551615ull; });
    failsWholeList("number as Boolean", [](Json& e) { e["onlyPinned"] = 1; });
    failsWholeList("collection id that is no UUID", [](Json& e) { e["collectionID"] = "not-a-uuid"; });
    EXPECT_EQ(decodeSmartCollections("{}").collections, std::nullopt);
}

TEST(SmartCollection, SavingTheCurrentFilterTakesItsOneRestriction) {
    Uuid folder = *Uuid::parse("00000000-0000-4000-8000-0000000000AB");
    auto saved = [&](const LibraryFilter& filter) {
        auto collection = makeSmartCollection("Saved", "  q ", filter);
        return collection ? describe(*collection) : std::string("nothing");
    };
    auto with = [](std::string kind, std::string app, std::string collection, int favorites, int pinned) {
        return "Saved icon=line.3.horizontal.decrease.circle color=#3B5BFD kind=" + kind + " app=" + app +
               " collection=" + collection + " favorites=" + std::to_string(favorites) +
               " pinned=" + std::to_string(pinned) + " search='  q ' days=none";
    };
    EXPECT_EQ(saved(LibraryFilter::all()), with("none", "none", "none", 0, 0));
    EXPECT_EQ(saved(LibraryFilter::ofKind(ClipKind::color)), with("color", "none", "none", 0, 0));
    EXPECT_EQ(saved(LibraryFilter::fromApp("org.mozilla.firefox", "Firefox")),
              with("none", "org.mozilla.firefox", "none", 0, 0));
    EXPECT_EQ(saved(LibraryFilter::inCollection(folder, "Work")), with("none", "none", folder.uuidString(), 0, 0));
    EXPECT_EQ(saved(LibraryFilter::favorites()), with("none", "none", "none", 1, 0));
    EXPECT_EQ(saved(LibraryFilter::pinned()), with("none", "none", "none", 0, 1));
    EXPECT_EQ(saved(LibraryFilter::inSmartCollection(folder, "Open")), "nothing");
    EXPECT_NE(makeSmartCollection("a", "", {})->id, makeSmartCollection("a", "", {})->id);
}

TEST(SmartRuleStore, SavingWhileASmartCollectionIsOpenDoesNothing) {
    ManualMainLoop loop;
    InMemoryDefaults defaults = seededDefaults({});
    SmartRuleStore store(defaults, loop);
    auto saved = store.saveSmartCollection("Pinned", "", LibraryFilter::pinned());
    ASSERT_TRUE(saved);
    EXPECT_EQ(store.smartCollection(saved->id), saved);
    auto before = storedText(defaults, ruleKeys::smartCollections);

    EXPECT_EQ(store.saveSmartCollection("Again", "x", LibraryFilter::inSmartCollection(saved->id, "Pinned")),
              std::nullopt);
    EXPECT_EQ(*store.smartCollections(), std::vector<SmartCollection>{*saved});
    EXPECT_EQ(storedText(defaults, ruleKeys::smartCollections), before);
}

TEST(SmartRuleStore, ASmartCollectionOpensAsItsQuery) {
    ManualMainLoop loop;
    SmartCollection collection = sampleCollection();
    collection.kind = ClipKind::link;
    collection.appBundleID = "org.mozilla.firefox";
    collection.collectionID = *Uuid::parse("00000000-0000-4000-8000-0000000000AB");
    collection.onlyFavorites = true;
    collection.withinDays = 7;
    InMemoryDefaults defaults({{ruleKeys::examplesSeeded, true},
                               {ruleKeys::smartCollections, dataFromString(encodeSmartCollections({collection}))}});
    SmartRuleStore store(defaults, loop);

    const std::string filters = " kind=link app=org.mozilla.firefox collection=00000000-0000-4000-8000-0000000000AB "
                                "favorites=1 pinned=0 days=7";
    EXPECT_EQ(describe(store.queryFor(collection.id, "")), "text='docs'" + filters);
    EXPECT_EQ(describe(store.queryFor(collection.id, "api")), "text='api'" + filters)
        << "the search field replaces the saved text";
    EXPECT_EQ(describe(store.queryFor(Uuid::random(), "api")),
              "text='' kind=none app=none collection=none favorites=0 pinned=0 days=none")
        << "a deleted collection gives the default query, search field and all";
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

// --- Rule preview --------------------------------------------------------------------------------------

TEST(RulePreview, SaysWhatMatchedAndListsTheFirstEight) {
    SmartRule rule = ruleNamed("wants x");
    rule.isEnabled = false;
    auto clips = [](int total, int matching) {
        std::vector<Clip> out;
        for (int i = 0; i < total; ++i) {
            Clip clip = Clip::make(kNow);
            clip.text = (i < matching ? "x" : "y") + std::to_string(i);
            out.push_back(clip);
        }
        return out;
    };
    auto listed = [](const RulePreview& preview) {
        std::string out;
        for (const Clip& clip : preview.matches) out += (out.empty() ? "" : ",") + *clip.text;
        return out;
    };

    RulePreview none = previewRule(rule, {});
    EXPECT_EQ(none.summary, ruleTexts::previewNoClips);
    EXPECT_TRUE(none.matches.empty());

    RulePreview missed = previewRule(rule, clips(20, 0));
    EXPECT_EQ(missed.summary, ruleTexts::previewNoMatches);
    EXPECT_TRUE(missed.matches.empty());

    RulePreview some = previewRule(rule, clips(20, 3));
    EXPECT_EQ(some.summary, "3 of 20 recent clips match") << "a disabled rule is previewed all the same";
    EXPECT_EQ(listed(some), "x0,x1,x2");

    RulePreview many = previewRule(rule, clips(20, 11));
    EXPECT_EQ(many.summary, "11 of 20 recent clips match");
    EXPECT_EQ(many.matchCount, 11);
    EXPECT_EQ(listed(many), "x0,x1,x2,x3,x4,x5,x6,x7");
}

}  // namespace
}  // namespace tamarind
