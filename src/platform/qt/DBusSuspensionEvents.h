#pragma once
// Suspension events from the buses: logind's PrepareForSleep, and a session's
// Lock, Unlock and Active property on the system bus, and the screensaver's ActiveChanged
// (freedesktop and GNOME names) on the session bus. A bus that isn't there
// gives no events and no error.

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include "platform/SuspensionEvents.h"

namespace tamarind {

class DBusSuspensionEvents final : public QObject, public SuspensionEvents {
    Q_OBJECT

public:
    DBusSuspensionEvents(QDBusConnection systemBus, QDBusConnection sessionBus);
    void setHandler(std::function<void(bool isSuspending, const std::string& reason)> handler) override {
        handler_ = std::move(handler);
    }

public Q_SLOTS:
    void prepareForSleep(bool isStarting);
    void sessionLocked();
    void sessionUnlocked();
    void screenSaverActiveChanged(bool isActive);
    void sessionPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private:
    void deliver(bool isSuspending, const std::string& reason);

    std::function<void(bool, const std::string&)> handler_;
};

}  // namespace tamarind
