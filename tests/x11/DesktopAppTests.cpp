// The built program as a user runs it: `tamarind` on a private X server and session bus, driven
// by `tamarind pause|resume|status` and by copies from xclip.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "rules/SmartRule.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

TEST_F(DesktopAppTest, RunsOnceCapturesAndAnswersPauseResumeAndStatus) {
    ProcessResult early = tamarind({"pause"});
    EXPECT_EQ(early.exitCode, 1);
    EXPECT_NE(early.err.find("not running"), std::string::npos) << early.err;
    EXPECT_TRUE(early.out.empty());

    pid_t app = session_.start(TAMARIND_BINARY, {});
    auto first = status();
    ASSERT_TRUE(first) << "the app never answered on the bus";
    EXPECT_EQ(first->value("isPaused", true), false);

    ASSERT_TRUE(copyAndWait("copied while running", 1));
    EXPECT_EQ(tamarind({"pause"}).exitCode, 0);
    EXPECT_EQ(status()->value("isPaused", false), true);
    EXPECT_FALSE(copyAndWait("copied while paused", 2, 20));  // several ticks pass
    EXPECT_EQ(tamarind({"resume"}).exitCode, 0);
    ASSERT_TRUE(copyAndWait("copied after resuming", 2));
    EXPECT_EQ(tamarind({"list", "--search", "paused", "--count"}).out, "0\n");
    auto counters = status();
    EXPECT_EQ(counters->value("capturedThisSession", 0LL), 2);
    EXPECT_EQ(counters->value("lastResult", ""), "inserted");

    // A second start finds the first on the bus and leaves at once, saying so in its log.
    ProcessResult second = runProcess(ProcessCommand{TAMARIND_BINARY,
                                                     {},
                                                     {{"DISPLAY", session_.display()},
                                                      {"DBUS_SESSION_BUS_ADDRESS", session_.sessionBusAddress()},
                                                      {"TAMARIND_HOME", home_.path().string()},
                                                      {"TAMARIND_LOG_LEVEL", "default"}},
                                                     std::nullopt});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.err.find("already running"), std::string::npos) << second.err;

    ::kill(app, SIGTERM);
    int wstatus = 0;
    for (int attempt = 0; attempt < 100 && ::waitpid(app, &wstatus, WNOHANG) == 0; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0) << "SIGTERM should end the app cleanly";
    session_.stop(app);
}

// Settings and rules written by the command line are in force in the running app for the very
// next copy, and the app's own writes keep them.
TEST_F(DesktopAppTest, ARuleAddedFromTheCommandLineStopsTheNextCopy) {
    pid_t app = session_.start(TAMARIND_BINARY, {});
    ASSERT_TRUE(status()) << "the app never answered on the bus";
    ASSERT_TRUE(copyAndWait("before the rule", 1));

    SmartRule skip = SmartRule::makeNew();
    skip.name = "No secrets";
    skip.isEnabled = true;
    skip.conditions = {RuleCondition{Uuid::random(), RuleCondition::Field::textContains, "secret"}};
    skip.actions = {RuleAction::skipCapture()};
    ASSERT_EQ(tamarind({"rules", "add", "-"}, toJson(skip).dump()).exitCode, 0);
    EXPECT_FALSE(copyAndWait("a secret right after", 2, 20));
    ASSERT_TRUE(copyAndWait("plain again", 2));
    EXPECT_EQ(status()->value("lastResult", ""), "inserted");
    EXPECT_EQ(tamarind({"list", "--search", "secret", "--count"}).out, "0\n");

    ASSERT_EQ(tamarind({"settings", "set", "capture.minimumCharacters", "8"}).exitCode, 0);
    EXPECT_FALSE(copyAndWait("short", 3, 20));
    // The app writes the settings file (its pause), and the rule and the minimum are still there.
    EXPECT_EQ(tamarind({"pause"}).exitCode, 0);
    EXPECT_EQ(tamarind({"resume"}).exitCode, 0);
    EXPECT_NE(tamarind({"rules"}).out.find("No secrets"), std::string::npos);
    EXPECT_EQ(tamarind({"settings", "get", "capture.minimumCharacters"}).out, "8\n");
    session_.stop(app);
}

// The screensaver's ActiveChanged suspends capture, and its end resumes it with the count taken
// afresh: what was copied under the screensaver is never captured.
TEST_F(DesktopAppTest, ALockedScreenSuspendsCapture) {
    pid_t app = session_.start(TAMARIND_BINARY, {});
    ASSERT_TRUE(status());
    auto screenSaver = [&](bool isActive) {
        ProcessResult sent = runProcess(ProcessCommand{
            "/usr/bin/env",
            {"dbus-send", "--session", "--type=signal", "/org/freedesktop/ScreenSaver",
             "org.freedesktop.ScreenSaver.ActiveChanged", std::string("boolean:") + (isActive ? "true" : "false")},
            {{"DBUS_SESSION_BUS_ADDRESS", session_.sessionBusAddress()}},
            std::nullopt});
        ASSERT_EQ(sent.exitCode, 0) << sent.err;
    };
    screenSaver(true);
    EXPECT_FALSE(copyAndWait("copied under the screensaver", 1, 20));
    screenSaver(false);
    ASSERT_TRUE(copyAndWait("copied after unlocking", 1));
    EXPECT_EQ(tamarind({"list", "--search", "screensaver", "--count"}).out, "0\n");
    session_.stop(app);
}

