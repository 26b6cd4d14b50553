// What the store does when its file is locked by another program or taken away while it runs:
// copies wait in memory rather than being lost, and a vanished library is made again.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "library/ClipStore.h"
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

TEST(LibraryAvailability, AStoreThatCouldNotBeOpenedSaysSo) {
    TemporaryFolder folder;
    std::filesystem::create_directories(folder.path());
    auto notAFolder = folder.path() / "not-a-folder";
    { std::ofstream(notAFolder) << "a file where the library folder should be"; }
    ManualMainLoop loop;
    ClipStore store(loop, openStores(notAFolder / "Tamarind"), BlobStore(folder.path() / "blobs"), "T");
    EXPECT_EQ(store.health()->kind, LibraryHealth::Kind::inMemory);
    EXPECT_NE(store.health()->reason.find("not-a-folder"), std::string::npos) << store.health()->reason;
}

}  // namespace
}  // namespace tamarind
