// Saves a picture of the status icon's menu as the app builds it, for looking at it without a
// panel: status_menu_shot OUT.png [paused] [collecting]. Needs a display (Xvfb will do).

#include <QApplication>
#include <QScreen>
#include <QTimer>

#include <cstring>

#include "app/MenuBarController.h"
#include "platform/qt/QtMainLoop.h"
#include "platform/qt/QtStatusItem.h"

int main(int argc, char** argv) {
    using namespace tamarind;
    if (argc < 2) {
        std::fprintf(stderr, "usage: status_menu_shot OUT.png [paused] [collecting]\n");
        return 2;
    }
    QApplication application(argc, argv);
    QtMainLoop loop;
    InMemoryDefaults defaults;
    AppearancePreferences appearance(defaults, loop);
    auto has = [&](const char* word) {
        for (int i = 2; i < argc; ++i)
            if (std::strcmp(argv[i], word) == 0) return true;
        return false;
    };
    Observable<bool> isPaused(loop, has("paused"));
    Observable<bool> isCollecting(loop, has("collecting"));
    QtStatusItem item;
    MenuBarController::Actions actions;
    actions.togglePauseCapture = [] {};
    actions.toggleCollectMode = [] {};
    actions.quit = [] {};
    MenuBarController controller(item, isPaused, isCollecting, appearance, actions);
    item.menu().popup(QPoint(20, 20));
    QTimer::singleShot(500, [&] {
        QRect area = item.menu().geometry().adjusted(-20, -20, 20, 20);
        QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(0, area.x(), area.y(), area.width(), area.height());
        bool saved = shot.save(argv[1]);
        QApplication::exit(saved ? 0 : 1);
    });
    return QApplication::exec();
}
