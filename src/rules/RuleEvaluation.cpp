#include "rules/RuleEvaluation.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

#include "foundation/Regex.h"
#include "foundation/Text.h"
#include "foundation/Url.h"
#include "library/Clip.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

namespace {

// Converting a double outside the range of the integer is undefined, and a decoder may report
// anything; NaN counts as no size.
long long truncatedPixelCount(double value) {
    if (std::isnan(value)) return 0;
    constexpr double kLimit = 9.2e18;  // just inside long long
    return static_cast<long long>(std::clamp(value, -kLimit, kLimit));
}

// A decimal integer as the user typed it: an optional sign, then ASCII digits only. from_chars
// alone would take no "+" and would take a "-" after one.
std::optional<std::int64_t> parseDecimalInteger(std::string_view text) {
    std::string_view digits = text;
    if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) digits.remove_prefix(1);
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    std::string_view number = text.front() == '-' ? text : digits;
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
    return value;
}

bool equalsIgnoringCase(const std::optional<std::string>& candidate, std::string_view value) {
    return candidate && caseInsensitiveEquals(*candidate, value);
}

bool hostMatches(const RuleSubject& subject, std::string_view value) {
    const std::optional<std::string>& address = subject.urlString ? subject.urlString : subject.text;
    if (!address) return false;
    auto components = parseUrlComponents(*address);
    if (!components || !components->host || components->host->empty()) return false;
    std::string host = lowercased(*components->host);
    std::string domain = lowercased(value);
    if (host == domain) return true;
    // A whole label must match: "notexample.com" is not under "example.com".
    return host.size() > domain.size() && host.ends_with(domain) && host[host.size() - domain.size() - 1] == '.';
}

}  // namespace

RuleSubject RuleSubject::from(const PasteboardSnapshot& snapshot, ClipKind kind) {
    RuleSubject subject;
    subject.kind = kind;
    subject.text = snapshot.string;
    subject.sourceAppBundleID = snapshot.sourceAppBundleID;
    subject.sourceAppName = snapshot.sourceAppName;
    if (kind == ClipKind::link) subject.urlString = snapshot.string;
    if (snapshot.imagePixelSize) {
        subject.imageWidth = truncatedPixelCount(snapshot.imagePixelSize->width);
        subject.imageHeight = truncatedPixelCount(snapshot.imagePixelSize->height);
    }
    return subject;
}

RuleSubject RuleSubject::from(const Clip& clip) {
    RuleSubject subject;
    subject.kind = clip.clipKind();
    subject.text = clip.text;
    subject.sourceAppBundleID = clip.sourceAppBundleID;
    subject.sourceAppName = clip.sourceAppName;
    subject.urlString = clip.urlString;
    subject.imageWidth = clip.imageWidth;
    subject.imageHeight = clip.imageHeight;
    return subject;
}

bool RuleCondition::matches(const RuleSubject& subject) const {
    std::string_view trimmedValue = trimmed(value);
    if (trimmedValue.empty()) return false;

    switch (field) {
    case Field::contentType: return caseInsensitiveEquals(trimmedValue, rawValue(subject.kind));
    case Field::sourceApp:
        return equalsIgnoringCase(subject.sourceAppBundleID, trimmedValue) ||
               equalsIgnoringCase(subject.sourceAppName, trimmedValue);
    case Field::textMatchesRegex: {
        if (!subject.text) return false;
        // Compiled afresh each time: rules change under the editor, and a cache would have to
        // follow them.
        auto regex = Regex::compile(trimmedValue, RegexOptions{.caseInsensitive = true});
        return regex && regex->firstMatch(*subject.text).has_value();
    }
    case Field::textContains: return subject.text && localizedCaseInsensitiveContains(*subject.text, trimmedValue);
    case Field::urlDomain: return hostMatches(subject, trimmedValue);
    case Field::imageWidthGreaterThan: {
        auto limit = parseDecimalInteger(trimmedValue);
        return limit && subject.imageWidth > *limit;
    }
    case Field::imageHeightGreaterThan: {
        auto limit = parseDecimalInteger(trimmedValue);
        return limit && subject.imageHeight > *limit;
    }
    }
    return false;
}

bool SmartRule::matches(const RuleSubject& subject) const {
    if (conditions.empty()) return false;
    auto holds = [&](const RuleCondition& condition) { return condition.matches(subject); };
    // Both stop at the first condition that settles the answer.
    if (matchMode == RuleMatchMode::any) return std::any_of(conditions.begin(), conditions.end(), holds);
    return std::all_of(conditions.begin(), conditions.end(), holds);
}

RuleOutcome evaluate(const std::vector<SmartRule>& rules, const RuleSubject& subject) {
    std::vector<const SmartRule*> order;
    for (const SmartRule& rule : rules)
        if (rule.isEnabled) order.push_back(&rule);
    // NaN sorts last, so the comparison stays a strict weak order whatever the stored indexes are.
    std::stable_sort(order.begin(), order.end(), [](const SmartRule* a, const SmartRule* b) {
        if (std::isnan(a->sortIndex)) return false;
        if (std::isnan(b->sortIndex)) return true;
        return a->sortIndex < b->sortIndex;
    });

    RuleOutcome outcome;
    for (const SmartRule* rule : order) {
        if (!rule->matches(subject)) continue;
        outcome.matchedRuleIDs.push_back(rule->id);
        for (const RuleAction& action : rule->actions) {
            switch (action.kind()) {
            case RuleAction::Kind::addToCollection: {
                const Uuid& collection = std::get<RuleAction::AddToCollection>(action.payload).id;
                if (std::find(outcome.collectionIDs.begin(), outcome.collectionIDs.end(), collection) ==
                    outcome.collectionIDs.end())
                    outcome.collectionIDs.push_back(collection);
                break;
            }
            case RuleAction::Kind::markFavorite: outcome.markFavorite = true; break;
            case RuleAction::Kind::markSensitive: outcome.markSensitive = true; break;
            case RuleAction::Kind::skipCapture:
                // Nothing will be stored, so nothing later can matter.
                outcome.skipCapture = true;
                return outcome;
            }
        }
        if (rule->stopsOnMatch) break;
    }
    return outcome;
}

RuleDecision RulesInForce::decide(const PasteboardSnapshot& snapshot, ClipKind kind) const {
    RuleOutcome outcome = evaluate(activeRules_(), RuleSubject::from(snapshot, kind));
    return RuleDecision{.collectionIDs = std::move(outcome.collectionIDs),
                        .markFavorite = outcome.markFavorite,
                        .markSensitive = outcome.markSensitive,
                        .skipCapture = outcome.skipCapture,
                        .matchedAnyRule = !outcome.matchedRuleIDs.empty()};
}

}  // namespace tamarind
