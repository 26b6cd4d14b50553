#pragma once
// The hotkey layer: one key combination per name, stored in the settings
// under "KeyboardShortcuts_<name>" as JSON ({"carbonKeyCode":…,
// "carbonModifiers":…}) or Boolean false for a shortcut the user cleared, so
// that a default doesn't come back. A name with a handler and a combination
// is registered with the system; its handler runs on each key-down. The keys
// are followed as every setting is (foundation/Preferences.h): a shortcut
// changed in the settings file by another program moves its grab at once.
// Main thread only.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Preferences.h"
#include "foundation/Log.h"
#include "platform/HotKeys.h"

namespace tamarind {

inline constexpr const char* kKeyboardShortcutsKeyPrefix = "KeyboardShortcuts_";

class KeyboardShortcuts final : public Preferences {
public:
    // `defaultFor` gives the default declared with a name, none for names without one.
    KeyboardShortcuts(Defaults& defaults, MainLoop& loop, HotKeys& hotKeys,
                      std::function<std::optional<Shortcut>(const std::string& name)> defaultFor);
    ~KeyboardShortcuts() override;

    // The stored combination; else the declared default unless the user cleared it.
    std::optional<Shortcut> getShortcut(const std::string& name) const;
    // None clears: Boolean false is stored for a name with a default, the key removed otherwise.
    void setShortcut(std::optional<Shortcut> shortcut, const std::string& name);
    // Back to the declared default, or to none.
    void reset(const std::string& name);

    // `alsoWithShift` also registers the combination with Shift added (when it has none), for
    // handlers that read Shift as "paste as plain text".
    void onKeyDown(const std::string& name, std::function<void()> handler, bool alsoWithShift = false);
    void removeHandler(const std::string& name);
    bool hasHandler(const std::string& name) const { return handlers_.contains(name); }

    // Called with the name after each change (the shortcutByNameDidChange notification).
    using ChangeObserver = std::function<void(const std::string& name)>;
    void addChangeObserver(ChangeObserver observer) { observers_.push_back(std::move(observer)); }

    // The names registered with the system now, with their combinations.
    std::map<std::string, Shortcut> registered() const;

private:
    struct Handler {
        std::function<void()> onKeyDown;
        bool alsoWithShift = false;
        std::vector<int> identifiers;  // registered hotkeys
        std::optional<Shortcut> shortcut;
    };
    void registerHandler(const std::string& name, Handler& handler);
    void unregisterHandler(Handler& handler);
    // Every change of a shortcut's key, made here or elsewhere: the grab moves, the observers hear.
    void keyDidChange(const std::string& key) override;
    void notifyChange(const std::string& name);

    HotKeys& hotKeys_;
    std::function<std::optional<Shortcut>(const std::string&)> defaultFor_;
    std::map<std::string, Handler> handlers_;
    std::vector<ChangeObserver> observers_;
    int nextIdentifier_ = 1;
    Log log_{"paste"};
};

}  // namespace tamarind
