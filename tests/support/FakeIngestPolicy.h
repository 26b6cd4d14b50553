#pragma once
// The ingest's policy on a table: rules that decide by what the text contains,
// and a detector that finds secret whatever it was told is.

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "library/IngestPolicy.h"

namespace tamarind {

class FakeCaptureRules final : public CaptureRules {
public:
    // The first entry whose needle the snapshot's text holds decides; none: no rule matched.
    std::vector<std::pair<std::string, RuleDecision>> byText;

    RuleDecision decide(const PasteboardSnapshot& snapshot, ClipKind) const override {
        for (const auto& [needle, decision] : byText)
            if (snapshot.string && snapshot.string->find(needle) != std::string::npos) return decision;
        return {};
    }
};

class FakeSecretDetector final : public SecretDetector {
public:
    std::set<std::string> secrets;
    bool looksSecret(std::string_view text) const override { return secrets.contains(std::string(text)); }
};

}  // namespace tamarind
