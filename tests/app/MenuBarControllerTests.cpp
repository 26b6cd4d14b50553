#include <gtest/gtest.h>

#include "app/MenuBarController.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

TEST(MenuBarController, TheToolTipSaysWhileTheLibraryDoesNotKeepCopies) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    AppearancePreferences appearance(defaults, loop);
    Observable<bool> isPaused(loop, false);
    Observable<bool> isCollecting(loop, false);
    Observable<LibraryHealth> health(loop, LibraryHealth{});
    FakeStatusItem item;
    MenuBarController menuBar(item, isPaused, isCollecting, health, appearance, {});
    EXPECT_EQ(item.toolTip, "Tamarind");

    health.set(LibraryHealth{LibraryHealth::Kind::waiting, "database is locked"});
    loop.runUntilIdle();
    EXPECT_EQ(item.toolTip, "Tamarind can't save to its library right now (database is locked). New copies "
                            "are kept in memory and saved as soon as it can.");
    health.set(LibraryHealth{});
    loop.runUntilIdle();
    EXPECT_EQ(item.toolTip, "Tamarind");
}

}  // namespace
}  // namespace tamarind
