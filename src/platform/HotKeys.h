#pragma once
// System-wide hotkeys, for the combinations Shortcut describes; each backend
// maps them to its own keys (on X11: Command = Super, Control, Shift, Option = Alt).

#include <functional>

#include "platform/Shortcut.h"

namespace tamarind {

class HotKeys {
public:
    virtual ~HotKeys() = default;
    // Takes the combination for the whole session and calls `onKeyDown` on the main loop at each
    // press. Returns 0 when it is registered, else the system's status code (on X11 the X error,
    // 10 when another client holds the grab, -1 when the key can't be typed on this keyboard);
    // nothing is registered then.
    virtual int registerHotKey(int identifier, const Shortcut& shortcut, std::function<void()> onKeyDown) = 0;
    virtual void unregisterHotKey(int identifier) = 0;
};

}  // namespace tamarind
