// The X11 hotkeys against key presses another client fakes through XTest on a private Xvfb, and
// against another client that grabbed a combination first.
//
// That a press did not fire is seen without waiting: a hotkey that must not fire is followed by
// the press of a control hotkey, whose call comes after whatever the first press caused.

#include <gtest/gtest.h>

#include <initializer_list>

#include "platform/x11/X11HotKeys.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

constexpr int kKey1 = 18, kKey2 = 19, kKey3 = 20;  // the macOS virtual key codes of 1, 2 and 3
const Shortcut kSuperCtrl1 = Shortcut::withFlags(kKey1, ModifierFlag::command | ModifierFlag::control);
const Shortcut kSuperCtrl2 = Shortcut::withFlags(kKey2, ModifierFlag::command | ModifierFlag::control);
const Shortcut kSuperCtrl3 = Shortcut::withFlags(kKey3, ModifierFlag::command | ModifierFlag::control);

class X11HotKeysTest : public X11Test {
protected:
    static constexpr uint16_t kSuperCtrl = XCB_MOD_MASK_4 | XCB_MOD_MASK_CONTROL;

    void SetUp() override {
        X11Test::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        hotKeys_ = std::make_unique<X11HotKeys>(loop_, *x11_);
        other_ = std::make_unique<OtherClient>(session_.display());
        // The control hotkey.
        ASSERT_EQ(hotKeys_->registerHotKey(3, kSuperCtrl3, [this] {
            fired_ += "three ";
            ++controlCalls_;
        }), 0);
    }

    void TearDown() override {
        hotKeys_.reset();
        other_.reset();
        x11_.reset();
    }

    // Returns once the server has handled every request we sent, our ungrabs among them: another
    // client's grab that follows is then ordered after them.
    void syncWithServer() {
        xcb_connection_t* connection = x11_->connection();
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }

    // Until `expected` has fired.
    bool runUntilFired(const std::string& expected) {
        return runUntil([&] { return fired_ == expected; });
    }

    // Presses the control hotkey and waits for it: what the presses before it caused is in fired_.
    std::string firedBeforeControl() {
        int before = controlCalls_;
        other_->typeSuperCtrl(XK_3);
        runUntil([&] { return controlCalls_ > before; });
        return fired_;
    }

    int registerSuperCtrl1() {
        return hotKeys_->registerHotKey(1, kSuperCtrl1, [this] { fired_ += "one "; });
    }

    std::unique_ptr<X11HotKeys> hotKeys_;
    std::unique_ptr<OtherClient> other_;
    std::string fired_;
    int controlCalls_ = 0;
};

TEST_F(X11HotKeysTest, FiresForItsCombinationWhateverTheLocksAndNotForOtherModifiers) {
    ASSERT_EQ(registerSuperCtrl1(), 0);

    other_->typeSuperCtrl(XK_1);
    ASSERT_TRUE(runUntilFired("one ")) << fired_;

    other_->toggle(XK_Num_Lock);
    other_->typeSuperCtrl(XK_1);
    ASSERT_TRUE(runUntilFired("one one ")) << "with Num Lock on: " << fired_;

    other_->toggle(XK_Caps_Lock);
    other_->typeSuperCtrl(XK_1);
    ASSERT_TRUE(runUntilFired("one one one ")) << "with both locks on: " << fired_;

    other_->toggle(XK_Num_Lock);
    other_->typeSuperCtrl(XK_1);
    ASSERT_TRUE(runUntilFired("one one one one ")) << "with Caps Lock on: " << fired_;
    other_->toggle(XK_Caps_Lock);

    xcb_keycode_t one = other_->keycode(XK_1);
    other_->type({XK_Control_L}, one);
    other_->type({XK_Super_L}, one);
    other_->type({XK_Super_L, XK_Control_L, XK_Shift_L}, one);
    other_->type({XK_Super_L, XK_Control_L}, other_->keycode(XK_2));
    EXPECT_EQ(firedBeforeControl(), "one one one one three ");
}

