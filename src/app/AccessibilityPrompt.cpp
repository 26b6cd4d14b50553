#include "app/AccessibilityPrompt.h"

namespace tamarind {

AlertContent accessibilityAlertContent(bool isWaylandSession) {
    std::string text = std::string(kAccessibilityAlertText) + ".";
    if (isWaylandSession)
        text +=
            "\n\nOn this Wayland session no program may type into another's window, so there is nothing to grant: "
            "paste with Ctrl+V yourself, or bind `tamarind paste-slot 1` (to 10) to a shortcut in your desktop's "
            "keyboard settings, which pastes without typing for you.";
    else
        text += "\n\nOn this desktop that means the X server's XTEST extension, which lets a program type keys.";
    return AlertContent{kAccessibilityAlertTitle, std::move(text),
                        {kAccessibilityAlertOpenButton, kAccessibilityAlertLaterButton}};
}

AccessibilityPrompt::AccessibilityPrompt(Alerts& alerts, Permissions& permissions, bool isWaylandSession)
    : alerts_(alerts), permissions_(permissions), isWaylandSession_(isWaylandSession) {}

void AccessibilityPrompt::show() {
    if (isShowing_) return;
    isShowing_ = true;
    alerts_.runModal(accessibilityAlertContent(isWaylandSession_),
                     [this, alive = std::weak_ptr<bool>(isAlive_)](std::size_t button) {
                         if (alive.expired()) return;
                         if (button == 0) permissions_.openSettings("accessibility");
                         isShowing_ = false;
                     });
}

}  // namespace tamarind
