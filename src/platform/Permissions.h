#pragma once
// The two grants some features need: synthesised input (paste, text
// expansion) and reading the screen (colour picking, screen text). On X11
// every client has both; under Wayland neither comes to an X client for the
// native windows, which the backend reports as missing.

#include <string>

namespace tamarind {

class Permissions {
public:
    virtual ~Permissions() = default;
    virtual bool hasAccessibilityAccess() = 0;
    virtual bool hasScreenRecordingAccess() = 0;
    // Ask, where the system can be asked; the answer as it stands right after.
    virtual bool requestAccessibilityAccess() = 0;
    virtual bool requestScreenRecordingAccess() = 0;
    // Opens where the user grants it (a settings page or a help text); `which` is
    // "accessibility" or "screenRecording".
    virtual void openSettings(const std::string& which) = 0;
};

}  // namespace tamarind
