// Hotkey pastes: the slots, paste-next's walk back through history and when its run breaks,
// per-clip shortcuts, and what the HUD says after each outcome.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "paste/PasteCoordinator.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

TEST(SequentialPasteCursorTest, WalksBackWrapsAndBreaksOnPauseOrAnOutsideCopy) {
    SequentialPasteCursor cursor;
    MonotonicTime start{};
    auto at = [&](double seconds) {
        return start + std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
    };
    EXPECT_EQ(cursor.advance(3, at(0), 7), 0);
    cursor.observedChangeCount = 7;
    EXPECT_EQ(cursor.advance(3, at(1), 7), 1);
    EXPECT_EQ(cursor.advance(3, at(2), 7), 2);
    EXPECT_EQ(cursor.advance(3, at(3), 7), 0) << "wraps to the newest";
    EXPECT_EQ(cursor.lastPosition, 1);
    EXPECT_EQ(cursor.advance(3, at(4), 7), 1);

    EXPECT_EQ(cursor.advance(3, at(9.1), 7), 0) << "5.1 s after the last press";
    EXPECT_EQ(cursor.advance(3, at(10), 8), 0) << "something else was copied";
    cursor.observedChangeCount.reset();
    EXPECT_EQ(cursor.advance(3, at(11), 99), 1) << "no count noted: a recent run goes on";

    EXPECT_EQ(cursor.advance(0, at(12), 99), std::nullopt);
    EXPECT_EQ(cursor.index, 0);
    EXPECT_FALSE(cursor.lastAdvance);
    EXPECT_EQ(cursor.lastPosition, 0);
}

class PasteCoordinatorTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    CapturePreferences preferences{defaults, loop};
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    FakeKeyEvents keys{loop};
    FakeHotKeys hotKeys;
    FakeHUD hud;
    std::unique_ptr<ClipStore> store;
    std::unique_ptr<PasteService> paste;
    std::unique_ptr<KeyboardShortcuts> shortcuts;
    std::unique_ptr<PasteCoordinator> coordinator;

    void SetUp() override {
        auto memory = *ModelContainer::openInMemory();
        store = std::make_unique<ClipStore>(loop, TamarindStores{std::move(memory), nullptr, false},
                                            BlobStore(folder.path() / "blobs"), "TEST");
        paste = std::make_unique<PasteService>(loop, PlatformForPaste{pasteboard, workspace, nullptr, &keys},
                                               BlobStore(folder.path() / "blobs"), preferences);
        shortcuts = std::make_unique<KeyboardShortcuts>(defaults, loop, hotKeys, declaredDefaultShortcut);
        coordinator =
            std::make_unique<PasteCoordinator>(loop, *store, *paste, hud, *shortcuts, defaults, &keys, [] {});
        coordinator->registerShortcuts();
        workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor", 0x400001};
    }

    // Copies from another application, oldest first; the newest is the last.
    void copy(std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            loop.advanceBy(std::chrono::seconds(1));
            PasteboardSnapshot snapshot;
            snapshot.types = {"UTF8_STRING"};
            snapshot.string = text;
            snapshot.changeCount = pasteboard.changeCount();
            snapshot.capturedAt = loop.clock().wallNow();
            store->ingest(snapshot, {});
        }
    }

    // Presses a hotkey and lets the paste run its course.
    void press(const Shortcut& shortcut) {
        ASSERT_TRUE(hotKeys.press(shortcut)) << shortcut.description() << " is not registered";
        loop.runUntilIdle();
        loop.advanceBy(kPasteActivationWait);
    }

    std::string lastHUD() const {
        if (hud.shown.empty()) return "none";
        const HUDContent& content = hud.shown.back();
        return content.systemImage + " | " + content.title + " | " + content.subtitle.value_or("-") +
               (content.isError ? " | error" : "");
    }
};

