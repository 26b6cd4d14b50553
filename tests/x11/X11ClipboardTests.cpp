// The X11 clipboard and workspace backends against real X clients on a private Xvfb: xclip,
// and our clipboard owner, which offers several targets at once, hangs, or sends in INCR chunks.

#include <gtest/gtest.h>

#include <X11/keysym.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <fstream>
#include <thread>

#include "app/AppState.h"
#include "foundation/PollMainLoop.h"
#include "foundation/ImageCodec.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11KeySender.h"
#include "platform/x11/X11Workspace.h"
#include "support/Images.h"
#include "support/TemporaryFolder.h"
#include "support/X11Session.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

class X11ClipboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!session_.isRunning()) GTEST_SKIP() << session_.problem();
        if (!X11Session::hasProgram("xclip")) GTEST_SKIP() << "xclip is not installed (scripts/setup installs it)";
        auto opened = openX11Retrying(loop_, session_.display());
        ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11Connection>>(opened)) << std::get<std::string>(opened);
        x11_ = std::move(std::get<std::unique_ptr<X11Connection>>(opened));
        auto created = X11Clipboard::create(loop_, *x11_);
        ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11Clipboard>>(created));
        clipboard_ = std::move(std::get<std::unique_ptr<X11Clipboard>>(created));
    }

    // Runs the loop until `done` holds, for at most `seconds`; whether it came to hold.
    bool runUntil(const std::function<bool()>& done, double seconds = 5) {
        return runLoopUntil(loop_, done, seconds);
    }

    // Waits for the owner change the copy makes, then reads the clipboard.
    std::optional<PasteboardSnapshot> readAfterChange(long long countBefore) {
        if (!runUntil([&] { return clipboard_->changeCount() > countBefore; })) return std::nullopt;
        std::optional<PasteboardSnapshot> snapshot;
        clipboard_->readSnapshot([&](PasteboardSnapshot read) { snapshot = std::move(read); });
        runUntil([&] { return snapshot.has_value(); });
        return snapshot;
    }

    std::string file(const std::string& name, const std::string& bytes) {
        auto path = folder_.path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    // xclip offering one target, until another client takes the clipboard.
    void xclip(const std::string& type, const std::string& bytes) {
        session_.start("xclip", {"-quiet", "-selection", "clipboard", "-t", type, "-i", file("xclip-input", bytes)});
    }

    void owner(std::vector<std::string> arguments) { session_.start(TAMARIND_CLIPBOARD_OWNER, arguments, "ready"); }

    // The app's services on this display, with an in-memory library.
    AppState& startApp() {
        Paths paths{folder_.path() / "share", folder_.path() / "config", folder_.path() / "cache"};
        workspace_ = std::make_unique<X11Workspace>(*x11_, std::vector<std::string>{});
        auto memory = *ModelContainer::openInMemory();
        app_ = std::make_unique<AppState>(loop_, defaults_, paths, PlatformServices{*clipboard_, *workspace_},
                                          TamarindStores{std::move(memory), nullptr, false});
        app_->start();
        return *app_;
    }

    X11Session session_;
    TemporaryFolder folder_;
    PollMainLoop loop_;
    std::unique_ptr<X11Connection> x11_;
    std::unique_ptr<X11Clipboard> clipboard_;
    InMemoryDefaults defaults_;
    std::unique_ptr<X11Workspace> workspace_;
    std::unique_ptr<AppState> app_;
};

TEST_F(X11ClipboardTest, TextFromXclipArrivesWithItsTypesAndNoProtocolTargets) {
    long long before = clipboard_->changeCount();
    xclip("UTF8_STRING", "Grüße aus Köln");
    auto snapshot = readAfterChange(before);
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->string, "Grüße aus Köln");
    EXPECT_NE(std::find(snapshot->types.begin(), snapshot->types.end(), "UTF8_STRING"), snapshot->types.end());
    for (const std::string& type : snapshot->types) EXPECT_FALSE(X11Clipboard::isProtocolTarget(type)) << type;
    EXPECT_EQ(snapshot->changeCount, clipboard_->changeCount());
}

