// The status menu: its fixed items, the titles that follow the app, and when the icon shows.

#include <gtest/gtest.h>

#include "app/MenuBarController.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

class MenuBarControllerTest : public ::testing::Test {
protected:
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    AppearancePreferences appearance{defaults, loop};
    Observable<bool> isPaused{loop, false};
    Observable<bool> isCollecting{loop, false};
    FakeStatusItem item;
    int pauses = 0;

    std::unique_ptr<MenuBarController> make() {
        MenuBarController::Actions actions;
        actions.togglePauseCapture = [this] { ++pauses; };
        actions.toggleCollectMode = [] {};
        actions.quit = [] {};
        return std::make_unique<MenuBarController>(item, isPaused, isCollecting, appearance, actions);
    }
    std::string titles() const {
        std::string out;
        for (const StatusMenuItem& entry : item.items) {
            out += entry.isSeparator() ? "-" : entry.title + (entry.trigger ? "" : " (off)");
            out += "|";
        }
        return out;
    }
};

TEST_F(MenuBarControllerTest, TheMenuIsFixedAndItsTitlesFollowPauseAndCollectModeMadeAnywhere) {
    LogCapture logs;
    auto controller = make();
    EXPECT_EQ(titles(),
              "Open Library (off)|Show Shelf (off)|Quick Paste (off)|-|Pause Capture|Collect Mode|Text Expansion (off)|-|"
              "Check for Updates\u2026 (off)|Settings\u2026 (off)|Quit Tamarind|");
    EXPECT_EQ(item.items[MenuBarController::quit].shortcut, "Ctrl+Q");
    EXPECT_EQ(logs.messages("app"), std::vector<std::string>{"Menu bar item installed."});

    item.items[MenuBarController::pauseCapture].trigger();
    EXPECT_EQ(pauses, 1);
    isPaused.set(true);  // a pause from the command line or a shortcut
    isCollecting.set(true);
    loop.runUntilIdle();
    EXPECT_EQ(item.items[MenuBarController::pauseCapture].title, "Resume Capture");
    EXPECT_EQ(item.items[MenuBarController::collectMode].title, "Finish Collecting");
    isPaused.set(false);
    isCollecting.set(false);
    loop.runUntilIdle();
    EXPECT_EQ(item.items[MenuBarController::pauseCapture].title, "Pause Capture");
    EXPECT_EQ(item.items[MenuBarController::collectMode].title, "Collect Mode");
}

TEST_F(MenuBarControllerTest, HiddenWhenIdleShowsTheIconOnlyWhileThereIsSomethingToTell) {
    auto controller = make();
    EXPECT_TRUE(item.isVisible);
    appearance.setMenuBarIconStyle(MenuBarIconStyle::hiddenWhenIdle);
    loop.runUntilIdle();
    EXPECT_FALSE(item.isVisible);
    isPaused.set(true);
    loop.runUntilIdle();
    EXPECT_TRUE(item.isVisible);
    isPaused.set(false);
    isCollecting.set(true);
    loop.runUntilIdle();
    EXPECT_TRUE(item.isVisible);
    isCollecting.set(false);
    loop.runUntilIdle();
    EXPECT_FALSE(item.isVisible);

    appearance.setMenuBarIconStyle(MenuBarIconStyle::colored);
    appearance.setShowsMenuBarIcon(false);
    isPaused.set(true);
    loop.runUntilIdle();
    EXPECT_FALSE(item.isVisible) << "switched off, the icon stays hidden even while paused";
    EXPECT_EQ(item.look, StatusIconLook::colored);
}

}  // namespace
}  // namespace tamarind
