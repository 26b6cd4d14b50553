#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "foundation/Files.h"
#include "foundation/Log.h"
#include "library/ClipStore.h"
#include "support/StoreTesting.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr double kDay = 86400;

PasteboardSnapshot copied(std::string text, Date at) {
    PasteboardSnapshot snapshot;
    snapshot.types = {"UTF8_STRING"};
    snapshot.string = std::move(text);
    snapshot.capturedAt = at;
    return snapshot;
}

std::string number(double value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

// The store is built over in-memory containers the test keeps pointers to, so that
// it can seed records with any dates and flags and read back whole states.
class ClipStoreMaintenanceTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    std::unique_ptr<ClipStore> store;
    ModelContainer* main = nullptr;
    ModelContainer* vault = nullptr;
    std::map<Uuid, std::string> names;

    void open(bool withVault) {
        auto container = [&](const char* name) { return must(ModelContainer::open(folder.path() / name)); };
        TamarindStores stores{container("main.store"), withVault ? container("vault.store") : nullptr, withVault};
        main = stores.main.get();
        vault = stores.vault.get();
        store = std::make_unique<ClipStore>(loop, std::move(stores), BlobStore(folder.path() / "blobs"), "MACHINE");
    }

    Date now() const { return loop.clock().wallNow(); }
    const BlobStore& blobs() const { return store->blobStore(); }

    // A text clip `name`, created `ageInDays` ago, written straight into a store.
    Uuid add(const std::string& name, double ageInDays, ModelContainer* into = nullptr,
             const std::function<void(Clip&)>& adjust = {}) {
        Clip clip = Clip::make(now().addingSeconds(-ageInDays * kDay));
        clip.text = name;
        clip.searchText = name;
        clip.contentHash = "hash-" + name;
        clip.charCount = static_cast<long long>(name.size());
        clip.byteSize = static_cast<long long>(name.size());
        if (adjust) adjust(clip);
        names[clip.id] = name;
        ModelContainer* container = into ? into : main;
        must(container->insert(clip));
        EXPECT_TRUE(container->save());
        return clip.id;
    }
    Uuid pinned(const std::string& name, double ageInDays) {
        return add(name, ageInDays, nullptr, [](Clip& clip) { clip.isPinned = true; });
    }
    Uuid favorite(const std::string& name, double ageInDays) {
        return add(name, ageInDays, nullptr, [](Clip& clip) { clip.isFavorite = true; });
    }
    Uuid ingested(const std::string& text, Date at) {
        IngestResult result = store->ingest(copied(text, at), {});
        EXPECT_EQ(result.kind, IngestResult::Kind::inserted) << text;
        names[result.clipID] = text;
        return result.clipID;
    }
    std::string writeBlob(const Uuid& id) { return std::get<std::string>(blobs().write(Data{1, 2, 3}, id, "png")); }

    // The records of one store, oldest first, by name with their flags: "a[pin] b[tomb] c".
    std::string dump(ModelContainer* container, const std::string& where = "1") {
        std::string out;
        for (const Clip& clip : must(container->fetch(ClipFetch{.where = where, .orderBy = "createdAt, pk"}))) {
            if (!out.empty()) out += ' ';
            out += names.contains(clip.id) ? names[clip.id] : "?";
            std::string flags;
            for (auto [isSet, flag] : {std::pair{clip.isPinned, "pin"},
                                       {clip.isFavorite, "fav"},
                                       {clip.isSensitive, "sens"},
                                       {clip.deletedAt.has_value(), "tomb"}})
                if (isSet) flags += flags.empty() ? flag : std::string(",") + flag;
            if (!flags.empty()) out += "[" + flags + "]";
        }
        return out;
    }
    // Both stores: "main: a b | vault: c".
    std::string dump() {
        std::string out = "main: " + dump(main);
        if (vault) out += " | vault: " + dump(vault);
        return out;
    }
    // The members of a board column in order with their indices: "a:0 b:1024".
    std::string column(const std::string& name) {
        std::string out;
        for (const Clip& clip : must(main->fetch(
                 ClipFetch{.where = "boardColumn = ?", .parameters = {name}, .orderBy = "sortIndex, createdAt"}))) {
            if (!out.empty()) out += ' ';
            out += names[clip.id] + ":" + number(clip.sortIndex);
        }
        return out;
    }
    // "name:sortIndex(members)" for each collection in order.
    std::string collectionsDump() {
        std::string out;
        for (const Collection& collection : must(main->collections())) {
            if (!out.empty()) out += ' ';
            out += collection.name + ":" + number(collection.sortIndex) + "(";
            std::vector<std::string> members;
            for (const Uuid& id : collection.clipIDs) members.push_back(names[id]);
            std::sort(members.begin(), members.end());
            for (std::size_t i = 0; i < members.size(); ++i) out += (i ? "," : "") + members[i];
            out += ")";
        }
        return out;
    }
    long long revision() const { return store->revision().value(); }
};

