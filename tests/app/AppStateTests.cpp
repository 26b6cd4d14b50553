#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/AppControl.h"
#include "app/AppState.h"
#include "support/FakePlatform.h"
#include "support/Images.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;
using namespace std::chrono_literals;

class AppStateTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    FakeKeyEvents keys{loop};
    FakeHotKeys hotKeys;
    FakeHUD hud;
    FakeSuspensionEvents suspension;
    std::unique_ptr<AppState> state;  // after the fakes it holds, so that it goes first

    void make() { make(PlatformServices{pasteboard, workspace}); }
    void make(PlatformServices platform) {
        Paths paths{folder.path() / "share", folder.path() / "config", folder.path() / "cache"};
        auto memory = *ModelContainer::openInMemory();
        state = std::make_unique<AppState>(loop, defaults, paths, platform,
                                           TamarindStores{std::move(memory), nullptr, false});
    }
    std::vector<Clip> libraryClips() { return state->store().fetchPage(0, ClipQuery{}, ClipSortOrder::oldest, 100); }
    void copy(const std::string& text, const std::string& app) {
        workspace.frontmost = RunningApplication{app, "App"};
        copy(text);
    }
    void copy(const std::string& text) {
        pasteboard.copyText(text);
        loop.advanceBy(kClipboardPollInterval);
    }
    std::string stored() {
        std::string out;
        for (const Clip& clip : libraryClips())
            out += (out.empty() ? "" : ", ") + clip.text.value_or("?") + (clip.isFavorite ? "[fav]" : "");
        return out;
    }
    // The pause as the menu, the monitor, the saved setting and the timer each see it.
    std::string pauseState() {
        return std::string(*state->isCapturePaused() ? "paused" : "running") +
               (*state->monitor().isPaused() ? ", monitor paused" : "") +
               (defaults.boolValue(captureKeys::isPaused) ? ", saved paused" : "") +
               (state->isAutoResumeArmed() ? ", armed" : "");
    }
    std::string limits() {
        const CaptureLimits& l = state->store().captureLimits();
        return "min " + std::to_string(l.minimumCharacters) + ", max " + std::to_string(l.maximumBytes) +
               (l.detectsSensitiveContent ? ", detects, " : ", ignores, ") + (l.skipsSensitiveContent ? "skip" : "store");
    }
};

TEST_F(AppStateTest, AutoResumeArmsOnlyWhilePausedWithMinutesSet) {
    make();
    state->start();
    state->togglePause();
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused") << "0 minutes never arms";
    loop.advanceBy(2h);

    state->preferences().setAutoResumeMinutes(5);
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused, armed");
    LogCapture log;
    copy("while paused");
    loop.advanceBy(5min - 1s);
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused, armed");
    loop.advanceBy(1s);
    EXPECT_EQ(pauseState(), "running");
    EXPECT_THAT(log.messages("app"), ElementsAre("Capture resumed automatically after 5 minutes."));
    copy("after resuming");
    EXPECT_EQ(stored(), "after resuming");

    // Resuming by hand cancels the task.
    state->togglePause();
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused, armed");
    loop.advanceBy(4min);
    state->togglePause();
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "running");
    loop.advanceBy(10min);

    // A resume by hand due at the task's own moment runs first; the task then finds capture running.
    state->togglePause();
    TaskHandle resumeByHand = loop.postDelayed(5min, [&] { state->togglePause(); });
    loop.advanceBy(5min);
    EXPECT_EQ(pauseState(), "running");
    EXPECT_EQ(log.messages("app").size(), 1u) << "no resume but the first is logged";

    // Paused at quit: paused at the next launch, and armed from it.
    state->togglePause();
    loop.runUntilIdle();
    state.reset();
    make();
    EXPECT_TRUE(*state->isCapturePaused());
    state->start();
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused, armed");
    loop.advanceBy(5min);
    EXPECT_EQ(pauseState(), "running");
}

