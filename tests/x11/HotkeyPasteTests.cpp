// Hotkeys to pastes, end to end: the built app on a private X server and session bus, hotkeys
// pressed through XTest, and our paste_target window recording what each paste brought it.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "support/Images.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

using namespace std::chrono_literals;

class HotkeyPasteTest : public DesktopAppTest {
protected:
    void SetUp() override {
        DesktopAppTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) keyboard_ = std::make_unique<OtherClient>(session_.display());
    }

    std::string add(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"add", "--json"});
        return parseJson(tamarind(arguments).out).value_or(Json()).value("id", "");
    }

    // The app, with its log in a file; returns once it answers on the bus with its hotkeys up.
    void startApp() {
        app_ = session_.start("/bin/sh", {"-c", "TAMARIND_LOG_LEVEL=info exec \"$0\" 2>\"$1\"", TAMARIND_BINARY,
                                          appLog().string()});
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (tamarind({"status"}).exitCode == 0 && appLogText().find("paste slots") != std::string::npos) return;
            std::this_thread::sleep_for(50ms);
        }
        FAIL() << "the app did not come up: " << appLogText();
    }
    std::filesystem::path appLog() { return home_.path() / "app.log"; }
    std::string appLogText() {
        std::ifstream file(appLog());
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    // Our window, focused and active; what was pasted into it, one JSON object per paste.
    void startTarget(const std::string& windowClass = "gedit") {
        target_ = session_.start(TAMARIND_PASTE_TARGET, {pastes().string(), "--class", windowClass}, "ready");
    }
    std::filesystem::path pastes() { return home_.path() / "pastes.jsonl"; }
    std::vector<Json> pasted() {
        std::vector<Json> lines;
        std::ifstream file(pastes());
        for (std::string line; std::getline(file, line);)
            if (auto json = parseJson(line)) lines.push_back(*json);
        return lines;
    }
    // Waits for paste number `count` (from 1) and returns it.
    Json waitForPaste(std::size_t count) {
        for (int attempt = 0; attempt < 100; ++attempt) {
            auto lines = pasted();
            if (lines.size() >= count) return lines[count - 1];
            std::this_thread::sleep_for(50ms);
        }
        return Json();
    }

    void press(std::initializer_list<xcb_keysym_t> keys) { keyboard_->press(keys); }
    void pressSlot(xcb_keysym_t digit, bool withShift = false) {
        // Held a while, as a hand does: Shift is read when the hotkey arrives, and the paste
        // keystroke waits for the keys to be up.
        if (withShift) return keyboard_->press({XK_Shift_L, XK_Super_L, XK_Control_L, digit}, 600ms);
        press({XK_Super_L, XK_Control_L, digit});
    }

    std::string clipboard(const std::string& target = "UTF8_STRING") {
        return runProcess(ProcessCommand{"/usr/bin/env", {"xclip", "-o", "-selection", "clipboard", "-t", target},
                                         {{"DISPLAY", session_.display()}}, std::nullopt})
            .out;
    }
    bool waitForClipboard(const std::string& expected, const std::string& target = "UTF8_STRING") {
        for (int attempt = 0; attempt < 60; ++attempt) {
            if (clipboard(target) == expected) return true;
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }

    std::unique_ptr<OtherClient> keyboard_;
    pid_t app_ = -1;
    pid_t target_ = -1;
};

TEST_F(HotkeyPasteTest, SlotsPasteEveryKindIntoTheWindowInFrontAndShiftPastesPlainText) {
    TemporaryFolder files;
    std::ofstream(files.path() / "notes.txt") << "notes";
    std::ofstream(files.path() / "page.html") << "<b>bold</b> words";
    std::ofstream(files.path() / "tiny.png", std::ios::binary) << stringFromData(makePng(4, 3));
    ASSERT_FALSE(add({"--file", (files.path() / "notes.txt").string()}).empty());
    ASSERT_FALSE(add({"--image", (files.path() / "tiny.png").string()}).empty());
    ASSERT_FALSE(add({"--html", (files.path() / "page.html").string(), "bold words"}).empty());
    ASSERT_FALSE(add({"plain words"}).empty());
    startApp();
    // Nothing the pastes write is captured meanwhile, so the slots keep their order.
    ASSERT_EQ(tamarind({"pause"}).exitCode, 0);
    startTarget();

    pressSlot(XK_1);
    Json text = waitForPaste(1);
    EXPECT_EQ(text.value("text", ""), "plain words") << text.dump();
    EXPECT_EQ(text.value("keys", ""), "ctrl+v");
    pressSlot(XK_2);
    Json rich = waitForPaste(2);
    EXPECT_EQ(rich.value("html", ""), "<b>bold</b> words") << rich.dump();
    EXPECT_EQ(rich.value("text", ""), "bold words");
    pressSlot(XK_3);
    EXPECT_EQ(waitForPaste(3).value("image", ""), "4x3") << pasted().back().dump();
    pressSlot(XK_4);
    Json file = waitForPaste(4);
    EXPECT_EQ(file.value("files", Json::array()), Json::array({(files.path() / "notes.txt").string()})) << file.dump();

    pressSlot(XK_2, true);
    Json plain = waitForPaste(5);
    EXPECT_EQ(plain.value("text", ""), "bold words") << plain.dump();
    EXPECT_FALSE(plain.contains("html")) << "Shift pastes plain text";
    EXPECT_EQ(plain.value("keys", ""), "ctrl+v") << "Shift is up before the keystroke";

    // Without the restore (the default), the last clip stays on the clipboard.
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(clipboard(), "bold words");

    // A setting changed from the command line while the app runs takes effect at once, and the
    // app's own next write of the settings (a resume) keeps it.
    ASSERT_EQ(tamarind({"settings", "set", "paste.keystroke", "shift+insert"}).exitCode, 0);
    std::this_thread::sleep_for(300ms);
    pressSlot(XK_1);
    EXPECT_EQ(waitForPaste(6).value("keys", ""), "shift+insert") << pasted().back().dump();
    ASSERT_EQ(tamarind({"resume"}).exitCode, 0);
    EXPECT_EQ(tamarind({"settings", "get", "paste.keystroke"}).out, "shift+insert\n");
}

// Without the app, `tamarind paste-slot` and `tamarind paste` paste as the hotkey does: a
// multi-clip joined with the separator in force now, files as files, the clip marked used.
TEST_F(HotkeyPasteTest, TheCommandLinePastesWithoutTheAppAsTheHotkeyDoes) {
    startApp();
    ASSERT_EQ(tamarind({"collect", "begin"}).exitCode, 0);
    for (const char* part : {"first part", "second part"}) {
        long long before = status().value_or(Json::object()).value("collectedItems", 0LL);
        session_.start("sh", {"-c", "printf '%s' \"$0\" | xclip -selection clipboard -i", part});
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (status().value_or(Json::object()).value("collectedItems", 0LL) > before) break;
            std::this_thread::sleep_for(50ms);
        }
    }
    ASSERT_EQ(tamarind({"collect", "finish"}).exitCode, 0);
    session_.stop(app_);
    ASSERT_EQ(tamarind({"settings", "set", "multiClip.joiner", "comma"}).exitCode, 0);
    TemporaryFolder files;
    std::ofstream(files.path() / "notes.txt") << "notes";
    std::string fileClip = add({"--file", (files.path() / "notes.txt").string()});
    startTarget();

    ASSERT_EQ(tamarind({"paste-slot", "2"}).exitCode, 0) << "the multi-clip, the app not running";
    Json joined = waitForPaste(1);
    EXPECT_EQ(joined.value("text", ""), "first part, second part") << joined.dump();
    ASSERT_EQ(tamarind({"paste", fileClip}).exitCode, 0);
    Json file = waitForPaste(2);
    EXPECT_EQ(file.value("files", Json::array()), Json::array({(files.path() / "notes.txt").string()})) << file.dump();
    auto shown = parseJson(tamarind({"show", fileClip, "--json"}).out).value_or(Json::object());
    EXPECT_EQ(shown.value("useCount", 0), 1) << shown.dump();
}

