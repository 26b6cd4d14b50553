// The X11 clipboard backend against real X clients on a private Xvfb: xclip, our clipboard
// owner, which offers several targets at once, hangs, or sends in INCR chunks, and an owner in
// the test itself that answers each request as the test needs.

#include <gtest/gtest.h>

#include <algorithm>
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

// A clipboard owner on a connection of its own, run by the test's loop, that answers each request
// as the test says: at once, refusing, never, in INCR chunks (slowly if asked), or after handing
// the clipboard to another. It records the targets it was asked for and the chunks it sent.
class ScriptedOwner {
public:
    using OnRequest = std::function<void(ScriptedOwner&, const xcb_selection_request_event_t&)>;

    ScriptedOwner(PollMainLoop& loop, const std::string& display, OnRequest onRequest)
        : loop_(loop), onRequest_(std::move(onRequest)) {
        connection_ = xcb_connect(display.c_str(), nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        window_ = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        clipboard_ = atom("CLIPBOARD");
        watch_ = loop_.watchFd(xcb_get_file_descriptor(connection_), [this] { dispatch(); });
        // Events read while a reply was awaited wait in xcb's queue, where the socket can't tell of them.
        poll_ = [this] {
            dispatch();
            pollTimer_ = loop_.postDelayed(std::chrono::milliseconds(2), poll_);
        };
        poll_();
    }
    ~ScriptedOwner() {
        watch_.stop();
        xcb_disconnect(connection_);
    }

    // Takes CLIPBOARD (again, if it holds it already: the server tells of that too).
    void take() {
        xcb_set_selection_owner(connection_, window_, clipboard_, XCB_CURRENT_TIME);
        xcb_flush(connection_);
    }
    std::string name(xcb_atom_t atom) {
        auto reply = xcb_get_atom_name_reply(connection_, xcb_get_atom_name(connection_, atom), nullptr);
        std::string name(xcb_get_atom_name_name(reply), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply)));
        std::free(reply);
        return name;
    }
    xcb_atom_t atom(const std::string& name) {
        auto reply = xcb_intern_atom_reply(
            connection_, xcb_intern_atom(connection_, 0, static_cast<uint16_t>(name.size()), name.c_str()), nullptr);
        xcb_atom_t atom = reply->atom;
        std::free(reply);
        return atom;
    }

    void offer(const xcb_selection_request_event_t& request, const std::vector<std::string>& targets) {
        std::vector<xcb_atom_t> atoms = {atom("TARGETS")};
        for (const std::string& target : targets) atoms.push_back(atom(target));
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request.requestor, request.property, XCB_ATOM_ATOM,
                            32, static_cast<uint32_t>(atoms.size()), atoms.data());
        notify(request, request.property);
    }
    void answer(const xcb_selection_request_event_t& request, const std::string& type, const std::string& bytes) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request.requestor, request.property, atom(type), 8,
                            static_cast<uint32_t>(bytes.size()), bytes.data());
        notify(request, request.property);
    }
    void refuse(const xcb_selection_request_event_t& request) { notify(request, XCB_ATOM_NONE); }
    // Announces `announced` bytes, then sends `bytes` in chunks, each `gap` after the requestor
    // deleted the last; an empty chunk ends it.
    void answerIncrementally(const xcb_selection_request_event_t& request, std::string bytes, uint32_t announced,
                             std::size_t chunkSize, std::chrono::milliseconds gap = {}) {
        uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(connection_, request.requestor, XCB_CW_EVENT_MASK, &mask);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, request.requestor, request.property, atom("INCR"),
                            32, 1, &announced);
        transfer_ = Transfer{request.requestor, request.property, request.target, std::move(bytes), chunkSize, gap};
        notify(request, request.property);
    }

    std::vector<std::string> requested;
    int chunksSent = 0;

