#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/Files.h"
#include "foundation/ImageCodec.h"
#include "library/ClipStore.h"
#include "support/StoreTesting.h"
#include "support/FakeIngestPolicy.h"
#include "support/Images.h"
#include "support/ManualWorker.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

PasteboardSnapshot text(std::string value, double at = 100, std::optional<std::string> app = std::nullopt) {
    PasteboardSnapshot snapshot;
    snapshot.types = {"UTF8_STRING"};
    snapshot.string = std::move(value);
    snapshot.capturedAt = Date::fromReferenceSeconds(at);
    snapshot.sourceAppBundleID = app;
    if (app) snapshot.sourceAppName = "App " + *app;
    return snapshot;
}

class ClipStoreIngestTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    FakeCaptureRules rules;
    FakeSecretDetector secrets;
    std::unique_ptr<ClipStore> store;

    void open(bool sync = false) {
        store.reset();
        store = std::make_unique<ClipStore>(loop, openStores(folder.path(), {.syncEnabled = sync, .canSync = true}),
                                            BlobStore(folder.path() / "blobs"), "MACHINE",
                                            IngestPolicy{&rules, &secrets});
    }
    void SetUp() override { open(); }

    // A second connection to a store file, as the command line would have.
    std::vector<Clip> clipsIn(const char* filename) {
        return must(must(ModelContainer::open(folder.path() / filename))->fetch(ClipFetch{.orderBy = "createdAt, pk"}));
    }
    // "text@created/useCount" per clip, oldest first.
    std::string dump(const char* filename = kMainStoreFilename) {
        std::string out;
        for (const Clip& clip : clipsIn(filename)) {
            out += clip.text.value_or(clip.kind) + "@" + std::to_string(int(clip.createdAt.secondsSinceReferenceDate())) +
                   "/" + std::to_string(clip.useCount);
            if (clip.isFavorite) out += "[fav]";
            if (clip.isSensitive) out += "[sensitive]";
            out += " ";
        }
        return out;
    }
    IngestResult ingest(const PasteboardSnapshot& snapshot, std::set<std::string> excluded = {}) {
        return store->ingest(snapshot, excluded);
    }
    // A clip written over a connection of its own, as an earlier build or another process would;
    // its text is its hash.
    void writeFromOutside(const char* text, std::optional<std::string> origin = std::nullopt) {
        auto other = must(ModelContainer::open(folder.path() / kMainStoreFilename));
        Clip clip = Clip::make(Date::fromReferenceSeconds(1));
        clip.text = text;
        clip.contentHash = text;
        clip.originDeviceID = origin;
        must(other->insert(clip));
        must(other->save());
    }
};

TEST_F(ClipStoreIngestTest, TheGateRefusesInItsOrder) {
    LogCapture log;
    PasteboardSnapshot secret = text("hunter2", 1, "org.keepassxc.KeePassXC");
    secret.types = {"text/plain", "x-kde-passwordManagerHint", "org.nspasteboard.ConcealedType"};
    EXPECT_EQ(ingest(secret, {"org.keepassxc.KeePassXC"}).description(), "rejected(concealed type x-kde-passwordManagerHint)");
    secret.types = {"text/plain"};
    EXPECT_EQ(ingest(secret, {"org.keepassxc.KeePassXC"}).description(), "rejected(excluded app org.keepassxc.KeePassXC)");
    PasteboardSnapshot html;
    html.htmlString = "<b>only html</b>";
    EXPECT_EQ(ingest(html).description(), "rejected(empty)");
    EXPECT_EQ(ingest(text(" \n ")).description(), "rejected(empty)");
    EXPECT_THAT(log.messages("library"),
                ElementsAre("Skipped capture: concealed type x-kde-passwordManagerHint",
                            "Skipped capture: excluded app org.keepassxc.KeePassXC", "Skipped capture: empty",
                            "Skipped capture: empty"));
    EXPECT_EQ(dump(), "");
    EXPECT_EQ(store->revision().value(), 0) << "a refusal saves nothing";
}

