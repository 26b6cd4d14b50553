#pragma once
// Where the user's capture rules and smart collections live: two JSON lists in the settings,
// published as observable lists, with three example rules put in on the first run. A smart
// collection is a saved library filter; it holds no clips and becomes a query each time it opens.
//
// SmartRuleStore is main thread only. The free functions are pure; any thread.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Date.h"
#include "foundation/Defaults.h"
#include "foundation/Json.h"
#include "foundation/Preferences.h"
#include "foundation/Uuid.h"
#include "library/Clip.h"
#include "library/ClipKind.h"
#include "library/ClipStore.h"
#include "rules/SmartRule.h"

namespace tamarind {

namespace ruleKeys {
inline constexpr const char* smartRules = "rules.smartRules";
inline constexpr const char* smartCollections = "rules.smartCollections";
inline constexpr const char* examplesSeeded = "rules.examplesSeeded";
}  // namespace ruleKeys

// Texts of the rule editor and the rules screen that belong to what the store does.
namespace ruleTexts {
inline constexpr const char* examplesNote =
    "The three shipped examples are switched off. Give each one an action, then enable it.";
inline constexpr const char* noActionsHint = "Add an action before enabling this rule";
inline constexpr const char* previewNoClips = "No clips captured yet.";
inline constexpr const char* previewNoMatches =
    "Nothing in recent history matches. That may be correct \u2014 or the rule may need adjusting.";
}  // namespace ruleTexts

// A new rule goes after the last with this gap, leaving room to place one between two others.
inline constexpr double kRuleSortIndexGap = 1024;

struct SmartCollection {
    Uuid id;
    std::string name;
    std::string iconName;
    std::string colorHex;  // "#RRGGBB"
    std::optional<ClipKind> kind;
    std::optional<std::string> appBundleID;
    std::optional<Uuid> collectionID;
    bool onlyFavorites = false;
    bool onlyPinned = false;
    std::string searchText;
    std::optional<long long> withinDays;  // below 1 means no limit

    friend bool operator==(const SmartCollection&, const SmartCollection&) = default;
};

// A ready-made name, symbol and colour the collection editor offers.
struct CollectionTemplate {
    std::string_view name;
    std::string_view iconName;
    std::string_view colorHex;
};

inline constexpr std::array<CollectionTemplate, 5> kCollectionTemplates = {{
    {"Colors", "paintpalette", "#E5484D"},
    {"Assets", "photo.stack", "#3B5BFD"},
    {"Prompts", "text.bubble", "#12A594"},
    {"Snippets", "chevron.left.forwardslash.chevron.right", "#F76B15"},
    {"Inspirations", "sparkles", "#8E4EC6"},
}};

// What a collection saved from the library's filter looks like until the user changes it.
inline constexpr const char* kSavedFilterIconName = "line.3.horizontal.decrease.circle";
inline constexpr const char* kSavedFilterColorHex = "#3B5BFD";

// The library sidebar's choice, as far as saving it and querying by it go.
struct LibraryFilter {
    struct OfKind {
        ClipKind kind = ClipKind::text;
        friend bool operator==(const OfKind&, const OfKind&) = default;
    };
    struct FromApp {
        std::string bundleID;
        std::string name;
        friend bool operator==(const FromApp&, const FromApp&) = default;
    };
    struct InCollection {
        Uuid id;
        std::string name;
        friend bool operator==(const InCollection&, const InCollection&) = default;
    };
    struct InSmartCollection {
        Uuid id;
        std::string name;
        friend bool operator==(const InSmartCollection&, const InSmartCollection&) = default;
    };
    struct All {
        friend bool operator==(const All&, const All&) = default;
    };
    struct Favorites {
        friend bool operator==(const Favorites&, const Favorites&) = default;
    };
    struct Pinned {
        friend bool operator==(const Pinned&, const Pinned&) = default;
    };

    using Payload = std::variant<OfKind, FromApp, InCollection, InSmartCollection, All, Favorites, Pinned>;

    Payload payload = All{};

    static LibraryFilter all() { return {All{}}; }
    static LibraryFilter ofKind(ClipKind kind) { return {OfKind{kind}}; }
    static LibraryFilter fromApp(std::string bundleID, std::string name) {
        return {FromApp{std::move(bundleID), std::move(name)}};
    }
    static LibraryFilter inCollection(Uuid id, std::string name) { return {InCollection{id, std::move(name)}}; }
    static LibraryFilter inSmartCollection(Uuid id, std::string name) {
        return {InSmartCollection{id, std::move(name)}};
    }
    static LibraryFilter favorites() { return {Favorites{}}; }
    static LibraryFilter pinned() { return {Pinned{}}; }

