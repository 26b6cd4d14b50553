// Collect mode wired as the app wires it: copies staged instead of stored, finished into one clip.

#include <gtest/gtest.h>

#include "app/AppState.h"
#include "support/FakePlatform.h"
#include "support/Images.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

class CollectModeTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    std::unique_ptr<AppState> state;

    void SetUp() override {
        Paths paths{folder.path() / "share", folder.path() / "config", folder.path() / "cache"};
        auto memory = std::get<std::unique_ptr<ModelContainer>>(ModelContainer::openInMemory());
        state = std::make_unique<AppState>(loop, defaults, paths, PlatformServices{pasteboard, workspace},
                                           TamarindStores{std::move(memory), nullptr, false});
        state->start();
    }
    void copy(PasteboardSnapshot snapshot) {
        pasteboard.copy(std::move(snapshot));
        loop.advanceBy(kClipboardPollInterval);
    }
    void copyText(const std::string& text, const std::string& app = "org.gnome.TextEditor") {
        workspace.frontmost = RunningApplication{app, "App"};
        pasteboard.copyText(text);
        loop.advanceBy(kClipboardPollInterval);
    }
    std::vector<Clip> library() { return state->store().fetchPage(0, ClipQuery{}, ClipSortOrder::oldest, 100); }
};

TEST_F(CollectModeTest, FiveCopiesBecomeOneClipJoinedWithTheSeparatorOfTheMoment) {
    CollectModeService& collect = state->collectMode();
    LogCapture logs;
    collect.begin();
    for (const char* text : {"one", "two", "three", "four"}) copyText(text);
    PasteboardSnapshot image;
    image.types = {"image/png"};
    image.imageData = makePng(8, 8);
    image.imageFileExtension = "png";
    image.imagePixelSize = PixelSize{8, 8};
    copy(image);
    EXPECT_TRUE(library().empty()) << "a copy made while collecting never reaches the history by itself";
    EXPECT_EQ(collect.payload().value().items.size(), 5u);
    EXPECT_EQ(state->capture().capturedThisSession().value(), 5);

    state->preferences().setMultiClipJoiner(MultiClipJoiner::comma);
    auto id = collect.finish();
    ASSERT_TRUE(id);
    auto clips = library();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips[0].id, *id);
    EXPECT_EQ(clips[0].kind, "multiClip");
    EXPECT_EQ(clips[0].text, "one, two, three, four, Image");
    auto payload = MultiClipPayload::decode(*clips[0].multiClipData);
    ASSERT_TRUE(payload);
    ASSERT_EQ(payload->items.size(), 5u);
    ASSERT_TRUE(payload->items[4].blobFilename);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "share" / "blobs" / *payload->items[4].blobFilename));
    EXPECT_FALSE(collect.isActive().value());
    auto lines = logs.messages("capture");
    EXPECT_EQ(lines.front(), "Collect mode on.");
    EXPECT_EQ(lines.back(), "Collect mode off; stored 5 items as one clip.");

    copyText("after collecting");
    EXPECT_EQ(library().size(), 2u) << "copies go to the history again";
}

TEST_F(CollectModeTest, NothingCollectedStoresNothingAndCancelDropsTheStack) {
    CollectModeService& collect = state->collectMode();
    LogCapture logs;
    collect.toggle();
    collect.toggle();  // finishes, with nothing
    EXPECT_TRUE(library().empty());
    collect.begin();
    copyText("staged, then dropped");
    collect.cancel();
    EXPECT_TRUE(library().empty());
    EXPECT_TRUE(collect.payload().value().items.empty());
    EXPECT_EQ(logs.messages("capture"),
              (std::vector<std::string>{"Collect mode on.", "Collect mode off; nothing was collected.",
                                        "Collect mode on.", "Collected item 1.", "Collect mode cancelled."}));
}

TEST_F(CollectModeTest, AnExcludedApplicationsCopyIsRefusedNotCollected) {
    state->collectMode().begin();
    copyText("secret", "org.keepassxc.KeePassXC");
    EXPECT_TRUE(state->collectMode().payload().value().items.empty());
    EXPECT_EQ(state->capture().rejectedThisSession().value(), 1);
}

}  // namespace
}  // namespace tamarind
