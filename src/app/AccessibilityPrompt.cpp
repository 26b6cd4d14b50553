#include "app/AccessibilityPrompt.h"

#include <string>

#include "paste/hotkeys/GlobalShortcuts.h"

namespace tamarind {

AlertContent accessibilityAlertContent(bool isWaylandSession) {
    std::string text = std::string(kAccessibilityAlertText) + ".";
    if (isWaylandSession)
        text +=
            "\n\nOn a Wayland session no program may type into another's window, so there is nothing to grant. "
            "Press Ctrl+V to paste it. To pick a clip by key, bind \u201Ctamarind paste-slot 1\u201D (through " +
            std::to_string(kPasteSlotCount) +
            ") to a shortcut in your desktop's keyboard settings: it puts that clip on the clipboard for Ctrl+V.";
    else
        text += "\n\nTamarind types keys through the X server's XTEST extension, which this display does not offer.";
    return AlertContent{kAccessibilityAlertTitle, std::move(text),
                        {kAccessibilityAlertOpenButton, kAccessibilityAlertLaterButton}};
}

AccessibilityPrompt::AccessibilityPrompt(Alerts& alerts, Permissions& permissions, bool isWaylandSession)
    : alerts_(alerts), permissions_(permissions), isWaylandSession_(isWaylandSession) {}

void AccessibilityPrompt::show() {
    if (isShowing_) return;
    isShowing_ = true;
    alerts_.runModal(accessibilityAlertContent(isWaylandSession_),
                     [this, alive = lifetime_.weak()](std::size_t button) {
                         if (!alive.isAlive()) return;
                         if (button == 0) permissions_.openSettings("accessibility");
                         isShowing_ = false;
                     });
}

}  // namespace tamarind