private:
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        std::string bytes;
        std::size_t chunkSize;
        std::chrono::milliseconds gap;
        std::size_t sent = 0;
    };

    void notify(const xcb_selection_request_event_t& request, xcb_atom_t property) {
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = property;
        xcb_send_event(connection_, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&notify));
        xcb_flush(connection_);
    }
    void sendChunk() {
        if (!transfer_) return;
        std::size_t length = std::min(transfer_->chunkSize, transfer_->bytes.size() - transfer_->sent);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, transfer_->requestor, transfer_->property,
                            transfer_->type, 8, static_cast<uint32_t>(length),
                            transfer_->bytes.data() + transfer_->sent);
        xcb_flush(connection_);
        transfer_->sent += length;
        if (length == 0) {
            transfer_.reset();
        } else {
            ++chunksSent;
        }
    }
    void dispatch() {
        while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
            uint8_t type = event->response_type & 0x7f;
            if (type == XCB_SELECTION_REQUEST) {
                auto request = *reinterpret_cast<xcb_selection_request_event_t*>(event);
                requested.push_back(name(request.target));
                onRequest_(*this, request);
            } else if (type == XCB_PROPERTY_NOTIFY) {
                const auto& change = *reinterpret_cast<xcb_property_notify_event_t*>(event);
                if (transfer_ && change.state == XCB_PROPERTY_DELETE && change.window == transfer_->requestor &&
                    change.atom == transfer_->property)
                    chunkTimer_ = loop_.postDelayed(transfer_->gap, [this] { sendChunk(); });
            }
            std::free(event);
        }
    }

    PollMainLoop& loop_;
    OnRequest onRequest_;
    xcb_connection_t* connection_;
    xcb_window_t window_;
    xcb_atom_t clipboard_;
    std::optional<Transfer> transfer_;
    FdWatch watch_;
    std::function<void()> poll_;
    TaskHandle pollTimer_;
    TaskHandle chunkTimer_;
};

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

    std::unique_ptr<ScriptedOwner> scriptedOwner(ScriptedOwner::OnRequest onRequest) {
        return std::make_unique<ScriptedOwner>(loop_, session_.display(), std::move(onRequest));
    }
    // Has `owner` take the clipboard and reads it once the change is seen.
    std::optional<PasteboardSnapshot> takeAndRead(ScriptedOwner& owner) {
        long long before = clipboard_->changeCount();
        owner.take();
        return readAfterChange(before);
    }

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

// Once, the clipboard that changed owner during a read came out as the old owner's target list
// filled with both owners' answers.
TEST_F(X11ClipboardTest, AClipComesFromOneOwnerWhenTheClipboardChangesHandsDuringTheRead) {
    auto newOwner = scriptedOwner([](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        // Whatever it is asked, as some owners do.
        owner.answer(request, "UTF8_STRING", "new text");
    });
    auto oldOwner = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"text/html", "UTF8_STRING"});
        // Another program copies while this answer is on its way.
        newOwner->take();
        owner.answer(request, owner.name(request.target), "old text");
    });
    int deliveries = 0;
    long long before = clipboard_->changeCount();
    oldOwner->take();
    ASSERT_TRUE(runUntil([&] { return clipboard_->changeCount() > before; }));
    std::optional<PasteboardSnapshot> snapshot;
    clipboard_->readSnapshot([&](PasteboardSnapshot read) {
        ++deliveries;
        snapshot = std::move(read);
    });
    ASSERT_TRUE(runUntil([&] { return snapshot.has_value(); }));
    EXPECT_EQ(snapshot->types, std::vector<std::string>{"UTF8_STRING"});
    EXPECT_EQ(snapshot->string, "new text");
    EXPECT_FALSE(snapshot->htmlString);
    EXPECT_EQ(snapshot->changeCount, clipboard_->changeCount());
    runUntil([] { return false; }, 0.2);
    EXPECT_EQ(deliveries, 1);

    // Our own write is a change of owner like any other.
    auto overwritten = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        EXPECT_TRUE(clipboard_->write(ClipboardContent{.text = "pasted by us"}));
        owner.answer(request, "UTF8_STRING", "theirs");
    });
    auto ours = takeAndRead(*overwritten);
    ASSERT_TRUE(ours);
    EXPECT_EQ(ours->string, "pasted by us");
}

