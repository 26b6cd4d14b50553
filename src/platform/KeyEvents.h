#pragma once
// Synthesised input for paste: the modifier keys held now, and the paste
// keystroke typed into the window in front. On X11 through XTest, once the
// modifiers the user still holds from a hotkey are up.

#include <array>
#include <functional>
#include <string_view>

namespace tamarind {

// Which keystroke pastes: the setting `paste.keystroke`. `automatic` gives Ctrl+Shift+V into a
// known terminal (where Ctrl+V is not paste) and Ctrl+V elsewhere.
enum class PasteKeystroke { automatic, controlV, shiftInsert, controlShiftV };

inline constexpr std::array<PasteKeystroke, 4> kAllPasteKeystrokes = {
    PasteKeystroke::automatic, PasteKeystroke::controlV, PasteKeystroke::shiftInsert, PasteKeystroke::controlShiftV};

// "auto", "ctrl+v", "shift+insert", "ctrl+shift+v".
constexpr std::string_view rawValue(PasteKeystroke keystroke) {
    switch (keystroke) {
    case PasteKeystroke::automatic: return "auto";
    case PasteKeystroke::controlV: return "ctrl+v";
    case PasteKeystroke::shiftInsert: return "shift+insert";
    case PasteKeystroke::controlShiftV: return "ctrl+shift+v";
    }
    return "auto";
}

// Unknown strings read as automatic.
constexpr PasteKeystroke pasteKeystrokeOrAutomatic(std::string_view raw) {
    for (PasteKeystroke keystroke : kAllPasteKeystrokes)
        if (rawValue(keystroke) == raw) return keystroke;
    return PasteKeystroke::automatic;
}

class KeyEvents {
public:
    virtual ~KeyEvents() = default;
    // The modifiers held now, as ModifierFlag bits (platform/HotKeys.h).
    virtual int currentModifierFlags() = 0;
    // Types the paste keystroke into the window in front, then calls `done` on the main loop with
    // whether it was sent.
    virtual void sendPaste(std::function<void(bool sent)> done) = 0;
};

}  // namespace tamarind
