#include "paste/hotkeys/GlobalShortcuts.h"

#include <array>

namespace tamarind {

namespace {

constexpr int kCommandControl = ModifierFlag::command | ModifierFlag::control;
// The number keys 1 … 9 and 0; 5 and 6 sit in this order on the key codes.
constexpr std::array<int, kPasteSlotCount> kSlotKeyCodes = {18, 19, 20, 21, 23, 22, 26, 28, 25, 29};

struct Declared {
    const char* name;
    int keyCode;
    int modifiers;
};

constexpr std::array<Declared, 8> kDeclaredDefaults = {{
    {"toggleLibrary", 9, ModifierFlag::command | ModifierFlag::shift},
    {"quickNote", 45, kCommandControl},
    {"toggleShelf", 49, kCommandControl},
    {"quickPaste", 9, kCommandControl},
    {"sequentialPaste", 125, kCommandControl},
    {"collectMode", 46, kCommandControl},
    {"colorPicker", 8, kCommandControl},
    {"screenTextCapture", 17, kCommandControl},
}};

}  // namespace

std::string ordinal(int number) {
    int lastTwo = number % 100;
    const char* suffix = "th";
    if (lastTwo < 11 || lastTwo > 13) {
        switch (number % 10) {
        case 1: suffix = "st"; break;
        case 2: suffix = "nd"; break;
        case 3: suffix = "rd"; break;
        default: break;
        }
    }
    return std::to_string(number) + suffix;
}

std::string pasteSlotShortcutName(int index) { return "pasteSlot" + std::to_string(index); }

std::string clipShortcutName(const Uuid& id) { return "clip." + id.uuidString(); }

std::optional<Uuid> clipIDOfShortcutName(std::string_view name) {
    if (!name.starts_with("clip.")) return std::nullopt;
    return Uuid::parse(name.substr(5));
}

Shortcut slotDefaultShortcut(int index) { return Shortcut::withFlags(kSlotKeyCodes.at(index), kCommandControl); }

const std::vector<ShortcutDescriptor>& globalShortcutDescriptors() {
    static const std::vector<ShortcutDescriptor> kTable = [] {
        std::vector<ShortcutDescriptor> table = {
            {"toggleLibrary", "Open Library", "The full browsing window.", "Global"},
            {"quickNote", "Quick Note", "A small always-on-top note composer.", "Global"},
            {"toggleShelf", "Show Shelf", "Expand the notch shelf and focus its search field.", "Notch"},
            {"quickPaste", "Open Quick Paste", "Search and paste without leaving the keyboard.", "Quick Paste"},
            {"sequentialPaste", "Paste Next in History", "Each press pastes one clip further back.", "Quick Paste"},
            {"collectMode", "Collect Mode", "Stage several copies, then store them as one clip.", "Capture"},
            {"colorPicker", "Pick a Colour", "Sample any pixel on screen.", "Capture"},
            {"screenTextCapture", "Capture Screen Text", "Select a region and read its text.", "Capture"},
        };
        for (int index = 0; index < kPasteSlotCount; ++index)
            table.push_back({pasteSlotShortcutName(index), "Paste Clip " + std::to_string(index + 1),
                             "Pastes the " + ordinal(index + 1) + " most recent clip with no UI.", "Direct Slots"});
        return table;
    }();
    return kTable;
}

const ShortcutDescriptor* globalShortcutDescriptor(const std::string& name) {
    for (const ShortcutDescriptor& descriptor : globalShortcutDescriptors())
        if (descriptor.name == name) return &descriptor;
    return nullptr;
}

std::optional<Shortcut> declaredDefaultShortcut(const std::string& name) {
    for (const Declared& declared : kDeclaredDefaults)
        if (name == declared.name) return Shortcut::withFlags(declared.keyCode, declared.modifiers);
    return std::nullopt;
}

void installSlotDefaults(KeyboardShortcuts& shortcuts, Defaults& defaults) {
    if (!defaults.boolValue(kSlotDefaultsInstalledKey))
        for (int index = 0; index < kPasteSlotCount; ++index)
            shortcuts.setShortcut(slotDefaultShortcut(index), pasteSlotShortcutName(index));
    defaults.set(kSlotDefaultsInstalledKey, PlistValue(true));
}

}  // namespace tamarind