// Auto-repeat comes as pairs of a release and a press; the server sends them only once the key
// has been held for its repeat delay, so the test holds it until the raw presses show them.
TEST_F(X11HotKeysTest, AHeldKeyFiresOnceAndEachNewPressAgain) {
    ASSERT_EQ(registerSuperCtrl1(), 0);
    xcb_keycode_t one = other_->keycode(XK_1);
    int rawPresses = 0;
    x11_->addListener([&](const xcb_generic_event_t& event) {
        const auto& key = reinterpret_cast<const xcb_key_press_event_t&>(event);
        if ((event.response_type & 0x7f) == XCB_KEY_PRESS && key.detail == one) ++rawPresses;
    });

    xcb_keycode_t super = other_->keycode(XK_Super_L), control = other_->keycode(XK_Control_L);
    other_->down(super);
    other_->down(control);
    other_->down(one);
    ASSERT_TRUE(runUntil([&] { return rawPresses >= 4; })) << "the server did not repeat the held key";
    other_->up(one);
    other_->up(control);
    other_->up(super);
    EXPECT_EQ(firedBeforeControl(), "one three ");

    // A release and the next press a millisecond or more apart are two presses.
    runUntil([] { return false; }, 0.01);
    other_->typeSuperCtrl(XK_1);
    runUntil([] { return false; }, 0.01);
    other_->typeSuperCtrl(XK_1);
    ASSERT_TRUE(runUntilFired("one three one one ")) << fired_;
}

TEST_F(X11HotKeysTest, ACombinationAlreadyGrabbedIsRefusedAndLeavesNoGrabBehind) {
    xcb_keycode_t two = other_->keycode(XK_2);
    ASSERT_EQ(other_->grab(two, {kSuperCtrl}), std::vector<bool>{true});
    int calls = 0;
    EXPECT_EQ(hotKeys_->registerHotKey(2, kSuperCtrl2, [&] { ++calls; }), XCB_ACCESS);
    // The lock variants, grabbed before the refusal, were let go: the other client can take them.
    constexpr uint16_t kNumLock = XCB_MOD_MASK_2;
    syncWithServer();
    EXPECT_EQ(other_->grab(two, {kSuperCtrl | kNumLock, kSuperCtrl | XCB_MOD_MASK_LOCK,
                                 kSuperCtrl | kNumLock | XCB_MOD_MASK_LOCK}),
              (std::vector<bool>{true, true, true}));
    other_->typeSuperCtrl(XK_2);
    EXPECT_EQ(firedBeforeControl(), "three ");
    EXPECT_FALSE(hotKeys_->dispatchKeyPress(two, kSuperCtrl)) << "registered after all";
    for (uint16_t locks : std::initializer_list<uint16_t>{0, kNumLock, XCB_MOD_MASK_LOCK, kNumLock | XCB_MOD_MASK_LOCK})
        other_->ungrab(two, kSuperCtrl | locks);
    EXPECT_EQ(hotKeys_->registerHotKey(2, kSuperCtrl2, [&] { ++calls; }), 0) << "once the other client let go";

    // Held by this client under another identifier; the refusal must not disturb the first.
    ASSERT_EQ(registerSuperCtrl1(), 0);
    EXPECT_EQ(hotKeys_->registerHotKey(4, kSuperCtrl1, [this] { fired_ += "four "; }), XCB_ACCESS);
    hotKeys_->unregisterHotKey(4);
    // A key code with no keysym, and F13, which Xvfb's keyboard has no key for.
    EXPECT_EQ(hotKeys_->registerHotKey(5, Shortcut{10, CarbonModifier::control}, [] {}), -1);
    ASSERT_EQ(other_->keycode(XK_F13), 0);
    EXPECT_EQ(hotKeys_->registerHotKey(6, Shortcut{105, CarbonModifier::control}, [] {}), -1);
    other_->typeSuperCtrl(XK_1);
    EXPECT_EQ(firedBeforeControl(), "three one three ");
    EXPECT_EQ(calls, 0);
}

