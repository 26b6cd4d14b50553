#include "platform/qt/DBusControl.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace tamarind {

DBusControl::Claim DBusControl::claim(ControlHandlers handlers) {
    handlers_ = std::move(handlers);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return Claim::noBus;
    // The object first, so that a client that sees the name finds it.
    bus.registerObject(kDBusObjectPath, this, QDBusConnection::ExportAllSlots);
    if (bus.registerService(kDBusServiceName)) return Claim::claimed;
    bus.unregisterObject(kDBusObjectPath);
    return Claim::alreadyRunning;
}

DBusControl::Reply DBusControl::call(const std::string& method, const QVariantList& arguments) {
    // Blocking calls need an application object, which a command-line process makes here.
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "tamarind";
        static char* argv[] = {name, nullptr};
        static QCoreApplication application(argc, argv);
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return {false, {}, "there is no session bus (is DBUS_SESSION_BUS_ADDRESS set?)"};
    QDBusMessage message = QDBusMessage::createMethodCall(kDBusServiceName, kDBusObjectPath, kDBusServiceName,
                                                          QString::fromStdString(method));
    message.setArguments(arguments);
    QDBusMessage reply = bus.call(message, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        bool isAbsent = reply.errorName() == "org.freedesktop.DBus.Error.ServiceUnknown" ||
                        reply.errorName() == "org.freedesktop.DBus.Error.NameHasNoOwner";
        return {false, {}, isAbsent ? "Tamarind is not running; start it with `tamarind`" : reply.errorMessage().toStdString()};
    }
    std::string value;
    if (!reply.arguments().isEmpty()) value = reply.arguments().first().toString().toStdString();
    return {true, value, {}};
}

void DBusControl::Show() {
    if (handlers_.show) handlers_.show();
}
void DBusControl::Pause() {
    if (handlers_.pause) handlers_.pause();
}
void DBusControl::Resume() {
    if (handlers_.resume) handlers_.resume();
}
void DBusControl::TogglePause() {
    if (handlers_.togglePause) handlers_.togglePause();
}
void DBusControl::CollectBegin() {
    if (handlers_.collectBegin) handlers_.collectBegin();
}
void DBusControl::CollectFinish() {
    if (handlers_.collectFinish) handlers_.collectFinish();
}
void DBusControl::CollectCancel() {
    if (handlers_.collectCancel) handlers_.collectCancel();
}
void DBusControl::CollectToggle() {
    if (handlers_.collectToggle) handlers_.collectToggle();
}
void DBusControl::PasteSlot(int slot) {
    if (handlers_.pasteSlot) handlers_.pasteSlot(slot);
}
void DBusControl::PasteNext() {
    if (handlers_.pasteNext) handlers_.pasteNext();
}
QString DBusControl::SetShortcut(const QString& name, const QString& json) {
    if (!handlers_.setShortcut) return "shortcuts are not available";
    return QString::fromStdString(handlers_.setShortcut(name.toStdString(), json.toStdString()));
}
QString DBusControl::ResetShortcut(const QString& name) {
    if (!handlers_.resetShortcut) return "shortcuts are not available";
    return QString::fromStdString(handlers_.resetShortcut(name.toStdString()));
}
QString DBusControl::ShortcutStates() {
    return handlers_.shortcutStates ? QString::fromStdString(handlers_.shortcutStates()) : QString("{}");
}
QString DBusControl::Status() { return handlers_.status ? QString::fromStdString(handlers_.status()) : QString("{}"); }

}  // namespace tamarind
