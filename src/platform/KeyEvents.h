#pragma once
// Synthesised input for paste: the modifier keys held now, and the paste
// keystroke typed into the window in front. On X11 through XTest, once the
// modifiers the user still holds from a hotkey are up.

#include <functional>

namespace tamarind {

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
