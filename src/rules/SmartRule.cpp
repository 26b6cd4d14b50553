#include "rules/SmartRule.h"

#include <exception>

#include "foundation/Text.h"

namespace tamarind {

// --- Names and labels --------------------------------------------------------------------------------

std::string_view rawValue(RuleMatchMode mode) {
    switch (mode) {
    case RuleMatchMode::all: return "all";
    case RuleMatchMode::any: return "any";
    }
    return "all";
}

std::string_view label(RuleMatchMode mode) {
    switch (mode) {
    case RuleMatchMode::all: return "All conditions (AND)";
    case RuleMatchMode::any: return "Any condition (OR)";
    }
    return "All conditions (AND)";
}

std::optional<RuleMatchMode> ruleMatchModeFromRawValue(std::string_view raw) {
    for (RuleMatchMode mode : kAllRuleMatchModes)
        if (rawValue(mode) == raw) return mode;
    return std::nullopt;
}

std::string_view rawValue(RuleCondition::Field field) {
    using Field = RuleCondition::Field;
    switch (field) {
    case Field::contentType: return "contentType";
    case Field::sourceApp: return "sourceApp";
    case Field::textMatchesRegex: return "textMatchesRegex";
    case Field::textContains: return "textContains";
    case Field::urlDomain: return "urlDomain";
    case Field::imageWidthGreaterThan: return "imageWidthGreaterThan";
    case Field::imageHeightGreaterThan: return "imageHeightGreaterThan";
    }
    return "contentType";
}

std::string_view label(RuleCondition::Field field) {
    using Field = RuleCondition::Field;
    switch (field) {
    case Field::contentType: return "Content type is";
    case Field::sourceApp: return "Source app is";
    case Field::textMatchesRegex: return "Text matches regex";
    case Field::textContains: return "Text contains";
    case Field::urlDomain: return "URL domain is";
    case Field::imageWidthGreaterThan: return "Image width is greater than";
    case Field::imageHeightGreaterThan: return "Image height is greater than";
    }
    return "Content type is";
}

std::optional<RuleCondition::Field> ruleConditionFieldFromRawValue(std::string_view raw) {
    for (RuleCondition::Field field : kAllRuleConditionFields)
        if (rawValue(field) == raw) return field;
    return std::nullopt;
}

std::string_view rawValue(RuleAction::Kind kind) {
    switch (kind) {
    case RuleAction::Kind::addToCollection: return "addToCollection";
    case RuleAction::Kind::markFavorite: return "markFavorite";
    case RuleAction::Kind::markSensitive: return "markSensitive";
    case RuleAction::Kind::skipCapture: return "skipCapture";
    }
    return "addToCollection";
}

std::string RuleCondition::displayLine() const {
    return lowercased(label(field)) + " \u201C" + value + "\u201D";
}

std::string RuleAction::label() const {
    switch (kind()) {
    case Kind::addToCollection: return "Add to \u201C" + std::get<AddToCollection>(payload).name + "\u201D";
    case Kind::markFavorite: return "Mark as favourite";
    case Kind::markSensitive: return "Mark as sensitive";
    case Kind::skipCapture: return "Do not capture";
    }
    return {};
}

SmartRule SmartRule::makeNew() {
    SmartRule rule;
    rule.id = Uuid::random();
    return rule;
}

std::string SmartRule::summary() const {
    if (conditions.empty()) return "No conditions \u2014 this rule never matches.";
    std::vector<std::string> lines;
    lines.reserve(conditions.size());
    for (const RuleCondition& condition : conditions) lines.push_back(condition.displayLine());
    return join(lines, matchMode == RuleMatchMode::all ? " and " : " or ");
}

std::string SmartRule::actionsSummary() const {
    std::vector<std::string> labels;
    labels.reserve(actions.size());
    for (const RuleAction& action : actions) labels.push_back(action.label());
    return join(labels, ", ");
}

// --- JSON --------------------------------------------------------------------------------------------

namespace {

// The one message for every action object whose single key doesn't name an action, kept word for
// word because stored lists have always been refused with it.
constexpr const char* kActionKeysError = "Invalid number of keys found, expected one.";

}  // namespace

Json toJson(const RuleCondition& condition) {
    return Json{
        {"id", uuidToJson(condition.id)},
        {"field", std::string(rawValue(condition.field))},
        {"value", condition.value},
    };
}

Json toJson(const RuleAction& action) {
    Json payload = Json::object();
    if (const auto* add = std::get_if<RuleAction::AddToCollection>(&action.payload)) {
        payload["id"] = uuidToJson(add->id);
        payload["name"] = add->name;
    }
    Json object = Json::object();
    object[std::string(rawValue(action.kind()))] = std::move(payload);
    return object;
}

Json toJson(const SmartRule& rule) {
    Json conditions = Json::array();
    for (const RuleCondition& condition : rule.conditions) conditions.push_back(toJson(condition));
    Json actions = Json::array();
    for (const RuleAction& action : rule.actions) actions.push_back(toJson(action));
    return Json{
        {"id", uuidToJson(rule.id)},
        {"name", rule.name},
        {"isEnabled", rule.isEnabled},
        {"matchMode", std::string(rawValue(rule.matchMode))},
        {"conditions", std::move(conditions)},
        {"actions", std::move(actions)},
        {"stopsOnMatch", rule.stopsOnMatch},
        {"sortIndex", rule.sortIndex},
    };
}

RuleCondition ruleConditionFromJson(const Json& value) {
    RuleCondition condition;
    condition.id = requiredUuid(value, "id");
    const std::string& field = requiredString(value, "field");
    auto parsedField = ruleConditionFieldFromRawValue(field);
    if (!parsedField) throwMemberError("field", "unknown field \"" + field + "\"");
    condition.field = *parsedField;
    condition.value = requiredString(value, "value");
    return condition;
}

RuleAction ruleActionFromJson(const Json& value) {
    if (!value.is_object()) throw JsonDecodeError("expected an action object");
    if (value.size() != 1) throw JsonDecodeError(kActionKeysError);
    auto entry = value.begin();
    const std::string& key = entry.key();
    std::optional<RuleAction::Kind> kind;
    for (auto candidate : {RuleAction::Kind::addToCollection, RuleAction::Kind::markFavorite,
                           RuleAction::Kind::markSensitive, RuleAction::Kind::skipCapture})
        if (rawValue(candidate) == key) kind = candidate;
    if (!kind) throw JsonDecodeError(kActionKeysError);
    const Json& payload = entry.value();
    if (!payload.is_object()) throwMemberError(key, "expected an object");

    switch (*kind) {
    case RuleAction::Kind::addToCollection:
        return RuleAction::addToCollection(requiredUuid(payload, "id"), requiredString(payload, "name"));
    case RuleAction::Kind::markFavorite: return RuleAction::markFavorite();
    case RuleAction::Kind::markSensitive: return RuleAction::markSensitive();
    case RuleAction::Kind::skipCapture: return RuleAction::skipCapture();
    }
    throw JsonDecodeError(kActionKeysError);
}

SmartRule smartRuleFromJson(const Json& value) {
    SmartRule rule;
    rule.id = requiredUuid(value, "id");
    rule.name = requiredString(value, "name");
    rule.isEnabled = requiredBool(value, "isEnabled");
    const std::string& mode = requiredString(value, "matchMode");
    auto parsedMode = ruleMatchModeFromRawValue(mode);
    if (!parsedMode) throwMemberError("matchMode", "unknown match mode \"" + mode + "\"");
    rule.matchMode = *parsedMode;
    const Json& conditions = requiredArray(value, "conditions");
    rule.conditions.reserve(conditions.size());
    for (const Json& condition : conditions) rule.conditions.push_back(ruleConditionFromJson(condition));
    const Json& actions = requiredArray(value, "actions");
    rule.actions.reserve(actions.size());
    for (const Json& action : actions) rule.actions.push_back(ruleActionFromJson(action));
    rule.stopsOnMatch = requiredBool(value, "stopsOnMatch");
    rule.sortIndex = requiredNumber(value, "sortIndex");
    return rule;
}

std::string encodeRules(const std::vector<SmartRule>& rules) {
    Json array = Json::array();
    for (const SmartRule& rule : rules) array.push_back(toJson(rule));
    return array.dump(-1, ' ', false, Json::error_handler_t::replace);
}

DecodedRules decodeRules(std::string_view text) {
    try {
        auto json = parseJson(text);
        if (!json) return {std::nullopt, "not JSON"};
        if (!json->is_array()) return {std::nullopt, "expected an array of rules"};
        std::vector<SmartRule> rules;
        rules.reserve(json->size());
        for (const Json& element : *json) rules.push_back(smartRuleFromJson(element));
        return {std::move(rules), {}};
    } catch (const std::exception& error) {
        // JsonDecodeError for a wrong shape; anything else (nlohmann's own errors, memory) is
        // refused the same way, since nothing may throw out of here.
        return {std::nullopt, error.what()};
    }
}

}  // namespace tamarind
