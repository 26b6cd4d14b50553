#include <SQLiteCpp/Database.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <set>

#include "foundation/Log.h"
#include "foundation/Text.h"
#include "library/ClipStore.h"
#include "support/StoreTesting.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The store over containers that the test seeds directly, so that records can have any dates,
// counts and flags; the test keeps pointers to them.
class ClipStoreQueryTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    std::unique_ptr<ModelContainer> pendingMain = must(ModelContainer::open(folder.path() / "main.store"));
    std::unique_ptr<ModelContainer> pendingVault;
    ModelContainer* main = pendingMain.get();
    ModelContainer* vault = nullptr;
    std::unique_ptr<ClipStore> store;
    double clock = 1000;

    void withVault() {
        pendingVault = must(ModelContainer::open(folder.path() / "vault.store"));
        vault = pendingVault.get();
    }

    ClipStore& open() {
        must(main->save());
        if (vault) must(vault->save());
        TamarindStores stores{std::move(pendingMain), std::move(pendingVault), vault != nullptr};
        store = std::make_unique<ClipStore>(loop, std::move(stores), BlobStore(folder.path() / "blobs"), "MACHINE");
        return *store;
    }

    // A clip whose search text is `text` as given (mixed case and all), one second after the previous one.
    Clip add(const std::string& text, ModelContainer* into = nullptr, const std::function<void(Clip&)>& adjust = {}) {
        clock += 1;
        Clip clip = Clip::make(Date::fromReferenceSeconds(clock));
        clip.text = text;
        clip.searchText = text;
        clip.contentHash = "hash-" + clip.id.uuidString();
        clip.byteSize = static_cast<long long>(text.size());
        if (adjust) adjust(clip);
        must((into ? into : main)->insert(clip));
        return clip;
    }

    Collection addCollection(const std::string& name, double sortIndex, double createdAt) {
        Collection collection = Collection::make(Date::fromReferenceSeconds(createdAt));
        collection.name = name;
        collection.sortIndex = sortIndex;
        must(main->insert(collection));
        return collection;
    }
};

std::vector<std::string> texts(const std::vector<Clip>& clips) {
    std::vector<std::string> result;
    for (const Clip& clip : clips) result.push_back(clip.text.value_or(""));
    return result;
}

ClipQuery textQuery(std::string text) {
    ClipQuery query;
    query.text = std::move(text);
    return query;
}

TEST_F(ClipStoreQueryTest, ClipsCreatedAtTheSameInstantPageWithoutRepeatsOrGaps) {
    for (int i = 0; i < 7; ++i) add("same " + std::to_string(i), nullptr, [](Clip& c) {
        c.createdAt = Date::fromReferenceSeconds(5);
    });
    ClipStore& store = open();
    for (ClipSortOrder sort : {ClipSortOrder::newest, ClipSortOrder::oldest, ClipSortOrder::mostUsed}) {
        std::vector<std::string> seen;
        for (int page = 0; page < 4; ++page) {
            auto clips = texts(store.fetchPage(page, {}, sort, 2));
            seen.insert(seen.end(), clips.begin(), clips.end());
        }
        std::sort(seen.begin(), seen.end());
        EXPECT_THAT(seen, ElementsAre("same 0", "same 1", "same 2", "same 3", "same 4", "same 5", "same 6"));
    }
}

TEST_F(ClipStoreQueryTest, NulBytesAreTextLikeAnyOther) {
    const std::string withNuls("theme\0the\0\0x", 14);
    for (int i = 0; i < 300; ++i) add("the theme " + std::to_string(i));  // so that "the" is common
    add(withNuls);
    ClipStore& store = open();
    for (const std::string& needle : {std::string("\0the\0", 5), std::string("e\0th", 4), std::string("\0\0x", 3)}) {
        auto clips = store.fetchPage(0, textQuery(needle), ClipSortOrder::newest, 10);
        ASSERT_EQ(clips.size(), 1u) << needle.size();
        EXPECT_EQ(clips[0].text, withNuls);
        EXPECT_EQ(store.count(textQuery(needle)), 1);
    }
}

TEST_F(ClipStoreQueryTest, ChangesNotYetSavedAreFound) {
    ClipStore& store = open();
    add("pending needle");
    EXPECT_THAT(texts(store.fetchPage(0, textQuery("ding nee"), ClipSortOrder::newest, 5)),
                ElementsAre("pending needle"));
    EXPECT_EQ(store.count(textQuery("ding nee")), 1);
}