TEST_F(ClipStoreIngestTest, SizeLimitsApplyByKind) {
    store->setCaptureLimits({.minimumCharacters = 11, .maximumBytes = 0});
    EXPECT_EQ(ingest(text("0123456789")).description(), "rejected(empty)");
    EXPECT_EQ(ingest(text("  0123456789é  ")).description(), "inserted") << "characters, after trimming";
    PasteboardSnapshot image;
    image.imageData = makePng(2, 2);
    EXPECT_EQ(ingest(image).description(), "inserted") << "images have no minimum";
    PasteboardSnapshot rich;
    rich.rtfData = Data(100, 'x');
    EXPECT_EQ(ingest(rich).description(), "rejected(empty)") << "a rich copy without plain text fails the minimum";

    store->setCaptureLimits({.minimumCharacters = 0, .maximumBytes = 10});
    EXPECT_EQ(ingest(text("eleven char")).description(), "rejected(empty)");
    EXPECT_EQ(ingest(text("ten chars!")).description(), "inserted");

    store->setCaptureLimits({.minimumCharacters = 3, .maximumBytes = 10});
    EXPECT_EQ(ingest(text("long enough, and too big")).description(), "rejected(empty)")
        << "a text that passes the minimum still meets the byte limit";
    EXPECT_EQ(ingest(text("fits")).description(), "inserted");
}

TEST_F(ClipStoreIngestTest, PlaceholderOriginsBecomeThisMachinesOnceAndNewClipsCarryIt) {
    // A library that only earlier builds have written: their app stamped "LOCAL", their command line "CLI".
    store.reset();
    for (const char* companion : {"", "-wal", "-shm"})
        std::filesystem::remove(folder.path() / (std::string(kMainStoreFilename) + companion));
    writeFromOutside("from an earlier build", "LOCAL");
    writeFromOutside("from its command line", "CLI");
    {
        LogCapture log;
        open();
        EXPECT_THAT(log.messages("library"), testing::Contains("Attributed 2 existing clips to this Mac."));
    }
    ingest(text("new", 3));
    for (const Clip& clip : clipsIn(kMainStoreFilename)) EXPECT_EQ(clip.originDeviceID, "MACHINE") << *clip.text;

    // Once per library: what a placeholder marks later is left alone, and costs no scan.
    store.reset();
    writeFromOutside("older build again", "LOCAL");
    LogCapture log;
    open();
    EXPECT_TRUE(log.messages("library").empty());
}

TEST_F(ClipStoreIngestTest, ARepeatPromotesTheClipInsteadOfInsertingButNeverMovesItBack) {
    LogCapture log;
    auto a = ingest(text("A", 100));
    ingest(text("B", 200));
    auto again = ingest(text("  A  ", 300));  // the same content by its hash
    EXPECT_EQ(again, IngestResult::deduplicated(a.clipID));
    EXPECT_EQ(dump(), "B@200/0 A@300/1 ");
    EXPECT_EQ(ingest(text("A", 150)), IngestResult::deduplicated(a.clipID));
    EXPECT_EQ(dump(), "B@200/0 A@300/2 ") << "a repeat dated earlier never moves the clip back";
    auto promoted = clipsIn(kMainStoreFilename).back();
    EXPECT_EQ(promoted.lastUsedAt, Date::fromReferenceSeconds(300));
    EXPECT_EQ(promoted.text, "A") << "a promotion keeps the first capture's content";
    EXPECT_EQ(store->revision().value(), 4);
    EXPECT_EQ(store->totalCount().value(), 2);
    EXPECT_THAT(log.messages("library"),
                ElementsAre("Captured text clip from unknown.", "Captured text clip from unknown.",
                            "Duplicate clip promoted instead of inserted.",
                            "Duplicate clip promoted instead of inserted."));
}

