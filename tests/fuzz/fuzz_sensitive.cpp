// Feeds arbitrary bytes to the sensitive-content detector, which sees every captured text. It must
// never crash, hang or throw, and its answers must hang together: white space at the ends changes
// nothing, each verdict agrees with the helper that gave it, the web-token and card scans agree
// with the expressions read literally, and digits count the same in any script.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "capture/SensitiveContent.h"
#include "foundation/Regex.h"
#include "foundation/Text.h"

namespace {

using namespace tamarind;

void require(bool condition) {
    if (!condition) std::abort();
}

// The expression is only safe to run on short texts: on long ones its backtracking may hit the
// step limit, which is the reason the detector does not use it.
constexpr std::size_t kMaxCheckedBytes = 4096;

const std::optional<Regex>& webTokenExpression() {
    static const std::optional<Regex> expression =
        Regex::compile("eyJ[A-Za-z0-9_-]{8,}\\.[A-Za-z0-9_-]{8,}\\.[A-Za-z0-9_-]*");
    return expression;
}

// The card rule read literally: the expression over the whole text, each match's digits counted
// and checked. The detector runs it only over the stretches that can hold a card number.
bool hasCardByTheExpression(std::string_view text) {
    const std::optional<Regex> expression = Regex::compile("(?<![0-9])(?:[0-9]{4}[ -]?){3,4}[0-9]{1,4}(?![0-9])");
    if (!expression) return false;
    for (const RegexMatch& match : expression->allMatches(text)) {
        std::string digits;
        for (char c : match.text(text))
            if (c >= '0' && c <= '9') digits += c;
        if (digits.size() >= 13 && digits.size() <= 19 && passesLuhn(digits)) return true;
    }
    return false;
}

// The same digits, fullwidth: the non-ASCII way through the Luhn check.
std::string fullwidth(std::string_view asciiDigits) {
    std::string out;
    for (char c : asciiDigits) appendUtf8(out, U'\uFF10' + static_cast<char32_t>(c - '0'));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const SensitiveVerdict verdict = detectSensitive(text);
    const std::string_view inner = trimmed(text);

    require(detectSensitive(" \n" + std::string(text) + "\u3000\t") == verdict);

    const bool hasKey = containsKnownKeyPrefix(inner);
    const bool hasCard = containsValidCardNumber(inner);
    const bool isPassword = looksLikePassword(inner);
    if (size <= kMaxSensitiveScanCharacters) {
        switch (verdict) {
        case SensitiveVerdict::apiKey: require(hasKey); break;
        case SensitiveVerdict::webToken: require(!hasKey); break;
        case SensitiveVerdict::cardNumber: require(!hasKey && hasCard); break;
        case SensitiveVerdict::passwordLike: require(!hasKey && !hasCard && isPassword); break;
        case SensitiveVerdict::noSignal: require(inner.empty() || (!hasKey && !hasCard && !isPassword)); break;
        }
    }
    if (size <= kMaxCheckedBytes && !hasKey && webTokenExpression())
        require((verdict == SensitiveVerdict::webToken) == webTokenExpression()->containsMatch(inner));
    if (size <= kMaxCheckedBytes) require(hasCard == hasCardByTheExpression(inner));

    // Luhn on the input as it is, and on its ASCII digits in both forms.
    const bool luhn = passesLuhn(text);
    std::string digits;
    for (char c : text)
        if (c >= '0' && c <= '9') digits += c;
    if (!digits.empty()) require(passesLuhn(digits) == passesLuhn(fullwidth(digits)));
    if (digits.size() == size) require(luhn == passesLuhn(digits));
    return 0;
}