// --- retention ---------------------------------------------------------------------------------------

TEST_F(ClipStoreMaintenanceTest, RetentionByCountTakesTheOldestButSparesPinnedAndFavourites) {
    open(false);
    pinned("a", 13);
    favorite("b", 12);
    pinned("c", 11);
    for (char name = 'd'; name <= 'm'; ++name) add(std::string(1, name), 'n' - name);
    LogCapture log;
    store->applyRetention(10, std::nullopt, now());
    EXPECT_EQ(dump(), "main: a[pin] b[fav] c[pin] g h i j k l m");
    EXPECT_THAT(log.messages("library"), ElementsAre("Retention removed 3 clips."));
    EXPECT_EQ(store->totalCount().value(), 10);
}

TEST_F(ClipStoreMaintenanceTest, RetentionByAgeLooksAtCreationAloneAndTheCountAtWhatAgeLeaves) {
    open(false);
    favorite("a", 40);
    add("b", 40, nullptr, [&](Clip& clip) { clip.markUsed(now()); });
    pinned("c", 31);
    add("d", 29.9);
    add("e", 20);
    add("f", 10);
    add("g", 5);
    store->applyRetention(1000, 0, now());
    EXPECT_EQ(dump(), "main: a[fav] b c[pin] d e f g") << "a limit of zero days is no limit";
    store->applyRetention(1000, 30, now());
    EXPECT_EQ(dump(), "main: a[fav] c[pin] d e f g") << "b goes although it was used just now";
    LogCapture log;
    // Fifteen days on, age takes d and e; of the four left, one more must go for three to remain,
    // and that is f, not d again.
    store->applyRetention(3, 30, now().addingSeconds(15 * kDay));
    EXPECT_EQ(dump(), "main: a[fav] c[pin] g");
    EXPECT_THAT(log.messages("library"), ElementsAre("Retention removed 3 clips."));
}

TEST_F(ClipStoreMaintenanceTest, RetentionLooksAtMostTwoHundredSparedClipsPastTheExcess) {
    open(false);
    for (int i = 0; i < 201; ++i) pinned("p" + std::to_string(i), 1000 - i);
    add("w", 10);
    add("x", 9);
    add("y", 8);
    add("z", 7);
    LogCapture log;
    // 205 clips over a limit of 202: the oldest 203 are read, and only w and x are among them.
    store->applyRetention(202, std::nullopt, now());
    EXPECT_EQ(dump(main, "isPinned = 0"), "y z");
    EXPECT_EQ(must(main->count("isPinned = 1")), 201);
    EXPECT_THAT(log.messages("library"), ElementsAre("Retention removed 2 clips."));
}