// KeePassXC's window (class "keepassxc", one of the default exclusions) is in front when it copies.
TEST_F(DesktopAppTest, ACopyFromAnExcludedApplicationIsRefused) {
    pid_t app = session_.start(TAMARIND_BINARY, {});
    ASSERT_TRUE(status());
    TemporaryFolder files;
    std::ofstream(files.path() / "secret") << "correct horse battery staple";
    session_.start(TAMARIND_CLIPBOARD_OWNER, {"--class", "keepassxc", "UTF8_STRING=" + (files.path() / "secret").string()},
                   "ready");
    bool isRefused = false;
    for (int attempt = 0; attempt < 100 && !isRefused; ++attempt) {
        isRefused = status()->value("rejectedThisSession", 0LL) == 1;
        if (!isRefused) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(isRefused);
    EXPECT_EQ(status()->value("lastResult", ""), "rejected(excluded app keepassxc)");
    EXPECT_EQ(tamarind({"list", "--count"}).out, "0\n");
    session_.stop(app);
}

TEST_F(DesktopAppTest, ATestHostStopsBeforeCaptureAndTheMenu) {
    session_.setEnvironment("TAMARIND_TEST_HOST", "1");
    pid_t app = session_.start(TAMARIND_BINARY, {});
    auto answer = status();
    ASSERT_TRUE(answer) << "the test host still answers on the bus";
    EXPECT_EQ(answer->dump(), "{}") << "but runs no capture";
    EXPECT_FALSE(copyAndWait("copied to a test host", 1, 20));
    session_.stop(app);
}

// `tamarind copy` without the app: a background owner serves the clip to any reader, large data
// in increments, and leaves when something else is copied.
TEST_F(DesktopAppTest, CopyServesAClipUntilSomethingElseIsCopied) {
    auto paste = [&](const std::string& target) {
        return runProcess(ProcessCommand{"/usr/bin/env", {"xclip", "-o", "-selection", "clipboard", "-t", target},
                                         {{"DISPLAY", session_.display()}}, std::nullopt})
            .out;
    };
    auto idOf = [](const ProcessResult& added) { return parseJson(added.out).value_or(Json()).value("id", ""); };
    TemporaryFolder files;
    std::ofstream(files.path() / "page.html") << "<b>Grüße</b>";
    std::string rich = idOf(tamarind({"add", "--json", "--html", (files.path() / "page.html").string(), "Grüße"}));
    ASSERT_FALSE(rich.empty());

    ASSERT_EQ(tamarind({"copy", rich.substr(0, 8)}).exitCode, 0);
    EXPECT_EQ(paste("UTF8_STRING"), "Grüße");
    EXPECT_EQ(paste("text/html"), "<b>Grüße</b>");
    EXPECT_EQ(paste("STRING"), "Gr\xFC\xDF" "e") << "Latin-1 for the oldest readers";
    ASSERT_EQ(tamarind({"copy", "--plain", "--transform", "uppercase", rich.substr(0, 8)}).exitCode, 0);
    EXPECT_EQ(paste("TARGETS").find("text/html"), std::string::npos);
    EXPECT_EQ(paste("UTF8_STRING"), "GRÜSSE");
    std::string colour = idOf(tamarind({"add", "--json", "#3b5bfd"}));
    ASSERT_EQ(tamarind({"copy", "--color-format", "rgb", colour.substr(0, 8)}).exitCode, 0);
    EXPECT_EQ(paste("UTF8_STRING"), "rgb(59, 91, 253)");

    std::string large;
    for (int i = 0; large.size() < 3'000'000; ++i) large += "line " + std::to_string(i) + "\n";
    std::string big = idOf(tamarind({"add", "--json", "-"}, large));
    ASSERT_EQ(tamarind({"copy", big.substr(0, 8)}).exitCode, 0);
    EXPECT_EQ(paste("UTF8_STRING"), large);

    session_.start("sh", {"-c", "printf other | xclip -selection clipboard -i"});
    bool isGone = false;
    for (int attempt = 0; attempt < 100 && !isGone; ++attempt) {
        isGone = runProcess(ProcessCommand{"/usr/bin/env", {"pgrep", "-f", "tamarind copy"}, {}, std::nullopt})
                     .exitCode != 0;
        if (!isGone) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_TRUE(isGone) << "the owner leaves once another program copies";
    EXPECT_EQ(paste("UTF8_STRING"), "other");
}

}  // namespace
}  // namespace tamarind
