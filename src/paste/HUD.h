#pragma once
// The small transient panel that tells the user what a hotkey did. The
// services say what to show and for how long; the toolkit draws it.

#include <optional>
#include <string>

#include "foundation/MainLoop.h"

namespace tamarind {

struct HUDContent {
    std::string systemImage;  // a symbol name: "doc.on.clipboard", "textformat", "tray", "lock.shield", ...
    std::string title;
    std::optional<std::string> subtitle;
    bool isError = false;
    friend bool operator==(const HUDContent&, const HUDContent&) = default;
};

class HUD {
public:
    virtual ~HUD() = default;
    // Shows `content` centred on the screen under the pointer, replacing what is shown, and
    // dismisses it after `duration` (a new show restarts the wait).
    virtual void show(HUDContent content, Duration duration) = 0;
    virtual void dismiss() = 0;
};

}  // namespace tamarind
