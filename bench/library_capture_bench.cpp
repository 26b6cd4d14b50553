// What every capture costs before the store: classifying and hashing a large
// text, and making the thumbnail of a screenshot.

#include <benchmark/benchmark.h>

#include "library/ClipClassifier.h"
#include "foundation/ImageCodec.h"
#include "support/Images.h"

namespace tamarind {
namespace {

// About 1 MB of prose-like lines with runs of blanks, so the hash's blank folding has work to do.
std::string megabyteOfText() {
    std::string text;
    const std::string line = "The quick  brown fox\tjumps over   the lazy dog; caf\xC3\xA9 na\xC3\xAFve r\xC3\xA9sum\xC3\xA9.\n";
    while (text.size() < (1 << 20)) text += line;
    return text;
}

void BM_ClassifyAndHashOneMegabyte(benchmark::State& state) {
    PasteboardSnapshot snapshot;
    snapshot.string = megabyteOfText();
    for (auto _ : state) {
        ClipKind kind = classify(snapshot);
        benchmark::DoNotOptimize(contentHash(snapshot, kind));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(snapshot.string->size()));
}
BENCHMARK(BM_ClassifyAndHashOneMegabyte)->Unit(benchmark::kMillisecond);

// Code-shaped text takes the longest path through classify (every test runs).
void BM_ClassifyOneMegabyteOfCode(benchmark::State& state) {
    PasteboardSnapshot snapshot;
    std::string text;
    while (text.size() < (1 << 20)) text += "    if (x != y) { return value; } // compare\n";
    snapshot.string = text;
    for (auto _ : state) benchmark::DoNotOptimize(classify(snapshot));
}
BENCHMARK(BM_ClassifyOneMegabyteOfCode)->Unit(benchmark::kMillisecond);

void BM_Thumbnail(benchmark::State& state) {
    Data png = makePng(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(makeThumbnail(png));
    state.counters["png_bytes"] = static_cast<double>(png.size());
}
BENCHMARK(BM_Thumbnail)->Args({3840, 2160})->Args({100, 100})->Unit(benchmark::kMillisecond);

void BM_ThumbnailOfScreenshotLikeImage(benchmark::State& state) {
    Data png = makeScreenshotLikePng(3840, 2160);
    for (auto _ : state) benchmark::DoNotOptimize(makeThumbnail(png));
    state.counters["png_bytes"] = static_cast<double>(png.size());
}
BENCHMARK(BM_ThumbnailOfScreenshotLikeImage)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tamarind
