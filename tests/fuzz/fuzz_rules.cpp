// Feeds arbitrary bytes to the stored-rules decoder. It must never crash or throw, and whatever it
// accepts must survive being written and read again unchanged, since the store rewrites the list
// on every edit. Accepted rules are also summarised and run, as the editor and a capture would.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "rules/RuleEvaluation.h"
#include "rules/SmartRule.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tamarind;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    DecodedRules decoded = decodeRules(text);
    if (!decoded.rules) {
        if (decoded.error.empty()) std::abort();
        return 0;
    }

    DecodedRules again = decodeRules(encodeRules(*decoded.rules));
    if (!again.rules || *again.rules != *decoded.rules) std::abort();

    RuleSubject subject;
    subject.kind = ClipKind::link;
    subject.text = subject.urlString = "https://www.example.com/Invoice-42";
    subject.sourceAppBundleID = "org.mozilla.firefox";
    subject.imageWidth = 800;
    for (const SmartRule& rule : *decoded.rules) {
        (void)rule.summary();
        (void)rule.actionsSummary();
    }
    (void)evaluate(*decoded.rules, subject);
    return 0;
}