// A tombstone is purged once it is older than its lifetime, and not at the very instant it reaches it.
TEST_F(ClipStoreMaintenanceTest, RetentionWithAVaultTombstonesMainClipsRemovesVaultClipsAndPurgesLater) {
    open(true);
    add("a", 10);
    add("b", 9, vault);
    add("c", 8);
    add("d", 7, vault);
    Uuid e = add("e", 6);
    Date start = now();
    store->applyRetention(2, std::nullopt, start);
    EXPECT_EQ(dump(), "main: a[tomb] c[tomb] e | vault: d") << "the oldest over both stores";

    loop.setWallNow(start.addingSeconds(2 * kDay));
    store->deleteClip(e);

    LogCapture log;
    long long before = revision();
    store->applyRetention(2, std::nullopt, start.addingSeconds(kTombstoneLifetimeSeconds));
    EXPECT_EQ(dump(), "main: a[tomb] c[tomb] e[tomb] | vault: d");
    EXPECT_EQ(revision(), before) << "nothing to remove or purge saves nothing";
    store->applyRetention(2, std::nullopt, start.addingSeconds(31 * kDay));
    EXPECT_EQ(dump(), "main: e[tomb] | vault: d");
    EXPECT_THAT(log.messages("library"), ElementsAre("Purged 2 tombstones."));
}

// --- deletes -------------------------------------------------------------------------------------------

TEST_F(ClipStoreMaintenanceTest, DeletingRemovesRecordBlobAndHashSoTheSameCopyIsNewAgain) {
    open(false);
    Uuid hello = ingested("hello", now());
    Uuid other = add("other", 1, nullptr, [&](Clip& clip) { clip.blobFilename = writeBlob(clip.id); });
    add("kept", 1);
    ASSERT_TRUE(store->recentHashes().contains(must(main->clip(hello))->contentHash));

    long long before = revision();
    store->deleteClips({hello, other, Uuid::random()});
    EXPECT_EQ(revision(), before + 1) << "one save for all";
    EXPECT_EQ(dump(), "main: kept");
    EXPECT_THAT(blobs().existingFilenames(), IsEmpty());
    EXPECT_EQ(store->recentHashes().size(), 0u);
    EXPECT_EQ(store->ingest(copied("hello", now()), {}).kind, IngestResult::Kind::inserted);

    before = revision();
    store->deleteClip(Uuid::random());
    EXPECT_EQ(revision(), before) << "an unknown id does nothing";
}

TEST_F(ClipStoreMaintenanceTest, WithAVaultAMainClipBecomesATombstoneWithoutContent) {
    open(true);
    Collection work = store->createCollection("Work");
    Uuid id = add("secret plan", 3, nullptr, [&](Clip& clip) {
        clip.kind = "image";
        clip.isFavorite = true;
        clip.richTextData = Data{1};
        clip.htmlString = "<b>x</b>";
        clip.urlString = "https://example.com";
        clip.hexColor = "#FFFFFF";
        clip.fileBookmarks = Data{2};
        clip.thumbnailData = Data{3};
        clip.fullImageData = Data{4};
        clip.blobFilename = writeBlob(clip.id);
        clip.ocrText = "ocr";
        clip.aiTitle = "Plan";
        clip.aiTitleAttemptedAt = now();
        clip.aiSuggestedCollectionID = work.id;
        clip.multiClipData = Data{5};
        clip.expansionTrigger = ";plan";
        clip.reminderDate = now();
        clip.reminderAppBundleID = "org.example.Mail";
        clip.boardColumn = "Todo";
        clip.sortIndex = 2048;
        clip.collectionIDs = {work.id};
        clip.sourceAppBundleID = "org.example.Editor";
        clip.sourceAppName = "Editor";
        clip.imageWidth = 10;
        clip.imageHeight = 20;
        clip.originDeviceID = "MACHINE";
        clip.markUsed(now());
    });
    Clip original = *must(main->clip(id));
    Uuid inVault = add("vaulted", 2, vault);

    loop.setWallNow(now().addingSeconds(60));
    store->deleteClips({id, inVault});

    Clip expected = original;
    expected.deletedAt = now();
    for (auto* text : {&expected.text, &expected.htmlString, &expected.urlString, &expected.hexColor,
                       &expected.blobFilename, &expected.ocrText, &expected.aiTitle, &expected.expansionTrigger,
                       &expected.reminderAppBundleID, &expected.boardColumn})
        text->reset();
    for (auto* data : {&expected.richTextData, &expected.fileBookmarks, &expected.thumbnailData,
                       &expected.fullImageData, &expected.multiClipData})
        data->reset();
    expected.aiSuggestedCollectionID.reset();
    expected.reminderDate.reset();
    expected.searchText = "";
    expected.contentHash = "";
    expected.charCount = 0;
    expected.byteSize = 0;
    expected.collectionIDs.clear();
    EXPECT_EQ(*must(main->clip(id)), expected);
    EXPECT_EQ(dump(), "main: secret plan[fav,tomb] | vault: ") << "a vault clip goes for good";
    EXPECT_THAT(blobs().existingFilenames(), IsEmpty());
    EXPECT_EQ(collectionsDump(), "Work:0()");
    EXPECT_EQ(store->count(ClipQuery{}), 0);
    EXPECT_THAT(store->fetchPage(0, ClipQuery{}, ClipSortOrder::newest, 50), IsEmpty());

    // Deleting the tombstone again must not push its purge back.
    loop.setWallNow(now().addingSeconds(60));
    store->deleteClip(id);
    EXPECT_EQ(must(main->clip(id))->deletedAt, expected.deletedAt);
}

