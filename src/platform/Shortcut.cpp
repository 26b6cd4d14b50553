// The stored form of a shortcut and the table that names macOS virtual key codes.

#include <algorithm>
#include <array>
#include <vector>

#include "foundation/Json.h"
#include "foundation/Text.h"
#include "platform/Shortcut.h"

namespace tamarind {

namespace {

struct Key {
    int code;
    const char* name;
};

// The ANSI keyboard's virtual key codes, named as Linux desktops name the keys.
constexpr std::array kKeys = {
    Key{0, "A"},
    Key{1, "S"},
    Key{2, "D"},
    Key{3, "F"},
    Key{4, "H"},
    Key{5, "G"},
    Key{6, "Z"},
    Key{7, "X"},
    Key{8, "C"},
    Key{9, "V"},
    Key{11, "B"},
    Key{12, "Q"},
    Key{13, "W"},
    Key{14, "E"},
    Key{15, "R"},
    Key{16, "Y"},
    Key{17, "T"},
    Key{18, "1"},
    Key{19, "2"},
    Key{20, "3"},
    Key{21, "4"},
    Key{22, "6"},
    Key{23, "5"},
    Key{24, "="},
    Key{25, "9"},
    Key{26, "7"},
    Key{27, "-"},
    Key{28, "8"},
    Key{29, "0"},
    Key{30, "]"},
    Key{31, "O"},
    Key{32, "U"},
    Key{33, "["},
    Key{34, "I"},
    Key{35, "P"},
    Key{36, "Return"},
    Key{37, "L"},
    Key{38, "J"},
    Key{39, "'"},
    Key{40, "K"},
    Key{41, ";"},
    Key{42, "\\"},
    Key{43, ","},
    Key{44, "/"},
    Key{45, "N"},
    Key{46, "M"},
    Key{47, "."},
    Key{48, "Tab"},
    Key{49, "Space"},
    Key{50, "`"},
    Key{51, "BackSpace"},
    Key{53, "Escape"},
    Key{65, "KP_Decimal"},
    Key{67, "KP_Multiply"},
    Key{69, "KP_Add"},
    Key{71, "Clear"},
    Key{75, "KP_Divide"},
    Key{76, "KP_Enter"},
    Key{78, "KP_Subtract"},
    Key{81, "KP_Equal"},
    Key{82, "KP_0"},
    Key{83, "KP_1"},
    Key{84, "KP_2"},
    Key{85, "KP_3"},
    Key{86, "KP_4"},
    Key{87, "KP_5"},
    Key{88, "KP_6"},
    Key{89, "KP_7"},
    Key{91, "KP_8"},
    Key{92, "KP_9"},
    Key{96, "F5"},
    Key{97, "F6"},
    Key{98, "F7"},
    Key{99, "F3"},
    Key{100, "F8"},
    Key{101, "F9"},
    Key{103, "F11"},
    Key{105, "F13"},
    Key{107, "F14"},
    Key{109, "F10"},
    Key{111, "F12"},
    Key{113, "F15"},
    Key{114, "Insert"},
    Key{115, "Home"},
    Key{116, "Page_Up"},
    Key{117, "Delete"},
    Key{118, "F4"},
    Key{119, "End"},
    Key{120, "F2"},
    Key{121, "Page_Down"},
    Key{122, "F1"},
    Key{123, "Left"},
    Key{124, "Right"},
    Key{125, "Down"},
    Key{126, "Up"},
};

struct Modifier {
    int flag;
    int carbon;
    const char* name;
    std::vector<std::string_view> spellings;
};

// In the order a description lists them.
const std::array<Modifier, 4>& modifiers() {
    static const std::array<Modifier, 4> kModifiers = {
        Modifier{ModifierFlag::command, CarbonModifier::command, "Super", {"super", "cmd", "command", "meta", "win"}},
        Modifier{ModifierFlag::control, CarbonModifier::control, "Ctrl", {"ctrl", "control"}},
        Modifier{ModifierFlag::option, CarbonModifier::option, "Alt", {"alt", "option", "opt"}},
        Modifier{ModifierFlag::shift, CarbonModifier::shift, "Shift", {"shift"}}};
    return kModifiers;
}

}  // namespace

std::string keyName(int carbonKeyCode) {
    for (const Key& key : kKeys)
        if (key.code == carbonKeyCode) return key.name;
    return {};
}

std::optional<int> keyCodeNamed(std::string_view name) {
    std::string wanted = lowercased(name);
    for (const Key& key : kKeys)
        if (lowercased(key.name) == wanted) return key.code;
    // A few other names people write.
    if (wanted == "enter") return 36;
    if (wanted == "esc") return 53;
    if (wanted == "pageup") return 116;
    if (wanted == "pagedown") return 121;
    return std::nullopt;
}

Shortcut Shortcut::withFlags(int keyCode, int modifierFlags) {
    Shortcut shortcut{keyCode, 0};
    for (const Modifier& modifier : modifiers())
        if (modifierFlags & modifier.flag) shortcut.carbonModifiers |= modifier.carbon;
    return shortcut;
}

int Shortcut::modifierFlags() const {
    int flags = 0;
    for (const Modifier& modifier : modifiers())
        if (carbonModifiers & modifier.carbon) flags |= modifier.flag;
    return flags;
}

std::string Shortcut::json() const {
    return Json{{"carbonKeyCode", carbonKeyCode}, {"carbonModifiers", carbonModifiers}}.dump();
}

std::optional<Shortcut> Shortcut::fromJson(std::string_view text) {
    auto json = parseJson(text);
    if (!json || !json->is_object()) return std::nullopt;
    auto code = json->find("carbonKeyCode");
    auto mods = json->find("carbonModifiers");
    if (code == json->end() || mods == json->end() || !code->is_number_integer() || !mods->is_number_integer())
        return std::nullopt;
    return Shortcut{code->get<int>(), mods->get<int>()};
}

std::string Shortcut::description() const {
    std::string text;
    for (const Modifier& modifier : modifiers())
        if (carbonModifiers & modifier.carbon) text += std::string(modifier.name) + "+";
    std::string name = keyName(carbonKeyCode);
    return text + (name.empty() ? "key " + std::to_string(carbonKeyCode) : name);
}

std::optional<Shortcut> Shortcut::fromDescription(std::string_view text) {
    std::vector<std::string> parts;
    std::string part;
    for (char c : text) {
        if (c == '+') {
            parts.push_back(std::move(part));
            part.clear();
        } else if (c != ' ') {
            part += c;
        }
    }
    if (!part.empty()) parts.push_back(part);
    if (parts.empty()) return std::nullopt;
    int flags = 0;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
        std::string lower = lowercased(parts[i]);
        auto modifier = std::find_if(modifiers().begin(), modifiers().end(), [&](const Modifier& m) {
            return std::find(m.spellings.begin(), m.spellings.end(), lower) != m.spellings.end();
        });
        if (modifier == modifiers().end()) return std::nullopt;
        flags |= modifier->flag;
    }
    auto code = keyCodeNamed(parts.back());
    if (!code) return std::nullopt;
    return withFlags(*code, flags);
}

}  // namespace tamarind
