#pragma once
// The named system-wide hotkeys: what each is called, what it does, its
// default keys and the section of the settings that lists it. The ten paste
// slots get their defaults once (installSlotDefaults), so that a slot the user
// cleared stays cleared. Per-clip shortcuts are named "clip.<UUID>".

#include <optional>
#include <string>
#include <vector>

#include "foundation/Uuid.h"
#include "paste/hotkeys/KeyboardShortcuts.h"

namespace tamarind {

struct ShortcutDescriptor {
    std::string name;
    std::string title;
    std::string detail;
    std::string section;
};

inline constexpr const char* kSlotDefaultsInstalledKey = "shortcuts.slotDefaultsInstalled";
inline constexpr int kPasteSlotCount = 10;

// The table in display order: the eight global actions, then "pasteSlot0" to "pasteSlot9".
const std::vector<ShortcutDescriptor>& globalShortcutDescriptors();
const ShortcutDescriptor* globalShortcutDescriptor(const std::string& name);
// The default declared with a name: the eight global actions have one; slots and clips don't.
std::optional<Shortcut> declaredDefaultShortcut(const std::string& name);
// Command-Control with 1 … 9, then 0, for slot 0 … 9.
Shortcut slotDefaultShortcut(int index);

std::string pasteSlotShortcutName(int index);  // "pasteSlot0"
std::string clipShortcutName(const Uuid& id);  // "clip.<UPPERCASE UUID>"
// The clip of a "clip.<UUID>" name; none for any other name.
std::optional<Uuid> clipIDOfShortcutName(std::string_view name);
// "1st", "2nd", "3rd", "4th", …, "11th", "12th", "13th", "21st".
std::string ordinal(int number);

// Gives each slot its default unless that was done before, then remembers it was.
void installSlotDefaults(KeyboardShortcuts& shortcuts, Defaults& defaults);

}  // namespace tamarind