TEST_F(ClipStoreMaintenanceTest, DeleteAllEmptiesBothStoresTheWindowAndTheBlobFolder) {
    open(true);
    Collection work = store->createCollection("Work");
    Uuid hello = ingested("hello", now());
    store->addClips({hello}, work.id);
    Uuid gone = add("gone", 2);
    store->deleteClip(gone);
    add("vaulted", 1, vault, [&](Clip& clip) { clip.blobFilename = writeBlob(clip.id); });
    writeBlob(Uuid::random());
    ASSERT_EQ(store->recentHashes().size(), 1u);

    LogCapture log;
    store->deleteAll();
    EXPECT_EQ(dump(), "main:  | vault: ") << "no tombstones either";
    EXPECT_EQ(store->recentHashes().size(), 0u);
    EXPECT_THAT(blobs().existingFilenames(), IsEmpty());
    EXPECT_EQ(collectionsDump(), "Work:0()") << "collections stay, their memberships go";
    EXPECT_EQ(store->totalCount().value(), 0);
    EXPECT_THAT(log.messages("library"), ElementsAre("Deleted all clips."));
}

TEST_F(ClipStoreMaintenanceTest, AFailedDeleteAllKeepsTheBlobsAndTheWindow) {
    open(false);
    ingested("hello", now());
    std::string blob = writeBlob(Uuid::random());
    tamperWith(folder.path() / "main.store").exec("DROP TABLE clip_collection");
    LogCapture log;
    long long before = revision();
    store->deleteAll();
    EXPECT_THAT(log.messages("library"), ElementsAre("Save failed: no such table: clip_collection"));
    EXPECT_THAT(blobs().existingFilenames(), ElementsAre(blob));
    EXPECT_EQ(store->recentHashes().size(), 1u);
    EXPECT_EQ(revision(), before);
}

TEST_F(ClipStoreMaintenanceTest, OrphanSweepKeepsTheFilesClipsInEitherStoreName) {
    open(true);
    std::string kept, vaulted;
    add("a", 1, nullptr, [&](Clip& clip) { clip.blobFilename = kept = writeBlob(clip.id); });
    add("v", 1, vault, [&](Clip& clip) { clip.blobFilename = vaulted = writeBlob(clip.id); });
    add("plain", 1);
    writeBlob(Uuid::random());
    writeBlob(Uuid::random());

    LogCapture log;
    store->removeOrphanedBlobs();
    EXPECT_THAT(blobs().existingFilenames(), UnorderedElementsAre(kept, vaulted));
    EXPECT_THAT(log.messages("library"), ElementsAre("Removed 2 orphaned blobs."));
}

// --- small mutations ---------------------------------------------------------------------------------

