#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <new>

#include "capture/ClipboardMonitor.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

class ClipboardMonitorTest : public ::testing::Test {
protected:
    ManualMainLoop loop;
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    std::unique_ptr<ClipboardMonitor> monitor;
    std::vector<PasteboardSnapshot> seen;

    void startMonitor() {
        monitor = std::make_unique<ClipboardMonitor>(loop, pasteboard, workspace);
        monitor->setOnChange([this](const PasteboardSnapshot& snapshot) { seen.push_back(snapshot); });
        monitor->start();
    }
    // While polling, any stretch of one interval holds exactly one tick.
    void poll(int intervals = 1) { loop.advanceBy(intervals * kClipboardPollInterval); }
    std::string texts() const {
        std::string out;
        for (const PasteboardSnapshot& snapshot : seen)
            out += (out.empty() ? "" : ", ") + snapshot.string.value_or("?");
        return out;
    }
    // "level: message" of the capture channel, in order.
    static std::vector<std::string> captureLines(const LogCapture& log) {
        std::vector<std::string> lines;
        for (const LogRecord& record : log.records())
            if (record.channel == "capture")
                lines.push_back(std::string(logLevelName(record.level)) + ": " + record.message);
        return lines;
    }
};

TEST_F(ClipboardMonitorTest, EachChangeIsReadOnceWithItsApplicationAndTheLoopsWallClock) {
    pasteboard.copyText("on the clipboard at launch");
    startMonitor();
    poll(5);
    EXPECT_EQ(seen.size(), 0u) << "what lies on the clipboard at launch is not captured";
    EXPECT_EQ(pasteboard.readCount(), 0) << "an idle tick compares the count and reads nothing";

    workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor"};
    pasteboard.copyText("one");
    loop.setWallNow(Date::fromReferenceSeconds(1000));
    poll();
    ASSERT_EQ(texts(), "one");
    EXPECT_EQ(seen[0].sourceAppBundleID, "org.gnome.TextEditor");
    EXPECT_EQ(seen[0].sourceAppName, "Text Editor");
    EXPECT_NEAR(seen[0].capturedAt.secondsSinceReferenceDate(), 1000.3, 1e-6) << "the loop's clock, at the tick";
    poll(10);
    EXPECT_EQ(pasteboard.readCount(), 1);

    // Several writes between two ticks are one change; the application is the one in front at the tick.
    pasteboard.copyText("two");
    pasteboard.copyText("three");
    monitor->tick();
    workspace.frontmost = RunningApplication{"org.kde.konsole", "Konsole"};
    loop.runUntilIdle();
    EXPECT_EQ(seen.back().sourceAppBundleID, "org.gnome.TextEditor");

    workspace.frontmost.reset();
    pasteboard.copyText("four");
    poll();
    EXPECT_EQ(texts(), "one, three, four");
    EXPECT_EQ(seen.back().sourceAppBundleID, std::nullopt);
    EXPECT_EQ(seen.back().sourceAppName, std::nullopt);
    EXPECT_EQ(pasteboard.readCount(), 3);
}

TEST_F(ClipboardMonitorTest, CopiesWhilePausedOrSuspendedAreNeverCapturedAndEachFlagLogs) {
    startMonitor();
    LogCapture log;
    monitor->setPaused(true);
    EXPECT_FALSE(monitor->isPolling());
    pasteboard.copyText("while paused");
    poll(3);
    monitor->setPaused(false);
    poll(3);
    EXPECT_EQ(texts(), "") << "the count is taken afresh on resuming";

    monitor->setSuspended(true, "screenIsLocked");
    monitor->setSuspended(true, "NSWorkspaceWillSleepNotification");  // one flag, not a count
    pasteboard.copyText("while locked");
    poll(3);
    monitor->setSuspended(false, "NSWorkspaceDidWakeNotification");
    EXPECT_TRUE(monitor->isPolling()) << "the first resuming event clears the flag";
    poll(3);
    EXPECT_EQ(texts(), "");

    // Paused and suspended: clearing either flag alone leaves capture stopped.
    monitor->setPaused(true);
    monitor->setSuspended(true, "screenIsLocked");
    monitor->setPaused(false);
    EXPECT_FALSE(monitor->isPolling());
    pasteboard.copyText("locked after the pause");
    poll(3);
    monitor->setSuspended(false, "screenIsUnlocked");
    poll(3);
    EXPECT_EQ(texts(), "");
    EXPECT_EQ(pasteboard.readCount(), 0);

    pasteboard.copyText("back to work");
    poll();
    EXPECT_EQ(texts(), "back to work");
    EXPECT_THAT(
        captureLines(log),
        ElementsAre("debug: Clipboard polling stopped.", "default: Capture paused.",
                    "debug: Clipboard polling started.", "default: Capture resumed.",
                    "info: Capture suspended (screenIsLocked).", "debug: Clipboard polling stopped.",
                    "info: Capture unsuspended (NSWorkspaceDidWakeNotification).", "debug: Clipboard polling started.",
                    "debug: Clipboard polling stopped.", "default: Capture paused.",
                    "info: Capture suspended (screenIsLocked).", "default: Capture resumed.",
                    "info: Capture unsuspended (screenIsUnlocked).", "debug: Clipboard polling started."));
}

TEST_F(ClipboardMonitorTest, AReadStillRunningWhenTheMonitorGoesIsDropped) {
    // Built in storage the test keeps, so that a completion reaching the dead monitor shows up
    // as a capture instead of passing unseen.
    alignas(ClipboardMonitor) std::byte storage[sizeof(ClipboardMonitor)];
    auto* doomed = new (storage) ClipboardMonitor(loop, pasteboard, workspace);
    doomed->setOnChange([this](const PasteboardSnapshot& snapshot) { seen.push_back(snapshot); });
    pasteboard.copyText("late");
    doomed->tick();
    doomed->~ClipboardMonitor();
    loop.runUntilIdle();  // the read answers now, to no one
    EXPECT_EQ(pasteboard.readCount(), 1);
    EXPECT_EQ(texts(), "");
}

}  // namespace
}  // namespace tamarind
