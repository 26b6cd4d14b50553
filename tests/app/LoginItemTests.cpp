// The login item as an XDG autostart entry, and AppState's switch over it.

#include <gtest/gtest.h>

#include <fstream>

#include "app/AppState.h"
#include "foundation/Files.h"
#include "platform/xdg/XdgAutostart.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

TEST(XdgAutostart, AnEntryStartsThisProgramUntilTheUserSwitchesItOff) {
    TemporaryFolder folder;
    XdgAutostart autostart(folder.path() / "autostart", "/opt/my apps/tamarind");
    EXPECT_EQ(autostart.status(), LoginItemStatus::notRegistered);
    ASSERT_FALSE(autostart.registerItem());
    EXPECT_EQ(autostart.status(), LoginItemStatus::enabled);
    auto entry = readWholeFile(autostart.entryFile());
    ASSERT_TRUE(entry.bytes);
    EXPECT_NE(entry.bytes->find("Exec=\"/opt/my apps/tamarind\"\n"), std::string::npos) << *entry.bytes;

    // GNOME's "Startup Applications" switch writes this into the entry.
    std::ofstream(autostart.entryFile(), std::ios::app) << "X-GNOME-Autostart-enabled=false\n";
    EXPECT_EQ(autostart.status(), LoginItemStatus::notRegistered);
    ASSERT_FALSE(autostart.unregisterItem());
    EXPECT_FALSE(std::filesystem::exists(autostart.entryFile()));
    EXPECT_FALSE(autostart.unregisterItem()) << "removing what isn't there is no failure";
}

TEST(AppStateLoginItem, TheStatusFollowsTheItemAndAFailureIsLogged) {
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    FakePasteboard pasteboard(loop);
    FakeWorkspace workspace;
    // A file where the autostart folder should be: every change fails.
    std::ofstream(folder.path() / "blocked") << "";
    XdgAutostart blocked(folder.path() / "blocked", "/usr/bin/tamarind");
    XdgAutostart working(folder.path() / "autostart", "/usr/bin/tamarind");
    Paths paths{folder.path() / "share", folder.path() / "config", folder.path() / "cache"};
    auto makeState = [&](LoginItem& item) {
        auto memory = *ModelContainer::openInMemory();
        return std::make_unique<AppState>(loop, defaults, paths, PlatformServices{pasteboard, workspace, nullptr, &item},
                                          TamarindStores{std::move(memory), nullptr, false});
    };

    LogCapture logs;
    auto state = makeState(working);
    state->setLaunchAtLogin(true);
    EXPECT_EQ(state->launchAtLoginStatus().value(), LoginItemStatus::enabled);
    state->setLaunchAtLogin(false);
    EXPECT_EQ(state->launchAtLoginStatus().value(), LoginItemStatus::notRegistered);
    EXPECT_EQ(logs.messages("app"), (std::vector<std::string>{"Launch at login enabled.", "Launch at login disabled."}));

    logs.clear();
    state = makeState(blocked);
    state->setLaunchAtLogin(true);
    EXPECT_EQ(state->launchAtLoginStatus().value(), LoginItemStatus::notRegistered);
    auto lines = logs.messages("app");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("Failed to update login item: ")) << lines[0];
}

}  // namespace
}  // namespace tamarind
