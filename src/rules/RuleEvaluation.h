#pragma once
// Running the capture rules against one capture: what the capture looks like to a rule, and what
// the rules that matched ask for. The store's ingest applies the outcome; the editor's preview
// runs a single rule against a stored clip.
//
// Pure; any thread. Evaluation cannot fail and logs nothing: a condition that cannot be tested
// (a refused pattern, a number that doesn't parse) is simply false.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Uuid.h"
#include "library/ClipKind.h"
#include "library/IngestPolicy.h"
#include "rules/SmartRule.h"

namespace tamarind {

struct Clip;
struct PasteboardSnapshot;

// Built for each test, never stored.
struct RuleSubject {
    ClipKind kind = ClipKind::text;
    std::optional<std::string> text;
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> sourceAppName;
    std::optional<std::string> urlString;
    long long imageWidth = 0;  // pixels; 0 when unknown
    long long imageHeight = 0;

    // A capture: the snapshot's plain string, which is also the URL when `kind` is link, and its
    // pixel size truncated toward zero.
    static RuleSubject from(const PasteboardSnapshot& snapshot, ClipKind kind);
    // A stored clip, for the editor's preview.
    static RuleSubject from(const Clip& clip);
};

struct RuleOutcome {
    std::vector<Uuid> collectionIDs;  // in order of first mention, no repeats
    bool markFavorite = false;
    bool markSensitive = false;
    bool skipCapture = false;
    std::vector<Uuid> matchedRuleIDs;  // every rule that matched, in the order they ran

    friend bool operator==(const RuleOutcome&, const RuleOutcome&) = default;
};

// Runs the enabled rules in ascending sortIndex (rules with equal indexes keep their list order).
// A matching rule's actions apply in order; skipCapture ends the run at once, and a matching rule
// that stops on match ends it after its actions.
RuleOutcome evaluate(const std::vector<SmartRule>& rules, const RuleSubject& subject);

// The rules in force as the store's ingest sees them: evaluate() over what `activeRules` returns
// at each capture, so that a rule changed a moment ago applies to the next copy.
class RulesInForce final : public CaptureRules {
public:
    explicit RulesInForce(std::function<std::vector<SmartRule>()> activeRules) : activeRules_(std::move(activeRules)) {}
    RuleDecision decide(const PasteboardSnapshot& snapshot, ClipKind kind) const override;

private:
    std::function<std::vector<SmartRule>()> activeRules_;
};

}  // namespace tamarind