TEST_F(PasteCoordinatorTest, SlotsPasteTheTenNewestAndSayWhichOrThatTheSlotIsEmpty) {
    press(slotDefaultShortcut(0));
    EXPECT_EQ(lastHUD(), "tray | No clip in slot 1 | - | error");
    press(Shortcut::withFlags(125, ModifierFlag::command | ModifierFlag::control));
    EXPECT_EQ(lastHUD(), "tray | History is empty | - | error");
    EXPECT_TRUE(pasteboard.writes.empty());

    copy({"one", "two", "three"});
    press(slotDefaultShortcut(1));
    EXPECT_EQ(pasteboard.currentText(), "two");
    EXPECT_EQ(lastHUD(), "doc.on.clipboard | Pasted slot 2 | two");
    EXPECT_EQ(keys.pastesSent, 1);
    EXPECT_EQ(store->clip(store->fetchPage(0, ClipQuery{}, ClipSortOrder::newest, 10)[1].id)->useCount, 1);

    press(slotDefaultShortcut(9));
    EXPECT_EQ(lastHUD(), "tray | No clip in slot 10 | - | error");

    // Shift held: plain text, and the HUD says so. The Shift combination reaches the slot too.
    keys.modifierFlags = ModifierFlag::shift;
    press(Shortcut::withFlags(18, ModifierFlag::command | ModifierFlag::control | ModifierFlag::shift));
    EXPECT_EQ(lastHUD(), "textformat | Pasted slot 1 as plain text | three");
}

// The grant missing is the app's test, with its alert.
TEST_F(PasteCoordinatorTest, WithNoApplicationToPasteIntoTheClipIsOnlyCopied) {
    copy({"hello"});
    workspace.frontmost.reset();
    press(slotDefaultShortcut(0));
    EXPECT_EQ(lastHUD(), "doc.on.clipboard | Copied to the clipboard | No app to paste into");
}

// The pause that starts a run over is tried on the cursor above.
TEST_F(PasteCoordinatorTest, PasteNextWalksBackWrapsAndStartsOverAfterAnOutsideCopy) {
    copy({"a", "b", "c"});
    std::vector<std::string> pasted;
    auto next = [&] {
        coordinator->pasteNext();
        loop.runUntilIdle();
        loop.advanceBy(kPasteActivationWait);
        pasted.push_back(pasteboard.currentText().value_or("?") + " " + hud.shown.back().subtitle.value_or(""));
    };
    for (int press = 0; press < 5; ++press) next();
    copy({"outside"});
    pasteboard.copyText("outside");
    next();
    EXPECT_THAT(pasted, ElementsAre("c 1 of 3", "b 2 of 3", "a 3 of 3", "c 1 of 3", "b 2 of 3", "outside 1 of 4"));
}

TEST_F(PasteCoordinatorTest, AClipsOwnShortcutPastesItUntilTheClipIsDeleted) {
    copy({"signature"});
    Uuid id = store->fetchPage(0, ClipQuery{}, ClipSortOrder::newest, 1)[0].id;
    coordinator->bind(id);
    EXPECT_THAT(defaults.stringArray(kBoundClipIDsKey).value(), ElementsAre(id.uuidString()));
    Shortcut mine = Shortcut::withFlags(1, ModifierFlag::command | ModifierFlag::option);
    shortcuts->setShortcut(mine, clipShortcutName(id));
    press(mine);
    EXPECT_EQ(lastHUD(), "doc.on.clipboard | Pasted saved clip | signature");

    // Restored at the next start, from the settings.
    coordinator.reset();
    coordinator = std::make_unique<PasteCoordinator>(loop, *store, *paste, hud, *shortcuts, defaults, &keys,
                                                     [] {});
    coordinator->registerShortcuts();
    EXPECT_TRUE(hotKeys.isRegistered(mine));

    store->deleteClip(id);
    press(mine);
    EXPECT_EQ(lastHUD(), "trash | That clip no longer exists | - | error");
    EXPECT_FALSE(coordinator->bindings().isBound(id));
    EXPECT_FALSE(defaults.object(std::string(kKeyboardShortcutsKeyPrefix) + clipShortcutName(id)))
        << "a shortcut with no default is removed";
    EXPECT_FALSE(hotKeys.isRegistered(mine));
}

TEST(ClipShortcutBindingsTest, DropsStringsThatAreNotIdentifiers) {
    InMemoryDefaults defaults;
    Uuid id = Uuid::random();
    defaults.set(kBoundClipIDsKey, PlistValue(PlistArray{PlistValue("not an id"), PlistValue(id.uuidString())}));
    ClipShortcutBindings bindings(defaults);
    EXPECT_THAT(bindings.boundClipIDs(), ElementsAre(id));
    EXPECT_FALSE(bindings.erase(Uuid::random()));
    EXPECT_TRUE(bindings.erase(id));
    EXPECT_THAT(defaults.stringArray(kBoundClipIDsKey).value(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace tamarind
