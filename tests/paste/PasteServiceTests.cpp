// Putting clips back: what each kind writes, the order of a paste's steps and their outcomes,
// the target kept while our own surface is in front, and the clipboard put back afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/MultiClipPayload.h"
#include "foundation/Files.h"
#include "foundation/ImageCodec.h"
#include "library/FileBookmark.h"
#include "paste/PasteService.h"
#include "support/FakePlatform.h"
#include "support/Images.h"
#include "support/ManualMainLoop.h"
#include "support/ManualWorker.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

Clip clipOf(std::string kind, std::optional<std::string> text) {
    Clip clip = Clip::make(Date::fromUnixSeconds(1'700'000'000));
    clip.kind = std::move(kind);
    clip.text = std::move(text);
    return clip;
}

std::vector<std::string> typesOf(const PasteboardArchive::Item& item) {
    std::vector<std::string> types;
    for (const auto& [type, bytes] : item) types.push_back(type);
    return types;
}

class PasteServiceTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    CapturePreferences preferences{defaults, loop};
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    FakePermissions permissions;
    FakeKeyEvents keys{loop};
    BlobStore blobs{folder.path() / "blobs"};
    std::unique_ptr<PasteService> service;
    LogCapture log;

    void SetUp() override {
        permissions.accessibility = true;
        service = std::make_unique<PasteService>(loop, PlatformForPaste{pasteboard, workspace, &permissions, &keys},
                                                 blobs, preferences);
    }

    // The editor the user was in, recorded as the target.
    void recordEditor() {
        workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor", 0x400001};
        service->recordTargetApplication();
    }

    std::optional<PasteOutcome> paste(const Clip& clip, bool asPlainText = false) {
        std::optional<PasteOutcome> outcome;
        PasteService::Request request;
        request.asPlainText = asPlainText;
        service->paste(clip, std::move(request), [&](PasteOutcome result) { outcome = result; });
        loop.runUntilIdle();
        loop.advanceBy(kPasteActivationWait);
        return outcome;
    }
};

TEST_F(PasteServiceTest, EachKindWritesItsRichestForm) {
    Clip rich = clipOf("richText", "Hello");
    rich.richTextData = dataFromString("{\\rtf1 Hello}");
    rich.htmlString = "<b>Hello</b>";
    ASSERT_TRUE(service->write(rich, false));
    EXPECT_THAT(typesOf(pasteboard.current()), ElementsAre("text/html", "text/rtf", "text/plain;charset=utf-8"));

    // Plain text is the clip's text for any kind; without text, nothing, and the clipboard is cleared.
    ASSERT_TRUE(service->write(rich, true));
    EXPECT_THAT(typesOf(pasteboard.current()), ElementsAre("text/plain;charset=utf-8"));
    Clip image = clipOf("image", std::nullopt);
    image.fullImageData = makePng(4, 3);
    EXPECT_FALSE(service->write(image, true));
    EXPECT_TRUE(pasteboard.current().empty());

    // An image goes out as PNG from its blob, as ClipActionsTests try; here only its type.
    image.blobFilename = std::get<std::string>(blobs.write(makePng(5, 2), image.id, "png"));
    ASSERT_TRUE(service->write(image, false));
    EXPECT_THAT(typesOf(pasteboard.current()), ElementsAre("image/png"));

    // Empty text writes nothing; a file clip without paths falls back to its text.
    EXPECT_FALSE(service->write(clipOf("link", ""), false));
    Clip files = clipOf("file", "/tmp/a.txt");
    EXPECT_TRUE(service->write(files, false));
    EXPECT_EQ(pasteboard.currentText(), "/tmp/a.txt");
    files.fileBookmarks = encodeFileBookmarks({FileURL{"/tmp/a.txt"}, FileURL{"/tmp/b c.txt"}});
    ASSERT_TRUE(service->write(files, false));
    EXPECT_EQ(pasteboard.writes.back().files, (std::vector<FileURL>{{"/tmp/a.txt"}, {"/tmp/b c.txt"}}));
}

// Reading a screenshot's blob and making it PNG is the worker's: the paste goes on when it answers,
// and a service gone meanwhile writes nothing.
TEST_F(PasteServiceTest, AnImageIsReadAndConvertedOnTheWorker) {
    ManualWorker worker;
    auto withWorker = [&] {
        service = std::make_unique<PasteService>(loop, PlatformForPaste{pasteboard, workspace, &permissions, &keys},
                                                 blobs, preferences, &worker);
        recordEditor();
    };
    withWorker();
    Clip image = clipOf("screenshot", std::nullopt);
    image.blobFilename = std::get<std::string>(blobs.write(makePng(5, 2), image.id, "png"));
    std::optional<PasteOutcome> outcome;
    service->paste(image, {}, [&](PasteOutcome result) { outcome = result; });
    loop.runUntilIdle();
    EXPECT_TRUE(pasteboard.writes.empty()) << "nothing is written before the worker answers";
    EXPECT_EQ(worker.runAll(), 1u);
    loop.runUntilIdle();
    loop.advanceBy(kPasteActivationWait);
    EXPECT_EQ(outcome, PasteOutcome::pasted);
    ASSERT_EQ(pasteboard.writes.size(), 1u);
    ASSERT_TRUE(pasteboard.writes[0].image);
    EXPECT_EQ(imagePixelSize(*pasteboard.writes[0].image), (PixelSize{5, 2}));

    EXPECT_EQ(paste(clipOf("text", "words")), PasteOutcome::pasted) << "a text needs no worker";
    EXPECT_EQ(worker.pending(), 0u);

    service->paste(image, {}, [&](PasteOutcome result) { outcome = result; });
    outcome.reset();
    withWorker();
    worker.runAll();
    loop.runUntilIdle();
    EXPECT_EQ(pasteboard.writes.size(), 2u) << "the first service's image was not written";
    EXPECT_FALSE(outcome);
}

TEST_F(PasteServiceTest, AMultiClipIsJoinedWithTheSeparatorSetNowAndKeepsItsFiles) {
    MultiClipPayload payload;
    payload.items.push_back(MultiClipItem{Uuid::random(), "text", "first", std::nullopt, {}, Date()});
    payload.items.push_back(MultiClipItem{Uuid::random(), "file", std::nullopt, std::nullopt, {"/tmp/x.pdf"}, Date()});
    payload.items.push_back(MultiClipItem{Uuid::random(), "text", "third", std::nullopt, {}, Date()});
    Clip multi = clipOf("multiClip", "made with newlines");
    multi.multiClipData = payload.encode();

    preferences.setMultiClipJoiner(MultiClipJoiner::comma);
    ASSERT_TRUE(service->write(multi, false));
    EXPECT_EQ(pasteboard.writes.back().files, std::vector<FileURL>{{"/tmp/x.pdf"}});
    EXPECT_EQ(pasteboard.writes.back().text, payload.joinedText(separator(MultiClipJoiner::comma, "")));

    // No items: the clip's own text.
    multi.multiClipData.reset();
    ASSERT_TRUE(service->write(multi, false));
    EXPECT_EQ(pasteboard.currentText(), "made with newlines");
    multi.text.reset();
    EXPECT_FALSE(service->write(multi, false));
}

TEST_F(PasteServiceTest, APasteGoesToTheApplicationRecordedBeforeOurOwnSurfaceOpened) {
    recordEditor();
    // Our own panel in front: the editor stays the target.
    workspace.frontmost = RunningApplication{kOwnBundleID, "Tamarind", 0x600001};
    service->recordTargetApplication();
    workspace.frontmost.reset();
    service->recordTargetApplication();
    ASSERT_EQ(service->targetApplication()->bundleID, "org.gnome.TextEditor");

    bool isHidden = false;
    std::optional<PasteOutcome> outcome;
    PasteService::Request request;
    request.hidePanel = [&] { isHidden = true; };
    service->paste(clipOf("text", "hello"), std::move(request), [&](PasteOutcome result) { outcome = result; });
    loop.runUntilIdle();
    EXPECT_TRUE(isHidden);
    ASSERT_EQ(workspace.activated.size(), 1u);
    EXPECT_EQ(workspace.activated[0].window, 0x400001u);
    EXPECT_EQ(keys.pastesSent, 0) << "the keystroke waits for the activation";
    loop.advanceBy(kPasteActivationWait);
    EXPECT_EQ(keys.pastesSent, 1);
    EXPECT_EQ(outcome, PasteOutcome::pasted);
    EXPECT_THAT(log.messages("paste"), ::testing::Contains("Pasted into Text Editor."));
}

TEST_F(PasteServiceTest, ABlockedPasteLeavesTheClipOnTheClipboardAndSaysWhy) {
    Clip clip = clipOf("text", "kept");
    EXPECT_EQ(paste(clip), PasteOutcome::noTarget) << "nothing recorded yet";

    recordEditor();
    workspace.closedWindows.push_back(0x400001);
    EXPECT_EQ(paste(clip), PasteOutcome::noTarget) << "the target quit";
    EXPECT_EQ(pasteboard.currentText(), "kept");

    workspace.closedWindows.clear();
    permissions.accessibility = false;
    EXPECT_EQ(paste(clip), PasteOutcome::accessibilityMissing);
    EXPECT_TRUE(service->needsAccessibilityOnboarding().value());
    EXPECT_EQ(pasteboard.currentText(), "kept");
    EXPECT_EQ(keys.pastesSent, 0);

    permissions.accessibility = true;
    EXPECT_EQ(paste(clipOf("image", std::nullopt), true), PasteOutcome::nothingToPaste);
    EXPECT_TRUE(pasteboard.current().empty());

    // Asking for the grant again, refused: the onboarding is asked for.
    service->needsAccessibilityOnboarding().set(false);
    permissions.accessibility = false;
    service->requestAccessibility();
    EXPECT_TRUE(service->needsAccessibilityOnboarding().value());
    EXPECT_THAT(log.messages("paste"), ::testing::Contains("Requesting Accessibility access."));
    permissions.accessibility = true;

    // The keystroke can't be made: still pasted, with the error logged.
    keys.isRefused = true;
    EXPECT_EQ(paste(clip), PasteOutcome::pasted);
    EXPECT_THAT(log.messages("paste"),
                ::testing::IsSupersetOf({"Paste blocked: no target application. Content was copied.",
                                         "Paste blocked: Accessibility not granted. Content was copied.",
                                         "Could not create an event source for the paste keystroke."}));
}

TEST_F(PasteServiceTest, TheClipboardIsPutBackAfterThePasteOnlyWhenAskedAndWhenItHeldSomething) {
    recordEditor();
    PasteboardSnapshot before;
    before.string = "what the user had";
    before.htmlString = "<i>what the user had</i>";
    pasteboard.copy(before);

    // Off (the default): no archive is read, and the clip stays.
    ASSERT_FALSE(preferences.restoresPasteboardAfterPaste().value());
    EXPECT_EQ(paste(clipOf("text", "pasted")), PasteOutcome::pasted);
    loop.advanceBy(kPasteRestoreWait * 2);
    EXPECT_EQ(pasteboard.currentText(), "pasted");
    EXPECT_EQ(pasteboard.archiveReads, 0);

    preferences.setRestoresPasteboardAfterPaste(true);
    pasteboard.copy(before);
    EXPECT_EQ(paste(clipOf("text", "pasted")), PasteOutcome::pasted);
    EXPECT_EQ(pasteboard.currentText(), "pasted") << "the restore waits 200 ms after the keystroke";
    loop.advanceBy(kPasteRestoreWait);
    EXPECT_THAT(pasteboard.current(), ElementsAre(Pair("text/html", dataFromString("<i>what the user had</i>")),
                                                  Pair("text/plain;charset=utf-8", dataFromString("what the user had"))));
    EXPECT_THAT(log.messages("paste"), ::testing::Contains("Original pasteboard contents restored."));

    // An empty clipboard before: nothing to restore, the pasted clip stays.
    pasteboard.writeArchive(PasteboardArchive{});
    EXPECT_EQ(paste(clipOf("text", "second")), PasteOutcome::pasted);
    loop.advanceBy(kPasteRestoreWait);
    EXPECT_EQ(pasteboard.currentText(), "second");

    // Accessibility denied: no restore, the user needs the clip to paste by hand.
    permissions.accessibility = false;
    pasteboard.copy(before);
    EXPECT_EQ(paste(clipOf("text", "by hand")), PasteOutcome::accessibilityMissing);
    loop.advanceBy(kPasteRestoreWait * 2);
    EXPECT_EQ(pasteboard.currentText(), "by hand");
}

}  // namespace
}  // namespace tamarind