TEST_F(ClipStoreMaintenanceTest, SmallMutationsChangeTheirFieldsAndKeepTheMedia) {
    open(true);
    auto withMedia = [](Clip& clip) {
        clip.thumbnailData = Data{7};
        clip.fullImageData = Data{8, 9};
    };
    Uuid id = add("a", 1, nullptr, withMedia);
    Uuid secret = add("s", 1, vault, withMedia);
    Clip expected = *must(main->clip(id));
    Clip expectedSecret = *must(vault->clip(secret));

    long long before = revision();
    Date used = now().addingSeconds(5);
    Date remind = now().addingSeconds(3600);
    store->setFavorite(id, true);
    store->setPinned(id, true);
    store->markUsed(id, used);
    store->setReminder(id, remind, "org.example.Mail");
    store->setExpansionTrigger(id, ";a");
    store->setPinned(secret, true);
    EXPECT_EQ(revision(), before + 6) << "one save each";

    expected.isFavorite = true;
    expected.isPinned = true;
    expected.lastUsedAt = used;
    expected.useCount = 1;
    expected.reminderDate = remind;
    expected.reminderAppBundleID = "org.example.Mail";
    expected.expansionTrigger = ";a";
    EXPECT_EQ(*must(main->clip(id)), expected);
    expectedSecret.isPinned = true;
    EXPECT_EQ(*must(vault->clip(secret)), expectedSecret);

    before = revision();
    store->setFavorite(Uuid::random(), true);
    store->markUsed(Uuid::random(), used);
    EXPECT_EQ(revision(), before) << "an unknown id does nothing";
}

TEST_F(ClipStoreMaintenanceTest, WithoutAVaultSensitivityIsOnlyAFlag) {
    open(false);
    Collection work = store->createCollection("Work");
    Uuid id = add("a", 1, nullptr, [&](Clip& clip) { clip.collectionIDs = {work.id}; });
    LogCapture log;
    store->setSensitive(id, true);
    EXPECT_EQ(dump(), "main: a[sens]");
    EXPECT_EQ(collectionsDump(), "Work:0(a)");
    EXPECT_THAT(log.messages("library"), IsEmpty());
}

TEST_F(ClipStoreMaintenanceTest, WithAVaultSensitivityMovesTheWholeRecordAndDropsItsCollections) {
    open(true);
    Collection work = store->createCollection("Work");
    Uuid id = add("a", 1, nullptr, [&](Clip& clip) {
        clip.collectionIDs = {work.id};
        clip.thumbnailData = Data{1};
        clip.fullImageData = Data{2, 3};
        clip.isFavorite = true;
        clip.markUsed(now());
    });
    Clip expected = *must(main->clip(id));
    expected.isSensitive = true;
    expected.collectionIDs.clear();

    LogCapture log;
    store->setSensitive(id, true);
    EXPECT_EQ(dump(), "main:  | vault: a[fav,sens]") << "moved without a tombstone";
    EXPECT_EQ(*must(vault->clip(id)), expected);
    EXPECT_EQ(collectionsDump(), "Work:0()");

    long long before = revision();
    store->setSensitive(id, true);
    EXPECT_EQ(revision(), before) << "the same value does nothing";

    store->setSensitive(id, false);
    expected.isSensitive = false;
    EXPECT_EQ(dump(), "main: a[fav] | vault: ");
    EXPECT_EQ(*must(main->clip(id)), expected);
    EXPECT_THAT(log.messages("library"),
                ElementsAre("Moved a clip into the local vault.", "Moved a clip out of the local vault."));

    // A record already in the store its flag belongs to only changes the flag.
    Uuid stray = add("stray", 1, vault);
    store->setSensitive(stray, true);
    EXPECT_EQ(dump(vault), "stray[sens]");
    EXPECT_THAT(log.messages("library"),
                ElementsAre("Moved a clip into the local vault.", "Moved a clip out of the local vault."));
}

