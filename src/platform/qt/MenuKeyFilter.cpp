#include "platform/qt/MenuKeyFilter.h"

#include <QApplication>
#include <QKeyEvent>
#include <QWidget>

namespace tamarind {

bool MenuKeyFilter::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress && QApplication::activePopupWidget()) {
        auto* key = static_cast<QKeyEvent*>(event);
        // Each press reaches the filter once per object it is delivered to: only the first counts.
        if (!key->isAutoRepeat() && watched == static_cast<QObject*>(QApplication::activePopupWidget()) &&
            dispatch_(key->nativeScanCode(), key->nativeModifiers()))
            return true;
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace tamarind
