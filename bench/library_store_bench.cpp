// The store's query side over libraries of 10,000, 100,000 and 1,000,000 clips of
// clipboard-like text: the first page, substring search by how often the needle
// occurs, count, facets, and the bytes a clip takes on disk.
//
// Each library is built once and kept under $TMPDIR/tamarind-store-bench, keyed by
// its size, kGeneratorVersion and the store's schema, so that later runs start at once. Searches time
// every needle on its own and report percentiles as counters (p50_ms, p99_ms); the
// benchmark's own time is the whole set of needles per iteration.

#include <SQLiteCpp/Database.h>
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <random>

#include "foundation/Text.h"
#include "library/ClipStore.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

// Raise when the generator changes, so that stale libraries are rebuilt; a schema change is seen by itself.
constexpr int kGeneratorVersion = 4;

std::filesystem::path cacheFolder() { return std::filesystem::temp_directory_path() / "tamarind-store-bench"; }

// A digest of the schema a new store gets, so that a library built by an older schema is not reused.
std::string schemaKey() {
    auto probe = std::filesystem::temp_directory_path() / "tamarind-schema-probe.store";
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(probe.string() + suffix);
    if (!ModelContainer::open(probe)) throw std::runtime_error("cannot make " + probe.string());
    std::string schema = SQLite::Database(probe)
                             .execAndGet("SELECT group_concat(sql, ';') FROM sqlite_master WHERE sql IS NOT NULL")
                             .getString();
    char key[17];
    std::snprintf(key, sizeof key, "%016zx", std::hash<std::string>{}(schema));
    return key;
}

std::filesystem::path libraryFile(long long clips) {
    static const std::string schema = schemaKey();
    return cacheFolder() /
           ("v" + std::to_string(kGeneratorVersion) + "-" + schema + "-" + std::to_string(clips) + ".store");
}

// --- clipboard-like text ---------------------------------------------------------------------------

const std::vector<std::string> kWords = {
    "the", "of", "and", "to", "in", "is", "you", "that", "it", "was", "for", "on", "are", "with", "as", "this",
    "be", "at", "have", "from", "or", "one", "had", "by", "word", "but", "not", "what", "all", "were", "when",
    "your", "can", "said", "there", "use", "each", "which", "she", "how", "their", "will", "other", "about", "out",
    "many", "then", "them", "these", "some", "would", "make", "like", "into", "time", "look", "more", "write",
    "number", "people", "water", "called", "first", "find", "long", "down", "day", "come", "made", "part",
    "meeting", "tomorrow", "release", "server", "deploy", "review", "invoice", "budget", "schedule", "password",
    "café", "naïve", "résumé", "über", "señor", "façade", "déjà", "smörgåsbord", "jalapeño", "crème", "brûlée",
    "coöperate", "rôle", "Straße", "garçon", "piñata", "fiancée", "soupçon", "Ångström", "Zürich", "Kraków",
};
const std::vector<std::string> kFirstNames = {"José", "Zoë", "François", "Łukasz", "Søren", "Renée", "Björn",
                                              "Chloé", "Anaïs", "Jürgen", "Inés", "Mårten", "Ólafur", "Dvořák",
                                              "Emma", "Liam", "Olivia", "Noah", "Mia", "Lucas"};
const std::vector<std::string> kLastNames = {"Müller", "García", "Nováková", "Østergaard", "Lefèvre", "Żółkiewski",
                                             "Smith", "Jones", "Brown", "Weiß", "Schröder", "Ångström", "Núñez",
                                             "Koç", "Dupont", "Rossi"};
const std::vector<std::string> kDomains = {"github.com", "example.org", "en.wikipedia.org", "news.ycombinator.com",
                                           "docs.python.org", "stackoverflow.com", "mail.google.com",
                                           "www.youtube.com", "gitlab.gnome.org", "bugs.kde.org"};
const std::vector<std::pair<std::string, std::string>> kApps = {
    {"org.mozilla.firefox", "Firefox"},   {"org.gnome.Terminal", "Terminal"}, {"code", "Visual Studio Code"},
    {"org.kde.kate", "Kate"},             {"org.gnome.TextEditor", "Text Editor"},
    {"com.slack.Slack", "Slack"},         {"org.telegram.desktop", "Telegram"},
    {"org.gnome.Nautilus", "Files"},      {"chromium", "Chromium"},
    {"org.libreoffice.LibreOffice", "LibreOffice"}};

