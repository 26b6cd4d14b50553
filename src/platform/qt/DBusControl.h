#pragma once
// The running app on the session bus as com.tamarind.Tamarind: one instance per
// session (a second start asks the first to show itself), and the commands the
// command line sends it. Object /com/tamarind/Tamarind, interface
// com.tamarind.Tamarind: Show(), Pause(), Resume(), TogglePause(), the collect
// mode's CollectBegin(), CollectFinish(), CollectCancel(), CollectToggle(),
// Status() -> a JSON object of the capture state, PasteSlot(slot 1…10),
// PasteNext(), and SetShortcut(name, stored JSON or "" to clear) and
// ResetShortcut(name) -> "" or what went wrong, and ShortcutStates() -> a JSON
// object from each hotkey's name to "active", "taken" or "unused".

#include <QObject>
#include <QString>
#include <QVariantList>

#include <functional>
#include <optional>
#include <string>

namespace tamarind {

inline constexpr const char* kDBusServiceName = "com.tamarind.Tamarind";
inline constexpr const char* kDBusObjectPath = "/com/tamarind/Tamarind";

struct ControlHandlers {
    std::function<void()> show;
    std::function<void()> pause;
    std::function<void()> resume;
    std::function<void()> togglePause;
    std::function<std::string()> status;  // JSON
    std::function<void()> collectBegin;
    std::function<void()> collectFinish;
    std::function<void()> collectCancel;
    std::function<void()> collectToggle;
    std::function<void(int slot)> pasteSlot;  // 1 … 10
    std::function<void()> pasteNext;
    // "" when done, else the reason.
    std::function<std::string(const std::string& name, const std::string& json)> setShortcut;
    std::function<std::string(const std::string& name)> resetShortcut;
    std::function<std::string()> shortcutStates;  // JSON
};

class DBusControl final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tamarind.Tamarind")

public:
    enum class Claim { claimed, alreadyRunning, noBus };
    // Registers the object and takes the name. Needs a QCoreApplication.
    Claim claim(ControlHandlers handlers);

    // A method of the instance that runs, from another process: its string answer (empty for
    // the void ones), or none with the reason when no instance answers.
    struct Reply {
        bool isAnswered = false;
        std::string value;
        std::string error;
    };
    static Reply call(const std::string& method, const QVariantList& arguments = {});

public Q_SLOTS:
    void Show();
    void Pause();
    void Resume();
    void TogglePause();
    QString Status();
    void CollectBegin();
    void CollectFinish();
    void CollectCancel();
    void CollectToggle();
    void PasteSlot(int slot);
    void PasteNext();
    QString SetShortcut(const QString& name, const QString& json);
    QString ResetShortcut(const QString& name);
    QString ShortcutStates();

private:
    ControlHandlers handlers_;
};

}  // namespace tamarind