TEST_F(ClipStoreQueryTest, AFailingStoreWithoutAVaultLogsAndGivesNothing) {
    add("main clip");
    ClipStore& store = open();
    tamperWith(folder.path() / "main.store").exec("ALTER TABLE clip RENAME TO clip_gone");
    LogCapture log;
    EXPECT_THAT(store.fetchPage(0, textQuery("main"), ClipSortOrder::newest, 10), IsEmpty());
    auto messages = log.messages("library");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_THAT(messages[0], ::testing::StartsWith("fetchPage failed: no such table: clip"));
    EXPECT_EQ(store.count(textQuery("main")), 0);
}

TEST_F(ClipStoreQueryTest, AFailingStoreOfTwoAddsNothingAndSaysWhy) {
    withVault();
    add("main clip");
    add("vault clip", vault);
    ClipStore& store = open();
    tamperWith(folder.path() / "vault.store").exec("ALTER TABLE clip RENAME TO clip_gone");
    LogCapture log;
    EXPECT_THAT(texts(store.fetchPage(0, {}, ClipSortOrder::newest, 10)), ElementsAre("main clip"));
    EXPECT_THAT(log.messages("library"), ElementsAre("fetchPage failed: no such table: clip"));
    EXPECT_EQ(store.count(textQuery("clip")), 1);
}

TEST_F(ClipStoreQueryTest, ListsLeaveMediaOutAndOneClipReadsIt) {
    withVault();
    Clip image = add("image", nullptr, [](Clip& c) {
        c.kind = "image";
        c.thumbnailData = Data{1, 2, 3};
        c.fullImageData = Data{4, 5, 6, 7};
    });
    Clip secret = add("secret", vault, [](Clip& c) { c.isSensitive = true; c.thumbnailData = Data{9}; });
    Clip gone = add("tombstone", nullptr, [](Clip& c) { c.deletedAt = Date::fromReferenceSeconds(3); });
    ClipStore& store = open();
    auto listed = store.fetchPage(0, {}, ClipSortOrder::oldest, 10);
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].id, image.id);
    EXPECT_EQ(listed[0].thumbnailData, std::nullopt);
    EXPECT_EQ(listed[0].fullImageData, std::nullopt);
    EXPECT_EQ(store.clip(image.id), image) << "one clip is read whole";
    EXPECT_EQ(store.clip(secret.id), secret) << "from the vault too";
    EXPECT_EQ(store.clip(gone.id), gone) << "by id a tombstone is still there";
    EXPECT_EQ(store.clip(Uuid::random()), std::nullopt);
}

TEST_F(ClipStoreQueryTest, FacetsCountLiveClipsOfBothStores) {
    withVault();
    add("a", nullptr, [](Clip& c) {
        c.isFavorite = true;
        c.sourceAppBundleID = "org.mozilla.firefox";
        c.sourceAppName = "Firefox Nightly";
        c.createdAt = Date::fromReferenceSeconds(5000);  // the most recent, though stored first
    });
    add("b", nullptr, [](Clip& c) {
        c.kind = "link";
        c.isPinned = true;
        c.sourceAppBundleID = "org.mozilla.firefox";
        c.sourceAppName = "Firefox";
    });
    add("c", nullptr, [](Clip& c) { c.kind = "hologram"; c.sourceAppBundleID = "org.gnome.Terminal"; });
    add("d", vault, [](Clip& c) {
        c.kind = "link";
        c.isFavorite = true;
        c.isPinned = true;
        c.sourceAppBundleID = "org.kde.kate";
        c.sourceAppName = "Kate";
    });
    add("e", vault, [](Clip& c) { c.sourceAppBundleID = "org.mozilla.firefox"; });
    add("f", nullptr, [](Clip& c) {
        c.kind = "code";
        c.isFavorite = true;
        c.deletedAt = Date::fromReferenceSeconds(1);
        c.sourceAppBundleID = "org.deleted";
    });
    ClipStore& store = open();
    LibraryFacets facets = store.facets();
    EXPECT_EQ(facets.total, 5);
    EXPECT_EQ(facets.favorites, 2);
    EXPECT_EQ(facets.pinned, 2);
    EXPECT_EQ(facets.kindCounts, (std::map<ClipKind, long long>{{ClipKind::text, 3}, {ClipKind::link, 2}}))
        << "an unknown kind counts as text";
    EXPECT_THAT(facets.apps, ElementsAre(SourceAppFacet{"org.mozilla.firefox", "Firefox Nightly", 3},
                                         SourceAppFacet{"org.gnome.Terminal", "", 1},
                                         SourceAppFacet{"org.kde.kate", "Kate", 1}))
        << "by count, then by id; the name of the most recent clip that has one";
}