TEST_F(ClipStoreIngestTest, TheWindowHoldsTwoHundredHashesAndSurvivesAReopen) {
    for (int i = 0; i < 201; ++i) ingest(text("clip " + std::to_string(i), i));
    EXPECT_EQ(store->recentHashes().size(), 200u);
    // The oldest hash fell out: its content comes back as a second clip with the same hash.
    EXPECT_EQ(ingest(text("clip 0", 1000)).description(), "inserted");
    open();
    EXPECT_EQ(store->recentHashes().size(), 200u);
    EXPECT_EQ(ingest(text("clip 200", 2000)).description(), "deduplicated") << "the window is refilled at start";
    EXPECT_EQ(store->totalCount().value(), 202);
}

TEST_F(ClipStoreIngestTest, RulesRunAfterTheDuplicateTestAndFileTheClip) {
    auto inspector = *ModelContainer::open(folder.path() / kMainStoreFilename);
    Collection work = Collection::make(Date::fromReferenceSeconds(1));
    work.name = "Work";
    // A board: a clip filed by a rule lands at the end of its first column, as an add puts it.
    work.viewMode = "board";
    work.setBoardColumns({"Inbox", "Done"});
    must(inspector->insert(work));
    ASSERT_TRUE(inspector->save());

    RuleDecision file{.collectionIDs = {work.id, Uuid::random()}, .markFavorite = true, .matchedAnyRule = true};
    RuleDecision skip{.skipCapture = true, .matchedAnyRule = true};
    rules.byText = {{"invoice", file}, {"secret", skip}};

    auto filed = ingest(text("invoice 42", 10));
    EXPECT_TRUE(store->lastInsertMatchedRule());
    EXPECT_EQ(ingest(text("a secret", 20)).description(), "rejected(excluded app rule)");
    EXPECT_EQ(ingest(text("a secret", 20, "org.gnome.Terminal")).description(),
              "rejected(excluded app org.gnome.Terminal)");
    ingest(text("plain", 30));
    EXPECT_FALSE(store->lastInsertMatchedRule());

    // A repeat only promotes: a rule added since cannot refuse it.
    rules.byText = {{"invoice", skip}};
    EXPECT_EQ(ingest(text("invoice 42", 40)).description(), "deduplicated");
    EXPECT_FALSE(store->lastInsertMatchedRule()) << "a promotion leaves the flag";

    EXPECT_EQ(dump(), "plain@30/0 invoice 42@40/1[fav] ");
    EXPECT_THAT(must(inspector->collection(work.id))->clipIDs, ElementsAre(filed.clipID));
    EXPECT_EQ(must(inspector->clip(filed.clipID))->boardColumn, "Inbox");

    rules.byText = {{"invoice", file}};
    auto second = ingest(text("invoice 43", 50));
    Clip secondClip = *must(inspector->clip(second.clipID));
    EXPECT_EQ(secondClip.boardColumn, "Inbox");
    EXPECT_GT(secondClip.sortIndex, must(inspector->clip(filed.clipID))->sortIndex) << "after the column's last clip";
}

TEST_F(ClipStoreIngestTest, SecretsFollowTheSensitivePolicyAndLiveInTheVaultWhileSyncing) {
    const std::string card = "4111 1111 1111 1111";
    secrets.secrets = {card, "sk-abcdefghijklmnopq", "ghp_abcdefghijklmnopqrstu"};
    ingest(text(card, 1));
    EXPECT_EQ(dump(), card + "@1/0[sensitive] ");

    store->setCaptureLimits({.detectsSensitiveContent = false});
    ingest(text("sk-abcdefghijklmnopq", 2));
    EXPECT_EQ(clipsIn(kMainStoreFilename).back().isSensitive, false) << "detection off";

    LogCapture log;
    store->setCaptureLimits({.detectsSensitiveContent = false, .skipsSensitiveContent = true});
    rules.byText = {{"pin", RuleDecision{.markSensitive = true, .matchedAnyRule = true}}};
    EXPECT_EQ(ingest(text("my pin is 1234", 3)).description(), "rejected(empty)")
        << "a rule's mark counts with detection off, and skip applies";
    EXPECT_THAT(log.messages("library"),
                ElementsAre("Skipped capture: sensitive content, and the setting says not to store it."));

    open(/*sync=*/true);
    store->setCaptureLimits({});
    ingest(text("ghp_abcdefghijklmnopqrstu", 4, "org.gnome.Terminal"));
    EXPECT_EQ(dump(kVaultStoreFilename), "ghp_abcdefghijklmnopqrstu@4/0[sensitive] ");
    EXPECT_EQ(store->totalCount().value(), 3);
    // A copy of a vaulted clip is promoted in the vault.
    EXPECT_EQ(ingest(text("ghp_abcdefghijklmnopqrstu", 5)).description(), "deduplicated");
    EXPECT_EQ(dump(kVaultStoreFilename), "ghp_abcdefghijklmnopqrstu@5/1[sensitive] ");
}

