#include "platform/qt/QtStatusItem.h"

#include <QIcon>
#include <QPainter>
#include <QPixmap>

namespace tamarind {

namespace {

// A clipboard drawn in one colour: the monochrome look follows the panel's text colour as a
// mask; the coloured one is the accent, indigo.
QIcon clipboardIcon(StatusIconLook look) {
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor ink = look == StatusIconLook::colored ? QColor("#3B5BFD") : QColor(Qt::black);
    painter.setPen(QPen(ink, 6));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(12, 10, 40, 48), 6, 6);
    painter.setBrush(ink);
    painter.drawRoundedRect(QRectF(22, 4, 20, 12), 3, 3);
    painter.setPen(QPen(ink, 5));
    for (int y : {28, 38, 48}) painter.drawLine(QPointF(21, y), QPointF(43, y));
    painter.end();
    QIcon icon(pixmap);
    icon.setIsMask(look == StatusIconLook::monochrome);
    return icon;
}

}  // namespace

QtStatusItem::QtStatusItem() {
    tray_.setToolTip("Tamarind");
    tray_.setContextMenu(&menu_);
    setLook(StatusIconLook::monochrome);
}

void QtStatusItem::setMenu(std::vector<StatusMenuItem> items) {
    menu_.clear();
    actions_.clear();
    for (StatusMenuItem& item : items) {
        QAction* action = item.isSeparator() ? menu_.addSeparator() : menu_.addAction(QString::fromStdString(item.title));
        if (!item.isSeparator()) {
            action->setEnabled(static_cast<bool>(item.trigger));
            if (!item.shortcut.empty()) action->setShortcut(QKeySequence(QString::fromStdString(item.shortcut)));
            if (item.trigger) QObject::connect(action, &QAction::triggered, [trigger = std::move(item.trigger)] { trigger(); });
        }
        actions_.push_back(action);
    }
}

void QtStatusItem::setItemTitle(std::size_t index, const std::string& title) {
    if (index < actions_.size()) actions_[index]->setText(QString::fromStdString(title));
}

void QtStatusItem::setVisible(bool isVisible) { tray_.setVisible(isVisible); }

void QtStatusItem::setLook(StatusIconLook look) { tray_.setIcon(clipboardIcon(look)); }

void QtStatusItem::setToolTip(const std::string& text) { tray_.setToolTip(QString::fromStdString(text)); }

}  // namespace tamarind
