#pragma once
// The desktop around the program: which application is in front. On X11 the
// active window's process gives the application id (Flatpak or Snap id, else
// the desktop file's id, else WM_CLASS) and its name.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tamarind {

// This program's own application id (its desktop file's name), which its own windows report.
inline constexpr const char* kOwnBundleID = "com.tamarind.Tamarind";

struct RunningApplication {
    std::optional<std::string> bundleID;
    std::optional<std::string> name;
    // Which of its windows was in front, for bringing it back (an X window id); 0 when unknown.
    std::uint64_t window = 0;
    friend bool operator==(const RunningApplication&, const RunningApplication&) = default;
};

class Workspace {
public:
    virtual ~Workspace() = default;
    // None when no window is active (an empty desktop) or it can't be told.
    virtual std::optional<RunningApplication> frontmostApplication() = 0;
    // Called on the main loop each time another window becomes the active one.
    virtual void setOnActivation(std::function<void()> onActivation) = 0;
    // True when the application's window is gone (it quit, or closed that window).
    virtual bool isTerminated(const RunningApplication& application) = 0;
    // Brings the application's window to the front with the keyboard focus; false when it is gone.
    virtual bool activate(const RunningApplication& application) = 0;
};

}  // namespace tamarind
