#pragma once
// A key combination as the stored settings keep it: a macOS virtual key code
// and Carbon modifier bits, so that stored shortcuts read the same everywhere.
// Plain values; any thread.

#include <optional>
#include <string>
#include <string_view>

namespace tamarind {

// The modifier bits of key events, as the settings and the default table speak of them.
namespace ModifierFlag {
inline constexpr int shift = 0x20000;
inline constexpr int control = 0x40000;
inline constexpr int option = 0x80000;
inline constexpr int command = 0x100000;
}  // namespace ModifierFlag

// Carbon's modifier bits, which the stored form uses.
namespace CarbonModifier {
inline constexpr int command = 0x100;
inline constexpr int shift = 0x200;
inline constexpr int option = 0x800;
inline constexpr int control = 0x1000;
}  // namespace CarbonModifier

struct Shortcut {
    int carbonKeyCode = 0;
    int carbonModifiers = 0;

    // From a key code and event-flag modifiers (ModifierFlag bits).
    static Shortcut withFlags(int keyCode, int modifierFlags);
    int modifierFlags() const;

    // The stored JSON text: {"carbonKeyCode":9,"carbonModifiers":4352}.
    std::string json() const;
    // None for text that isn't such an object.
    static std::optional<Shortcut> fromJson(std::string_view json);

    // "Super+Ctrl+1", as the user reads it on Linux; "Super+Ctrl+key 130" for a code without a name.
    std::string description() const;
    // Parses a description back ("super+ctrl+1", "Ctrl+Alt+Down", case-insensitive); none when a
    // part isn't a modifier or a key this program knows.
    static std::optional<Shortcut> fromDescription(std::string_view text);

    friend bool operator==(const Shortcut&, const Shortcut&) = default;
};

// The name of a key's macOS virtual key code ("V", "1", "Space", "Down", "F5"); empty when unknown.
std::string keyName(int carbonKeyCode);
// The code of a key name, case-insensitive; none when unknown.
std::optional<int> keyCodeNamed(std::string_view name);

}  // namespace tamarind
