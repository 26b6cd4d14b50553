#pragma once
// System-wide hotkeys on X11: a passive key grab on the root window per
// combination. Command is Super (whichever of Mod1..Mod5 the Super keys are
// on, Mod4 when none), Control, Shift, and Option is Alt (Mod1). Each
// combination is grabbed also with Num Lock, with Caps Lock and with both, so
// that a lock that is on doesn't hide it. A keyboard mapping change moves the
// grabs to the keys that now type each combination. Main thread only.

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <map>
#include <memory>
#include <vector>

#include "foundation/Lifetime.h"
#include "foundation/Log.h"
#include "platform/HotKeys.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

class X11HotKeys final : public HotKeys {
public:
    X11HotKeys(MainLoop& loop, X11Connection& x11);
    // Ungrabs every combination.
    ~X11HotKeys() override;
    X11HotKeys(const X11HotKeys&) = delete;
    X11HotKeys& operator=(const X11HotKeys&) = delete;

    // An identifier that is registered already is unregistered first. A combination that another
    // identifier holds returns 10 (BadAccess), as another client's grab does: X would let this
    // client grab it twice, and the first unregistration would then silently end both.
    int registerHotKey(int identifier, const Shortcut& shortcut, std::function<void()> onKeyDown) override;
    // It is not an error if the identifier isn't registered.
    void unregisterHotKey(int identifier) override;

    // Calls (through the loop) the handler of the hotkey a key press with this keycode and
    // modifier state is, the lock bits aside; whether there is one. The grabs' key presses come
    // here; so do the ones Qt receives while a menu of the app holds the keyboard and the grabs
    // are silent. Auto-repeat is not filtered here: the caller knows its own repeats.
    bool dispatchKeyPress(xcb_keycode_t keycode, uint16_t state);

private:
    struct Grab {
        xcb_keycode_t keycode = 0;
        uint16_t modifiers = 0;
        friend bool operator==(const Grab&, const Grab&) = default;
    };
    struct Registration {
        Shortcut shortcut;
        std::vector<xcb_keycode_t> keycodes;
        uint16_t modifiers = 0;  // without the locks
        std::vector<Grab> grabs;
        // Shared so that a press already posted is dropped once the hotkey is unregistered.
        std::shared_ptr<std::function<void()>> onKeyDown;
    };

    void onEvent(const xcb_generic_event_t& event);
    void readModifierMapping();
    // The keys that type the shortcut's key on this keyboard, none when no key does.
    std::vector<xcb_keycode_t> keycodesFor(const Shortcut& shortcut) const;
    uint16_t modifiersFor(const Shortcut& shortcut) const;
    // Each keycode with the modifiers and their lock variants.
    std::vector<Grab> grabsFor(const std::vector<xcb_keycode_t>& keycodes, uint16_t modifiers) const;
    // Grabs each of `wanted`, keeping in `grabbed` the ones that succeeded; the first X error
    // code, 0 when all succeeded.
    int grab(const std::vector<Grab>& wanted, std::vector<Grab>& grabbed);
    void ungrab(const std::vector<Grab>& grabs);
    void onMappingChanged();

    MainLoop& loop_;
    X11Connection& x11_;
    xcb_key_symbols_t* symbols_;
    uint16_t superMask_ = XCB_MOD_MASK_4;
    uint16_t numLockMask_ = XCB_MOD_MASK_2;
    std::map<int, Registration> registrations_;
    // Keys down, from the presses and releases the grabs deliver, and when each was last
    // released: the server's auto-repeat sends a release and a press with one timestamp.
    std::vector<bool> isDown_ = std::vector<bool>(256, false);
    std::vector<xcb_timestamp_t> releasedAt_ = std::vector<xcb_timestamp_t>(256, 0);
    Lifetime lifetime_;
    Log log_{"paste"};
};

}  // namespace tamarind
