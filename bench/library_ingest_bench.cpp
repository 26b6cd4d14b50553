// The store's write side over libraries of 10,000, 100,000 and 1,000,000 clips:
// ingesting a new text, promoting a duplicate, opening the store (count and the
// window of recent hashes) with the memory that takes, and retention.
//
// Clip texts follow the CopyQ comparison's items ("item J lorem ipsum dolor sit
// amet J%97"), so the figures stand beside its. Each library is built once under
// $TMPDIR/tamarind-ingest-bench and copied for every run that writes to it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "library/ClipStore.h"
#include "library/ClipClassifier.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

// Raise when the generator or the schema changes, so that stale libraries are built again.
constexpr int kGeneratorVersion = 2;

std::filesystem::path benchFolder() { return std::filesystem::temp_directory_path() / "tamarind-ingest-bench"; }

std::string itemText(long long j) { return "item " + std::to_string(j) + " lorem ipsum dolor sit amet " + std::to_string(j % 97); }

// A library of `count` clips, built on first use with one transaction.
std::filesystem::path library(long long count) {
    std::filesystem::path file = benchFolder() / ("v" + std::to_string(kGeneratorVersion) + "-" + std::to_string(count));
    if (std::filesystem::exists(file / kMainStoreFilename)) return file;
    std::filesystem::remove_all(file);
    auto stores = openStores(file);
    for (long long j = 0; j < count; ++j) {
        Clip clip = Clip::make(Date::fromReferenceSeconds(static_cast<double>(j)));
        clip.text = itemText(j);
        clip.charCount = static_cast<long long>(clip.text->size());
        clip.byteSize = clip.charCount;
        clip.searchText = *clip.text;
        clip.contentHash = textHash(*clip.text);
        clip.sourceAppBundleID = "org.gnome.TextEditor";
        clip.sourceAppName = "Text Editor";
        if (Status inserted = stores.main->insert(clip); !inserted) throw std::runtime_error(inserted.error());
    }
    if (Status saved = stores.main->save(); !saved) throw std::runtime_error(saved.error());
    return file;
}

// A writable copy of the library, so that writes never change the cached one.
std::filesystem::path scratchCopy(long long count) {
    std::filesystem::path source = library(count);
    std::filesystem::path copy = benchFolder() / "scratch";
    std::filesystem::remove_all(copy);
    std::filesystem::copy(source, copy, std::filesystem::copy_options::recursive);
    return copy;
}

long long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.starts_with("VmRSS:")) return std::stoll(line.substr(6));
    return 0;
}

void reportPercentiles(benchmark::State& state, std::vector<double> samples) {
    if (samples.empty()) return;
    std::sort(samples.begin(), samples.end());
    state.counters["p50_ms"] = samples[samples.size() / 2];
    state.counters["p99_ms"] = samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
}

PasteboardSnapshot textSnapshot(std::string text, double at) {
    PasteboardSnapshot snapshot;
    snapshot.types = {"UTF8_STRING"};
    snapshot.string = std::move(text);
    snapshot.sourceAppBundleID = "org.gnome.TextEditor";
    snapshot.sourceAppName = "Text Editor";
    snapshot.capturedAt = Date::fromReferenceSeconds(at);
    return snapshot;
}

void BM_IngestNewText(benchmark::State& state) {
    const long long count = state.range(0);
    std::filesystem::path folder = scratchCopy(count);
    ManualMainLoop loop;
    ClipStore store(loop, openStores(folder), BlobStore(folder / "blobs"), "BENCH");
    std::vector<double> samples;
    long long next = count;
    for (auto _ : state) {
        PasteboardSnapshot snapshot = textSnapshot(itemText(next), static_cast<double>(next));
        ++next;
        auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(store.ingest(snapshot, {}));
        samples.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    reportPercentiles(state, std::move(samples));
}
BENCHMARK(BM_IngestNewText)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Iterations(500)->Unit(benchmark::kMillisecond);

void BM_IngestDuplicate(benchmark::State& state) {
    const long long count = state.range(0);
    std::filesystem::path folder = scratchCopy(count);
    ManualMainLoop loop;
    ClipStore store(loop, openStores(folder), BlobStore(folder / "blobs"), "BENCH");
    std::vector<double> samples;
    double at = static_cast<double>(count);
    for (auto _ : state) {
        // One of the 200 most recent clips, copied again.
        PasteboardSnapshot snapshot = textSnapshot(itemText(count - 1 - static_cast<long long>(samples.size() % 150)), at++);
        auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(store.ingest(snapshot, {}));
        samples.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    reportPercentiles(state, std::move(samples));
}
BENCHMARK(BM_IngestDuplicate)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Iterations(500)->Unit(benchmark::kMillisecond);

// Opening: both counts and the window of 200 hashes; then the memory after reading 20 pages.
void BM_OpenStore(benchmark::State& state) {
    const long long count = state.range(0);
    std::filesystem::path folder = library(count);
    long long residentAfterPages = 0;
    for (auto _ : state) {
        ManualMainLoop loop;
        ClipStore store(loop, openStores(folder), BlobStore(folder / "blobs"), "BENCH");
        benchmark::DoNotOptimize(store.totalCount().value());
        state.PauseTiming();
        for (int page = 0; page < 20; ++page) store.fetchPage(page, ClipQuery{}, ClipSortOrder::newest, 50);
        residentAfterPages = std::max(residentAfterPages, residentKilobytes());
        state.ResumeTiming();
    }
    state.counters["rss_after_20_pages_MB"] = static_cast<double>(residentAfterPages) / 1024.0;
}
BENCHMARK(BM_OpenStore)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Iterations(5)->Unit(benchmark::kMillisecond);

// Retention over a library one percent over its limit.
void BM_RetentionOnePercent(benchmark::State& state) {
    const long long count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::path folder = scratchCopy(count);
        auto loop = std::make_unique<ManualMainLoop>();
        auto store = std::make_unique<ClipStore>(*loop, openStores(folder),
                                                 BlobStore(folder / "blobs"), "BENCH");
        state.ResumeTiming();
        store->applyRetention(count - count / 100, std::nullopt, Date::fromReferenceSeconds(static_cast<double>(count)));
        state.PauseTiming();
        if (store->totalCount().value() != count - count / 100) state.SkipWithError("retention removed the wrong number");
        store.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_RetentionOnePercent)->Arg(100'000)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tamarind
