#pragma once
// What the ingest asks of the layers above the library, handed to the store at
// construction: the decision of the rules in force for one capture, and
// whether a text looks like a secret. The rules and the detector live in
// rules/ and capture/; the library knows them only by these interfaces.
// Called on the main thread, during ingest.

#include <string_view>
#include <vector>

#include "foundation/Uuid.h"
#include "library/ClipKind.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

// What the matching rules ask of one capture.
struct RuleDecision {
    std::vector<Uuid> collectionIDs;  // file it here, in this order
    bool markFavorite = false;
    bool markSensitive = false;
    bool skipCapture = false;
    bool matchedAnyRule = false;
};

class CaptureRules {
public:
    virtual ~CaptureRules() = default;
    virtual RuleDecision decide(const PasteboardSnapshot& snapshot, ClipKind kind) const = 0;
};

class SecretDetector {
public:
    virtual ~SecretDetector() = default;
    virtual bool looksSecret(std::string_view text) const = 0;
};

// The store's view of both; either may be absent (no rules; nothing looks secret).
struct IngestPolicy {
    const CaptureRules* rules = nullptr;
    const SecretDetector* secrets = nullptr;
};

}  // namespace tamarind
