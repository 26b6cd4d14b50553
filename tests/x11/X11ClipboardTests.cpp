// The X11 clipboard backend against real X clients on a private Xvfb: xclip, and our clipboard
// owner, which offers several targets at once, hangs, or sends in INCR chunks.

#include <gtest/gtest.h>

#include <fstream>

#include "app/AppState.h"
#include "foundation/ImageCodec.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11KeySender.h"
#include "platform/x11/X11Workspace.h"
#include "support/Images.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

class X11ClipboardTest : public X11Test {
protected:
    void SetUp() override {
        if (!X11Session::hasProgram("xclip")) GTEST_SKIP() << "xclip is not installed (scripts/setup installs it)";
        X11Test::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        auto created = X11Clipboard::create(loop_, *x11_, &converter_);
        ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11Clipboard>>(created));
        clipboard_ = std::move(std::get<std::unique_ptr<X11Clipboard>>(created));
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
        workspace_ = std::make_unique<X11Workspace>(*x11_);
        auto memory = *ModelContainer::openInMemory();
        app_ = std::make_unique<AppState>(loop_, defaults_, paths, PlatformServices{*clipboard_, *workspace_},
                                          TamarindStores{std::move(memory), nullptr, false});
        app_->start();
        return *app_;
    }

    TemporaryFolder folder_;
    ThreadWorker converter_;
    std::unique_ptr<X11Clipboard> clipboard_;
    InMemoryDefaults defaults_;
    std::unique_ptr<X11Workspace> workspace_;
    std::unique_ptr<AppState> app_;
};

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

// A PNG as it is is read by the hotkey pastes' target window.
TEST_F(X11ClipboardTest, ImagesInOtherFormatsAreConvertedToPngOrReadFromTheNextTarget) {
    long long before = clipboard_->changeCount();
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
    xclip("UTF8_STRING", "Grüße after the hang");
    auto next = readAfterChange(before);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->string, "Grüße after the hang");
    EXPECT_EQ(next->changeCount, clipboard_->changeCount());
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

TEST_F(X11ClipboardTest, ThePasteKeystrokeWaitsForTheHotkeysModifiersAndSuitsTerminals) {
    auto created = X11KeySender::create(loop_, *x11_);
    ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11KeySender>>(created));
    X11KeySender& sender = *std::get<std::unique_ptr<X11KeySender>>(created);
    bool isSent = false;
    auto send = [&] {
        isSent = false;
        sender.sendPaste(PasteKeystroke::automatic, [&](bool sent) { isSent = sent; });
    };
    // A paste_target window of the class, in front; the keys of the paste it recorded.
    auto openWindow = [&](const std::string& windowClass) {
        session_.start(TAMARIND_PASTE_TARGET, {(folder_.path() / windowClass).string(), "--class", windowClass},
                       "ready");
    };
    auto keysPasted = [&](const std::string& windowClass) {
        std::ifstream in(folder_.path() / windowClass);
        std::string line;
        std::getline(in, line);
        return parseJson(line).value_or(Json::object()).value("keys", "");
    };
    xclip("UTF8_STRING", "on the clipboard");

    openWindow("gedit");
    send();
    ASSERT_TRUE(runUntil([&] { return isSent && !keysPasted("gedit").empty(); }));
    EXPECT_EQ(keysPasted("gedit"), "ctrl+v");

    // Super still held from the hotkey: the keystroke waits for its release.
    openWindow("kitty");
    OtherClient hand(session_.display());
    xcb_keycode_t super = hand.keycode(XK_Super_L);
    hand.down(super);
    runUntil([] { return false; }, 0.1);
    send();
    runUntil([] { return false; }, 0.2);
    EXPECT_FALSE(isSent) << "sent while Super was down";
    EXPECT_EQ(keysPasted("kitty"), "");
    hand.up(super);
    ASSERT_TRUE(runUntil([&] { return isSent && !keysPasted("kitty").empty(); }));
    EXPECT_EQ(keysPasted("kitty"), "ctrl+shift+v") << "a terminal gets Ctrl+Shift+V";
}

}  // namespace
}  // namespace tamarind
