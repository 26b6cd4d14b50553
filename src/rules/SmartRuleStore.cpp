#include "rules/SmartRuleStore.h"

#include <algorithm>
#include <exception>

#include "foundation/Log.h"
#include "rules/RuleEvaluation.h"

namespace tamarind {

namespace {

const Log log{"rules"};

constexpr double kSecondsPerDay = 86'400;

// A JSON list stored as data. A missing key, or one that doesn't decode, reads as the empty list;
// writing over one that doesn't decode keeps it aside first. Writing is strict, unlike
// encodeRules: replacing ill-formed bytes would store a name the user never typed, while refusing
// keeps the old list stored and the new one in memory.
template <class T>
SettingCodec<std::vector<T>> jsonListSetting(std::optional<std::vector<T>> (*decode)(std::string_view)) {
    return {[decode](const Defaults& defaults, const std::string& key) {
                auto data = defaults.data(key);
                if (!data) return std::vector<T>{};
                return decode(stringFromData(*data)).value_or(std::vector<T>{});
            },
            [decode](Defaults& defaults, const std::string& key, const std::vector<T>& list) {
                std::string text;
                try {
                    Json array = Json::array();
                    for (const T& element : list) array.push_back(toJson(element));
                    text = array.dump();
                } catch (const std::exception& error) {
                    log.error("Could not save %{public}s: %{public}s", key, error.what());
                    return;
                }
                keepUnreadableValueAside(defaults, key, [decode](const PlistValue& stored) {
                    return stored.asData() && decode(stringFromData(*stored.asData())).has_value();
                });
                defaults.set(key, dataFromString(text));
            }};
}

std::optional<std::vector<SmartRule>> decodedRules(std::string_view text) { return decodeRules(text).rules; }

std::optional<std::vector<SmartCollection>> decodedCollections(std::string_view text) {
    return decodeSmartCollections(text).collections;
}

RuleCondition sourceAppIs(std::string bundleID) {
    return {Uuid::random(), RuleCondition::Field::sourceApp, std::move(bundleID)};
}

SmartRule example(std::string name, RuleMatchMode mode, std::vector<RuleCondition> conditions, double sortIndex) {
    SmartRule rule = SmartRule::makeNew();
    rule.name = std::move(name);
    rule.isEnabled = false;
    rule.matchMode = mode;
    rule.conditions = std::move(conditions);
    rule.stopsOnMatch = false;
    rule.sortIndex = sortIndex;
    return rule;
}

}  // namespace

// --- Smart collections as filters ----------------------------------------------------------------------

std::optional<SmartCollection> makeSmartCollection(std::string name, std::string searchText,
                                                   const LibraryFilter& filter) {
    const LibraryFilter::Payload& payload = filter.payload;
    if (std::holds_alternative<LibraryFilter::InSmartCollection>(payload)) return std::nullopt;

    SmartCollection collection;
    collection.id = Uuid::random();
    collection.name = std::move(name);
    collection.iconName = kSavedFilterIconName;
    collection.colorHex = kSavedFilterColorHex;
    collection.searchText = std::move(searchText);
    if (const auto* ofKind = std::get_if<LibraryFilter::OfKind>(&payload)) collection.kind = ofKind->kind;
    if (const auto* app = std::get_if<LibraryFilter::FromApp>(&payload)) collection.appBundleID = app->bundleID;
    if (const auto* folder = std::get_if<LibraryFilter::InCollection>(&payload)) collection.collectionID = folder->id;
    collection.onlyFavorites = std::holds_alternative<LibraryFilter::Favorites>(payload);
    collection.onlyPinned = std::holds_alternative<LibraryFilter::Pinned>(payload);
    return collection;
}

ClipQuery queryFor(const SmartCollection& collection, std::string_view searchFieldText) {
    ClipQuery query;
    query.kind = collection.kind;
    query.appBundleID = collection.appBundleID;
    query.collectionID = collection.collectionID;
    query.onlyFavorites = collection.onlyFavorites;
    query.onlyPinned = collection.onlyPinned;
    query.text = searchFieldText.empty() ? collection.searchText : std::string(searchFieldText);
    query.withinDays = collection.withinDays;
    return query;
}

std::vector<Clip> clipsWithinDays(std::vector<Clip> page, std::optional<long long> withinDays, Date now) {
    if (!withinDays || *withinDays < 1) return page;
    Date cutOff = now.addingSeconds(-static_cast<double>(*withinDays) * kSecondsPerDay);
    std::erase_if(page, [&](const Clip& clip) { return clip.createdAt < cutOff; });
    return page;
}

RulePreview previewRule(const SmartRule& rule, const std::vector<Clip>& recentClips) {
    RulePreview preview;
    for (const Clip& clip : recentClips) {
        if (!rule.matches(RuleSubject::from(clip))) continue;
        ++preview.matchCount;
        if (preview.matches.size() < kRulePreviewMatchLimit) preview.matches.push_back(clip);
    }
    if (recentClips.empty())
        preview.summary = ruleTexts::previewNoClips;
    else if (preview.matchCount == 0)
        preview.summary = ruleTexts::previewNoMatches;
    else
        preview.summary = std::to_string(preview.matchCount) + " of " + std::to_string(recentClips.size()) +
                          " recent clips match";
    return preview;
}

// --- JSON --------------------------------------------------------------------------------------------

Json toJson(const SmartCollection& collection) {
    Json object{
        {"id", uuidToJson(collection.id)},
        {"name", collection.name},
        {"iconName", collection.iconName},
        {"colorHex", collection.colorHex},
        {"onlyFavorites", collection.onlyFavorites},
        {"onlyPinned", collection.onlyPinned},
        {"searchText", collection.searchText},
    };
    if (collection.kind) object["kind"] = std::string(rawValue(*collection.kind));
    if (collection.appBundleID) object["appBundleID"] = *collection.appBundleID;
    if (collection.collectionID) object["collectionID"] = uuidToJson(*collection.collectionID);
    if (collection.withinDays) object["withinDays"] = *collection.withinDays;
    return object;
}

SmartCollection smartCollectionFromJson(const Json& value) {
    if (!value.is_object()) throw JsonDecodeError("expected a smart collection object");
    SmartCollection collection;
    collection.id = requiredUuid(value, "id");
    collection.name = requiredString(value, "name");
    collection.iconName = requiredString(value, "iconName");
    collection.colorHex = requiredString(value, "colorHex");
    if (auto raw = optionalString(value, "kind")) {
        collection.kind = clipKindFromRawValue(*raw);
        if (!collection.kind) throwMemberError("kind", "unknown kind \"" + *raw + "\"");
    }
    collection.appBundleID = optionalString(value, "appBundleID");
    collection.collectionID = optionalUuid(value, "collectionID");
    collection.onlyFavorites = requiredBool(value, "onlyFavorites");
    collection.onlyPinned = requiredBool(value, "onlyPinned");
    collection.searchText = requiredString(value, "searchText");
    // 7.5 or 2^63 is no day count; reading it as one would quietly change the filter.
    collection.withinDays = optionalInteger(value, "withinDays");
    return collection;
}

std::string encodeSmartCollections(const std::vector<SmartCollection>& collections) {
    Json array = Json::array();
    for (const SmartCollection& collection : collections) array.push_back(toJson(collection));
    return array.dump(-1, ' ', false, Json::error_handler_t::replace);
}

DecodedSmartCollections decodeSmartCollections(std::string_view text) {
    try {
        auto json = parseJson(text);
        if (!json) return {std::nullopt, "not JSON"};
        if (!json->is_array()) return {std::nullopt, "expected an array of smart collections"};
        std::vector<SmartCollection> collections;
        collections.reserve(json->size());
        for (const Json& element : *json) collections.push_back(smartCollectionFromJson(element));
        return {std::move(collections), {}};
    } catch (const std::exception& error) {
        return {std::nullopt, error.what()};
    }
}

// --- Store -------------------------------------------------------------------------------------------

SmartRuleStore::SmartRuleStore(Defaults& defaults, MainLoop& loop)
    : Preferences(defaults, loop),
      rules_(*this, ruleKeys::smartRules, jsonListSetting(decodedRules)),
      smartCollections_(*this, ruleKeys::smartCollections, jsonListSetting(decodedCollections)) {
    if (!defaults.boolValue(ruleKeys::examplesSeeded)) {
        // The flag first: whatever the list holds now, this step never runs again.
        defaults.set(ruleKeys::examplesSeeded, true);
        if (rules_->empty()) setRules(exampleRules());
    }
}

std::vector<SmartRule> SmartRuleStore::exampleRules() {
    using Field = RuleCondition::Field;
    return {
        example("Figma \u2192 Assets", RuleMatchMode::all, {sourceAppIs("com.figma.Desktop")}, 0),
        example("Hex colours \u2192 Colors", RuleMatchMode::all, {{Uuid::random(), Field::contentType, "color"}},
                kRuleSortIndexGap),
        example("Code from Xcode or VS Code \u2192 Snippets", RuleMatchMode::any,
                {sourceAppIs("com.apple.dt.Xcode"), sourceAppIs("com.microsoft.VSCode")}, 2 * kRuleSortIndexGap),
    };
}

void SmartRuleStore::setRules(std::vector<SmartRule> rules) { rules_.set(std::move(rules)); }

void SmartRuleStore::setSmartCollections(std::vector<SmartCollection> collections) {
    smartCollections_.set(std::move(collections));
}

std::vector<SmartRule> activeRules(const std::vector<SmartRule>& rules) {
    std::vector<SmartRule> active;
    for (const SmartRule& rule : rules)
        if (rule.isEnabled) active.push_back(rule);
    std::stable_sort(active.begin(), active.end(),
                     [](const SmartRule& a, const SmartRule& b) { return a.sortIndex < b.sortIndex; });
    return active;
}

std::vector<SmartRule> SmartRuleStore::activeRules() const { return tamarind::activeRules(*rules_); }

std::optional<SmartRule> SmartRuleStore::rule(const Uuid& id) const {
    auto found = std::find_if(rules_->begin(), rules_->end(), [&](const SmartRule& r) { return r.id == id; });
    if (found == rules_->end()) return std::nullopt;
    return *found;
}

std::optional<SmartCollection> SmartRuleStore::smartCollection(const Uuid& id) const {
    auto found = std::find_if(smartCollections_->begin(), smartCollections_->end(),
                              [&](const SmartCollection& c) { return c.id == id; });
    if (found == smartCollections_->end()) return std::nullopt;
    return *found;
}

void SmartRuleStore::addRule(SmartRule rule) {
    rules_.modify([&](std::vector<SmartRule>& rules) {
        if (rules.empty()) {
            rule.sortIndex = 0;
        } else {
            auto highest = std::max_element(rules.begin(), rules.end(), [](const SmartRule& a, const SmartRule& b) {
                return a.sortIndex < b.sortIndex;
            });
            rule.sortIndex = highest->sortIndex + kRuleSortIndexGap;
        }
        rules.push_back(std::move(rule));
        return true;
    });
}

void SmartRuleStore::updateRule(const SmartRule& rule) {
    rules_.modify([&](std::vector<SmartRule>& rules) {
        auto found = std::find_if(rules.begin(), rules.end(), [&](const SmartRule& r) { return r.id == rule.id; });
        if (found == rules.end()) return false;
        *found = rule;
        return true;
    });
}

void SmartRuleStore::setRuleEnabled(const Uuid& id, bool isEnabled) {
    rules_.modify([&](std::vector<SmartRule>& rules) {
        auto found = std::find_if(rules.begin(), rules.end(), [&](const SmartRule& r) { return r.id == id; });
        if (found == rules.end()) return false;
        found->isEnabled = isEnabled;
        return true;
    });
}

void SmartRuleStore::deleteRule(const Uuid& id) {
    rules_.modify([&](std::vector<SmartRule>& rules) {
        std::erase_if(rules, [&](const SmartRule& r) { return r.id == id; });
        return true;
    });
}

void SmartRuleStore::addSmartCollection(SmartCollection collection) {
    smartCollections_.modify([&](std::vector<SmartCollection>& collections) {
        collections.push_back(std::move(collection));
        return true;
    });
}

void SmartRuleStore::deleteSmartCollection(const Uuid& id) {
    smartCollections_.modify([&](std::vector<SmartCollection>& collections) {
        std::erase_if(collections, [&](const SmartCollection& c) { return c.id == id; });
        return true;
    });
}

std::optional<SmartCollection> SmartRuleStore::saveSmartCollection(std::string name, std::string searchText,
                                                                   const LibraryFilter& filter) {
    auto collection = makeSmartCollection(std::move(name), std::move(searchText), filter);
    if (collection) addSmartCollection(*collection);
    return collection;
}

ClipQuery SmartRuleStore::queryFor(const Uuid& smartCollectionID, std::string_view searchFieldText) const {
    auto collection = smartCollection(smartCollectionID);
    if (!collection) return {};
    return tamarind::queryFor(*collection, searchFieldText);
}

}  // namespace tamarind