// The wrap to the newest, and the pause of five seconds that starts a run over, are tried on the
// cursor and the coordinator alone.
TEST_F(HotkeyPasteTest, PasteNextWalksBackAndStartsOverAfterAnOutsideCopy) {
    for (const char* text : {"a", "b", "c"}) ASSERT_FALSE(add({text}).empty());
    startApp();
    ASSERT_EQ(tamarind({"pause"}).exitCode, 0);
    startTarget();
    std::vector<std::string> texts;
    auto next = [&] {
        press({XK_Super_L, XK_Control_L, XK_Down});
        texts.push_back(waitForPaste(texts.size() + 1).value("text", "?"));
    };
    next();
    next();
    // Another program copies: the run starts over.
    session_.start("sh", {"-c", "printf outside | xclip -selection clipboard -i"});
    ASSERT_TRUE(waitForClipboard("outside"));
    next();
    next();
    EXPECT_EQ(texts, (std::vector<std::string>{"c", "b", "c", "b"}));
    // The command line reaches the same cursor.
    ASSERT_EQ(tamarind({"paste-next"}).exitCode, 0);
    EXPECT_EQ(waitForPaste(5).value("text", ""), "a");
}

TEST_F(HotkeyPasteTest, TheRestorePutsBackEveryTargetTheClipboardHadAndAClosedWindowGetsNoKeystroke) {
    ASSERT_EQ(tamarind({"settings", "set", "paste.restoresPasteboardAfterPaste", "true"}).exitCode, 0)
        << tamarind({"settings", "set", "paste.restoresPasteboardAfterPaste", "true"}).err;
    ASSERT_FALSE(add({"pasted clip"}).empty());
    startApp();
    ASSERT_EQ(tamarind({"pause"}).exitCode, 0);
    TemporaryFolder files;
    std::ofstream(files.path() / "html") << "<i>before</i>";
    std::ofstream(files.path() / "text") << "before";
    std::ofstream(files.path() / "custom") << "custom bytes";
    session_.start(TAMARIND_CLIPBOARD_OWNER,
                   {"text/html=" + (files.path() / "html").string(), "UTF8_STRING=" + (files.path() / "text").string(),
                    "application/x-tamarind-test=" + (files.path() / "custom").string()},
                   "ready");
    startTarget();

    pressSlot(XK_1);
    EXPECT_EQ(waitForPaste(1).value("text", ""), "pasted clip");
    ASSERT_TRUE(waitForClipboard("before")) << "restored after the paste";
    EXPECT_EQ(clipboard("text/html"), "<i>before</i>");
    EXPECT_EQ(clipboard("application/x-tamarind-test"), "custom bytes");
    // Now the app itself serves what it put back; a second paste keeps it all the same.
    pressSlot(XK_1);
    EXPECT_EQ(waitForPaste(2).value("text", ""), "pasted clip");
    ASSERT_TRUE(waitForClipboard("before"));
    EXPECT_EQ(clipboard("application/x-tamarind-test"), "custom bytes");

    // The window the paste would go to closes: the clip is copied, and no keystroke is sent.
    session_.stop(target_);
    pressSlot(XK_1);
    ASSERT_TRUE(waitForClipboard("pasted clip"));
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(clipboard(), "pasted clip") << "nothing to restore after a paste that didn't happen";
    EXPECT_NE(appLogText().find("Paste blocked: no target application. Content was copied."), std::string::npos)
        << appLogText();
}

