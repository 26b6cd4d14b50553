#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11Keysyms.h"

#include <X11/keysym.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <optional>

namespace tamarind {

namespace {

// The core protocol's modifier bits; the rest of a key event's state is buttons and the xkb group.
constexpr uint16_t kModifierBits = 0xff;

bool contains(const auto& range, const auto& value) {
    return std::find(std::begin(range), std::end(range), value) != std::end(range);
}

}  // namespace

X11HotKeys::X11HotKeys(MainLoop& loop, X11Connection& x11)
    : loop_(loop), x11_(x11), symbols_(xcb_key_symbols_alloc(x11.connection())) {
    readModifierMapping();
    x11_.addListener([this, alive = lifetime_.weak()](const xcb_generic_event_t& event) {
        if (alive.isAlive()) onEvent(event);
    });
}

X11HotKeys::~X11HotKeys() {
    lifetime_.end();
    for (const auto& [identifier, registration] : registrations_) ungrab(registration.grabs);
    xcb_flush(x11_.connection());
    xcb_key_symbols_free(symbols_);
}

// The lock modifiers and Super are wherever the keyboard map puts their keys.
void X11HotKeys::readModifierMapping() {
    xcb_connection_t* connection = x11_.connection();
    auto* mapping = xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr);
    x11_.flush();
    superMask_ = XCB_MOD_MASK_4;
    numLockMask_ = XCB_MOD_MASK_2;
    if (!mapping) return;
    const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping);
    const int perModifier = mapping->keycodes_per_modifier;
    // The first of Mod1..Mod5 that a key typing one of `wanted` sets.
    auto modifierOf = [&](std::initializer_list<xcb_keysym_t> wanted) -> std::optional<uint16_t> {
        for (int modifier = 3; modifier < 8; ++modifier) {
            for (int i = 0; i < perModifier; ++i) {
                xcb_keycode_t code = codes[modifier * perModifier + i];
                if (code == 0) continue;
                for (int column = 0; column < 4; ++column)
                    if (contains(wanted, xcb_key_symbols_get_keysym(symbols_, code, column)))
                        return static_cast<uint16_t>(1u << modifier);
            }
        }
        return std::nullopt;
    };
    superMask_ = modifierOf({XK_Super_L, XK_Super_R}).value_or(uint16_t{XCB_MOD_MASK_4});
    numLockMask_ = modifierOf({XK_Num_Lock}).value_or(uint16_t{XCB_MOD_MASK_2});
    std::free(mapping);
}

std::vector<xcb_keycode_t> X11HotKeys::keycodesFor(const Shortcut& shortcut) const {
    std::vector<xcb_keycode_t> keycodes;
    xcb_keysym_t keysym = keysymForKeyCode(shortcut.carbonKeyCode);
    if (keysym == 0) return keycodes;
    xcb_keycode_t* found = xcb_key_symbols_get_keycode(symbols_, keysym);
    for (xcb_keycode_t* code = found; code && *code != XCB_NO_SYMBOL; ++code)
        if (!contains(keycodes, *code)) keycodes.push_back(*code);
    std::free(found);
    return keycodes;
}

uint16_t X11HotKeys::modifiersFor(const Shortcut& shortcut) const {
    int flags = shortcut.modifierFlags();
    uint16_t modifiers = 0;
    if (flags & ModifierFlag::command) modifiers |= superMask_;
    if (flags & ModifierFlag::control) modifiers |= XCB_MOD_MASK_CONTROL;
    if (flags & ModifierFlag::shift) modifiers |= XCB_MOD_MASK_SHIFT;
    if (flags & ModifierFlag::option) modifiers |= XCB_MOD_MASK_1;
    return modifiers;
}

std::vector<X11HotKeys::Grab> X11HotKeys::grabsFor(const std::vector<xcb_keycode_t>& keycodes,
                                                   uint16_t modifiers) const {
    std::vector<Grab> grabs;
    const uint16_t locks[] = {0, numLockMask_, XCB_MOD_MASK_LOCK, static_cast<uint16_t>(numLockMask_ | XCB_MOD_MASK_LOCK)};
    for (xcb_keycode_t keycode : keycodes) {
        for (uint16_t lock : locks) {
            Grab variant{keycode, static_cast<uint16_t>(modifiers | lock)};
            if (!contains(grabs, variant)) grabs.push_back(variant);
        }
    }
    return grabs;
}

