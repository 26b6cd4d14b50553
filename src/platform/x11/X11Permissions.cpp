#include "platform/x11/X11Permissions.h"

#include <cstdlib>
#include <string_view>

namespace tamarind {

bool X11Permissions::isWaylandSessionNow() {
    const char* type = std::getenv("XDG_SESSION_TYPE");
    return type && std::string_view(type) == "wayland";
}

void X11Permissions::openSettings(const std::string& which) {
    // No desktop has a page that grants these to an X client; the reason is all there is to show.
    log_.log("%{public}s is not available to Tamarind on a Wayland session: it reaches only Xwayland's windows "
             "(see docs/app.md).",
             which == "accessibility" ? "Synthesised input" : "Reading the screen");
}

}  // namespace tamarind