TEST_F(HotkeyPasteTest, AHotkeyAnotherProgramHoldsIsReportedAndTheOthersWork) {
    // Another client holds Super+Ctrl+3.
    ASSERT_EQ(keyboard_->grab(keyboard_->keycode(XK_3), {XCB_MOD_MASK_4 | XCB_MOD_MASK_CONTROL}), std::vector<bool>{true});
    for (const char* text : {"third", "second", "first"}) ASSERT_FALSE(add({text}).empty());
    startApp();
    EXPECT_NE(appLogText().find("Error registering hotkey Super+Ctrl+3: 10"), std::string::npos) << appLogText();
    ASSERT_EQ(tamarind({"pause"}).exitCode, 0);
    startTarget();
    pressSlot(XK_2);
    EXPECT_EQ(waitForPaste(1).value("text", ""), "second");

    // Moved to free keys from the command line, the slot works at once; the old keys are let go.
    ProcessResult moved = tamarind({"shortcuts", "set", "pasteSlot2", "Super+Alt+3"});
    EXPECT_EQ(moved.exitCode, 0) << moved.err;
    press({XK_Super_L, XK_Alt_L, XK_3});
    EXPECT_EQ(waitForPaste(2).value("text", ""), "third");
    ProcessResult taken = tamarind({"shortcuts", "set", "pasteSlot0", "Super+Ctrl+3"});
    EXPECT_EQ(taken.exitCode, 1);
    EXPECT_NE(taken.err.find("held by another program"), std::string::npos) << taken.err;
    std::string listed = tamarind({"shortcuts", "list"}).out;
    EXPECT_NE(listed.find("pasteSlot0         Super+Ctrl+3      Paste Clip 1  (held by another program)"),
              std::string::npos)
        << "the setting is kept, to be tried again at the next start\n"
        << listed;
    EXPECT_NE(listed.find("Open Library  (not in use yet)"), std::string::npos) << listed;
    Json states = parseJson(tamarind({"shortcuts", "list", "--json"}).out).value_or(Json());
    ASSERT_TRUE(states.is_array());
    EXPECT_EQ(states[9].value("name", ""), "pasteSlot1");
    EXPECT_EQ(states[9].value("state", ""), "active");
}

}  // namespace
}  // namespace tamarind