int X11HotKeys::grab(const std::vector<Grab>& wanted, std::vector<Grab>& grabbed) {
    xcb_connection_t* connection = x11_.connection();
    std::vector<xcb_void_cookie_t> cookies;
    for (const Grab& variant : wanted)
        cookies.push_back(xcb_grab_key_checked(connection, 1, x11_.root(), variant.modifiers, variant.keycode,
                                               XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    int firstError = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (xcb_generic_error_t* error = xcb_request_check(connection, cookies[i])) {
            if (firstError == 0) firstError = error->error_code;
            std::free(error);
        } else {
            grabbed.push_back(wanted[i]);
        }
    }
    // Events that came while the checks waited are in xcb's queue now.
    x11_.flush();
    return firstError;
}

void X11HotKeys::ungrab(const std::vector<Grab>& grabs) {
    for (const Grab& variant : grabs)
        xcb_ungrab_key(x11_.connection(), variant.keycode, x11_.root(), variant.modifiers);
}

int X11HotKeys::registerHotKey(int identifier, const Shortcut& shortcut, std::function<void()> onKeyDown) {
    unregisterHotKey(identifier);
    Registration registration{shortcut, keycodesFor(shortcut), modifiersFor(shortcut), {},
                              std::make_shared<std::function<void()>>(std::move(onKeyDown))};
    if (registration.keycodes.empty()) {
        log_.debug("No key of this keyboard types %{public}s.", shortcut.description());
        return -1;
    }
    for (const auto& [other, held] : registrations_) {
        if (held.modifiers == registration.modifiers &&
            std::any_of(held.keycodes.begin(), held.keycodes.end(),
                        [&](xcb_keycode_t code) { return contains(registration.keycodes, code); }))
            return XCB_ACCESS;
    }
    int error = grab(grabsFor(registration.keycodes, registration.modifiers), registration.grabs);
    if (error != 0) {
        ungrab(registration.grabs);
        x11_.flush();
        log_.debug("Could not grab %{public}s (X error %{public}d); another program may hold it.",
                   shortcut.description(), error);
        return error;
    }
    registrations_.emplace(identifier, std::move(registration));
    return 0;
}

void X11HotKeys::unregisterHotKey(int identifier) {
    auto found = registrations_.find(identifier);
    if (found == registrations_.end()) return;
    ungrab(found->second.grabs);
    x11_.flush();
    registrations_.erase(found);
}

bool X11HotKeys::dispatchKeyPress(xcb_keycode_t keycode, uint16_t state) {
    auto modifiers = static_cast<uint16_t>(state & kModifierBits & ~(numLockMask_ | XCB_MOD_MASK_LOCK));
    bool isMatched = false;
    for (const auto& [identifier, registration] : registrations_) {
        if (registration.modifiers != modifiers || !contains(registration.keycodes, keycode)) continue;
        isMatched = true;
        loop_.post([handler = std::weak_ptr<std::function<void()>>(registration.onKeyDown)] {
            if (auto onKeyDown = handler.lock(); onKeyDown && *onKeyDown) (*onKeyDown)();
        });
    }
    return isMatched;
}

void X11HotKeys::onEvent(const xcb_generic_event_t& event) {
    uint8_t type = event.response_type & 0x7f;
    if (type == XCB_MAPPING_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_mapping_notify_event_t&>(event);
        if (notify.request != XCB_MAPPING_POINTER) onMappingChanged();
        return;
    }
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE) return;
    // KeyPress and KeyRelease share their layout.
    const auto& key = reinterpret_cast<const xcb_key_press_event_t&>(event);
    if (key.event != x11_.root()) return;
    if (type == XCB_KEY_RELEASE) {
        isDown_[key.detail] = false;
        releasedAt_[key.detail] = key.time;
        return;
    }
    // An active grab lasts until the key is released, so its release comes here too. Held, the
    // key repeats as a release and a press at the same time (or, had this client asked xkb for
    // detectable auto-repeat, as presses alone): one press of the finger is one call.
    bool isRepeat = isDown_[key.detail] || releasedAt_[key.detail] == key.time;
    isDown_[key.detail] = true;
    if (!isRepeat) dispatchKeyPress(key.detail, key.state);
}

// The key symbols and modifier map are read again, and each hotkey's grabs move to the keys
// that type it now. New grabs are taken before the old ones are let go, so a combination the
// change doesn't touch is never unguarded; the server sends these notices whenever another
// keyboard is used, which is most of the time no change at all.
void X11HotKeys::onMappingChanged() {
    xcb_key_symbols_free(symbols_);
    symbols_ = xcb_key_symbols_alloc(x11_.connection());
    readModifierMapping();
    for (auto& [identifier, registration] : registrations_) {
        registration.keycodes = keycodesFor(registration.shortcut);
        registration.modifiers = modifiersFor(registration.shortcut);
        std::vector<Grab> wanted = grabsFor(registration.keycodes, registration.modifiers);
        std::vector<Grab> kept, added, dropped;
        for (const Grab& variant : registration.grabs) (contains(wanted, variant) ? kept : dropped).push_back(variant);
        std::vector<Grab> missing;
        for (const Grab& variant : wanted)
            if (!contains(kept, variant)) missing.push_back(variant);
        if (missing.empty() && dropped.empty()) continue;
        int error = grab(missing, added);
        ungrab(dropped);
        kept.insert(kept.end(), added.begin(), added.end());
        registration.grabs = std::move(kept);
        if (registration.keycodes.empty()) {
            log_.error("After the keyboard map changed, no key types %{public}s.", registration.shortcut.description());
        } else if (error != 0) {
            log_.error("After the keyboard map changed, %{public}s could not be grabbed again (X error %{public}d).",
                       registration.shortcut.description(), error);
        }
    }
    x11_.flush();
}

}  // namespace tamarind