TEST_F(X11ClipboardTest, SeveralTargetsOfOneOwnerFillTheirFieldsInTheOwnersOrder) {
    long long before = clipboard_->changeCount();
    owner({"text/html=" + file("page.html", "<b>bold</b>"), "UTF8_STRING=" + file("text", "bold"),
           "x-kde-passwordManagerHint=" + file("hint", "secret"), "text/rtf=" + file("doc.rtf", "{\\rtf1 bold}")});
    auto snapshot = readAfterChange(before);
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->htmlString, "<b>bold</b>");
    EXPECT_EQ(snapshot->string, "bold");
    EXPECT_EQ(snapshot->rtfData, dataFromString("{\\rtf1 bold}"));
    EXPECT_EQ(snapshot->types, (std::vector<std::string>{"text/html", "UTF8_STRING", "x-kde-passwordManagerHint",
                                                         "text/rtf"}));
}

TEST_F(X11ClipboardTest, ImagesAreKeptAsPngOrConvertedToIt) {
    long long before = clipboard_->changeCount();
    xclip("image/png", stringFromData(makePng(40, 30)));
    auto png = readAfterChange(before);
    ASSERT_TRUE(png && png->imageData);
    EXPECT_EQ(png->imageFileExtension, "png");
    ASSERT_TRUE(png->imagePixelSize);
    EXPECT_EQ(png->imagePixelSize->width, 40);

    before = clipboard_->changeCount();
    owner({"image/bmp=" + file("image.bmp", stringFromData(makeBmp(20, 10)))});
    auto bmp = readAfterChange(before);
    ASSERT_TRUE(bmp && bmp->imageData);
    EXPECT_EQ(bmp->imageFileExtension, "png");
    EXPECT_EQ(stringFromData(*bmp->imageData).substr(1, 3), "PNG");
    ASSERT_TRUE(bmp->imagePixelSize);
    EXPECT_EQ(bmp->imagePixelSize->height, 10);

    // A PNG that comes empty: the TIFF beside it is asked for.
    before = clipboard_->changeCount();
    owner({"image/png=" + file("empty.png", ""), "image/tiff=" + file("image.tiff", stringFromData(makeTiff(12, 9)))});
    auto tiff = readAfterChange(before);
    ASSERT_TRUE(tiff && tiff->imageData);
    EXPECT_EQ(tiff->imageFileExtension, "tiff");
    ASSERT_TRUE(tiff->imagePixelSize);
    EXPECT_EQ(tiff->imagePixelSize->width, 12);
}

TEST_F(X11ClipboardTest, FileListsBecomeFileURLs) {
    long long before = clipboard_->changeCount();
    xclip("text/uri-list", "# a comment\r\nfile:///home/ann/a%20b.txt\r\nfile:///tmp/c.png\r\nhttps://example.com/\r\n");
    auto snapshot = readAfterChange(before);
    ASSERT_TRUE(snapshot);
    ASSERT_EQ(snapshot->fileURLs.size(), 2u);
    EXPECT_EQ(snapshot->fileURLs[0].path, "/home/ann/a b.txt");
    EXPECT_EQ(snapshot->fileURLs[1].path, "/tmp/c.png");

    before = clipboard_->changeCount();
    owner({"x-special/gnome-copied-files=" + file("copied", "copy\nfile:///srv/report.pdf")});
    auto gnome = readAfterChange(before);
    ASSERT_TRUE(gnome);
    ASSERT_EQ(gnome->fileURLs.size(), 1u);
    EXPECT_EQ(gnome->fileURLs[0].path, "/srv/report.pdf");
}

TEST_F(X11ClipboardTest, LargeDataComesInIncrementsWhole) {
    std::string large;
    for (int i = 0; large.size() < 1'000'000; ++i) large += "line " + std::to_string(i) + " of a long paste\n";
    long long before = clipboard_->changeCount();
    owner({"--incr-above", "65536", "UTF8_STRING=" + file("large", large)});
    auto snapshot = readAfterChange(before);
    ASSERT_TRUE(snapshot && snapshot->string);
    EXPECT_EQ(snapshot->string->size(), large.size());
    EXPECT_EQ(*snapshot->string, large);
}