TEST_F(ClipStoreMaintenanceTest, ASyncedImageIsWrittenToTheBlobFolderOnce) {
    open(true);
    Uuid id = add("picture", 1, nullptr, [](Clip& clip) { clip.fullImageData = Data{9, 8, 7}; });
    Uuid textOnly = add("text", 1);
    LogCapture log;
    store->storeSyncedImage(id);
    std::string expectedName = id.uuidString() + ".png";
    EXPECT_EQ(must(main->clip(id))->blobFilename, expectedName);
    EXPECT_EQ(must(main->clip(id))->fullImageData, (Data{9, 8, 7}));
    EXPECT_THAT(blobs().existingFilenames(), ElementsAre(expectedName));
    EXPECT_EQ(readWholeFile(blobs().url(expectedName)).bytes, std::string("\x09\x08\x07"));

    long long before = revision();
    store->storeSyncedImage(id);
    store->storeSyncedImage(textOnly);
    EXPECT_EQ(revision(), before);
    EXPECT_THAT(log.messages("library"), ElementsAre("Wrote a synced image to local storage."));
}

// --- collections ---------------------------------------------------------------------------------------

TEST_F(ClipStoreMaintenanceTest, CollectionsAreCreatedInOrderRenamedReorderedAndDeletedWithoutTheirClips) {
    open(true);
    Collection a = store->createCollection("A");
    Collection b = store->createCollection("B");
    Collection c = store->createCollection("C");
    EXPECT_EQ(a.sortIndex, 0);
    EXPECT_EQ(c.sortIndex, 2048);
    EXPECT_EQ(collectionsDump(), "A:0() B:1024() C:2048()");

    store->renameCollection(b.id, "Bee");
    store->reorderCollections({c.id, Uuid::random(), a.id, b.id});
    EXPECT_EQ(collectionsDump(), "C:0() A:1024() Bee:2048()");

    Uuid x = add("x", 3);
    Uuid y = add("y", 2);
    Uuid secret = add("secret", 1, vault);
    Uuid gone = add("gone", 1);
    store->deleteClip(gone);
    long long before = revision();
    store->addClips({x, y, secret, gone, Uuid::random()}, a.id);
    store->addClips({x}, c.id);
    EXPECT_EQ(revision(), before + 2);
    EXPECT_EQ(collectionsDump(), "C:0(x) A:1024(x,y) Bee:2048()") << "vault clips and tombstones never join";
    EXPECT_THAT(must(vault->clip(secret))->collectionIDs, IsEmpty());

    store->removeClips({x, secret}, a.id);
    EXPECT_EQ(collectionsDump(), "C:0(x) A:1024(y) Bee:2048()");

    store->deleteCollection(c.id);
    EXPECT_EQ(collectionsDump(), "A:1024(y) Bee:2048()");
    EXPECT_EQ(dump(), "main: x y gone[tomb] | vault: secret") << "the clips stay";
    EXPECT_THAT(must(main->clip(x))->collectionIDs, IsEmpty());

    before = revision();
    store->addClips({x}, c.id);
    store->renameCollection(c.id, "again");
    store->deleteCollection(c.id);
    EXPECT_EQ(revision(), before) << "an unknown collection does nothing";
}

// --- boards ------------------------------------------------------------------------------------------------

class ClipStoreMaintenanceBoardTest : public ClipStoreMaintenanceTest {
protected:
    Collection board;
    std::map<std::string, Uuid> ids;

    // A board "Todo | Done" holding a, b, c in Todo (added in that order) and x, y not yet members.
    void SetUp() override {
        open(false);
        board = store->createCollection("Board");
        board.setBoardColumns({"Todo", "Done"});
        board.viewMode = "board";
        must(main->update(board));
        ASSERT_TRUE(main->save());
        double age = 5;
        for (const char* name : {"a", "b", "c", "x", "y"}) ids[name] = add(name, age--);
        store->addClips({ids["a"], ids["b"], ids["c"]}, board.id);
    }
    std::vector<Uuid> clips(std::initializer_list<const char*> list) {
        std::vector<Uuid> result;
        for (const char* name : list) result.push_back(ids[name]);
        return result;
    }
    void member(std::initializer_list<const char*> list) {
        board = *must(main->collection(board.id));
        for (const Uuid& id : clips(list)) board.clipIDs.push_back(id);
        must(main->update(board));
        ASSERT_TRUE(main->save());
    }
    void setIndex(const char* name, const char* columnName, double index) {
        Clip clip = *must(main->clip(ids[name]));
        clip.boardColumn = columnName;
        clip.sortIndex = index;
        must(main->update(clip));
        ASSERT_TRUE(main->save());
    }
};