// An owner that takes the clipboard again at each request would restart the read for ever, and
// every read queued behind it (a paste's) would wait with it.
TEST_F(X11ClipboardTest, AnOwnerThatRetakesTheClipboardAtEveryRequestCannotHoldTheReadForEver) {
    auto owner = scriptedOwner([](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        owner.take();
        owner.answer(request, "UTF8_STRING", "again");
    });
    auto snapshot = takeAndRead(*owner);
    ASSERT_TRUE(snapshot);
    EXPECT_TRUE(snapshot->isEmpty());
    EXPECT_EQ(std::count(owner->requested.begin(), owner->requested.end(), "TARGETS"), kMostClipboardReadRestarts + 1);
}

// An owner that answered no target cost a time-out for each of them.
TEST_F(X11ClipboardTest, AnOwnerThatLetsOneStepTimeOutIsAskedNothingMoreAndWhatCameIsKept) {
    auto owner = scriptedOwner([](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        std::string target = owner.name(request.target);
        if (target == "TARGETS") return owner.offer(request, {"image/png", "UTF8_STRING", "text/rtf", "text/html"});
        // A quick refusal is an answer: the read goes on.
        if (target == "image/png") return owner.refuse(request);
        if (target == "UTF8_STRING") return owner.answer(request, "UTF8_STRING", "gathered");
    });
    auto snapshot = takeAndRead(*owner);
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(owner->requested, (std::vector<std::string>{"TARGETS", "image/png", "UTF8_STRING", "text/rtf"}));
    EXPECT_EQ(snapshot->string, "gathered");
    EXPECT_FALSE(snapshot->rtfData);
    EXPECT_FALSE(snapshot->htmlString);

    // INCR chunks each a little under the time-out apart: each starts it again, so the whole comes.
    std::string slow(4 * 1000, 's');
    auto slowOwner = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        owner.answerIncrementally(request, slow, 4000, 1000, std::chrono::milliseconds(300));
    });
    auto whole = takeAndRead(*slowOwner);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->string, slow);
}

// A 200 MB text over INCR was read whole with a limit of 1 MB.
TEST_F(X11ClipboardTest, AClipboardPastTheSizeLimitIsNotReadAndItsOwnerIsLeftToStop) {
    clipboard_->setMaximumBytes(100'000);
    std::string large(300'000, 'x');
    std::string image = stringFromData(makePng(4, 4));

    // A plain property past the limit; the image read before it goes too.
    auto plain = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        std::string target = owner.name(request.target);
        if (target == "TARGETS") return owner.offer(request, {"image/png", "UTF8_STRING", "text/html"});
        if (target == "image/png") return owner.answer(request, "image/png", image);
        owner.answer(request, target, large.substr(0, 200'000));
    });
    auto refused = takeAndRead(*plain);
    ASSERT_TRUE(refused);
    EXPECT_TRUE(refused->isEmpty());
    EXPECT_FALSE(refused->imageData);
    EXPECT_FALSE(refused->string);
    EXPECT_EQ(plain->requested, (std::vector<std::string>{"TARGETS", "image/png", "UTF8_STRING"}));

    // INCR announced past the limit: not one chunk is asked for.
    auto announced = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        owner.answerIncrementally(request, large, static_cast<uint32_t>(large.size()), 64 * 1024);
    });
    auto announcedRead = takeAndRead(*announced);
    ASSERT_TRUE(announcedRead);
    EXPECT_FALSE(announcedRead->string);
    EXPECT_EQ(announced->chunksSent, 0);

    // INCR that announces little and sends more: the chunk that passes the limit is the last.
    auto understated = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        owner.answerIncrementally(request, large, 1000, 64 * 1024);
    });
    auto understatedRead = takeAndRead(*understated);
    ASSERT_TRUE(understatedRead);
    EXPECT_FALSE(understatedRead->string);
    EXPECT_EQ(understated->chunksSent, 2);

    // The owners left waiting write nothing into what is read next; under the limit comes whole.
    std::string fits(90'000, 'f');
    auto small = scriptedOwner([&](ScriptedOwner& owner, const xcb_selection_request_event_t& request) {
        if (owner.name(request.target) == "TARGETS") return owner.offer(request, {"UTF8_STRING"});
        owner.answerIncrementally(request, fits, static_cast<uint32_t>(fits.size()), 16 * 1024);
    });
    auto read = takeAndRead(*small);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->string, fits);
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