TEST_F(X11ClipboardTest, AHungOwnerCostsItsTimeOutAndTheNextCopyIsRead) {
    long long before = clipboard_->changeCount();
    owner({"--never-answer", "UTF8_STRING=" + file("text", "never sent")});
    auto hung = readAfterChange(before);
    ASSERT_TRUE(hung);
    EXPECT_FALSE(hung->string);
    EXPECT_EQ(hung->types, std::vector<std::string>{"UTF8_STRING"});

    before = clipboard_->changeCount();
    xclip("UTF8_STRING", "after the hang");
    auto next = readAfterChange(before);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->string, "after the hang");
}

TEST_F(X11ClipboardTest, TheActiveWindowNamesItsApplicationByItsDesktopFile) {
    auto applications = folder_.path() / "applications";
    std::filesystem::create_directories(applications);
    std::ofstream(applications / "org.example.Editor.desktop")
        << "[Desktop Entry]\nType=Application\nName=Example Editor\nStartupWMClass=exampleeditor\n";
    X11Workspace workspace(*x11_, {applications.string()});
    EXPECT_FALSE(workspace.frontmostApplication());
    int activations = 0;
    workspace.setOnActivation([&] { ++activations; });

    owner({"--class", "ExampleEditor", "UTF8_STRING=" + file("text", "x")});
    auto application = workspace.frontmostApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->bundleID, "org.example.Editor");
    EXPECT_EQ(application->name, "Example Editor");
    EXPECT_TRUE(runUntil([&] { return activations == 1; })) << "the change of active window is told";
}

// The whole road of a copy: owner change, monitor tick, read, capture service, store.
TEST_F(X11ClipboardTest, CopiesReachTheLibraryExceptWhilePaused) {
    AppState& state = startApp();
    auto texts = [&] {
        std::vector<std::string> found;
        for (const Clip& clip : state.store().fetchPage(0, ClipQuery{}, ClipSortOrder::oldest, 50))
            found.push_back(clip.text.value_or(""));
        return found;
    };

    xclip("UTF8_STRING", "first copy");
    ASSERT_TRUE(runUntil([&] { return texts().size() == 1; }));
    state.togglePause();
    long long before = clipboard_->changeCount();
    xclip("UTF8_STRING", "copied while paused");
    ASSERT_TRUE(runUntil([&] { return clipboard_->changeCount() > before; }));
    runUntil([] { return false; }, 0.7);  // two ticks
    state.togglePause();
    xclip("UTF8_STRING", "after resuming");
    ASSERT_TRUE(runUntil([&] { return texts().size() == 2; }));
    EXPECT_EQ(texts(), (std::vector<std::string>{"first copy", "after resuming"}));
}

// 100 copies 50 ms apart: a tick sees the latest of the copies since the one before, so some
// are passed over, but what arrives is each a copy, in the order made, and the last is there.
TEST_F(X11ClipboardTest, ABurstOfCopiesArrivesInOrderCoalescedByTheTick) {
    AppState& state = startApp();

    constexpr int kCopies = 100;
    for (int i = 0; i < kCopies; ++i) {
        owner({"UTF8_STRING=" + file("copy", "copy " + std::to_string(i))});
        runUntil([] { return false; }, 0.05);
    }
    auto captured = [&] { return state.store().fetchPage(0, ClipQuery{}, ClipSortOrder::oldest, 200); };
    ASSERT_TRUE(runUntil([&] {
        auto clips = captured();
        return !clips.empty() && clips.back().text == "copy " + std::to_string(kCopies - 1);
    }));
    int previous = -1;
    for (const Clip& clip : captured()) {
        ASSERT_TRUE(clip.text && clip.text->starts_with("copy ")) << clip.text.value_or("");
        int number = std::stoi(clip.text->substr(5));
        EXPECT_GT(number, previous);
        previous = number;
    }
    // A tick every 0.3 s over about 5 s of copying sees at least a dozen of them.
    EXPECT_GE(captured().size(), 12u);
    EXPECT_EQ(state.capture().capturedThisSession().value(), static_cast<long long>(captured().size()));
}

