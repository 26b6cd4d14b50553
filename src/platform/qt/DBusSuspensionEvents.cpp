#include "platform/qt/DBusSuspensionEvents.h"

#include <cstdlib>

namespace tamarind {

DBusSuspensionEvents::DBusSuspensionEvents(QDBusConnection systemBus, QDBusConnection sessionBus) {
    if (systemBus.isConnected()) {
        systemBus.connect("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                          "PrepareForSleep", this, SLOT(prepareForSleep(bool)));
        // Our session's object; an empty path would hear every session's locks.
        QString session = "/org/freedesktop/login1/session/auto";
        if (const char* id = std::getenv("XDG_SESSION_ID"); id && *id)
            session = QString("/org/freedesktop/login1/session/") + id;
        systemBus.connect("org.freedesktop.login1", session, "org.freedesktop.login1.Session", "Lock", this,
                          SLOT(sessionLocked()));
        systemBus.connect("org.freedesktop.login1", session, "org.freedesktop.login1.Session", "Unlock", this,
                          SLOT(sessionUnlocked()));
        // A switch to another user's session makes ours inactive.
        systemBus.connect("org.freedesktop.login1", session, "org.freedesktop.DBus.Properties", "PropertiesChanged",
                          this, SLOT(sessionPropertiesChanged(QString, QVariantMap, QStringList)));
    }
    if (sessionBus.isConnected()) {
        // Any sender: the screensaver's unique name changes when it restarts.
        sessionBus.connect(QString(), "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged",
                           this, SLOT(screenSaverActiveChanged(bool)));
        sessionBus.connect(QString(), "/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", this,
                           SLOT(screenSaverActiveChanged(bool)));
    }
}

void DBusSuspensionEvents::deliver(bool isSuspending, const std::string& reason) {
    if (handler_) handler_(isSuspending, reason);
}

void DBusSuspensionEvents::prepareForSleep(bool isStarting) { deliver(isStarting, "PrepareForSleep"); }
void DBusSuspensionEvents::sessionLocked() { deliver(true, "Lock"); }
void DBusSuspensionEvents::sessionUnlocked() { deliver(false, "Unlock"); }
void DBusSuspensionEvents::sessionPropertiesChanged(const QString& interface, const QVariantMap& changed,
                                                    const QStringList&) {
    if (interface != "org.freedesktop.login1.Session" || !changed.contains("Active")) return;
    deliver(!changed.value("Active").toBool(), "Active");
}

void DBusSuspensionEvents::screenSaverActiveChanged(bool isActive) { deliver(isActive, "ScreenSaver.ActiveChanged"); }

}  // namespace tamarind
