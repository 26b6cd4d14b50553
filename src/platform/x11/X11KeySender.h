#pragma once
// The synthesised paste keystroke, through XTest. It is sent once the
// modifiers the user still holds from a hotkey are up, so that Super+Ctrl+1
// doesn't arrive as Super+Ctrl+V; after a second of waiting they are lifted
// for the keystroke instead. Which keystroke: the setting `paste.keystroke`,
// `auto` by default: Ctrl+Shift+V into a known terminal, Ctrl+V elsewhere.

#include <xcb/xcb_keysyms.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Log.h"
#include "platform/KeyEvents.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

// A window class of a terminal, where Ctrl+V is not paste.
bool isTerminalWindowClass(std::string_view windowClass);

class X11KeySender final : public KeyEvents {
public:
    // None, with the reason, when the server lacks XTEST.
    static std::variant<std::unique_ptr<X11KeySender>, std::string> create(MainLoop& loop, X11Connection& x11);
    ~X11KeySender() override;

    // Where KeyEvents::sendPaste learns which keystroke the settings ask for; automatic without it.
    void setKeystrokeSetting(std::function<PasteKeystroke()> setting) { keystrokeSetting_ = std::move(setting); }
    int currentModifierFlags() override;
    void sendPaste(std::function<void(bool)> done) override;

    // Sends the keystroke (automatic: by the active window's class) once the held modifiers
    // are up, then calls `done` with whether it was sent.
    void sendPaste(PasteKeystroke keystroke, std::function<void(bool)> done);

private:
    X11KeySender(MainLoop& loop, X11Connection& x11);
    // Modifier keys held now.
    std::vector<xcb_keycode_t> heldModifiers();
    void waitThenSend(std::vector<xcb_keysym_t> keys, int attemptsLeft, std::function<void(bool)> done);
    void press(const std::vector<xcb_keycode_t>& keys);
    std::optional<std::string> activeWindowClass();

    MainLoop& loop_;
    X11Connection& x11_;
    xcb_key_symbols_t* symbols_;
    std::function<PasteKeystroke()> keystrokeSetting_;
    TaskHandle wait_;
    Log log_{"paste"};
};

}  // namespace tamarind