// A window of ours with the keyboard focus, which tells the keys it receives as "+Control_L", "-v".
class KeyWindow {
public:
    KeyWindow(const std::string& display, const std::string& windowClass) {
        connection_ = xcb_connect(display.c_str(), nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        window_ = xcb_generate_id(connection_);
        uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_EVENT_MASK, &events);
        std::string value = windowClass + '\0' + windowClass + '\0';
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            static_cast<uint32_t>(value.size()), value.data());
        auto active = xcb_intern_atom_reply(connection_, xcb_intern_atom(connection_, 0, 18, "_NET_ACTIVE_WINDOW"),
                                            nullptr);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, screen->root, active->atom, XCB_ATOM_WINDOW, 32, 1,
                            &window_);
        std::free(active);
        xcb_map_window(connection_, window_);
        xcb_set_input_focus(connection_, XCB_INPUT_FOCUS_POINTER_ROOT, window_, XCB_CURRENT_TIME);
        xcb_flush(connection_);
        symbols_ = xcb_key_symbols_alloc(connection_);
    }
    ~KeyWindow() {
        xcb_key_symbols_free(symbols_);
        xcb_disconnect(connection_);
    }
    // What arrived so far.
    std::string received() {
        xcb_flush(connection_);
        while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
            uint8_t type = event->response_type & 0x7f;
            if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
                auto* key = reinterpret_cast<xcb_key_press_event_t*>(event);
                const char* name = XKeysymToStringOrNull(xcb_key_symbols_get_keysym(symbols_, key->detail, 0));
                keys_ += std::string(type == XCB_KEY_PRESS ? "+" : "-") + (name ? name : "?") + " ";
            }
            std::free(event);
        }
        return keys_;
    }
    xcb_connection_t* connection() { return connection_; }
    xcb_keycode_t keycode(xcb_keysym_t symbol) {
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols_, symbol);
        xcb_keycode_t code = codes ? codes[0] : 0;
        std::free(codes);
        return code;
    }

private:
    static const char* XKeysymToStringOrNull(xcb_keysym_t symbol) {
        switch (symbol) {
        case XK_Control_L: return "Control_L";
        case XK_Shift_L: return "Shift_L";
        case XK_Super_L: return "Super_L";
        case XK_v: return "v";
        case XK_Insert: return "Insert";
        }
        return nullptr;
    }

    xcb_connection_t* connection_;
    xcb_window_t window_;
    xcb_key_symbols_t* symbols_;
    std::string keys_;
};

TEST_F(X11ClipboardTest, ThePasteKeystrokeWaitsForTheHotkeysModifiersAndSuitsTerminals) {
    auto created = X11KeySender::create(loop_, *x11_);
    ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11KeySender>>(created));
    X11KeySender& sender = *std::get<std::unique_ptr<X11KeySender>>(created);
    bool isSent = false;
    auto send = [&](PasteKeystroke keystroke) {
        isSent = false;
        sender.sendPaste(keystroke, [&](bool sent) { isSent = sent; });
    };

    KeyWindow editor(session_.display(), "gedit");
    send(PasteKeystroke::automatic);
    ASSERT_TRUE(runUntil([&] { return isSent && editor.received().ends_with("-Control_L "); })) << editor.received();
    EXPECT_EQ(editor.received(), "+Control_L +v -v -Control_L ");

    // Super still held from the hotkey: the keystroke waits for its release.
    KeyWindow terminal(session_.display(), "kitty");
    xcb_keycode_t super = terminal.keycode(XK_Super_L);
    xcb_test_fake_input(terminal.connection(), XCB_KEY_PRESS, super, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    xcb_flush(terminal.connection());
    runUntil([] { return false; }, 0.1);
    send(PasteKeystroke::automatic);
    runUntil([] { return false; }, 0.2);
    EXPECT_FALSE(isSent) << "sent while Super was down";
    xcb_test_fake_input(terminal.connection(), XCB_KEY_RELEASE, super, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    xcb_flush(terminal.connection());
    ASSERT_TRUE(runUntil([&] { return isSent; }));
    runUntil([&] { return terminal.received().ends_with("-Control_L "); });
    EXPECT_EQ(terminal.received(), "+Super_L -Super_L +Control_L +Shift_L +v -v -Shift_L -Control_L ")
        << "a terminal gets Ctrl+Shift+V, after Super is up";
}

}  // namespace
}  // namespace tamarind
