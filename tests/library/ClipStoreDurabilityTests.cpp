// What the store keeps through kills, full disks, locks held by other programs, failed statements,
// a library folder removed while it runs, and damaged or older files.

#include <SQLiteCpp/Database.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>

#include "foundation/Files.h"
#include "library/ClipStore.h"
#include "library/RecentHashWindow.h"
#include "support/ManualMainLoop.h"
#include "support/StoreTesting.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using namespace std::chrono_literals;

PasteboardSnapshot textSnapshot(std::string text, double at) {
    PasteboardSnapshot snapshot;
    snapshot.types = {"UTF8_STRING"};
    snapshot.string = std::move(text);
    snapshot.capturedAt = Date::fromReferenceSeconds(at);
    return snapshot;
}

TEST(RecentHashWindow, KeepsTheMostRecentDistinctHashesOldestFirst) {
    RecentHashWindow window(3);
    for (const char* hash : {"a", "b", "", "c", "a", "d"}) window.record(hash);
    EXPECT_EQ(window.order(), (std::deque<std::string>{"c", "a", "d"}));
    EXPECT_FALSE(window.contains("b"));
    EXPECT_FALSE(window.contains(""));
    window.remove("a");
    window.remove("zzz");
    EXPECT_EQ(window.order(), (std::deque<std::string>{"c", "d"}));
    EXPECT_FALSE(window.contains("a"));
}

// A child ingests in a loop and reports each id once ingest has returned; the parent kills it
// at a random moment. Every reported clip must be in the store, which must still open.
TEST(ClipStoreDurability, AKillDuringIngestsLosesNothingThatWasReported) {
    TemporaryFolder folder;
    int reports[2];
    ASSERT_EQ(::pipe(reports), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(reports[0]);
        ManualMainLoop loop;
        ClipStore store(loop, openStores(folder.path(), {.canSync = true}), BlobStore(folder.path() / "blobs"), "M");
        for (int i = 0;; ++i) {
            IngestResult result = store.ingest(textSnapshot("durable clip " + std::to_string(i), i), {});
            std::string id = result.clipID.uuidString() + "\n";
            if (::write(reports[1], id.data(), id.size()) != static_cast<ssize_t>(id.size())) ::_exit(1);
        }
    }
    ::close(reports[1]);
    std::mt19937 random(std::random_device{}());
    std::size_t wanted = 20 + random() % 200;
    std::string received;
    char buffer[4096];
    while (received.size() / 37 < wanted) {
        ssize_t n = ::read(reports[0], buffer, sizeof buffer);
        if (n <= 0) break;
        received.append(buffer, static_cast<std::size_t>(n));
    }
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    for (ssize_t n; (n = ::read(reports[0], buffer, sizeof buffer)) > 0;) received.append(buffer, static_cast<std::size_t>(n));
    ::close(reports[0]);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child stopped by itself";

    std::set<std::string> reported;
    for (std::size_t at = 0; at + 37 <= received.size(); at += 37) reported.insert(received.substr(at, 36));
    ASSERT_GE(reported.size(), wanted);

    auto container = must(ModelContainer::open(folder.path() / kMainStoreFilename));
    ASSERT_TRUE(container);
    std::set<std::string> stored;
    for (const Clip& clip : must(container->fetch(ClipFetch{}))) stored.insert(clip.id.uuidString());
    for (const std::string& id : reported) EXPECT_TRUE(stored.contains(id)) << id << " was reported but is gone";
}

TEST(ModelContainer, AClipOrAChangeThatFailsHalfWayLeavesNothingBehindForTheNextSave) {
    TemporaryFolder folder;
    auto file = folder.path() / "half.store";
    auto container = must(ModelContainer::open(file));
    tamperWith(file).exec(
        "CREATE TRIGGER refuse_media BEFORE INSERT ON clip_media WHEN new.thumbnailData = x'66' "
        "BEGIN SELECT RAISE(ABORT, 'disk trouble'); END");
    Clip half = Clip::make(Date::fromReferenceSeconds(1));
    half.thumbnailData = Data{0x66};
    Status failed = container->insert(half);
    ASSERT_FALSE(failed.ok());
    EXPECT_NE(failed.error().find("disk trouble"), std::string::npos);
    // A change of several writes is taken back whole, the writes that went through too.
    Clip first = Clip::make(Date::fromReferenceSeconds(2));
    EXPECT_FALSE(container->atomically([&] {
        if (Status status = container->insert(first); !status) return status;
        return container->insert(half);
    }));
    Clip whole = Clip::make(Date::fromReferenceSeconds(3));
    must(container->insert(whole));
    must(container->save());
    auto clips = must(container->fetch(ClipFetch{}));
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips[0].id, whole.id);
}