void writeFile(const std::filesystem::path& path, std::size_t bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << std::string(bytes, 'x');
}

TEST_F(ClipStoreQueryTest, StorageUsageAddsAllocatedBytesPerPlace) {
    const auto root = folder.path() / "Application Support";
    EXPECT_EQ(ClipStore::storageUsage(root).databaseBytes, 0) << "a missing folder counts nothing";
    writeFile(root / "Tamarind.store", 8192);
    writeFile(root / "Tamarind.store-wal", 4096);
    writeFile(root / "Tamarind.store-shm", 4096);
    writeFile(root / "Tamarind-Local.store", 4096);
    writeFile(root / "Tamarind-Local.store-wal", 4096);
    writeFile(root / "notes.txt", 4096);
    writeFile(root / "backup" / "Tamarind.store", 4096);
    writeFile(root / "blobs" / "A.png", 8192);
    writeFile(root / "blobs" / "nested" / "B.png", 4096);
    writeFile(root / "icons" / "firefox.png", 4096);
    writeFile(root / "favicons" / "example.com.png", 4096);
    std::filesystem::create_symlink(root / "blobs" / "A.png", root / "blobs" / "link.png");
    // No block written: allocated 0, so the size counts.
    int sparse = ::open((root / "favicons" / "sparse").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(sparse, 0);
    ASSERT_EQ(::ftruncate(sparse, 1 << 20), 0);
    ::close(sparse);
    StorageUsage usage = ClipStore::storageUsage(root);
    EXPECT_EQ(usage.databaseBytes, 8192 + 4096 * 2) << "the main store and its companions, not the vault";
    EXPECT_EQ(usage.blobBytes, 8192 + 4096);
    EXPECT_EQ(usage.cacheBytes, 4096 * 2 + (1 << 20));
}

TEST_F(ClipStoreQueryTest, CollectionsBySortIndexThenCreation) {
    addCollection("third", 1024, 1);
    addCollection("second", 0, 20);
    addCollection("first", 0, 10);
    ClipStore& store = open();
    std::vector<std::string> names;
    for (const Collection& collection : store.collections()) names.push_back(collection.name);
    EXPECT_THAT(names, ElementsAre("first", "second", "third"));
}

// --- the search against the plain containment test -------------------------------------------------

// Pieces that clipboard history holds, picked so that folding has work to do (accents composed
// and decomposed, ß, ligatures, dotted İ, marks alone), with CJK, emoji and FTS5 syntax. Two
// words come often, so that needles made of them are common by their trigrams and rare whole.
const std::vector<std::string> kPieces = {
    "the", "the", "the", "the", "tea", "tea", "tea", "tea", "ate", "eat", "at", "of", "and", "café", "CAFE",
    "cafe\u0301", "Straße", "STRASSE", "strasse", "naïve", "Ångström", "Zoë", "İstanbul", "ﬁle", "résumé",
    "Müller", "MÜLLER", "東京都", "中文字符", "日本語",
    "👍🏽", "👨‍👩‍👧", "🇫🇷", "a\"b", "x*y", "key:value", "(paren)", "-dash", "NEAR", "AND", "OR", "\u0301",
    "https://example.com/path?q=1", "if (x != y) { return z; }", "#12345", "42", "3.14", "e", "\t", "ß",
    "हिन्दी", "re\u0301sume\u0301", "Köln",
};

std::string randomText(std::mt19937& random) {
    std::uniform_int_distribution<std::size_t> piece(0, kPieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 12);
    std::string text;
    for (int i = length(random); i > 0; --i) {
        if (!text.empty()) text += random() % 5 == 0 ? "" : " ";
        text += kPieces[piece(random)];
    }
    return text;
}

// Needles of every kind: absent, rare, common, common trigrams in a rare order (which a walk
// can't finish within its budget), one and two characters, marks, syntax, long ones, none at all
// and blanks only (an empty query), composed against decomposed text and the other way round,
// and three characters that fold to two or to none.
const std::vector<std::string> kNeedles = {
    "", " \t\n ", "r\u00E9sum\u00E9", "ko\u0308l", "ke\u0301", "\u0301\u0308",
    "the", "tea", "ate tea", "eat at", "at at at", "the of and", "e t", "TEA EAT", "cafe", "CAFÉ", "ss", "ß",
    "strasse", "STRAẞE", "traß", "naive", "angstrom", "zoe", "istanbul", "i\u0307stanbul", "file", "resume",
    "müller", "mueller", "東京", "東京都", "京都 中", "字", "👍", "👨‍👩", "🇫🇷", "a\"b", "\"", "x*y", "*",
    "key:", ":value", "(paren", "-dash", "near", "and or", "e\u0301", "\u0301", "ee", "e", "t", "42", "#123",
    "3.14", "https://example.com", "return z; }", "if (x != y) { return z; } the", "zzz", "qqqqq", "never there",
    " the ", "at tea at", "eat ate tea the of and", "the the the the the the the the the the", "the tea the",
    "tea the tea", "हिन", "न्दी", "न्द", "sume\u0301 ",
};

bool matches(const Clip& clip, const ClipQuery& query) {
    if (clip.deletedAt) return false;
    std::string_view needle = trimmed(query.text);
    if (!needle.empty() && !localizedStandardContains(clip.searchText, needle)) return false;
    if (query.kind && clip.kind != rawValue(*query.kind)) return false;
    if (query.appBundleID && clip.sourceAppBundleID != query.appBundleID) return false;
    if (query.onlyFavorites && !clip.isFavorite) return false;
    if (query.onlyPinned && !clip.isPinned) return false;
    return true;
}

bool precedes(const Clip& a, const Clip& b, ClipSortOrder sort) {
    auto key = [sort](const Clip& c) {
        double date = c.createdAt.secondsSinceReferenceDate();
        switch (sort) {
        case ClipSortOrder::newest: return std::tuple<long long, double>(0, -date);
        case ClipSortOrder::oldest: return std::tuple<long long, double>(0, date);
        case ClipSortOrder::mostUsed: return std::tuple<long long, double>(-c.useCount, -date);
        case ClipSortOrder::largest: return std::tuple<long long, double>(-c.byteSize, -date);
        }
        return std::tuple<long long, double>(0, 0);
    };
    return key(a) < key(b);
}

std::vector<Uuid> ids(const std::vector<Clip>& clips) {
    std::vector<Uuid> result;
    for (const Clip& clip : clips) result.push_back(clip.id);
    return result;
}

class ClipStoreQuerySearchTest : public ClipStoreQueryTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ClipStoreQuerySearchTest, PagesAndCountsEqualThePlainContainmentTest) {
    const bool hasVault = GetParam();
    if (hasVault) withVault();
    Collection work = addCollection("Work", 0, 1);
    std::mt19937 random(20261122);
    std::vector<Clip> all;
    std::set<Uuid> inVault;
    const char* apps[] = {"org.mozilla.firefox", "org.gnome.Terminal", "org.kde.kate"};
    const char* kinds[] = {"text", "text", "link", "code", "color"};
    for (int i = 0; i < 3000; ++i) {
        std::string text = randomText(random);
        // A few texts longer than the index covers, with needles ("zzz" only) past that part.
        if (i % 500 == 7)
            text += " " + std::string(kIndexedSearchCharacters, '.') + " " + randomText(random) + " zzz";
        ModelContainer* into = hasVault && random() % 3 == 0 ? vault : main;
        all.push_back(add(text, into, [&](Clip& c) {
            // Distinct dates, so that every order is total and the expected pages are unique.
            c.createdAt = Date::fromReferenceSeconds(static_cast<double>(random() % 1'000'000) * 4096 + i);
            c.useCount = random() % 4;
            c.byteSize = random() % 6;
            c.kind = kinds[random() % 5];
            c.isFavorite = random() % 4 == 0;
            c.isPinned = random() % 7 == 0;
            if (random() % 4 != 0) c.sourceAppBundleID = apps[random() % 3];
            if (random() % 20 == 0) c.deletedAt = Date::fromReferenceSeconds(1);
            if (into == main && random() % 3 == 0) c.collectionIDs = {work.id};
        }));
        if (into == vault) inVault.insert(all.back().id);
    }
    ClipStore& store = open();

