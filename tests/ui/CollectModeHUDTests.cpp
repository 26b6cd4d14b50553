// Collect mode's panel on Qt's offscreen platform: made on first use, following the stack, and
// its buttons finishing or cancelling.

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>

#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"
#include "ui/CollectModeHUD.h"

namespace tamarind {
namespace {

class CollectModeHUDTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    CapturePreferences preferences{defaults, loop};
    std::unique_ptr<ClipStore> store = std::make_unique<ClipStore>(
        loop, TamarindStores{*ModelContainer::openInMemory(), nullptr, false},
        BlobStore(folder.path() / "blobs"), "TEST");
    CollectModeService collect{loop, *store, BlobStore(folder.path() / "blobs"), preferences};
    CollectModeHUD hud{collect};

    void stage(const std::string& text) {
        PasteboardSnapshot snapshot;
        snapshot.string = text;
        collect.stage(snapshot, ClipKind::text);
        loop.runUntilIdle();
    }
    QPushButton* button(const char* name) { return hud.panel()->findChild<QPushButton*>(name); }
    QString countShown() { return hud.panel()->findChildren<QLabel*>().front()->text(); }
};

TEST_F(CollectModeHUDTest, ThePanelFollowsTheStackAndItsButtonsEndCollecting) {
    loop.runUntilIdle();
    EXPECT_EQ(hud.panel(), nullptr) << "made on first use";
    collect.begin();
    loop.runUntilIdle();
    ASSERT_NE(hud.panel(), nullptr);
    EXPECT_TRUE(hud.panel()->isVisible());
    EXPECT_EQ(countShown(), "Nothing staged yet");
    stage("one");
    stage("two");
    EXPECT_EQ(countShown(), "2 copies staged");
    EXPECT_EQ(button("finish")->text(), "Store 2 as one clip");

    button("finish")->click();
    loop.runUntilIdle();
    EXPECT_FALSE(hud.panel()->isVisible());
    EXPECT_EQ(store->count({}), 1);

    collect.begin();
    stage("dropped");
    loop.runUntilIdle();
    EXPECT_TRUE(hud.panel()->isVisible());
    EXPECT_EQ(countShown(), "1 copy staged") << "a new stack starts from nothing";
    button("cancel")->click();
    loop.runUntilIdle();
    EXPECT_FALSE(hud.panel()->isVisible());
    EXPECT_EQ(store->count({}), 1);
}

}  // namespace
}  // namespace tamarind