class TextGenerator {
public:
    explicit TextGenerator(std::uint32_t seed) : random_(seed) {}

    // Words as text has them: "the" far more often than the rest, so that it is in about a third of all clips.
    std::string word() { return number(16) == 0 ? "the" : pick(kWords); }
    int number(int below) { return static_cast<int>(random_() % static_cast<std::uint32_t>(below)); }

    // About 70 characters of one of the things people copy, and its kind.
    std::pair<std::string, const char*> next() {
        int shape = number(100);
        std::string text;
        if (shape < 35) {
            text = word();
            text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
            while (text.size() < 60) text += " " + word();
            return {text + ".", "text"};
        }
        if (shape < 55) {
            return {"https://" + pick(kDomains) + "/" + word() + "/" + word() + "-" + std::to_string(number(100000)) +
                        "?id=" + std::to_string(number(1000000)),
                    "link"};
        }
        if (shape < 75) {
            switch (number(4)) {
            case 0:
                text = "const auto " + word() + " = fetch(" + word() + ", " + std::to_string(number(1000)) + ");";
                break;
            case 1: text = "if (" + word() + " != nullptr) { return " + word() + "->" + word() + "(); }"; break;
            case 2:
                text = "SELECT " + word() + " FROM " + word() + " WHERE id = " + std::to_string(number(100000)) + ";";
                break;
            default:
                text = "def " + word() + "_" + word() + "(self, " + word() + "): return " + std::to_string(number(99));
            }
            return {text, "code"};
        }
        if (shape < 90) {
            std::string first = pick(kFirstNames), last = pick(kLastNames);
            if (number(2) == 0)
                return {first + " " + last + ", " + std::to_string(number(200)) + " " + pick(kLastNames) +
                            " Straße, " + std::to_string(10000 + number(90000)) + " Berlin",
                        "text"};
            return {lowercased(first) + "." + lowercased(last) + "@example.com, +49 " +
                        std::to_string(100000000 + number(900000000)),
                    "text"};
        }
        if (shape < 97) {
            return {"Order #" + std::to_string(100000 + number(900000)) + ": " + std::to_string(number(5000)) + "," +
                        std::to_string(10 + number(90)) + " € due " + std::to_string(1 + number(28)) + "." +
                        std::to_string(1 + number(12)) + ".2026, ref " + std::to_string(number(1000000)),
                    "text"};
        }
        char color[8];
        std::snprintf(color, sizeof color, "#%06X", number(0x1000000));
        return {color, "color"};
    }

    Clip clip(long long index) {
        auto [text, kind] = next();
        Clip clip = Clip::make(Date::fromReferenceSeconds(700'000'000.0 + static_cast<double>(index) * 37));
        clip.kind = kind;
        clip.text = text;
        if (number(10) != 0) {
            const auto& app = kApps[static_cast<std::size_t>(number(static_cast<int>(kApps.size())))];
            clip.sourceAppBundleID = app.first;
            clip.sourceAppName = app.second;
        }
        clip.useCount = number(4) == 0 ? 1 + number(20) : 0;
        clip.isFavorite = number(50) == 0;
        clip.isPinned = number(200) == 0;
        clip.charCount = static_cast<long long>(graphemeCount(text));
        clip.byteSize = static_cast<long long>(text.size());
        char hash[65];
        for (int i = 0; i < 64; i += 8) std::snprintf(hash + i, 9, "%08x", static_cast<unsigned>(random_()));
        clip.contentHash = hash;
        clip.rebuildSearchText({});
        return clip;
    }

private:
    const std::string& pick(const std::vector<std::string>& from) {
        return from[random_() % static_cast<std::uint32_t>(from.size())];
    }

    std::mt19937 random_;
};

// --- the libraries ---------------------------------------------------------------------------------

void buildLibrary(long long clips, const std::filesystem::path& file) {
    std::filesystem::create_directories(file.parent_path());
    // Libraries of this size from another generator or schema are stale: hundreds of megabytes each.
    std::string suffix = "-" + std::to_string(clips) + ".store";
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
        std::string name = entry.path().filename().string();
        if (name.find(suffix) != std::string::npos && !name.starts_with(file.filename().string()))
            std::filesystem::remove(entry.path());
    }
    auto building = file;
    building += ".building";
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(building.string() + suffix);
    auto started = std::chrono::steady_clock::now();
    {
        auto container = *ModelContainer::open(building);
        TextGenerator generator(20261122);
        Status loaded = container->bulkLoad([&] {
            for (long long i = 0; i < clips; ++i)
                if (Status inserted = container->insert(generator.clip(i)); !inserted) return inserted;
            return Status();
        });
        if (!loaded) throw std::runtime_error(loaded.error());
        if (Status saved = container->save(); !saved) throw std::runtime_error(saved.error());
    }  // closing checkpoints the WAL into the file
    std::filesystem::rename(building, file);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::fprintf(stderr, "built %lld clips in %.1f s: %s\n", clips, seconds, file.c_str());
}

