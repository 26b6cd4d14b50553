#include <benchmark/benchmark.h>

#include <string>

#include "foundation/Regex.h"
#include "foundation/Text.h"

namespace tamarind {
namespace {

// About 100,000 characters of what a clipboard holds: mostly ASCII prose with accented words,
// emoji (a ZWJ family, a flag), digits and line breaks.
const std::string& mixedText() {
    static const std::string text = [] {
        const std::string unit =
            "The caf\u00E9 on Stra\u00DFe served cr\u00E8me br\u00FBl\u00E9e \U0001F600 to the "
            "\U0001F468\u200D\U0001F469\u200D\U0001F467 family \U0001F1EB\U0001F1F7, order 4111111111111111.\n"
            "R\u00C9SUM\u00C9: na\u00EFve co\u00F6perate fa\u00E7ade, 42 items; "
            "\u00C5ngstr\u00F6m & \u00E9t\u00E9.\r\n";
        std::string out;
        while (graphemeCount(out) < 100000) out += unit;
        return out;
    }();
    return text;
}

void BM_TextGraphemeCount(benchmark::State& state) {
    const std::string& text = mixedText();
    for (auto _ : state) benchmark::DoNotOptimize(graphemeCount(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TextGraphemeCount)->Unit(benchmark::kMicrosecond);

void BM_TextSearchFold(benchmark::State& state) {
    const std::string& text = mixedText();
    for (auto _ : state) benchmark::DoNotOptimize(searchFold(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TextSearchFold)->Unit(benchmark::kMicrosecond);

// The needle is absent, so the whole haystack is folded and scanned every time.
void BM_TextLocalizedStandardContains(benchmark::State& state) {
    const std::string& text = mixedText();
    const std::string needle = "Cr\u00C8ME BR\u00DBL\u00C9E \u00E0 la";
    for (auto _ : state) benchmark::DoNotOptimize(localizedStandardContains(text, needle));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TextLocalizedStandardContains)->Unit(benchmark::kMicrosecond);

void BM_TextRegexCardNumbers(benchmark::State& state) {
    const std::string& text = mixedText();
    std::optional<Regex> regex = Regex::compile(R"(\b\d{13,19}\b)");
    for (auto _ : state) benchmark::DoNotOptimize(regex->allMatches(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_TextRegexCardNumbers)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tamarind