// Sleep and a locked screen stop capture without pausing it; waking takes up what is copied from
// then on, not what changed meanwhile, and never undoes a pause the user made.
TEST_F(AppStateTest, ALockedSessionCapturesNothingAndWakingNeverUndoesAPause) {
    make(PlatformServices{pasteboard, workspace, &suspension});
    state->start();
    loop.runUntilIdle();
    copy("before");
    LogCapture log;
    ASSERT_TRUE(suspension.deliver(true, "Lock"));
    copy("while locked");
    EXPECT_EQ(pauseState(), "running") << "a lock is no pause: the menu and the saved setting stay as they were";
    ASSERT_TRUE(suspension.deliver(false, "Unlock"));
    loop.advanceBy(kClipboardPollInterval);
    copy("after");
    EXPECT_EQ(stored(), "before, after");

    state->togglePause();
    suspension.deliver(true, "PrepareForSleep");
    suspension.deliver(false, "PrepareForSleep");
    copy("while paused");
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused");
    EXPECT_EQ(stored(), "before, after");
    std::vector<std::string> lines;
    for (const LogRecord& record : log.records())
        if (record.channel == "capture" && record.level != LogLevel::debug) lines.push_back(record.message);
    EXPECT_THAT(lines,
                ElementsAre("Capture suspended (Lock).", "Capture unsuspended (Unlock).", "Capture paused.",
                            "Capture suspended (PrepareForSleep).", "Capture unsuspended (PrepareForSleep)."));
}

// A pause by hand saves the setting before the monitor moves; one saved by another program
// pauses the running capture.
TEST_F(AppStateTest, TogglePauseSavesTheSettingFirstAndAPauseSavedElsewhereIsTakenIn) {
    make();
    state->start();
    loop.runUntilIdle();
    auto observation = defaults.observe([](const std::string& key) { Log("settings").log("wrote %{public}s", key); });
    LogCapture log;
    state->togglePause();
    EXPECT_TRUE(*state->isCapturePaused()) << "the mirror follows at once";
    state->togglePause();
    EXPECT_FALSE(*state->isCapturePaused());
    std::vector<std::string> lines;
    for (const LogRecord& record : log.records())
        if (record.level != LogLevel::debug) lines.push_back(record.channel + ": " + record.message);
    EXPECT_THAT(lines, ElementsAre("settings: wrote capture.isPaused", "capture: Capture paused.",
                                   "settings: wrote capture.isPaused", "capture: Capture resumed."));
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "running");

    defaults.set(captureKeys::isPaused, PlistValue(true));  // as the settings file tells of it
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused");
    copy("not captured");
    EXPECT_TRUE(libraryClips().empty());
    defaults.set(captureKeys::isPaused, PlistValue(false));
    loop.runUntilIdle();
    EXPECT_EQ(pauseState(), "running");
}

TEST_F(AppStateTest, AnyOneLimitSettingRebuildsAllOfTheLimits) {
    defaults.set(captureKeys::minimumCharacters, -4);
    defaults.set(captureKeys::maximumMegabytes, 0.5);
    make();
    EXPECT_EQ(limits(), "min 0, max 524288, detects, store");
    // Limits put on the store behind the settings' back show whether a change rebuilds all four.
    auto scramble = [&](bool skips = true) {
        state->store().setCaptureLimits({.minimumCharacters = 99,
                                         .maximumBytes = 1,
                                         .detectsSensitiveContent = true,
                                         .skipsSensitiveContent = skips});
    };
    scramble();
    state->preferences().setMinimumCharacters(3);
    loop.runUntilIdle();
    EXPECT_EQ(limits(), "min 3, max 524288, detects, store");
    scramble();
    state->preferences().setMaximumMegabytes(0);
    loop.runUntilIdle();
    EXPECT_EQ(limits(), "min 3, max 0, detects, store");
    scramble();
    state->preferences().setSensitiveDetectionEnabled(false);
    loop.runUntilIdle();
    EXPECT_EQ(limits(), "min 3, max 0, ignores, store");
    scramble(false);
    state->preferences().setSensitiveHandling(SensitiveHandling::skip);
    loop.runUntilIdle();
    EXPECT_EQ(limits(), "min 3, max 0, ignores, skip");
}

// --- collect mode, wired as the app wires it ---

