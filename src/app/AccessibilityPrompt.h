#pragma once
// The alert that follows a paste the system would not let us press: the clip is on the clipboard,
// and the alert says how to make pastes work. One at a time: a request while it is up opens
// nothing. Main thread only.
//
// On a session where synthesised input can't work at all (Wayland), the text says so after the
// usual words and tells what works instead: a desktop shortcut running `tamarind paste-slot N`.

#include <memory>

#include "foundation/Lifetime.h"
#include "platform/Alerts.h"
#include "platform/Permissions.h"

namespace tamarind {

inline constexpr const char* kAccessibilityAlertTitle = "Tamarind needs Accessibility to paste";
inline constexpr const char* kAccessibilityAlertText =
    "Your clip was copied to the clipboard, but Tamarind could not press Command-V for you. Grant Accessibility in "
    "System Settings and the paste shortcuts start working immediately";
inline constexpr const char* kAccessibilityAlertOpenButton = "Open System Settings";
inline constexpr const char* kAccessibilityAlertLaterButton = "Not Now";

AlertContent accessibilityAlertContent(bool isWaylandSession);

class AccessibilityPrompt {
public:
    AccessibilityPrompt(Alerts& alerts, Permissions& permissions, bool isWaylandSession);
    ~AccessibilityPrompt() { lifetime_.end(); }
    AccessibilityPrompt(const AccessibilityPrompt&) = delete;
    AccessibilityPrompt& operator=(const AccessibilityPrompt&) = delete;

    void show();
    bool isShowing() const { return isShowing_; }

private:
    Alerts& alerts_;
    Permissions& permissions_;
    bool isWaylandSession_;
    bool isShowing_ = false;
    Lifetime lifetime_;
};

}  // namespace tamarind
