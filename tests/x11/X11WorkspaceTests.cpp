// The workspace's index of desktop files, read on a real worker and followed through inotify on
// the real loop, and the active window's application named before and after it is read.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "platform/x11/DesktopEntryIndex.h"
#include "platform/x11/X11Workspace.h"
#include "support/ManualWorker.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

void writeDesktopFile(const std::filesystem::path& path, const std::string& name, const std::string& wmClass = "") {
    std::ofstream(path) << "[Desktop Entry]\nType=Application\nName=" << name << "\n"
                        << (wmClass.empty() ? "" : "StartupWMClass=" + wmClass + "\n");
}

// "id=Name" of each entry, sorted by id.
std::string dump(const DesktopEntryIndex& index) {
    std::vector<std::string> lines;
    for (const DesktopEntry& entry : index.entries()) lines.push_back(entry.id + "=" + entry.name);
    std::sort(lines.begin(), lines.end());
    std::string joined;
    for (const std::string& line : lines) joined += (joined.empty() ? "" : ", ") + line;
    return joined;
}

class DesktopEntryIndexTest : public ::testing::Test {
protected:
    // Runs the loop until the index reads `expected`, for at most ten seconds.
    void expectEventually(const DesktopEntryIndex& index, const std::string& expected) {
        auto isRead = [&] { return index.isReady() && dump(index) == expected; };
        runLoopUntil(loop_, isRead, 10);
        EXPECT_EQ(dump(index), expected);
    }

    TemporaryFolder folder_;
    PollMainLoop loop_;
    ThreadWorker worker_;  // after the loop: its last jobs post to it
};

TEST_F(DesktopEntryIndexTest, FilesAddedRewrittenRenamedAndRemovedAfterTheStartAreTakenIn) {
    auto user = folder_.path() / "user", system = folder_.path() / "system";
    std::filesystem::create_directories(user);
    std::filesystem::create_directories(system);
    writeDesktopFile(user / "org.example.Mail.desktop", "My Mail");
    writeDesktopFile(system / "org.example.Mail.desktop", "Mail");
    writeDesktopFile(system / "org.example.Maps.desktop", "Maps");
    // A folder with no parent either is neither read nor watched, and stops nothing.
    DesktopEntryIndex index(loop_, worker_,
                            {user.string(), (folder_.path() / "gone" / "applications").string(), system.string()});
    expectEventually(index, "org.example.Mail=My Mail, org.example.Maps=Maps");

    // Written beside and renamed into place, as package managers do.
    writeDesktopFile(user / "org.example.Notes.desktop.tmp", "Notes");
    std::filesystem::rename(user / "org.example.Notes.desktop.tmp", user / "org.example.Notes.desktop");
    expectEventually(index, "org.example.Mail=My Mail, org.example.Maps=Maps, org.example.Notes=Notes");

    // Rewritten in place; a hiding file removed, so the one it hid shows.
    writeDesktopFile(system / "org.example.Maps.desktop", "World Maps");
    std::filesystem::remove(user / "org.example.Mail.desktop");
    expectEventually(index, "org.example.Mail=Mail, org.example.Maps=World Maps, org.example.Notes=Notes");

    // Renamed out of the folder: gone.
    std::filesystem::rename(user / "org.example.Notes.desktop", folder_.path() / "Notes.desktop");
    expectEventually(index, "org.example.Mail=Mail, org.example.Maps=World Maps");
}

TEST_F(DesktopEntryIndexTest, AFolderMadeAfterTheStartIsReadAndWatched) {
    auto share = folder_.path() / "share";
    std::filesystem::create_directories(share);
    DesktopEntryIndex index(loop_, worker_, {(share / "applications").string()});
    expectEventually(index, "");
    ASSERT_TRUE(index.isReady());

    // The file lands before the new folder can be watched: the reading it prompts finds it.
    std::filesystem::create_directories(share / "applications");
    writeDesktopFile(share / "applications" / "org.example.Chess.desktop", "Chess");
    expectEventually(index, "org.example.Chess=Chess");

    writeDesktopFile(share / "applications" / "org.example.Go.desktop", "Go");
    expectEventually(index, "org.example.Chess=Chess, org.example.Go=Go");

    // Removed and made again: awaited again.
    std::filesystem::remove_all(share / "applications");
    expectEventually(index, "");
    std::filesystem::create_directories(share / "applications");
    writeDesktopFile(share / "applications" / "org.example.Chess.desktop", "Chess");
    expectEventually(index, "org.example.Chess=Chess");
}

class X11WorkspaceTest : public X11Test {
protected:
    // Our clipboard owner, whose window becomes the active one with this class.
    void activateWindowOfClass(const std::string& windowClass) {
        std::ofstream(folder_.path() / "text") << "x";
        session_.start(TAMARIND_CLIPBOARD_OWNER,
                       {"--class", windowClass, "UTF8_STRING=" + (folder_.path() / "text").string()}, "ready");
    }

    TemporaryFolder folder_;
};

TEST_F(X11WorkspaceTest, TheActiveWindowIsNamedByItsClassUntilTheDesktopFilesAreRead) {
    auto applications = folder_.path() / "applications";
    std::filesystem::create_directories(applications);
    writeDesktopFile(applications / "org.example.Editor.desktop", "Example Editor", "exampleeditor");
    ManualWorker worker;
    DesktopEntryIndex index(loop_, worker, {applications.string()});
    X11Workspace workspace(*x11_, &index);
    EXPECT_FALSE(workspace.frontmostApplication());
    int activations = 0;
    workspace.setOnActivation([&] { ++activations; });

    activateWindowOfClass("ExampleEditor");
    auto beforeReading = workspace.frontmostApplication();
    ASSERT_TRUE(beforeReading);
    EXPECT_EQ(beforeReading->bundleID, "ExampleEditor");
    EXPECT_EQ(beforeReading->name, "ExampleEditor");

    EXPECT_EQ(worker.runAll(), 1u);
    ASSERT_TRUE(runUntil([&] { return index.isReady(); }));
    auto afterReading = workspace.frontmostApplication();
    ASSERT_TRUE(afterReading);
    EXPECT_EQ(afterReading->bundleID, "org.example.Editor");
    EXPECT_EQ(afterReading->name, "Example Editor");
    EXPECT_EQ(afterReading->window, beforeReading->window);
    EXPECT_TRUE(runUntil([&] { return activations == 1; })) << "the change of active window is told";
}

}  // namespace
}  // namespace tamarind
