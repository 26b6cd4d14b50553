// Saves a picture of one of the app's Qt surfaces, as the app builds it, for looking at it under
// Xvfb without a panel or a window manager (not a test):
//   ui_shot OUT.png menu [paused] [collecting]   the status icon's menu
//   ui_shot OUT.png collect N                    collect mode's panel with N copies staged
//   ui_shot OUT.png hud [error|stored] [dark]    the paste feedback panel, over a light or dark desktop
//   ui_shot OUT.png alert [x11] [dark]           the alert after a paste the session would not press
//                                                (on Wayland unless x11), in a light or dark palette
//   ui_shot OUT.png screen                       the whole screen, as the running app left it

#include <QApplication>
#include <QPalette>
#include <QScreen>
#include <QTimer>

#include <cstring>
#include <string>

#include "app/AccessibilityPrompt.h"
#include "app/MenuBarController.h"
#include "platform/qt/QtAlerts.h"
#include "platform/qt/QtMainLoop.h"
#include "platform/qt/QtStatusItem.h"
#include "ui/CollectModeHUD.h"
#include "ui/HUDController.h"

int main(int argc, char** argv) {
    using namespace tamarind;
    if (argc < 3) {
        std::fprintf(stderr,
                     "usage: ui_shot OUT.png menu [paused] [collecting] | collect N | hud [error|stored] | alert | "
                     "screen\n");
        return 2;
    }
    QApplication application(argc, argv);
    // The whole screen as it is, for a look at the running app's windows.
    if (std::strcmp(argv[2], "screen") == 0) return QGuiApplication::primaryScreen()->grabWindow(0).save(argv[1]) ? 0 : 1;
    auto has = [&](const char* word) {
        for (int i = 3; i < argc; ++i)
            if (std::strcmp(argv[i], word) == 0) return true;
        return false;
    };
    if (std::strcmp(argv[2], "alert") == 0) {
        if (has("dark")) {
            // What a desktop with a dark theme hands every Qt window.
            QApplication::setStyle("Fusion");
            QPalette dark;
            dark.setColor(QPalette::Window, QColor(45, 45, 48));
            dark.setColor(QPalette::WindowText, QColor(235, 235, 238));
            dark.setColor(QPalette::Base, QColor(30, 30, 32));
            dark.setColor(QPalette::Text, QColor(235, 235, 238));
            dark.setColor(QPalette::Button, QColor(60, 60, 64));
            dark.setColor(QPalette::ButtonText, QColor(235, 235, 238));
            dark.setColor(QPalette::Highlight, QColor(59, 91, 253));
            QApplication::setPalette(dark);
        }
        QtAlerts alerts;
        alerts.runModal(accessibilityAlertContent(!has("x11")), [](std::size_t) {});
        QTimer::singleShot(600, [&] {
            QWidget* box = QApplication::activeModalWidget();
            QRect area = box ? box->geometry().adjusted(-20, -20, 20, 20) : QRect();
            QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height());
            QApplication::exit(box && shot.save(argv[1]) ? 0 : 1);
        });
        return QApplication::exec();
    }
    QtMainLoop loop;
    InMemoryDefaults defaults;
    AppearancePreferences appearance(defaults, loop);
    CapturePreferences preferences(defaults, loop);
    auto memory = *ModelContainer::openInMemory();
    ClipStore store(loop, TamarindStores{std::move(memory), nullptr, false}, BlobStore("/tmp/ui-shot-blobs"), "SHOT");
    CollectModeService collectMode(loop, store, BlobStore("/tmp/ui-shot-blobs"), preferences);
    Observable<bool> isPaused(loop, has("paused"));
    Observable<bool> isCollecting(loop, has("collecting"));
    QtStatusItem item;
    MenuBarController::Actions actions;
    actions.togglePauseCapture = [] {};
    actions.toggleCollectMode = [] {};
    actions.quit = [] {};
    MenuBarController controller(item, isPaused, isCollecting, store.health(), appearance, actions);
    CollectModeHUD hud(collectMode);
    HUDController pasteHUD(loop);
    // A light desktop behind the paste panel, so that the picture shows whether its corners are
    // cut or drawn black (Xvfb's root is black, and it has no compositor to blend translucency).
    QWidget desktop(nullptr, Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint);

    bool isMenu = std::strcmp(argv[2], "menu") == 0;
    bool isPasteHUD = std::strcmp(argv[2], "hud") == 0;
    if (isMenu) {
        item.menu().popup(QPoint(20, 20));
    } else if (isPasteHUD) {
        desktop.setGeometry(QGuiApplication::primaryScreen()->geometry());
        desktop.setStyleSheet(has("dark") ? "background: #1E2024;" : "background: #D9DEE7;");
        desktop.show();
        QTimer::singleShot(200, [&] {
            if (has("error")) {
                pasteHUD.show({"tray", "No clip in slot 4", std::nullopt, true}, std::chrono::seconds(5));
            } else if (has("stored")) {
                pasteHUD.show({"square.stack.3d.up.fill", collectFinishTitle(3), kCollectModeStoredDetail, false},
                              std::chrono::seconds(5));
            } else {
                pasteHUD.show({"doc.on.clipboard", "Pasted slot 3", "Quarterly report draft\u2026", false},
                              std::chrono::seconds(5));
            }
        });
    } else {
        collectMode.begin();
        int staged = argc > 3 ? std::atoi(argv[3]) : 0;
        for (int i = 0; i < staged; ++i) {
            PasteboardSnapshot snapshot;
            snapshot.string = "copy " + std::to_string(i + 1);
            collectMode.stage(snapshot, ClipKind::text);
        }
    }
    QTimer::singleShot(600, [&] {
        QWidget* shown = isMenu ? static_cast<QWidget*>(&item.menu()) : isPasteHUD ? pasteHUD.panel() : hud.panel();
        QRect area = shown ? shown->geometry().adjusted(-20, -20, 20, 20) : QRect();
        QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height());
        QApplication::exit(shown && shot.save(argv[1]) ? 0 : 1);
    });
    return QApplication::exec();
}