std::string describeFacets(ModelContainer& container) {
    std::string out;
    for (const auto& facet : must(container.facetCounts()))
        out += facet.dimension + ":" + facet.value + "=" + std::to_string(facet.count) +
               (facet.name ? "(" + *facet.name + ")" : "") + " ";
    return out;
}

// Both are kept by triggers: a tombstone counts for neither, whether it arrives as one, becomes one or goes.
// A file from an earlier build, without the facet counts and with a search index defined otherwise, gets
// both made again from its rows when it is opened.
TEST(ModelContainer, TheLiveAndFacetCountsFollowEveryChangeAndAnOlderFileGetsItsCountsAndIndexRebuilt) {
    TemporaryFolder folder;
    auto file = folder.path() / "facets.store";
    auto container = *ModelContainer::open(file);
    auto counts = [&] { return std::to_string(must(container->liveClipCount())) + " | " + describeFacets(*container); };
    Clip a = Clip::make(Date::fromReferenceSeconds(1));
    a.sourceAppBundleID = "org.mozilla.firefox";
    a.sourceAppName = "Firefox";
    a.text = "Grüße aus Köln";
    a.rebuildSearchText({});
    Clip b = Clip::make(Date::fromReferenceSeconds(2));
    b.kind = "link";
    b.isFavorite = true;
    b.sourceAppBundleID = "org.mozilla.firefox";
    b.sourceAppName = "Firefox Nightly";
    Clip born = Clip::make(Date::fromReferenceSeconds(3));
    born.isPinned = true;
    born.deletedAt = Date::fromReferenceSeconds(3);
    for (const Clip* clip : {&a, &b, &born}) must(container->insert(*clip));
    EXPECT_EQ(counts(), "2 | app:org.mozilla.firefox=2(Firefox Nightly) flag:favorite=1 kind:link=1 kind:text=1 ");
    b.isFavorite = false;
    b.isPinned = true;
    b.kind = "code";
    must(container->update(b));
    a.deletedAt = Date::fromReferenceSeconds(3);
    must(container->update(a));
    must(container->remove(born.id));
    EXPECT_EQ(counts(), "1 | app:org.mozilla.firefox=1(Firefox Nightly) flag:pinned=1 kind:code=1 ");
    must(container->remove(b.id));
    EXPECT_EQ(counts(), "0 | ");
    a.deletedAt.reset();  // a tombstone brought back
    must(container->update(a));
    EXPECT_EQ(must(container->liveClipCount()), 1);
    must(container->save());

    container.reset();
    // An earlier build's index had no positions; this one is empty too.
    tamperWith(file).exec(
        "DROP TABLE clip_facet_count; DELETE FROM meta WHERE key = 'facetCounts'; DROP TABLE clip_search; "
        "CREATE VIRTUAL TABLE clip_search USING fts5(searchFolded, content='clip', content_rowid='pk', "
        "tokenize='trigram case_sensitive 1', detail='none')");
    container = *ModelContainer::open(file);
    EXPECT_EQ(counts(), "1 | app:org.mozilla.firefox=1(Firefox) kind:text=1 ");
    EXPECT_EQ(must(container->fetchMatching(ClipMatch{.needle = "koln"}, ClipSortOrder::newest, 10, 0)).size(), 1u);
    must(container->removeAllClips());
    EXPECT_EQ(counts(), "0 | ");
    container.reset();
    EXPECT_EQ(tamperWith(file).execAndGet("SELECT sql FROM sqlite_master WHERE name = 'clip_search'").getString().find(
                  "detail"),
              std::string::npos);
}

