#pragma once
// The frontmost application on X11: the window _NET_ACTIVE_WINDOW names, its
// process (_NET_WM_PID) and class (WM_CLASS). The id is the Flatpak or Snap
// app id when the process runs in one, else the id of the desktop file that
// claims the window class, else the class itself; the name is the desktop
// file's Name, else the class. A window of this very process is this
// program's own (kOwnBundleID). Main thread only.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Lifetime.h"
#include "platform/Workspace.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

// What a desktop file says of an application.
struct DesktopEntry {
    std::string id;    // "org.gnome.TextEditor" for org.gnome.TextEditor.desktop
    std::string name;  // its Name
    std::string startupWMClass;
};

class X11Workspace final : public Workspace {
public:
    // `applicationFolders`: where desktop files are looked for, most important first
    // ($XDG_DATA_HOME/applications, then each of $XDG_DATA_DIRS).
    X11Workspace(X11Connection& x11, std::vector<std::string> applicationFolders);
    ~X11Workspace() override { lifetime_.end(); }

    std::optional<RunningApplication> frontmostApplication() override;
    // From the root window's _NET_ACTIVE_WINDOW, which the window manager sets.
    void setOnActivation(std::function<void()> onActivation) override;
    bool isTerminated(const RunningApplication& application) override;
    // Asks the window manager with a _NET_ACTIVE_WINDOW message; with no window manager running,
    // focuses and raises the window itself.
    bool activate(const RunningApplication& application) override;

    // The folders of the XDG base-directory rules.
    static std::vector<std::string> defaultApplicationFolders();
    // "app-flatpak-org.mozilla.firefox-1234.scope" and "snap.firefox.firefox-…" in a process's
    // cgroup file give the sandbox's app id.
    static std::optional<std::string> sandboxAppID(const std::string& cgroup);
    // The application of a window class (WM_CLASS instance and class) among desktop entries.
    static RunningApplication applicationForClass(const std::string& instance, const std::string& windowClass,
                                                  const std::vector<DesktopEntry>& entries);

private:
    const std::vector<DesktopEntry>& entries();

    X11Connection& x11_;
    std::vector<std::string> applicationFolders_;
    std::optional<std::vector<DesktopEntry>> entries_;
    std::function<void()> onActivation_;
    bool isWatchingRoot_ = false;
    Lifetime lifetime_;
};

}  // namespace tamarind