TEST_F(ClipStoreIngestTest, ImagesAndFilesAreBuiltAndTheIconIsAskedFor) {
    std::vector<std::optional<std::string>> iconRequests;
    store->setOnIconRequest([&](const std::optional<std::string>& id) { iconRequests.push_back(id); });
    PasteboardSnapshot shot;
    shot.imageData = makePng(1200, 600);
    shot.imagePixelSize = PixelSize{1200, 600};
    shot.sourceAppBundleID = "org.flameshot.Flameshot";
    shot.capturedAt = Date::fromReferenceSeconds(7);
    auto inserted = ingest(shot);
    auto clips = clipsIn(kMainStoreFilename);
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips[0].kind, "screenshot");
    EXPECT_EQ(clips[0].id, inserted.clipID);
    EXPECT_TRUE(store->blobStore().existingFilenames().contains(*clips[0].blobFilename));
    EXPECT_THAT(iconRequests, ElementsAre(std::optional<std::string>("org.flameshot.Flameshot")));
    auto withMedia = must(must(ModelContainer::open(folder.path() / kMainStoreFilename))->clip(inserted.clipID));
    ASSERT_TRUE(withMedia && withMedia->thumbnailData);
    EXPECT_FALSE(clips[0].thumbnailData) << "lists don't read thumbnails";

    shot.capturedAt = Date::fromReferenceSeconds(8);
    EXPECT_EQ(ingest(shot), IngestResult::deduplicated(inserted.clipID));
    auto promoted = must(must(ModelContainer::open(folder.path() / kMainStoreFilename))->clip(inserted.clipID));
    EXPECT_EQ(promoted->thumbnailData, withMedia->thumbnailData) << "a promotion keeps the media";
    EXPECT_EQ(promoted->createdAt, Date::fromReferenceSeconds(8));

    // Bytes offered as an image that don't decode are no image: alone they are nothing to keep,
    // beside a text they leave a text clip.
    PasteboardSnapshot broken;
    broken.types = {"image/png"};
    broken.imageData = Data{'n', 'o', 't', ' ', 'a', ' ', 'p', 'n', 'g'};
    broken.capturedAt = Date::fromReferenceSeconds(9);
    EXPECT_EQ(ingest(broken), IngestResult::rejected(CaptureRejection::empty()));
    broken.string = "the caption";
    IngestResult captioned = ingest(broken);
    ASSERT_EQ(captioned.kind, IngestResult::Kind::inserted);
    EXPECT_EQ(store->clip(captioned.clipID)->kind, "text");
    EXPECT_FALSE(store->clip(captioned.clipID)->blobFilename);
}