// A write past the end the system allows (a full disk, a file-size limit) fails in SQLite's own
// write; SQLite may give up the whole transaction by itself, which the store must take in its
// stride. Run in a child, whose file-size limit can be lowered and raised again.
TEST(ClipStoreDurability, AFailedWriteIsALoggedRejectionAndTheStoreGoesOnAfterwards) {
    TemporaryFolder folder;
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);  // a write past the limit then fails with EFBIG instead of killing
        ManualMainLoop loop;
        ClipStore store(loop, openStores(folder.path()), BlobStore(folder.path() / "blobs"), "TEST");
        if (store.ingest(textSnapshot("kept before the disk filled", 1), {}).kind != IngestResult::Kind::inserted)
            ::_exit(10);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        rlimit tight = limit;
        tight.rlim_cur = std::filesystem::file_size(folder.path() / (std::string(kMainStoreFilename) + "-wal")) + 8192;
        ::setrlimit(RLIMIT_FSIZE, &tight);
        LogCapture logs;
        IngestResult refused = store.ingest(textSnapshot(std::string(200'000, 'x'), 2), {});
        if (refused.kind != IngestResult::Kind::rejected ||
            refused.rejection.kind != CaptureRejection::Kind::storeFailure)
            ::_exit(11);
        auto lines = logs.messages("library");
        if (std::none_of(lines.begin(), lines.end(), [](const std::string& line) { return line.starts_with("Save failed: "); }))
            ::_exit(12);
        // The app's copy isn't refused but waits in memory for room.
        std::optional<IngestResult> waited;
        store.submit(textSnapshot(std::string(200'000, 'y'), 4), {}, [&](const IngestResult& r) { waited = r; });
        if (waited || store.health()->kind != LibraryHealth::Kind::waiting) ::_exit(14);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        if (store.ingest(textSnapshot("saved once there was room", 3), {}).kind != IngestResult::Kind::inserted)
            ::_exit(13);
        loop.advanceBy(kStoreRetryInterval);
        if (!waited || waited->kind != IngestResult::Kind::inserted) ::_exit(15);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0) << "10: first insert, 11: not refused, 12: not logged, 13: no recovery, "
                                         "14: the app's copy not waiting, 15: not stored once there was room";

    auto reopened = must(ModelContainer::open(folder.path() / kMainStoreFilename));
    std::set<std::string> texts;
    for (const Clip& clip : must(reopened->fetch(ClipFetch{}))) texts.insert(clip.text.value_or(""));
    EXPECT_EQ(texts, (std::set<std::string>{"kept before the disk filled", "saved once there was room",
                                            std::string(200'000, 'y')}));
}

// A file cut short (a full disk, a bad copy) and a folder where none can be made both end in the
// store in memory, with the two log lines, and the file is left exactly as it was.
TEST(OpenStores, ATruncatedFileOrAnUnwritableFolderEndsInMemoryAndTouchesNothing) {
    TemporaryFolder folder;
    auto file = folder.path() / kMainStoreFilename;
    {
        auto container = must(ModelContainer::open(file));
        for (int i = 0; i < 200; ++i) {
            Clip clip = Clip::make(Date::fromReferenceSeconds(i));
            clip.text = std::string(400, 'a' + static_cast<char>(i % 26));
            clip.rebuildSearchText({});
            must(container->insert(clip));
        }
        must(container->save());
    }
    std::filesystem::resize_file(file, 4096);  // the first page only
    std::string cut = *readWholeFile(file).bytes;

    LogCapture logs;
    TamarindStores stores = openStores(folder.path());
    EXPECT_TRUE(stores.main->isInMemory());
    auto lines = logs.messages("library");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].starts_with("Could not open the store: ")) << lines[0];
    EXPECT_TRUE(lines[1].starts_with("Falling back to an in-memory store: ")) << lines[1];
    EXPECT_EQ(*readWholeFile(file).bytes, cut);

    logs.clear();
    std::ofstream(folder.path() / "not-a-folder") << "a file where the library folder should be";
    stores = openStores(folder.path() / "not-a-folder" / "Tamarind");
    EXPECT_TRUE(stores.main->isInMemory());
    EXPECT_EQ(logs.messages("library").size(), 2u);
    // The store says so, for the user to be told.
    ManualMainLoop loop;
    ClipStore store(loop, std::move(stores), BlobStore(folder.path() / "blobs"), "T");
    EXPECT_EQ(store.health()->kind, LibraryHealth::Kind::inMemory);
    EXPECT_NE(store.health()->reason.find("not-a-folder"), std::string::npos) << store.health()->reason;
}

std::string storedTexts(const std::filesystem::path& file) {
    std::string out;
    auto container = must(ModelContainer::open(file));
    for (const Clip& clip : must(container->fetch(ClipFetch{.orderBy = "createdAt"})))
        out += (out.empty() ? "" : ", ") + clip.text.value_or("?");
    return out;
}

// Another program holding the write lock (a long import, a sqlite3 shell left in a transaction).
struct LockHolder {
    explicit LockHolder(const std::filesystem::path& file) : database(tamperWith(file)) {
        database.exec("BEGIN IMMEDIATE");
        database.exec("INSERT INTO meta(key, value) VALUES ('held', '1')");
    }
    void release() { database.exec("ROLLBACK"); }
    SQLite::Database database;
};

TEST(LibraryAvailability, ACurrentStoreOpensAndIsReadWhileAnotherProgramHoldsTheLock) {
    TemporaryFolder folder;
    auto file = folder.path() / kMainStoreFilename;
    {
        auto container = must(ModelContainer::open(file));
        must(container->insert(Clip::make(Date::fromReferenceSeconds(1))));
        must(container->save());
    }
    LockHolder holder(file);
    auto opened = ModelContainer::open(file, 10ms);
    ASSERT_TRUE(opened.ok()) << opened.error();
    auto& container = **opened;
    EXPECT_EQ(must(container.liveClipCount()), 1);
    // A write, though, waits its busy time-out and fails, and leaves nothing behind.
    Clip later = Clip::make(Date::fromReferenceSeconds(2));
    EXPECT_FALSE(container.insert(later).ok());
    holder.release();
    must(container.insert(later));
    must(container.save());
    EXPECT_EQ(must(container.liveClipCount()), 2);
}

TEST(LibraryAvailability, CopiesMadeWhileTheStoreIsLockedWaitInOrderAndAreStoredOnceWhenItFrees) {
    TemporaryFolder folder;
    ManualMainLoop loop;
    ClipStore store(loop, openStores(folder.path(), {.busyTimeout = 10ms}), BlobStore(folder.path() / "blobs"), "T");
    std::vector<std::string> results;
    auto record = [&](const IngestResult& result) { results.push_back(result.description()); };
    LockHolder holder(folder.path() / kMainStoreFilename);

    store.submit(textSnapshot("first", 1), {}, record);
    store.submit(textSnapshot("second", 2), {}, record);
    EXPECT_TRUE(results.empty()) << "neither was stored, so neither is reported";
    EXPECT_EQ(store.health()->kind, LibraryHealth::Kind::waiting);
    EXPECT_NE(store.health()->message().find("kept in memory"), std::string::npos) << store.health()->message();
    EXPECT_EQ(store.pendingIngestCount(), 2u);
    loop.advanceBy(3 * kStoreRetryInterval);
    EXPECT_TRUE(results.empty());

    holder.release();
    store.submit(textSnapshot("third", 3), {}, record);
    EXPECT_TRUE(results.empty()) << "a copy doesn't go ahead of those waiting";
    loop.advanceBy(kStoreRetryInterval);
    EXPECT_EQ(results, (std::vector<std::string>{"inserted", "inserted", "inserted"}));
    EXPECT_EQ(store.health()->kind, LibraryHealth::Kind::healthy);
    EXPECT_EQ(storedTexts(folder.path() / kMainStoreFilename), "first, second, third") << "each once, in order";
}

// The library folder deleted while the app runs, and a command line making a new store there.
TEST(LibraryAvailability, AStoreWhoseFolderWasRemovedIsMadeAgainBeforeTheNextWrite) {
    TemporaryFolder folder;
    auto library = folder.path() / "Tamarind";
    auto file = library / kMainStoreFilename;
    ManualMainLoop loop;
    ClipStore store(loop, openStores(library), BlobStore(library / "blobs"), "T");
    ASSERT_EQ(store.ingest(textSnapshot("before", 1), {}).kind, IngestResult::Kind::inserted);

    std::filesystem::remove_all(library);
    ASSERT_EQ(store.ingest(textSnapshot("after", 2), {}).kind, IngestResult::Kind::inserted);
    EXPECT_EQ(storedTexts(file), "after");
    EXPECT_TRUE(std::filesystem::is_directory(library / "blobs"));
    EXPECT_EQ(store.count(ClipQuery{}), 1);

    std::filesystem::remove_all(library);
    {
        ManualMainLoop otherLoop;
        ClipStore commandLine(otherLoop, openStores(library), BlobStore(library / "blobs"), "CLI");
        ASSERT_EQ(commandLine.ingest(textSnapshot("from the command line", 3), {}).kind,
                  IngestResult::Kind::inserted);
    }
    long long revision = store.revision().value();
    store.checkForOutsideChanges();
    EXPECT_GT(store.revision().value(), revision);
    ASSERT_EQ(store.count(ClipQuery{}), 1);
    EXPECT_EQ(store.fetchPage(0, ClipQuery{}, ClipSortOrder::newest, 10).front().text, "from the command line");
}

}  // namespace
}  // namespace tamarind
