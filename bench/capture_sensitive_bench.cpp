// The sensitive-content detector on the worst texts it still examines: 100,000 characters, the
// most it looks at, each built to make one step of the scan work as hard as it can. Every capture
// of text pays for one of these on the capture path, so each should stay well under 20 ms.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "capture/SensitiveContent.h"

namespace tamarind {
namespace {

constexpr std::size_t kCharacters = kMaxSensitiveScanCharacters;

// `unit`, `characters` characters long, repeated until the text holds `total` characters; the
// last copy may be cut short (by bytes, so only with single-byte units).
std::string filled(std::string_view unit, std::size_t characters, std::size_t total = kCharacters) {
    std::string out;
    for (std::size_t count = 0; count + characters <= total; count += characters) out += unit;
    out.append(unit.substr(0, total % characters));
    return out;
}

void runDetector(benchmark::State& state, const std::string& text, SensitiveVerdict expected) {
    if (detectSensitive(text) != expected) {
        state.SkipWithError("the text no longer gives the verdict it was built for");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(detectSensitive(text));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

// Card-shaped groups that all fail the Luhn check: 5,000 matches, each checked.
void BM_DetectCardNearMisses(benchmark::State& state) {
    runDetector(state, filled("4111 1111 1111 1112 ", 20), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectCardNearMisses)->Unit(benchmark::kMillisecond);

// Twenty-digit runs: every one matches and is then turned down by its count.
void BM_DetectCardOverLongRuns(benchmark::State& state) {
    runDetector(state, filled("4111-1111-1111-1111-1111 ", 25), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectCardOverLongRuns)->Unit(benchmark::kMillisecond);

// One unbroken run of digits: the card expression tries and fails at its start only.
void BM_DetectOneDigitRun(benchmark::State& state) {
    runDetector(state, filled("1234567890", 10), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectOneDigitRun)->Unit(benchmark::kMillisecond);

// A web-token header after header with no dot: the run a backtracking search would redo from
// every "eyJ".
void BM_DetectWebTokenNearMiss(benchmark::State& state) {
    runDetector(state, filled("eyJ", 3), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectWebTokenNearMiss)->Unit(benchmark::kMillisecond);

// Headers and short payloads separated by dots: every run is a candidate that falls short.
void BM_DetectWebTokenShortParts(benchmark::State& state) {
    runDetector(state, filled("eyJabcdefgh.short.", 18), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectWebTokenShortParts)->Unit(benchmark::kMillisecond);

// No white space, every character class present: one giant password-shaped token.
void BM_DetectMixedClassesToken(benchmark::State& state) {
    runDetector(state, filled("Ab1!x", 5), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectMixedClassesToken)->Unit(benchmark::kMillisecond);

// One giant token that opens like a key but with a prefix one character off.
void BM_DetectGiantNearKey(benchmark::State& state) {
    runDetector(state, "sk_" + filled("a", 1, kCharacters - 3), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectGiantNearKey)->Unit(benchmark::kMillisecond);

// 20,000 short tokens that each open with a key prefix but are too short to be one.
void BM_DetectShortKeyTokens(benchmark::State& state) {
    runDetector(state, filled("sk-a ", 5), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectShortKeyTokens)->Unit(benchmark::kMillisecond);

// Every character a letter with three combining marks: 700 KB that must go through the
// cluster rules, with no white space to split it.
void BM_DetectCombiningMarks(benchmark::State& state) {
    runDetector(state, filled("a\u0301\u0302\u0303", 1), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectCombiningMarks)->Unit(benchmark::kMillisecond);

// The same with blanks among them, so there are tokens to walk as well.
void BM_DetectCombiningMarksInWords(benchmark::State& state) {
    std::string word;
    for (int k = 0; k < 9; ++k) word += "e\u0301\u0323";
    runDetector(state, filled(word + " ", 10), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectCombiningMarksInWords)->Unit(benchmark::kMillisecond);

// Flags and a family emoji: clusters of many code points that only ICU's rules can find.
void BM_DetectEmoji(benchmark::State& state) {
    runDetector(state, filled("\U0001F1EB\U0001F1F7\U0001F468\u200D\U0001F469\u200D\U0001F467", 2),
                SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectEmoji)->Unit(benchmark::kMillisecond);

// A key as the last token of a long text: the verdict needs the whole walk.
void BM_DetectKeyAtTheEnd(benchmark::State& state) {
    std::string key = "AKIA" + std::string(16, 'B');
    runDetector(state, filled("word ", 5, kCharacters - key.size()) + key, SensitiveVerdict::apiKey);
}
BENCHMARK(BM_DetectKeyAtTheEnd)->Unit(benchmark::kMillisecond);

// Over the limit: the count must stop early rather than walk 10 MB.
void BM_DetectOverLimit(benchmark::State& state) {
    runDetector(state, std::string(10'000'000, 'a'), SensitiveVerdict::noSignal);
}
BENCHMARK(BM_DetectOverLimit)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tamarind