// A main store that can't be opened, and a folder that can't be made, are ClipStoreDurabilityTests'.
TEST(OpenStores, SyncFallsBackToLocalAndNeverTouchesABadVault) {
    TemporaryFolder folder;
    {
        LogCapture log;
        auto stores = openStores(folder.path(), {.canSync = true});
        EXPECT_FALSE(stores.vault);
        EXPECT_FALSE(stores.main->isInMemory());
        EXPECT_FALSE(std::filesystem::exists(folder.path() / kVaultStoreFilename));
        EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "favicons"));
        EXPECT_TRUE(log.records().empty());
    }
    {
        LogCapture log;
        auto stores = openStores(folder.path(), {.syncEnabled = true});
        EXPECT_FALSE(stores.vault);
        EXPECT_FALSE(stores.isSyncing);
        EXPECT_THAT(log.messages("library"),
                    ElementsAre("Sync is switched on but this build has no iCloud entitlement; opening the store "
                                "locally."));
    }
    const std::string garbage = "this is not a database, and it must survive";
    ASSERT_FALSE(writeFileAtomically(folder.path() / kVaultStoreFilename, garbage + std::string(5000, 'x')));
    {
        LogCapture log;
        auto stores = openStores(folder.path(), {.syncEnabled = true, .canSync = true});
        EXPECT_FALSE(stores.vault);
        EXPECT_FALSE(stores.isSyncing);
        EXPECT_FALSE(stores.main->isInMemory());
        auto lines = log.messages("library");
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_TRUE(lines[0].starts_with("Could not open the store with CloudKit: ")) << lines[0];
        EXPECT_EQ(lines[1], "Fell back to a local-only store; sync is off for this launch.");
    }
    EXPECT_EQ(readWholeFile(folder.path() / kVaultStoreFilename).bytes->substr(0, garbage.size()), garbage);
}

TEST_F(ClipStoreIngestTest, WritesFromAnotherProcessRaiseTheRevision) {
    ingest(text("mine", 1));
    long long before = store->revision().value();
    store->checkForOutsideChanges();
    EXPECT_EQ(store->revision().value(), before) << "our own writes are not outside changes";
    writeFromOutside("theirs");
    store->watchForOutsideChanges(std::chrono::seconds(1));
    loop.advanceBy(std::chrono::milliseconds(999));
    EXPECT_EQ(store->revision().value(), before);
    loop.advanceBy(std::chrono::milliseconds(1));
    EXPECT_EQ(store->revision().value(), before + 1);
    loop.advanceBy(std::chrono::seconds(5));
    EXPECT_EQ(store->revision().value(), before + 1) << "nothing changed since";
    EXPECT_EQ(store->totalCount().value(), 2);
    EXPECT_TRUE(store->recentHashes().contains("theirs"));
}

class ClipStoreImageWorkerTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    ManualWorker worker;
    std::unique_ptr<ClipStore> store = makeStore();

    std::unique_ptr<ClipStore> makeStore() {
        return std::make_unique<ClipStore>(loop, openStores(folder.path()), BlobStore(folder.path() / "blobs"), "M",
                                           IngestPolicy{}, &worker);
    }
    static PasteboardSnapshot shot(double at, int width) {
        PasteboardSnapshot snapshot;
        snapshot.imageData = makePng(width, 300);
        snapshot.imagePixelSize = PixelSize{static_cast<double>(width), 300};
        snapshot.capturedAt = Date::fromReferenceSeconds(at);
        return snapshot;
    }
    std::optional<Data> thumbnailOf(const Uuid& id) {
        return store->clip(id) ? store->clip(id)->thumbnailData : std::nullopt;
    }
    std::set<std::string> blobFiles() { return BlobStore(folder.path() / "blobs").existingFilenames(); }
};

// With a worker, the image is stored at once and its thumbnail follows: the loop never decodes.
TEST_F(ClipStoreImageWorkerTest, TheThumbnailComesBackToTheLoopAndFindsItsClipOrNothing) {
    auto kept = store->ingest(shot(1, 1200), {});
    auto gone = store->ingest(shot(2, 1300), {});
    EXPECT_FALSE(thumbnailOf(kept.clipID)) << "not made during the ingest";
    EXPECT_TRUE(store->clip(kept.clipID)->blobFilename) << "the image itself is kept at once";
    EXPECT_EQ(worker.pending(), 2u);

    store->deleteClip(gone.clipID);
    EXPECT_EQ(worker.runAll(), 2u);
    long long before = store->revision().value();
    loop.runUntilIdle();
    auto thumbnail = thumbnailOf(kept.clipID);
    ASSERT_TRUE(thumbnail);
    EXPECT_EQ(imagePixelSize(*thumbnail), (PixelSize{512, 128}));
    EXPECT_EQ(store->revision().value(), before + 1) << "one save, for the clip that is still there";
    EXPECT_FALSE(store->clip(gone.clipID));

    // A thumbnail that never came back, the app gone first, is made at the next start.
    auto orphaned = store->ingest(shot(3, 900), {});
    store = makeStore();
    EXPECT_EQ(worker.runAll(), 2u) << "the lost job, and the new start's";
    loop.runUntilIdle();
    EXPECT_TRUE(thumbnailOf(orphaned.clipID));
    store = makeStore();
    EXPECT_EQ(worker.pending(), 0u) << "nothing left to make";
}

