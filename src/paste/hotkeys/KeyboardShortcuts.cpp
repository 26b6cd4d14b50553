#include "paste/hotkeys/KeyboardShortcuts.h"

namespace tamarind {

namespace {

std::string keyFor(const std::string& name) { return kKeyboardShortcutsKeyPrefix + name; }

}  // namespace

KeyboardShortcuts::KeyboardShortcuts(Defaults& defaults, MainLoop& loop, HotKeys& hotKeys,
                                     std::function<std::optional<Shortcut>(const std::string&)> defaultFor)
    : Preferences(defaults, loop), hotKeys_(hotKeys), defaultFor_(std::move(defaultFor)) {}

KeyboardShortcuts::~KeyboardShortcuts() {
    for (auto& [name, handler] : handlers_) unregisterHandler(handler);
}

std::optional<Shortcut> KeyboardShortcuts::getShortcut(const std::string& name) const {
    std::optional<PlistValue> stored = defaults().object(keyFor(name));
    if (!stored) return defaultFor_(name);
    if (stored->isString()) return Shortcut::fromJson(*defaults().string(keyFor(name)));
    // False, or anything else that isn't a shortcut: none, and the default stays away.
    return std::nullopt;
}

void KeyboardShortcuts::setShortcut(std::optional<Shortcut> shortcut, const std::string& name) {
    keepUnreadableValueAside(defaults(), keyFor(name), [](const PlistValue& stored) {
        return stored.isBool() || (stored.asString() && Shortcut::fromJson(*stored.asString()).has_value());
    });
    if (shortcut) {
        defaults().set(keyFor(name), PlistValue(shortcut->json()));
    } else if (defaultFor_(name)) {
        defaults().set(keyFor(name), PlistValue(false));
    } else {
        defaults().remove(keyFor(name));
    }
}

void KeyboardShortcuts::keyDidChange(const std::string& key) {
    if (!key.starts_with(kKeyboardShortcutsKeyPrefix)) return;
    std::string name = key.substr(std::string_view(kKeyboardShortcutsKeyPrefix).size());
    if (auto handler = handlers_.find(name); handler != handlers_.end()) {
        unregisterHandler(handler->second);
        registerHandler(name, handler->second);
    }
    notifyChange(name);
}

void KeyboardShortcuts::reset(const std::string& name) { setShortcut(defaultFor_(name), name); }

void KeyboardShortcuts::onKeyDown(const std::string& name, std::function<void()> onKeyDown, bool alsoWithShift) {
    Handler& handler = handlers_[name];
    unregisterHandler(handler);
    handler.onKeyDown = std::move(onKeyDown);
    handler.alsoWithShift = alsoWithShift;
    registerHandler(name, handler);
}

void KeyboardShortcuts::removeHandler(const std::string& name) {
    auto handler = handlers_.find(name);
    if (handler == handlers_.end()) return;
    unregisterHandler(handler->second);
    handlers_.erase(handler);
}

std::map<std::string, Shortcut> KeyboardShortcuts::registered() const {
    std::map<std::string, Shortcut> names;
    for (const auto& [name, handler] : handlers_)
        if (handler.shortcut && !handler.identifiers.empty()) names.emplace(name, *handler.shortcut);
    return names;
}

void KeyboardShortcuts::registerHandler(const std::string& name, Handler& handler) {
    handler.shortcut = getShortcut(name);
    if (!handler.shortcut) return;
    // The handler is looked up at each press, so that one replaced meanwhile is the one called.
    auto call = [this, name] {
        if (auto found = handlers_.find(name); found != handlers_.end() && found->second.onKeyDown)
            found->second.onKeyDown();
    };
    int identifier = nextIdentifier_++;
    int status = hotKeys_.registerHotKey(identifier, *handler.shortcut, call);
    if (status != 0) {
        // The stored value stays, so a later start tries it again.
        log_.error("Error registering hotkey %{public}s: %{public}d", handler.shortcut->description(), status);
        return;
    }
    handler.identifiers.push_back(identifier);
    if (handler.alsoWithShift && !(handler.shortcut->modifierFlags() & ModifierFlag::shift)) {
        Shortcut shifted = Shortcut::withFlags(handler.shortcut->carbonKeyCode,
                                               handler.shortcut->modifierFlags() | ModifierFlag::shift);
        int shiftedIdentifier = nextIdentifier_++;
        if (hotKeys_.registerHotKey(shiftedIdentifier, shifted, call) == 0) {
            handler.identifiers.push_back(shiftedIdentifier);
        } else {
            log_.debug("%{public}s is taken; Shift with %{public}s won't paste plain text.", shifted.description(),
                       name);
        }
    }
}

void KeyboardShortcuts::unregisterHandler(Handler& handler) {
    for (int identifier : handler.identifiers) hotKeys_.unregisterHotKey(identifier);
    handler.identifiers.clear();
}

void KeyboardShortcuts::notifyChange(const std::string& name) {
    for (const ChangeObserver& observer : std::vector<ChangeObserver>(observers_)) observer(name);
}

}  // namespace tamarind
