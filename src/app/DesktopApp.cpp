#include "app/DesktopApp.h"

#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <xcb/xcb.h>

#include <QApplication>

#include "app/AppControl.h"
#include "app/AppState.h"
#include "app/MenuBarController.h"
#include "foundation/PlistFileDefaults.h"
#include "foundation/Worker.h"
#include "platform/qt/DBusControl.h"
#include "platform/qt/DBusSuspensionEvents.h"
#include "platform/qt/MenuKeyFilter.h"
#include "platform/qt/QtAlerts.h"
#include "platform/qt/QtMainLoop.h"
#include "platform/qt/QtStatusItem.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11KeySender.h"
#include "platform/x11/X11Permissions.h"
#include "platform/x11/X11Workspace.h"
#include "platform/xdg/XdgAutostart.h"
#include "ui/CollectModeHUD.h"
#include "ui/HUDController.h"

namespace tamarind {

namespace {

sigset_t quitSignalSet() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// SIGINT and SIGTERM end the app through a descriptor, so that nothing runs in a handler. They
// are blocked before any thread starts (Qt's D-Bus thread inherits the mask), so that none of
// them takes the signal with its default action.
class QuitSignals {
public:
    static void block() {
        sigset_t signals = quitSignalSet();
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    explicit QuitSignals(MainLoop& loop) {
        sigset_t signals = quitSignalSet();
        fd_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
        watch_ = loop.watchFd(fd_, [this] {
            signalfd_siginfo info{};
            while (::read(fd_, &info, sizeof info) == sizeof info) {
            }
            QApplication::quit();
        });
    }
    ~QuitSignals() {
        watch_.stop();
        ::close(fd_);
    }

private:
    int fd_ = -1;
    FdWatch watch_;
};

// Qt aborts (with a core dump) when it finds no display, so ask first, and answer in one line.
std::optional<std::string> missingDisplay() {
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display) return "DISPLAY is not set";
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    bool fails = xcb_connection_has_error(connection) != 0;
    xcb_disconnect(connection);
    if (fails) return "cannot open display " + std::string(display);
    return std::nullopt;
}

}  // namespace

int runDesktopApp(const Paths& paths, bool isTestHost) {
    Log log("app");
    if (auto why = missingDisplay()) {
        std::fprintf(stderr,
                     "tamarind: %s. The app needs an X11 or Xwayland session; the commands (tamarind --help) "
                     "work without one.\n",
                     why->c_str());
        return 1;
    }
    QuitSignals::block();
    static int argc = 1;
    static char name[] = "tamarind";
    static char* argv[] = {name, nullptr};
    QApplication application(argc, argv);
    QApplication::setApplicationName("Tamarind");
    QApplication::setDesktopFileName("com.tamarind.Tamarind");
    // Closing a window never ends the app; Quit in the menu or a signal does.
    QApplication::setQuitOnLastWindowClosed(false);
    QtMainLoop loop;

    // One instance per session: a second start asks the first to show itself.
    DBusControl control;
    // The app once it runs, and none again at quit: what the bus commands and the keystroke reach.
    AppState* running = nullptr;
    switch (control.claim(appControlHandlers(running))) {
    case DBusControl::Claim::claimed: break;
    case DBusControl::Claim::alreadyRunning:
        DBusControl::call("Show");
        log.log("Tamarind is already running in this session; it was asked to show itself.");
        return 0;
    case DBusControl::Claim::noBus:
        log.error("No session bus: running without single-instance checks, and the pause, resume and status "
                  "commands can't reach this app.");
        break;
    }

    if (auto error = paths.createFolders()) {
        log.fault("Could not create the library folders: %{public}s", error->message);
        return 1;
    }
    auto connection = X11Connection::open(loop);
    if (auto* error = std::get_if<std::string>(&connection)) {
        log.fault("Cannot start: %{public}s. Tamarind needs an X11 session (or Xwayland).", *error);
        return 1;
    }
    X11Connection& x11 = *std::get<std::unique_ptr<X11Connection>>(connection);
    // The session ended, or the X server died: nothing more can be captured.
    x11.setOnDisconnected([log] {
        log.error("Lost the connection to the X display; stopping.");
        QApplication::exit(1);
    });
    // The platform's slow work: images offered in other formats made PNG, desktop files read.
    ThreadWorker platformWorker;
    auto clipboard = X11Clipboard::create(loop, x11, &platformWorker);
    if (auto* error = std::get_if<std::string>(&clipboard)) {
        log.fault("Cannot watch the clipboard: %{public}s.", *error);
        return 1;
    }
    DesktopEntryIndex applications(loop, platformWorker, DesktopEntryIndex::defaultFolders());
    X11Workspace workspace(x11, &applications);
    DBusSuspensionEvents suspension(QDBusConnection::systemBus(), QDBusConnection::sessionBus());
    X11Permissions permissions(X11Permissions::isWaylandSessionNow());
    std::optional<XdgAutostart> loginItem;
    if (auto folder = XdgAutostart::defaultFolder()) loginItem.emplace(*folder, XdgAutostart::thisProgram());
    QuitSignals quitSignals(loop);

    PlistFileDefaults defaults(paths.defaultsFile(), [&loop] { return loop.clock().wallNow(); });
    // `tamarind settings set` while the app runs: taken in at once, and never written over.
    defaults.watchForOutsideChanges(loop);
    auto keySender = X11KeySender::create(loop, x11);
    X11KeySender* keys = nullptr;
    if (auto* sender = std::get_if<std::unique_ptr<X11KeySender>>(&keySender)) {
        keys = sender->get();
        keys->setKeystrokeSetting([&running] {
            return running ? running->preferences().pasteKeystroke().value() : PasteKeystroke::automatic;
        });
    } else {
        log.error("No paste keystroke: %{public}s. A paste leaves the clip on the clipboard.",
                  std::get<std::string>(keySender));
    }
    X11HotKeys hotKeys(loop, x11);
    HUDController hud(loop);
    QtAlerts alerts;
    AppState state(loop, defaults, paths,
                   PlatformServices{*std::get<std::unique_ptr<X11Clipboard>>(clipboard), workspace, &suspension,
                                    loginItem ? &*loginItem : nullptr, &permissions, keys, &hotKeys, &hud, &alerts,
                                    X11Permissions::isWaylandSessionNow()});
    // The capture size limit holds while the clipboard is read, so that a huge copy is never
    // read whole only to be refused.
    X11Clipboard& x11Clipboard = *std::get<std::unique_ptr<X11Clipboard>>(clipboard);
    x11Clipboard.setMaximumBytes(captureLimits(state.preferences()).maximumBytes);
    Subscription clipboardLimit = state.preferences().maximumMegabytes().subscribe(
        [&x11Clipboard, &state](const double&) {
            x11Clipboard.setMaximumBytes(captureLimits(state.preferences()).maximumBytes);
        },
        true);
    if (isTestHost) {
        // Tests of the process itself: no menu, no capture, nothing that reaches the desktop.
        log.log("Launched as a test host; skipping UI and capture setup.");
        QApplication::exec();
        return 0;
    }
    AppearancePreferences appearance(defaults, loop);
    QtStatusItem statusItem;
    MenuBarController::Actions actions;
    actions.togglePauseCapture = [&state] { state.togglePause(); };
    actions.toggleCollectMode = [&state] { state.collectMode().toggle(); };
    actions.quit = [] { QApplication::quit(); };
    MenuBarController menuBar(statusItem, state.isCapturePaused(), state.collectMode().isActive(),
                              state.store().health(), appearance, std::move(actions));
    if (!QtStatusItem::isTrayAvailable())
        log.info("No status area on this desktop: the icon shows once one appears (a StatusNotifierItem host).");
    state.start();
    MenuKeyFilter menuKeys([&hotKeys](std::uint32_t keycode, std::uint32_t modifiers) {
        return hotKeys.dispatchKeyPress(static_cast<xcb_keycode_t>(keycode), static_cast<uint16_t>(modifiers));
    });
    application.installEventFilter(&menuKeys);
    CollectModeHUD collectHUD(state.collectMode());
    log.log("Registered collect mode.");
    running = &state;
    log.log("Login item status: %{public}s.", loginItemStatusText(state.launchAtLoginStatus().value()));
    log.log("Tamarind launched as an accessory app.");
    log.log("It runs in the status area, without a window; the library is %{public}s.",
            state.store().health()->kind == LibraryHealth::Kind::inMemory ? std::string("in memory only")
                                                                           : paths.applicationSupport.string());
    QApplication::exec();
    running = nullptr;
    log.log("Tamarind stopped.");
    return 0;
}

}  // namespace tamarind
