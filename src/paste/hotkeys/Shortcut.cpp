// The stored form of a shortcut and the key table that names macOS virtual key codes.

#include <X11/keysym.h>

#include <algorithm>
#include <array>
#include <vector>

#include "foundation/Json.h"
#include "foundation/Text.h"
#include "platform/HotKeys.h"

namespace tamarind {

namespace {

struct Key {
    int code;
    const char* name;
    unsigned keysym;
};

// The ANSI keyboard's virtual key codes, named as Linux desktops name the keys.
constexpr std::array kKeys = {
    Key{0, "A", XK_a}, Key{1, "S", XK_s}, Key{2, "D", XK_d}, Key{3, "F", XK_f}, Key{4, "H", XK_h},
    Key{5, "G", XK_g}, Key{6, "Z", XK_z}, Key{7, "X", XK_x}, Key{8, "C", XK_c}, Key{9, "V", XK_v},
    Key{11, "B", XK_b}, Key{12, "Q", XK_q}, Key{13, "W", XK_w}, Key{14, "E", XK_e}, Key{15, "R", XK_r},
    Key{16, "Y", XK_y}, Key{17, "T", XK_t}, Key{18, "1", XK_1}, Key{19, "2", XK_2}, Key{20, "3", XK_3},
    Key{21, "4", XK_4}, Key{22, "6", XK_6}, Key{23, "5", XK_5}, Key{24, "=", XK_equal}, Key{25, "9", XK_9},
    Key{26, "7", XK_7}, Key{27, "-", XK_minus}, Key{28, "8", XK_8}, Key{29, "0", XK_0},
    Key{30, "]", XK_bracketright}, Key{31, "O", XK_o}, Key{32, "U", XK_u}, Key{33, "[", XK_bracketleft},
    Key{34, "I", XK_i}, Key{35, "P", XK_p}, Key{36, "Return", XK_Return}, Key{37, "L", XK_l}, Key{38, "J", XK_j},
    Key{39, "'", XK_apostrophe}, Key{40, "K", XK_k}, Key{41, ";", XK_semicolon}, Key{42, "\\", XK_backslash},
    Key{43, ",", XK_comma}, Key{44, "/", XK_slash}, Key{45, "N", XK_n}, Key{46, "M", XK_m},
    Key{47, ".", XK_period}, Key{48, "Tab", XK_Tab}, Key{49, "Space", XK_space}, Key{50, "`", XK_grave},
    Key{51, "BackSpace", XK_BackSpace}, Key{53, "Escape", XK_Escape}, Key{65, "KP_Decimal", XK_KP_Decimal},
    Key{67, "KP_Multiply", XK_KP_Multiply}, Key{69, "KP_Add", XK_KP_Add}, Key{71, "Clear", XK_Clear},
    Key{75, "KP_Divide", XK_KP_Divide}, Key{76, "KP_Enter", XK_KP_Enter}, Key{78, "KP_Subtract", XK_KP_Subtract},
    Key{81, "KP_Equal", XK_KP_Equal}, Key{82, "KP_0", XK_KP_0}, Key{83, "KP_1", XK_KP_1}, Key{84, "KP_2", XK_KP_2},
    Key{85, "KP_3", XK_KP_3}, Key{86, "KP_4", XK_KP_4}, Key{87, "KP_5", XK_KP_5}, Key{88, "KP_6", XK_KP_6},
    Key{89, "KP_7", XK_KP_7}, Key{91, "KP_8", XK_KP_8}, Key{92, "KP_9", XK_KP_9}, Key{96, "F5", XK_F5},
    Key{97, "F6", XK_F6}, Key{98, "F7", XK_F7}, Key{99, "F3", XK_F3}, Key{100, "F8", XK_F8}, Key{101, "F9", XK_F9},
    Key{103, "F11", XK_F11}, Key{105, "F13", XK_F13}, Key{107, "F14", XK_F14}, Key{109, "F10", XK_F10},
    Key{111, "F12", XK_F12}, Key{113, "F15", XK_F15}, Key{114, "Insert", XK_Insert}, Key{115, "Home", XK_Home},
    Key{116, "Page_Up", XK_Page_Up}, Key{117, "Delete", XK_Delete}, Key{118, "F4", XK_F4}, Key{119, "End", XK_End},
    Key{120, "F2", XK_F2}, Key{121, "Page_Down", XK_Page_Down}, Key{122, "F1", XK_F1}, Key{123, "Left", XK_Left},
    Key{124, "Right", XK_Right}, Key{125, "Down", XK_Down}, Key{126, "Up", XK_Up}};

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

unsigned keysymForKeyCode(int carbonKeyCode) {
    for (const Key& key : kKeys)
        if (key.code == carbonKeyCode) return key.keysym;
    return 0;
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
