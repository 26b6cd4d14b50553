#include "app/DesktopApp.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "app/AppState.h"
#include "foundation/PlistFileDefaults.h"
#include "foundation/PollMainLoop.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Workspace.h"

namespace tamarind {

int runDesktopApp(const Paths& paths) {
    Log log("app");
    if (auto error = paths.createFolders()) {
        log.fault("Could not create the library folders: %{public}s", error->message);
        return 1;
    }
    PollMainLoop loop;
    auto connection = X11Connection::open(loop);
    if (auto* error = std::get_if<std::string>(&connection)) {
        log.fault("Cannot start: %{public}s. Tamarind needs an X11 session (or Xwayland).", *error);
        return 1;
    }
    X11Connection& x11 = *std::get<std::unique_ptr<X11Connection>>(connection);
    auto clipboard = X11Clipboard::create(loop, x11);
    if (auto* error = std::get_if<std::string>(&clipboard)) {
        log.fault("Cannot watch the clipboard: %{public}s.", *error);
        return 1;
    }
    X11Workspace workspace(x11, X11Workspace::defaultApplicationFolders());

    // SIGINT and SIGTERM end the loop, through a descriptor, so that nothing runs in a handler.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    int signalFd = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    FdWatch signalWatch = loop.watchFd(signalFd, [&] {
        signalfd_siginfo info{};
        while (::read(signalFd, &info, sizeof info) == sizeof info) {
        }
        loop.quit();
    });

    PlistFileDefaults defaults(paths.defaultsFile(), [&loop] { return loop.clock().wallNow(); });
    AppState state(loop, defaults, paths,
                   PlatformServices{*std::get<std::unique_ptr<X11Clipboard>>(clipboard), workspace});
    state.start();
    log.log("Tamarind is capturing the clipboard; the library is %{public}s.", paths.applicationSupport.string());
    loop.run();
    log.log("Tamarind stopped.");
    signalWatch.stop();
    ::close(signalFd);
    return 0;
}

}  // namespace tamarind