struct Library {
    ManualMainLoop loop;
    std::unique_ptr<ClipStore> store;
    long long clips = 0;
};

Library& library(long long clips) {
    static std::map<long long, std::unique_ptr<Library>> libraries;
    auto& slot = libraries[clips];
    if (slot) return *slot;
    auto file = libraryFile(clips);
    if (!std::filesystem::exists(file)) buildLibrary(clips, file);
    auto opened = ModelContainer::open(file);
    if (!opened) throw std::runtime_error(opened.error());
    slot = std::make_unique<Library>();
    slot->clips = clips;
    TamarindStores stores{std::move(*opened), nullptr, false};
    slot->store =
        std::make_unique<ClipStore>(slot->loop, std::move(stores), BlobStore(cacheFolder() / "blobs"), "BENCH");
    return *slot;
}

// --- needles ---------------------------------------------------------------------------------------

enum NeedleClass { absent, few, third, commonTrigramsRare, short1or2 };

// Chosen against the generator: the counters of BM_Search report how many clips each class matches.
const std::vector<std::string>& needles(NeedleClass kind) {
    static const std::map<NeedleClass, std::vector<std::string>> all = {
        {absent, {"xylophone", "qwertzuiop", "Ærøskøbing", "пример", "zzz", "no such thing", "8472-ZX", "東京都",
                  "lorem ipsum", "kubernetes"}},
        {few, {"zoë.müller@", "lefevre, 1", "order #4242", "water people tomorrow", "ref 271828", "?id=314159",
               "smorgasbord budget", "koc, 17", "fetch(invoice, 99", "bugs.kde.org/deploy/fin"}},
        {third, {"the", "The", "e t", "e th", "THE", "ThE", "tHe", "thé"}},
        {commonTrigramsRare, {"the the", "com/the", "and in and", "of the of", "with with", "e, the"}},
        {short1or2, {"e", "a", "7", "ß", "é", "#", "€", "q", "zx", "ж", "東", "ü", "th", "@", "東京"}},
    };
    return all.at(kind);
}

double percentile(std::vector<double> samples, double fraction) {
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    auto index = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1) + 0.5);
    return samples[std::min(index, samples.size() - 1)];
}

double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// --- benchmarks ------------------------------------------------------------------------------------

void BM_FetchFirstPageNewest(benchmark::State& state) {
    ClipStore& store = *library(state.range(0)).store;
    for (auto _ : state) benchmark::DoNotOptimize(store.fetchPage(0, {}, ClipSortOrder::newest, 50));
}

// Page 0 of 50, newest first, for every needle of a class.
void BM_Search(benchmark::State& state) {
    Library& lib = library(state.range(0));
    auto kind = static_cast<NeedleClass>(state.range(1));
    auto sort = static_cast<ClipSortOrder>(state.range(2));
    std::vector<double> samples;
    for (auto _ : state) {
        for (const std::string& needle : needles(kind)) {
            ClipQuery query;
            query.text = needle;
            auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(lib.store->fetchPage(0, query, sort, 50));
            samples.push_back(millisecondsSince(start));
        }
    }
    state.counters["p50_ms"] = percentile(samples, 0.5);
    state.counters["p99_ms"] = percentile(samples, 0.99);
    // How many clips the class matches, to show that the needles are what they say.
    std::vector<double> matches;
    for (const std::string& needle : needles(kind)) {
        ClipQuery query;
        query.text = needle;
        matches.push_back(static_cast<double>(lib.store->count(query)));
    }
    state.counters["matches_min"] = *std::min_element(matches.begin(), matches.end());
    state.counters["matches_max"] = *std::max_element(matches.begin(), matches.end());
}

void BM_CountAll(benchmark::State& state) {
    ClipStore& store = *library(state.range(0)).store;
    for (auto _ : state) benchmark::DoNotOptimize(store.count({}));
}