    std::vector<ClipQuery> queries;
    for (const std::string& needle : kNeedles) queries.push_back(textQuery(needle));
    ClipQuery narrowed = textQuery("the");
    narrowed.onlyFavorites = true;
    narrowed.kind = ClipKind::link;
    queries.push_back(narrowed);
    ClipQuery pinnedFromKate = textQuery("eat");
    pinnedFromKate.onlyPinned = true;
    pinnedFromKate.appBundleID = "org.kde.kate";
    queries.push_back(pinnedFromKate);
    ClipQuery inWork = textQuery("at");
    inWork.collectionID = work.id;
    queries.push_back(inWork);
    ClipQuery inWorkRare = textQuery("tea at");
    inWorkRare.collectionID = work.id;
    queries.push_back(inWorkRare);
    ClipQuery inWorkOnly;
    inWorkOnly.collectionID = work.id;
    queries.push_back(inWorkOnly);
    // Each filter without text, and a day limit, which is carried for the surfaces and never matched.
    for (auto edit : std::initializer_list<void (*)(ClipQuery&)>{
             [](ClipQuery& q) { q.kind = ClipKind::code; }, [](ClipQuery& q) { q.appBundleID = "org.kde.kate"; },
             [](ClipQuery& q) { q.onlyFavorites = true; }, [](ClipQuery& q) { q.onlyPinned = true; },
             [](ClipQuery& q) { q.withinDays = 1; }}) {
        edit(queries.emplace_back());
    }