// Submitted copies are answered in the order they came, a text waiting behind an image whose hash
// and blob the worker is making; a blob made ahead that no new clip keeps is removed.
TEST_F(ClipStoreImageWorkerTest, SubmittedCopiesKeepTheirOrderAndLeaveNoStrayBlobs) {
    std::vector<std::string> answers;
    auto submit = [&](PasteboardSnapshot snapshot) {
        store->submit(std::move(snapshot), {}, [&](const IngestResult& result) {
            answers.push_back(result.description());
        });
    };
    PasteboardSnapshot words;
    words.types = {"UTF8_STRING"};
    words.string = "after the image";
    words.capturedAt = Date::fromReferenceSeconds(2);
    submit(shot(1, 1200));
    submit(words);
    submit(shot(3, 1200));  // the same pixels again
    submit(shot(4, 1400));
    EXPECT_THAT(answers, ElementsAre()) << "the text waits for the image ahead of it";
    EXPECT_EQ(store->pendingIngestCount(), 4u);
    EXPECT_EQ(worker.runAll(), 3u) << "one job per image; the text needs none";

    // A limit lowered while the worker ran applies to the copies still waiting.
    store->setCaptureLimits(CaptureLimits{.maximumBytes = 10});
    loop.runUntilIdle();
    store->setCaptureLimits({});
    EXPECT_THAT(answers, ElementsAre("rejected(empty)", "rejected(empty)", "rejected(empty)", "rejected(empty)"));
    EXPECT_THAT(blobFiles(), ElementsAre()) << "the blobs the worker wrote went with their copies";

    answers.clear();
    submit(shot(5, 1200));
    submit(words);
    submit(shot(6, 1200));
    worker.runAll();
    loop.runUntilIdle();
    EXPECT_THAT(answers, ElementsAre("inserted", "inserted", "deduplicated"));
    EXPECT_EQ(blobFiles().size(), 1u) << "the repeat's blob is gone";
    EXPECT_EQ(store->pendingIngestCount(), 0u);
    worker.runAll();
    loop.runUntilIdle();
    EXPECT_EQ(store->count({}), 2);
}

// A copy still queued when the app quits is stored on the way out, whether or not the worker had
// finished with it.
TEST_F(ClipStoreImageWorkerTest, QueuedCopiesAreStoredWhenTheStoreCloses) {
    int answered = 0;
    store->submit(shot(1, 1200), {}, [&](const IngestResult&) { ++answered; });
    store->submit(shot(2, 1300), {}, [&](const IngestResult&) { ++answered; });
    worker.runAll();  // the first's hash and blob are made; the answer is not yet taken on the loop
    store.reset();
    EXPECT_EQ(answered, 0) << "nobody is left to answer";
    worker.runAll();
    loop.runUntilIdle();
    store = makeStore();
    std::vector<Clip> clips = store->fetchPage(0, {}, ClipSortOrder::newest, 10);
    ASSERT_EQ(clips.size(), 2u);
    std::set<std::string> kept;
    for (const Clip& clip : clips) kept.insert(clip.blobFilename.value_or("none"));
    EXPECT_EQ(blobFiles(), kept) << "each clip has its blob, and the blob made too late is gone";
}

}  // namespace
}  // namespace tamarind
