#pragma once
// The frontmost application on X11: the window _NET_ACTIVE_WINDOW names, its
// process (_NET_WM_PID) and class (WM_CLASS). The id is the Flatpak or Snap
// app id when the process runs in one, else the id of the desktop file that
// claims the window class, else the class itself; the name is the desktop
// file's Name, else the class. A window of this very process is this
// program's own (kOwnBundleID). Main thread only.
//
// The desktop files come from a DesktopEntryIndex, read on a worker. No
// answer waits for it: until its first reading is in (the first moments after
// start), and without an index, an application is named as one no desktop
// file claims: by its sandbox id, else its window class.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Lifetime.h"
#include "platform/Workspace.h"
#include "platform/x11/DesktopEntryIndex.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

class X11Workspace final : public Workspace {
public:
    // `applications`, which must outlive the workspace, names applications by their desktop
    // files; without it (a paste from the command line needs only the window) none is.
    explicit X11Workspace(X11Connection& x11, const DesktopEntryIndex* applications = nullptr);
    ~X11Workspace() override { lifetime_.end(); }

    std::optional<RunningApplication> frontmostApplication() override;
    // From the root window's _NET_ACTIVE_WINDOW, which the window manager sets.
    void setOnActivation(std::function<void()> onActivation) override;
    bool isTerminated(const RunningApplication& application) override;
    // Asks the window manager with a _NET_ACTIVE_WINDOW message; with no window manager running,
    // focuses and raises the window itself.
    bool activate(const RunningApplication& application) override;

    // "app-flatpak-org.mozilla.firefox-1234.scope" and "snap.firefox.firefox-…" in a process's
    // cgroup file give the sandbox's app id.
    static std::optional<std::string> sandboxAppID(const std::string& cgroup);
    // The application of a window class (WM_CLASS instance and class) among desktop entries.
    static RunningApplication applicationForClass(const std::string& instance, const std::string& windowClass,
                                                  const std::vector<DesktopEntry>& entries);

private:
    const std::vector<DesktopEntry>& entries() const;

    X11Connection& x11_;
    const DesktopEntryIndex* applications_;
    std::function<void()> onActivation_;
    bool isWatchingRoot_ = false;
    Lifetime lifetime_;
};

}  // namespace tamarind