    auto isMember = [&](const Clip& c) {
        return std::find(c.collectionIDs.begin(), c.collectionIDs.end(), work.id) != c.collectionIDs.end();
    };
    for (const ClipQuery& query : queries) {
        std::vector<Clip> expected;
        for (const Clip& clip : all)
            if (matches(clip, query)) expected.push_back(clip);
        EXPECT_EQ(store.count(query), static_cast<long long>(expected.size())) << "count of \"" << query.text << '"';
        for (ClipSortOrder sort :
             {ClipSortOrder::newest, ClipSortOrder::oldest, ClipSortOrder::mostUsed, ClipSortOrder::largest}) {
            std::sort(expected.begin(), expected.end(),
                      [sort](const Clip& a, const Clip& b) { return precedes(a, b, sort); });
            for (std::size_t pageSize : {7, 50}) {
                for (std::size_t page : {0, 1, 3, 20}) {
                    // Without a vault the page is cut, then filtered by collection. With one, each
                    // store gives its first (page + 1) × pageSize; their merge is filtered, then cut.
                    std::vector<Clip> want;
                    if (!hasVault) {
                        for (std::size_t i = page * pageSize; i < std::min(expected.size(), (page + 1) * pageSize); ++i)
                            want.push_back(expected[i]);
                    } else {
                        std::size_t fromMain = 0, fromVault = 0;
                        std::vector<Clip> merged;
                        for (const Clip& clip : expected) {
                            std::size_t& taken = inVault.contains(clip.id) ? fromVault : fromMain;
                            if (taken++ < (page + 1) * pageSize) merged.push_back(clip);
                        }
                        if (query.collectionID) std::erase_if(merged, [&](const Clip& c) { return !isMember(c); });
                        for (std::size_t i = page * pageSize; i < std::min(merged.size(), (page + 1) * pageSize); ++i)
                            want.push_back(merged[i]);
                    }
                    if (query.collectionID) std::erase_if(want, [&](const Clip& c) { return !isMember(c); });
                    EXPECT_EQ(ids(store.fetchPage(static_cast<int>(page), query, sort, static_cast<int>(pageSize))),
                              ids(want))
                        << '"' << query.text << "\" sort " << static_cast<int>(sort) << " page " << page << " of "
                        << pageSize
                        << " (query " << &query - queries.data() << ")";
                }
            }
        }
    }
    EXPECT_EQ(ids(store.fetchPage(-3, {}, ClipSortOrder::mostUsed, 7)),
              ids(store.fetchPage(0, {}, ClipSortOrder::mostUsed, 7)))
        << "a negative page is the first";
    EXPECT_THAT(store.fetchPage(0, {}, ClipSortOrder::oldest, 0), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(, ClipStoreQuerySearchTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "WithVault" : "WithoutVault"; });

}  // namespace
}  // namespace tamarind