TEST_F(ClipStoreMaintenanceBoardTest, AddedClipsQueueAtTheEndOfTheFirstColumn) {
    EXPECT_EQ(column("Todo"), "a:0 b:1024 c:2048");
    Collection plain = store->createCollection("Plain");
    store->addClips(clips({"x"}), plain.id);
    EXPECT_EQ(must(main->clip(ids["x"]))->boardColumn, std::nullopt) << "a collection without columns places nothing";
    store->addClips(clips({"x", "y", "a"}), board.id);
    EXPECT_EQ(column("Todo"), "a:0 b:1024 c:2048 x:3072 y:4096") << "a member already placed stays";
}

TEST_F(ClipStoreMaintenanceBoardTest, AMovedClipTakesTheMidpointTheHeadTheTailOrZero) {
    long long before = revision();
    store->moveClips(clips({"x"}), "Todo", 0, board.id);
    store->moveClips(clips({"a"}), "Done", 0, Uuid::random());
    EXPECT_EQ(revision(), before) << "only members of an existing board move";
    member({"x", "y"});
    LogCapture log;
    store->moveClips(clips({"x"}), "Done", 0, board.id);
    EXPECT_EQ(column("Done"), "x:0") << "an empty column starts at zero";
    store->moveClips(clips({"x"}), "Todo", 1, board.id);
    EXPECT_EQ(column("Todo"), "a:0 x:512 b:1024 c:2048");
    EXPECT_EQ(column("Done"), "");
    store->moveClips(clips({"y"}), "Todo", -3, board.id);
    EXPECT_EQ(column("Todo"), "y:-1024 a:0 x:512 b:1024 c:2048");
    store->moveClips(clips({"a"}), "Todo", 99, board.id);
    EXPECT_EQ(column("Todo"), "y:-1024 x:512 b:1024 c:2048 a:3072") << "among the others, without itself";
    EXPECT_THAT(log.messages("library"), IsEmpty());
}

TEST_F(ClipStoreMaintenanceBoardTest, SeveralClipsShareOneGapInTheGivenOrder) {
    member({"x", "y"});
    store->moveClips(clips({"y", "x", "y"}), "Todo", 1, board.id);
    EXPECT_EQ(column("Todo"), "a:0 y:341.333 x:682.667 b:1024 c:2048");
    store->moveClips(clips({"a", "b"}), "Todo", 0, board.id);
    EXPECT_EQ(column("Todo"), "a:-1706.67 b:-682.667 y:341.333 x:682.667 c:2048");
    store->moveClips(clips({"a", "b"}), "Done", 7, board.id);
    EXPECT_EQ(column("Done"), "a:0 b:1024");
}

TEST_F(ClipStoreMaintenanceBoardTest, ColumnsWithoutRoomAreRenumbered) {
    member({"x", "y"});
    setIndex("c", "Todo", 1024 + 5e-7);
    LogCapture log;
    store->moveClips(clips({"x"}), "Todo", 2, board.id);
    EXPECT_EQ(column("Todo"), "a:0 b:1024 x:2048 c:3072");
    EXPECT_THAT(log.messages("library"), ElementsAre("Rebalanced board column indices."));

    setIndex("c", "Todo", 2048);  // ties with x; the older c comes first
    store->moveClips(clips({"y"}), "Todo", 3, board.id);
    EXPECT_EQ(column("Todo"), "a:0 b:1024 c:2048 y:3072 x:4096") << "equal neighbours leave no midpoint";
}

}  // namespace
}  // namespace tamarind