TEST_F(AppStateTest, FiveCopiesBecomeOneClipJoinedWithTheSeparatorOfTheMoment) {
    make();
    state->start();
    CollectModeService& collect = state->collectMode();
    LogCapture logs;
    collect.begin();
    for (const char* text : {"one", "two", "three", "four"}) copy(text);
    PasteboardSnapshot image;
    image.types = {"image/png"};
    image.imageData = makePng(8, 8);
    image.imageFileExtension = "png";
    image.imagePixelSize = PixelSize{8, 8};
    pasteboard.copy(image);
    loop.advanceBy(kClipboardPollInterval);
    EXPECT_TRUE(libraryClips().empty()) << "a copy made while collecting never reaches the history by itself";
    EXPECT_EQ(collect.payload().value().items.size(), 5u);
    EXPECT_EQ(state->capture().capturedThisSession().value(), 5);

    state->preferences().setMultiClipJoiner(MultiClipJoiner::comma);
    auto id = collect.finish();
    ASSERT_TRUE(id);
    auto clips = libraryClips();
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips[0].id, *id);
    EXPECT_EQ(clips[0].kind, "multiClip");
    EXPECT_EQ(clips[0].text, "one, two, three, four, Image");
    auto payload = MultiClipPayload::decode(*clips[0].multiClipData);
    ASSERT_TRUE(payload);
    ASSERT_EQ(payload->items.size(), 5u);
    ASSERT_TRUE(payload->items[4].blobFilename);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "share" / "blobs" / *payload->items[4].blobFilename));
    EXPECT_FALSE(collect.isActive().value());
    auto lines = logs.messages("capture");
    EXPECT_EQ(lines.front(), "Collect mode on.");
    EXPECT_EQ(lines.back(), "Collect mode off; stored 5 items as one clip.");

    copy("after collecting");
    EXPECT_EQ(libraryClips().size(), 2u) << "copies go to the history again";
}

TEST_F(AppStateTest, NothingCollectedStoresNothingAndCancelDropsTheStack) {
    make();
    state->start();
    CollectModeService& collect = state->collectMode();
    LogCapture logs;
    collect.toggle();
    collect.toggle();  // finishes, with nothing
    EXPECT_TRUE(libraryClips().empty());
    collect.begin();
    copy("staged, then dropped");
    collect.cancel();
    EXPECT_TRUE(libraryClips().empty());
    EXPECT_TRUE(collect.payload().value().items.empty());
    std::vector<bool> states;
    collect.setOnStateChange([&](bool isActive) { states.push_back(isActive); });
    EXPECT_FALSE(collect.finish()) << "finishing while off stores nothing, and says so";
    EXPECT_EQ(states, std::vector<bool>{false});
    EXPECT_EQ(logs.messages("capture"),
              (std::vector<std::string>{"Collect mode on.", "Collect mode off; nothing was collected.",
                                        "Collect mode on.", "Collected item 1.", "Collect mode cancelled.",
                                        "Collect mode off; nothing was collected."}));
}

// A paste the session won't let us press: the HUD, then the alert, one at a time; its first button
// opens where the user can act.
TEST_F(AppStateTest, ABlockedPasteShowsTheAccessibilityAlertOnceAtATime) {
    FakePermissions permissions;  // no grant, as on Wayland
    FakeAlerts alerts;
    make(PlatformServices{pasteboard, workspace, nullptr, nullptr, &permissions, &keys, &hotKeys, &hud, &alerts, true});
    workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor", 0x400001};
    state->start();
    copy("hello", "org.gnome.TextEditor");
    const Shortcut slot1 = Shortcut::withFlags(18, ModifierFlag::command | ModifierFlag::control);

    ASSERT_TRUE(hotKeys.press(slot1));
    loop.runUntilIdle();
    EXPECT_EQ(hud.shown.back(),
              (HUDContent{"lock.shield", "Copied — paste needs Accessibility", "Open Settings to grant it", true}));
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, kAccessibilityAlertTitle);
    EXPECT_TRUE(alerts.shown[0].text.starts_with(kAccessibilityAlertText));
    EXPECT_NE(alerts.shown[0].text.find("tamarind paste-slot"), std::string::npos) << "what works on Wayland";
    EXPECT_EQ(alerts.shown[0].buttons,
              (std::vector<std::string>{kAccessibilityAlertOpenButton, kAccessibilityAlertLaterButton}));

    ASSERT_TRUE(hotKeys.press(slot1));
    loop.runUntilIdle();
    EXPECT_EQ(alerts.shown.size(), 1u) << "a second request while it is up opens nothing";
    alerts.answer(0);
    EXPECT_EQ(permissions.opened, std::vector<std::string>{"accessibility"});
    ASSERT_TRUE(hotKeys.press(slot1));
    loop.runUntilIdle();
    EXPECT_EQ(alerts.shown.size(), 2u);
    alerts.answer(1);
    EXPECT_EQ(permissions.opened.size(), 1u) << "Not Now opens nothing";
}

