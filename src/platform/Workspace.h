#pragma once
// The desktop around the program: which application is in front. On X11 the
// active window's process gives the application id (Flatpak or Snap id, else
// the desktop file's id, else WM_CLASS) and its name.

#include <functional>
#include <optional>
#include <string>

namespace tamarind {

struct RunningApplication {
    std::optional<std::string> bundleID;
    std::optional<std::string> name;
    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

class Workspace {
public:
    virtual ~Workspace() = default;
    // None when no window is active (an empty desktop) or it can't be told.
    virtual std::optional<RunningApplication> frontmostApplication() = 0;
    // Called on the main loop each time another window becomes the active one.
    virtual void setOnActivation(std::function<void()> onActivation) = 0;
};

}  // namespace tamarind
