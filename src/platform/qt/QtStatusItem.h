#pragma once
// The status item as a QSystemTrayIcon: a StatusNotifierItem on desktops that
// host them (KDE, GNOME with the AppIndicator extension, XFCE, most tiling
// bars), else the XEmbed tray. Needs a QApplication.

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include <vector>

#include "platform/StatusItem.h"

namespace tamarind {

class QtStatusItem final : public StatusItem {
public:
    QtStatusItem();

    void setMenu(std::vector<StatusMenuItem> items) override;
    void setItemTitle(std::size_t index, const std::string& title) override;
    void setVisible(bool isVisible) override;
    void setLook(StatusIconLook look) override;
    void setToolTip(const std::string& text) override;

    // For a look at it: the menu, as the icon would open it.
    QMenu& menu() { return menu_; }
    static bool isTrayAvailable() { return QSystemTrayIcon::isSystemTrayAvailable(); }

private:
    QSystemTrayIcon tray_;
    QMenu menu_;
    std::vector<QAction*> actions_;
};

}  // namespace tamarind
