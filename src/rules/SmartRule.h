#pragma once
// Capture rules as the user edits and stores them: a rule is a list of conditions on what was
// copied and a list of actions to take when they hold. This header holds the records, their
// labels for the editor and their JSON; RuleEvaluation.h tests them against a capture.
//
// Plain values and pure functions; any thread may use them.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Json.h"
#include "foundation/Uuid.h"

namespace tamarind {

struct RuleSubject;

enum class RuleMatchMode { all, any };

inline constexpr std::array<RuleMatchMode, 2> kAllRuleMatchModes = {RuleMatchMode::all, RuleMatchMode::any};

std::string_view rawValue(RuleMatchMode mode);  // "all"
std::string_view label(RuleMatchMode mode);     // "All conditions (AND)"
// Absent for a string that names no mode.
std::optional<RuleMatchMode> ruleMatchModeFromRawValue(std::string_view raw);

struct RuleCondition {
    // Stored by the case name, so the order here is only the editor's order.
    enum class Field {
        contentType,
        sourceApp,
        textMatchesRegex,
        textContains,
        urlDomain,
        imageWidthGreaterThan,
        imageHeightGreaterThan,
    };

    Uuid id;
    Field field = Field::contentType;
    std::string value;  // as typed; matching trims it

    // "text contains “foo”": the field's label in lower case and the value as typed.
    std::string displayLine() const;
    // Defined with the evaluation, in RuleEvaluation.cpp.
    bool matches(const RuleSubject& subject) const;

    friend bool operator==(const RuleCondition&, const RuleCondition&) = default;
};

inline constexpr std::array<RuleCondition::Field, 7> kAllRuleConditionFields = {
    RuleCondition::Field::contentType,
    RuleCondition::Field::sourceApp,
    RuleCondition::Field::textMatchesRegex,
    RuleCondition::Field::textContains,
    RuleCondition::Field::urlDomain,
    RuleCondition::Field::imageWidthGreaterThan,
    RuleCondition::Field::imageHeightGreaterThan,
};

std::string_view rawValue(RuleCondition::Field field);  // "textContains"
std::string_view label(RuleCondition::Field field);     // "Text contains"
std::optional<RuleCondition::Field> ruleConditionFieldFromRawValue(std::string_view raw);

struct RuleAction {
    struct AddToCollection {
        Uuid id;
        std::string name;  // a copy for display; filing goes by the id
        friend bool operator==(const AddToCollection&, const AddToCollection&) = default;
    };
    struct MarkFavorite {
        friend bool operator==(const MarkFavorite&, const MarkFavorite&) = default;
    };
    struct MarkSensitive {
        friend bool operator==(const MarkSensitive&, const MarkSensitive&) = default;
    };
    struct SkipCapture {
        friend bool operator==(const SkipCapture&, const SkipCapture&) = default;
    };

    // Same order as the alternatives of Payload, so kind() is the payload's index.
    enum class Kind { addToCollection, markFavorite, markSensitive, skipCapture };
    using Payload = std::variant<AddToCollection, MarkFavorite, MarkSensitive, SkipCapture>;

    Payload payload;

    static RuleAction addToCollection(Uuid id, std::string name) { return {AddToCollection{id, std::move(name)}}; }
    static RuleAction markFavorite() { return {MarkFavorite{}}; }
    static RuleAction markSensitive() { return {MarkSensitive{}}; }
    static RuleAction skipCapture() { return {SkipCapture{}}; }

    Kind kind() const { return static_cast<Kind>(payload.index()); }
    // "Add to “Work”", "Mark as favourite", "Mark as sensitive", "Do not capture".
    std::string label() const;

    friend bool operator==(const RuleAction&, const RuleAction&) = default;
};

std::string_view rawValue(RuleAction::Kind kind);  // "addToCollection"

struct SmartRule {
    Uuid id;
    std::string name = "New Rule";
    bool isEnabled = false;
    RuleMatchMode matchMode = RuleMatchMode::all;
    std::vector<RuleCondition> conditions;  // none: the rule never matches
    std::vector<RuleAction> actions;        // applied in this order
    bool stopsOnMatch = false;              // a match ends the run after this rule's actions
    double sortIndex = 0;                   // rules run in ascending order of this

    // What the editor adds: a fresh id, disabled, nothing in it. (A default-constructed rule has
    // the nil id, for a decoder to fill.)
    static SmartRule makeNew();

    // Defined with the evaluation, in RuleEvaluation.cpp.
    bool matches(const RuleSubject& subject) const;

    // The conditions' display lines joined by " and " or " or ", or a note that the rule
    // never matches when it has none.
    std::string summary() const;
    // The actions' labels joined by ", "; empty when there are none.
    std::string actionsSummary() const;

    friend bool operator==(const SmartRule&, const SmartRule&) = default;
};

// --- JSON -------------------------------------------------------------------------------------------

// Every key is required when reading, and an unknown case anywhere fails the whole read, so a
// list written by a later version is refused rather than half understood.
Json toJson(const RuleCondition& condition);
Json toJson(const RuleAction& action);
Json toJson(const SmartRule& rule);
// These throw JsonDecodeError on the wrong shape.
RuleCondition ruleConditionFromJson(const Json& value);
RuleAction ruleActionFromJson(const Json& value);
SmartRule smartRuleFromJson(const Json& value);

// A JSON array of rules. Never throws: ill-formed UTF-8 in a string is written as U+FFFD.
std::string encodeRules(const std::vector<SmartRule>& rules);

struct DecodedRules {
    std::optional<std::vector<SmartRule>> rules;  // absent when the text could not be read
    std::string error;                            // why not, for the log; empty on success
};

// Never throws; any failure, of the text or of one element, gives no rules and a reason.
DecodedRules decodeRules(std::string_view text);

}  // namespace tamarind