    friend bool operator==(const LibraryFilter&, const LibraryFilter&) = default;
};

// "Save as smart collection": the current filter and search text under a fresh id. Absent when
// the filter is itself a smart collection, which is already saved.
std::optional<SmartCollection> makeSmartCollection(std::string name, std::string searchText,
                                                   const LibraryFilter& filter);

// The collection's filters as a query. A non-empty search field replaces the saved search text;
// withinDays is carried in the query and applied to the fetched page by clipsWithinDays().
ClipQuery queryFor(const SmartCollection& collection, std::string_view searchFieldText);

// The clips created at or after now minus `withinDays` days, in their order. Absent or below 1
// keeps them all.
std::vector<Clip> clipsWithinDays(std::vector<Clip> page, std::optional<long long> withinDays, Date now);

// The rule editor's preview over the newest clips of the library.
inline constexpr int kRulePreviewClipCount = 20;  // what the caller fetches
inline constexpr std::size_t kRulePreviewMatchLimit = 8;

struct RulePreview {
    std::string summary;        // one of the ruleTexts, or "3 of 20 recent clips match"
    std::vector<Clip> matches;  // the first matches in the order given, at most kRulePreviewMatchLimit
    long long matchCount = 0;   // all of them
};

// Tests the rule as edited, enabled or not, against each clip.
RulePreview previewRule(const SmartRule& rule, const std::vector<Clip>& recentClips);

// --- JSON -------------------------------------------------------------------------------------------

// The optionals are left out when absent; every other key is required, and an unknown kind fails
// the read.
Json toJson(const SmartCollection& collection);
// Throws JsonDecodeError on the wrong shape.
SmartCollection smartCollectionFromJson(const Json& value);

// A JSON array of collections. Never throws: ill-formed UTF-8 in a string is written as U+FFFD.
std::string encodeSmartCollections(const std::vector<SmartCollection>& collections);

struct DecodedSmartCollections {
    std::optional<std::vector<SmartCollection>> collections;  // absent when the text could not be read
    std::string error;                                        // why not; empty on success
};

// Never throws; a failure of any element fails the whole list.
DecodedSmartCollections decodeSmartCollections(std::string_view text);

// The enabled rules by ascending sortIndex, equal indexes in list order: what the ingest runs.
std::vector<SmartRule> activeRules(const std::vector<SmartRule>& rules);

// --- Store ------------------------------------------------------------------------------------------

// Both lists are stored properties (foundation/Preferences.h): a rule added by the command line
// is in force in the running app at once. Every change publishes the whole list and rewrites its
// key. A list that cannot be encoded is logged and kept in memory only; the stored one stays as it
// was.
class SmartRuleStore final : public Preferences {
public:
    // Reads both lists (a missing or unreadable key gives an empty list, silently, and stays stored
    // as it is), and on the first run only puts in the three examples if there are no rules. A
    // user who deletes them all never gets them back.
    SmartRuleStore(Defaults& defaults, MainLoop& loop);

    // The three examples with fresh ids, all disabled and without actions.
    static std::vector<SmartRule> exampleRules();

    const Observable<std::vector<SmartRule>>& rules() const { return rules_; }
    const Observable<std::vector<SmartCollection>>& smartCollections() const { return smartCollections_; }

    void setRules(std::vector<SmartRule> rules);
    void setSmartCollections(std::vector<SmartCollection> collections);

    // activeRules() of the list.
    std::vector<SmartRule> activeRules() const;
    std::optional<SmartRule> rule(const Uuid& id) const;
    std::optional<SmartCollection> smartCollection(const Uuid& id) const;

    // Appends with sortIndex 0 on an empty list, else the highest plus kRuleSortIndexGap.
    void addRule(SmartRule rule);
    // These change nothing when no rule has the id.
    void updateRule(const SmartRule& rule);
    void setRuleEnabled(const Uuid& id, bool isEnabled);
    // Removes every rule with the id, keeping the order of the rest.
    void deleteRule(const Uuid& id);

    void addSmartCollection(SmartCollection collection);
    void deleteSmartCollection(const Uuid& id);
    // makeSmartCollection() appended; absent, and nothing saved, while a smart collection is open.
    std::optional<SmartCollection> saveSmartCollection(std::string name, std::string searchText,
                                                       const LibraryFilter& filter);

    // The plain default query when the collection is gone.
    ClipQuery queryFor(const Uuid& smartCollectionID, std::string_view searchFieldText) const;

private:
    StoredProperty<std::vector<SmartRule>> rules_;
    StoredProperty<std::vector<SmartCollection>> smartCollections_;
};

}  // namespace tamarind