TEST_F(X11HotKeysTest, UnregisteringEndsTheHotkeyAndDropsAPressAlreadyPosted) {
    int calls = 0;
    // A handler that unregisters its own hotkey, as the app does when a shortcut is changed.
    ASSERT_EQ(hotKeys_->registerHotKey(1, kSuperCtrl1, [&] {
        ++calls;
        hotKeys_->unregisterHotKey(1);
    }), 0);
    xcb_keycode_t one = other_->keycode(XK_1);
    // As Qt hands presses on while a menu holds the keyboard: the lock and button bits aside.
    EXPECT_TRUE(hotKeys_->dispatchKeyPress(one, kSuperCtrl | XCB_MOD_MASK_2 | XCB_MOD_MASK_LOCK | XCB_KEY_BUT_MASK_BUTTON_1));
    EXPECT_TRUE(hotKeys_->dispatchKeyPress(one, kSuperCtrl));
    EXPECT_FALSE(hotKeys_->dispatchKeyPress(one, XCB_MOD_MASK_CONTROL));
    EXPECT_FALSE(hotKeys_->dispatchKeyPress(one, kSuperCtrl | XCB_MOD_MASK_SHIFT));
    EXPECT_FALSE(hotKeys_->dispatchKeyPress(other_->keycode(XK_2), kSuperCtrl));
    EXPECT_EQ(calls, 0) << "called inside dispatchKeyPress, not from the loop";
    runUntil([&] { return calls > 0; });
    runUntil([] { return false; }, 0.05);
    EXPECT_EQ(calls, 1) << "the second press was posted before the first call unregistered";

    EXPECT_FALSE(hotKeys_->dispatchKeyPress(one, kSuperCtrl));
    other_->typeSuperCtrl(XK_1);
    EXPECT_EQ(firedBeforeControl(), "three ");
    EXPECT_EQ(calls, 1);
    // Ungrabbed: another client can grab it now.
    syncWithServer();
    EXPECT_EQ(other_->grab(one, {kSuperCtrl, kSuperCtrl | XCB_MOD_MASK_2}), (std::vector<bool>{true, true}));
}

// A key that types 1 after the keyboard map changed is the hotkey's key; the one that typed it
// before is not any more.
TEST_F(X11HotKeysTest, AKeyboardMapChangeMovesTheGrabToTheKeyThatTypesTheKeyNow) {
    ASSERT_EQ(registerSuperCtrl1(), 0);
    xcb_keycode_t oldOne = other_->keycode(XK_1), newOne = other_->unusedKeycode();
    ASSERT_NE(newOne, 0) << "Xvfb's map has no free keycode";
    int notices = 0;
    x11_->addListener([&](const xcb_generic_event_t& event) {
        if ((event.response_type & 0x7f) == XCB_MAPPING_NOTIFY) ++notices;
    });

    // Two columns a key, as xmodmap writes them.
    const xcb_keysym_t moved[] = {XK_1, XK_exclam}, emptied[] = {XK_F20, XK_F20};
    xcb_change_keyboard_mapping(other_->connection(), 1, newOne, 2, moved);
    xcb_change_keyboard_mapping(other_->connection(), 1, oldOne, 2, emptied);
    // Once the other client's round trip is answered the server has applied both changes and sent
    // their notices; once ours is, they are in our queue.
    std::free(xcb_get_input_focus_reply(other_->connection(), xcb_get_input_focus(other_->connection()), nullptr));
    std::free(xcb_get_input_focus_reply(x11_->connection(), xcb_get_input_focus(x11_->connection()), nullptr));
    x11_->dispatch();
    ASSERT_GE(notices, 1);

    other_->type({XK_Super_L, XK_Control_L}, oldOne);
    EXPECT_EQ(firedBeforeControl(), "three ");
    other_->type({XK_Super_L, XK_Control_L}, newOne);
    EXPECT_TRUE(runUntilFired("three one ")) << fired_;
    syncWithServer();
    EXPECT_EQ(other_->grab(oldOne, {kSuperCtrl}), std::vector<bool>{true}) << "the old key is still grabbed";
}

}  // namespace
}  // namespace tamarind