// The paste side as the composition root wires it.
TEST_F(AppStateTest, TheCollectHotkeyShowsItsHUDAndAShortcutSetFromOutsideBindsItsClip) {
    make(PlatformServices{pasteboard, workspace, nullptr, nullptr, nullptr, &keys, &hotKeys, &hud});
    workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor", 0x400001};
    state->start();
    copy("hello", "org.gnome.TextEditor");
    const int commandControl = ModifierFlag::command | ModifierFlag::control;

    // Collect mode's hotkey, and the HUD once the stack is stored (the slots' are the paste tests').
    ASSERT_TRUE(hotKeys.press(Shortcut::withFlags(46, commandControl)));
    copy("staged");
    ASSERT_TRUE(hotKeys.press(Shortcut::withFlags(46, commandControl)));
    EXPECT_EQ(hud.shown.back(), (HUDContent{"square.stack.3d.up.fill", "Collected 1 item", "Stored as one clip", false}));
    ASSERT_TRUE(hotKeys.press(Shortcut::withFlags(46, commandControl)));
    copy("one");
    copy("two");
    ASSERT_TRUE(hotKeys.press(Shortcut::withFlags(46, commandControl)));
    EXPECT_EQ(hud.shown.back().title, "Collected 2 items");

    // A clip's own hotkey set from outside binds it; cleared, it is gone.
    Uuid id = libraryClips().front().id;
    Shortcut mine = Shortcut::withFlags(1, ModifierFlag::control | ModifierFlag::option);
    EXPECT_EQ(state->setShortcut(clipShortcutName(id), mine), "");
    EXPECT_TRUE(state->pasteCoordinator()->bindings().isBound(id));
    EXPECT_TRUE(hotKeys.isRegistered(mine));
    EXPECT_EQ(state->setShortcut(clipShortcutName(id), std::nullopt), "");
    EXPECT_FALSE(hotKeys.isRegistered(mine));
    EXPECT_FALSE(state->pasteCoordinator()->bindings().isBound(id));

    // Keys another program holds, and the states the command line lists, are tried on X11.
    EXPECT_EQ(state->resetShortcut("pasteSlot3"), "") << "a slot has no declared default: reset clears it";
    EXPECT_FALSE(state->shortcuts()->getShortcut("pasteSlot3"));
    EXPECT_EQ(state->setShortcut("noSuchHotkey", mine), "no shortcut is named noSuchHotkey");
}

// --- the commands on the session bus ---

