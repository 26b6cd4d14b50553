#pragma once
// Spots captured text that is probably a secret — an API key, a web token, a card number, a
// password — so the store can skip it or keep it blurred, as the user chose. It is a heuristic:
// it looks at the shape of the text, never at where it came from.
//
// Pure functions; any thread may call.
//
// "Character" here means what the user sees as one (an extended grapheme cluster), and lengths
// are counted in those. The properties of a character are those of its first code point, except
// for case, which takes the whole character into account (see looksLikePassword).

#include <array>
#include <cstddef>
#include <string_view>

#include "library/IngestPolicy.h"

namespace tamarind {

// --- What to do with a flagged clip ---------------------------------------------------------------

// Stored in the settings by its raw string.
enum class SensitiveHandling { skip, storeBlurred, storeNormally };

// Declaration order, which is also the order the picker shows.
inline constexpr std::array<SensitiveHandling, 3> kAllSensitiveHandlings = {
    SensitiveHandling::skip, SensitiveHandling::storeBlurred, SensitiveHandling::storeNormally};

// What a missing or unreadable setting means.
inline constexpr SensitiveHandling kDefaultSensitiveHandling = SensitiveHandling::storeBlurred;

std::string_view rawValue(SensitiveHandling handling);     // "storeBlurred"
std::string_view pickerLabel(SensitiveHandling handling);  // "Store, blurred until revealed"
std::string_view explanation(SensitiveHandling handling);  // the line shown under the picker
// Any string that names no case, a later version's included, reads as kDefaultSensitiveHandling.
SensitiveHandling sensitiveHandlingFromRawValue(std::string_view raw);

inline constexpr std::string_view kSensitiveDetectionDescription =
    "Detection is a heuristic: card numbers passing a Luhn check, JSON web tokens, known API-key prefixes, and "
    "high-entropy single tokens.";
inline constexpr std::string_view kSensitiveDetectionToggleTitle = "Detect probable secrets in captured text";
inline constexpr std::string_view kSensitiveDetectionToggleNote =
    "Flags clips that look like keys, tokens, or card numbers.";
inline constexpr std::string_view kSensitiveHandlingPickerTitle = "When a clip is flagged";
inline constexpr std::string_view kSensitiveHandlingPickerAccessibilityLabel = "What to do with flagged clips";

// --- Detection -------------------------------------------------------------------------------------

enum class SensitiveVerdict { cardNumber, webToken, apiKey, passwordLike, noSignal };

// Texts longer than this many characters (after trimming) are never examined.
inline constexpr std::size_t kMaxSensitiveScanCharacters = 100'000;

// The first signal found, tested in this order on the text without white space at its ends: a
// known key prefix, a JSON web token, a card number, a password. Empty and over-long texts give
// noSignal.
SensitiveVerdict detectSensitive(std::string_view text);

// Whether any white-space-separated token starts with a known API-key prefix ("sk-", "ghp_",
// "AKIA"...) and is at least as long as that kind of key, prefix included. Prefixes compare
// exactly, case and all, character by character. One such token anywhere flags the whole text.
bool containsKnownKeyPrefix(std::string_view text);

// Whether some run of 13 to 19 ASCII digits, unbroken or in groups of four split by single
// blanks or hyphens, and not touching a further digit, passes the Luhn check.
bool containsValidCardNumber(std::string_view text);

// The Luhn checksum over `digits`, which must be nothing but numbers of value 0...9 in any
// script ("٤٢" counts); an empty text, or any other character, fails.
bool passesLuhn(std::string_view digits);

// A single token of 12 to 128 characters that is neither a web address nor an e-mail address,
// uses at least three of lowercase, uppercase, numbers and other characters, and has at least
// 15% characters that are not letters.
//
// A character is lowercase when it is a single code point with the Lowercase property, or when
// lowercasing it leaves it unchanged and uppercasing it changes it ("e" + U+0301 is lowercase);
// uppercase is the same with the cases swapped. Digits and symbols are neither.
bool looksLikePassword(std::string_view text);

// detectSensitive() as the store's ingest asks it: anything but noSignal looks secret.
class SensitiveContentDetector final : public SecretDetector {
public:
    bool looksSecret(std::string_view text) const override { return detectSensitive(text) != SensitiveVerdict::noSignal; }
};

}  // namespace tamarind