void BM_CountFavorites(benchmark::State& state) {
    ClipStore& store = *library(state.range(0)).store;
    ClipQuery query;
    query.onlyFavorites = true;
    for (auto _ : state) benchmark::DoNotOptimize(store.count(query));
}

// Every needle of a class counted; p50/p99 per needle.
void BM_CountSearch(benchmark::State& state) {
    ClipStore& store = *library(state.range(0)).store;
    auto kind = static_cast<NeedleClass>(state.range(1));
    std::vector<double> samples;
    for (auto _ : state) {
        for (const std::string& needle : needles(kind)) {
            ClipQuery query;
            query.text = needle;
            auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(store.count(query));
            samples.push_back(millisecondsSince(start));
        }
    }
    state.counters["p50_ms"] = percentile(samples, 0.5);
    state.counters["p99_ms"] = percentile(samples, 0.99);
}

void BM_Facets(benchmark::State& state) {
    ClipStore& store = *library(state.range(0)).store;
    for (auto _ : state) benchmark::DoNotOptimize(store.facets());
}

long long fileBytes(const std::filesystem::path& file) {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : 0;
}

// The store file per clip as built, and a vacuumed copy with and without the trigram index.
void BM_DiskBytesPerClip(benchmark::State& state) {
    long long clips = state.range(0);
    library(clips);
    auto file = libraryFile(clips);
    auto sizes = file;
    sizes += ".sizes";
    long long asBuilt = fileBytes(file), vacuumed = 0, withoutIndex = 0;
    if (std::ifstream cached(sizes); !(cached >> vacuumed >> withoutIndex)) {
        auto copy = file;
        copy += ".copy";
        std::filesystem::copy_file(file, copy, std::filesystem::copy_options::overwrite_existing);
        {
            SQLite::Database database(copy, SQLite::OPEN_READWRITE);
            database.exec("VACUUM");
            vacuumed = fileBytes(copy);
            database.exec("DROP TRIGGER clip_search_insert; DROP TRIGGER clip_search_delete; "
                          "DROP TRIGGER clip_search_update; DROP TABLE clip_search; VACUUM");
        }
        withoutIndex = fileBytes(copy);
        std::filesystem::remove(copy);
        std::ofstream(sizes) << vacuumed << " " << withoutIndex;
    }
    for (auto _ : state) benchmark::DoNotOptimize(asBuilt);
    state.counters["as_built_per_clip"] = static_cast<double>(asBuilt) / static_cast<double>(clips);
    state.counters["vacuumed_per_clip"] = static_cast<double>(vacuumed) / static_cast<double>(clips);
    state.counters["without_fts_per_clip"] = static_cast<double>(withoutIndex) / static_cast<double>(clips);
}

constexpr long long kSizes[] = {10'000, 100'000, 1'000'000};

void sizes(benchmark::internal::Benchmark* benchmark) {
    for (long long size : kSizes) benchmark->Arg(size);
    benchmark->ArgName("clips")->Unit(benchmark::kMillisecond);
}

void searches(benchmark::internal::Benchmark* benchmark) {
    for (long long size : kSizes) {
        for (int kind : {absent, few, third, commonTrigramsRare, short1or2})
            benchmark->Args({size, kind, static_cast<long long>(ClipSortOrder::newest)});
        benchmark->Args({size, third, static_cast<long long>(ClipSortOrder::mostUsed)});
        benchmark->Args({size, few, static_cast<long long>(ClipSortOrder::mostUsed)});
    }
    benchmark->ArgNames({"clips", "needles", "sort"})->Unit(benchmark::kMillisecond)->Iterations(5);
}

void counts(benchmark::internal::Benchmark* benchmark) {
    for (long long size : kSizes)
        for (int kind : {absent, few, third, commonTrigramsRare, short1or2}) benchmark->Args({size, kind});
    benchmark->ArgNames({"clips", "needles"})->Unit(benchmark::kMillisecond)->Iterations(3);
}

BENCHMARK(BM_FetchFirstPageNewest)->Apply(sizes);
BENCHMARK(BM_Search)->Apply(searches);
BENCHMARK(BM_CountAll)->Apply(sizes);
BENCHMARK(BM_CountFavorites)->Apply(sizes);
BENCHMARK(BM_CountSearch)->Apply(counts);
BENCHMARK(BM_Facets)->Apply(sizes);
BENCHMARK(BM_DiskBytesPerClip)->Apply(sizes)->Iterations(1);

}  // namespace
}  // namespace tamarind
