#pragma once
// On an X11 session every client may send input (XTest) and read the screen,
// so both grants hold. On a Wayland session this X client reaches only
// Xwayland's windows, so both read as missing; opening "settings" logs where to
// read why (docs/app.md).

#include "foundation/Log.h"
#include "platform/Permissions.h"

namespace tamarind {

class X11Permissions final : public Permissions {
public:
    // `isWaylandSession`: XDG_SESSION_TYPE is "wayland".
    explicit X11Permissions(bool isWaylandSession) : isGranted_(!isWaylandSession) {}
    static bool isWaylandSessionNow();

    bool hasAccessibilityAccess() override { return isGranted_; }
    bool hasScreenRecordingAccess() override { return isGranted_; }
    bool requestAccessibilityAccess() override { return isGranted_; }
    bool requestScreenRecordingAccess() override { return isGranted_; }
    void openSettings(const std::string& which) override;

private:
    bool isGranted_;
    Log log_{"app"};
};

}  // namespace tamarind
