#include "platform/x11/X11KeySender.h"

#include <X11/keysym.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "foundation/Text.h"
#include "platform/HotKeys.h"

namespace tamarind {

namespace {

constexpr Duration kModifierPoll = std::chrono::milliseconds(10);
constexpr int kModifierPolls = 100;  // a second, then the modifiers are lifted

}  // namespace

bool isTerminalWindowClass(std::string_view windowClass) {
    static constexpr std::string_view kTerminals[] = {
        "gnome-terminal", "gnome-terminal-server", "org.gnome.terminal", "org.gnome.console", "kgx", "konsole",
        "xterm", "uxterm", "kitty", "alacritty", "foot", "footclient", "org.wezfurlong.wezterm", "wezterm",
        "com.mitchellh.ghostty", "ghostty", "tilix", "com.gexperts.tilix", "terminator", "xfce4-terminal",
        "urxvt", "st-256color"};
    std::string lower = lowercased(windowClass);
    return std::find(std::begin(kTerminals), std::end(kTerminals), lower) != std::end(kTerminals);
}

std::variant<std::unique_ptr<X11KeySender>, std::string> X11KeySender::create(MainLoop& loop, X11Connection& x11) {
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(x11.connection(), &xcb_test_id);
    if (!extension || !extension->present) return std::string("the X server has no XTEST extension");
    return std::unique_ptr<X11KeySender>(new X11KeySender(loop, x11));
}

X11KeySender::X11KeySender(MainLoop& loop, X11Connection& x11)
    : loop_(loop), x11_(x11), symbols_(xcb_key_symbols_alloc(x11.connection())) {}

X11KeySender::~X11KeySender() { xcb_key_symbols_free(symbols_); }

std::optional<std::string> X11KeySender::activeWindowClass() {
    auto active = x11_.property(x11_.root(), x11_.atom("_NET_ACTIVE_WINDOW"));
    if (!active || active->bytes.size() < 4) return std::nullopt;
    xcb_window_t window = 0;
    std::memcpy(&window, active->bytes.data(), 4);
    auto wmClass = x11_.property(window, XCB_ATOM_WM_CLASS);
    if (!wmClass) return std::nullopt;
    std::string_view bytes = wmClass->bytes;
    auto end = bytes.find('\0');
    if (end == std::string_view::npos) return std::string(bytes);
    return std::string(bytes.substr(end + 1, bytes.find('\0', end + 1) - end - 1));
}

std::vector<xcb_keycode_t> X11KeySender::heldModifiers() {
    xcb_connection_t* connection = x11_.connection();
    auto mapping = xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr);
    auto keymap = xcb_query_keymap_reply(connection, xcb_query_keymap(connection), nullptr);
    std::vector<xcb_keycode_t> held;
    if (mapping && keymap) {
        const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping);
        int count = xcb_get_modifier_mapping_keycodes_length(mapping);
        for (int i = 0; i < count; ++i) {
            xcb_keycode_t code = codes[i];
            if (code != 0 && (keymap->keys[code / 8] & (1 << (code % 8))) &&
                std::find(held.begin(), held.end(), code) == held.end())
                held.push_back(code);
        }
    }
    std::free(mapping);
    std::free(keymap);
    return held;
}

void X11KeySender::press(const std::vector<xcb_keycode_t>& keys) {
    for (xcb_keycode_t key : keys)
        xcb_test_fake_input(x11_.connection(), XCB_KEY_PRESS, key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        xcb_test_fake_input(x11_.connection(), XCB_KEY_RELEASE, *key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    x11_.flush();
}

int X11KeySender::currentModifierFlags() {
    xcb_connection_t* connection = x11_.connection();
    auto pointer = xcb_query_pointer_reply(connection, xcb_query_pointer(connection, x11_.root()), nullptr);
    if (!pointer) return 0;
    uint16_t mask = pointer->mask;
    std::free(pointer);
    int flags = 0;
    if (mask & XCB_MOD_MASK_SHIFT) flags |= ModifierFlag::shift;
    if (mask & XCB_MOD_MASK_CONTROL) flags |= ModifierFlag::control;
    if (mask & XCB_MOD_MASK_1) flags |= ModifierFlag::option;
    if (mask & XCB_MOD_MASK_4) flags |= ModifierFlag::command;
    return flags;
}

void X11KeySender::sendPaste(std::function<void(bool)> done) {
    sendPaste(keystrokeSetting_ ? keystrokeSetting_() : PasteKeystroke::automatic, std::move(done));
}

void X11KeySender::sendPaste(PasteKeystroke keystroke, std::function<void(bool)> done) {
    if (keystroke == PasteKeystroke::automatic) {
        auto windowClass = activeWindowClass();
        keystroke = windowClass && isTerminalWindowClass(*windowClass) ? PasteKeystroke::controlShiftV
                                                                        : PasteKeystroke::controlV;
    }
    std::vector<xcb_keysym_t> keys;
    switch (keystroke) {
    case PasteKeystroke::shiftInsert: keys = {XK_Shift_L, XK_Insert}; break;
    case PasteKeystroke::controlShiftV: keys = {XK_Control_L, XK_Shift_L, XK_v}; break;
    default: keys = {XK_Control_L, XK_v}; break;
    }
    waitThenSend(std::move(keys), kModifierPolls, std::move(done));
}

void X11KeySender::waitThenSend(std::vector<xcb_keysym_t> keys, int attemptsLeft, std::function<void(bool)> done) {
    std::vector<xcb_keycode_t> held = heldModifiers();
    if (!held.empty() && attemptsLeft > 0) {
        wait_ = loop_.postDelayed(kModifierPoll, [this, keys = std::move(keys), attemptsLeft, done = std::move(done)]() mutable {
            waitThenSend(std::move(keys), attemptsLeft - 1, std::move(done));
        });
        return;
    }
    // Still held after a second: lifted for the keystroke, so that it arrives alone.
    for (xcb_keycode_t key : held)
        xcb_test_fake_input(x11_.connection(), XCB_KEY_RELEASE, key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    std::vector<xcb_keycode_t> codes;
    for (xcb_keysym_t symbol : keys) {
        xcb_keycode_t* found = xcb_key_symbols_get_keycode(symbols_, symbol);
        if (found && *found != XCB_NO_SYMBOL) codes.push_back(*found);
        std::free(found);
    }
    bool isSent = codes.size() == keys.size();
    if (isSent) {
        press(codes);
    } else {
        log_.error("The keyboard map has no key for the paste keystroke; nothing was sent.");
    }
    if (done) done(isSent);
}

}  // namespace tamarind