// The bus is claimed before the app is built and outlives it: until the app runs, and again after,
// every command does nothing and every question says the app isn't there.
TEST_F(AppStateTest, TheBusCommandsReachTheAppOnlyWhileItRuns) {
    make(PlatformServices{pasteboard, workspace, nullptr, nullptr, nullptr, &keys, &hotKeys, &hud});
    AppState* running = nullptr;
    ControlHandlers bus = appControlHandlers(running);
    auto everyCommand = [&] {
        bus.show();
        bus.pause();
        bus.togglePause();
        bus.collectBegin();
        bus.collectToggle();
        bus.pasteSlot(1);
        bus.pasteNext();
    };
    auto everyAnswer = [&] {
        return bus.status() + " " + bus.setShortcut("pasteSlot0", "") + ", " + bus.resetShortcut("pasteSlot0") +
               " " + bus.shortcutStates();
    };
    everyCommand();
    loop.runUntilIdle();
    EXPECT_EQ(everyAnswer(), "{} Tamarind is still starting, Tamarind is still starting {}");
    EXPECT_EQ(pauseState(), "running");
    EXPECT_FALSE(state->collectMode().isActive().value());
    EXPECT_TRUE(hud.shown.empty());

    state->start();
    running = state.get();
    workspace.frontmost = RunningApplication{"org.gnome.TextEditor", "Text Editor", 0x400001};
    copy("older");
    copy("newer");

    // Pause and Resume say what to end in, so a second one changes nothing; TogglePause flips.
    bus.pause();
    bus.pause();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused");
    bus.resume();
    bus.resume();
    EXPECT_EQ(pauseState(), "running");
    bus.togglePause();
    EXPECT_EQ(pauseState(), "paused, monitor paused, saved paused");
    bus.togglePause();
    loop.runUntilIdle();

    bus.collectBegin();
    copy("staged");
    Json status = Json::parse(bus.status());
    EXPECT_EQ(status, (Json{{"isPaused", false},
                            {"capturedThisSession", 3},
                            {"rejectedThisSession", 0},
                            {"isCollecting", true},
                            {"collectedItems", 1},
                            {"library", "healthy"},
                            {"waitingCopies", 0},
                            {"lastResult", "inserted"},
                            {"lastClipID", libraryClips().back().id.uuidString()}}));
    bus.collectCancel();
    EXPECT_FALSE(state->collectMode().isActive().value());

    // The bus counts slots from 1.
    bus.pasteSlot(2);
    loop.advanceBy(kPasteActivationWait);
    EXPECT_EQ(keys.pastesSent, 1);
    EXPECT_EQ(hud.shown, (std::vector<HUDContent>{{"doc.on.clipboard", "Pasted slot 2", "older", false}}));

    Shortcut slotKeys = Shortcut::withFlags(1, ModifierFlag::control | ModifierFlag::option);
    EXPECT_EQ(bus.setShortcut("pasteSlot0", "{\"carbonKeyCode\""), "not a stored shortcut: {\"carbonKeyCode\"");
    EXPECT_EQ(bus.setShortcut("pasteSlot0", slotKeys.json()), "");
    EXPECT_EQ(Json::parse(bus.shortcutStates()).value("pasteSlot0", ""), "active");
    EXPECT_EQ(bus.resetShortcut("pasteSlot0"), "");
    EXPECT_FALSE(Json::parse(bus.shortcutStates()).contains("pasteSlot0"));

    running = nullptr;
    everyCommand();
    loop.runUntilIdle();
    EXPECT_EQ(everyAnswer(), "{} Tamarind is still starting, Tamarind is still starting {}");
    EXPECT_EQ(pauseState(), "running");
    EXPECT_FALSE(state->collectMode().isActive().value());
}

// A library that could not be opened is told once, at start, and for as long as it lasts in the status.
TEST_F(AppStateTest, ALibraryInMemoryIsToldOnceThroughTheHUDAndTheStatus) {
    Paths paths{folder.path() / "share", folder.path() / "config", folder.path() / "cache"};
    state = std::make_unique<AppState>(
        loop, defaults, paths, PlatformServices{pasteboard, workspace, nullptr, nullptr, nullptr, &keys, &hotKeys, &hud},
        TamarindStores{*ModelContainer::openInMemory(), nullptr, false, "disk I/O error"});
    state->start();
    copy("kept for the session");
    loop.runUntilIdle();
    ASSERT_EQ(hud.shown.size(), 1u);
    EXPECT_EQ(hud.shown[0].title, "The library is in memory only");
    EXPECT_EQ(hud.shown[0].subtitle,
              "Tamarind couldn't open its library (disk I/O error). This session's clips are kept in memory only and "
              "are gone when it quits.");
    AppState* running = state.get();
    Json status = Json::parse(appControlHandlers(running).status());
    EXPECT_EQ(status.value("library", ""), "inMemory");
    EXPECT_EQ(status.value("libraryProblem", ""), hud.shown[0].subtitle);
    EXPECT_EQ(stored(), "kept for the session");
}

}  // namespace
}  // namespace tamarind
