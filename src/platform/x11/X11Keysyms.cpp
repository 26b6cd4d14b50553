#include "platform/x11/X11Keysyms.h"

#include <X11/keysym.h>

#include <array>

namespace tamarind {

namespace {

struct Key {
    int code;
    unsigned keysym;
};

// The ANSI keyboard's virtual key codes and the unshifted keysym of each.
constexpr std::array kKeys = {
    Key{0, XK_a},
    Key{1, XK_s},
    Key{2, XK_d},
    Key{3, XK_f},
    Key{4, XK_h},
    Key{5, XK_g},
    Key{6, XK_z},
    Key{7, XK_x},
    Key{8, XK_c},
    Key{9, XK_v},
    Key{11, XK_b},
    Key{12, XK_q},
    Key{13, XK_w},
    Key{14, XK_e},
    Key{15, XK_r},
    Key{16, XK_y},
    Key{17, XK_t},
    Key{18, XK_1},
    Key{19, XK_2},
    Key{20, XK_3},
    Key{21, XK_4},
    Key{22, XK_6},
    Key{23, XK_5},
    Key{24, XK_equal},
    Key{25, XK_9},
    Key{26, XK_7},
    Key{27, XK_minus},
    Key{28, XK_8},
    Key{29, XK_0},
    Key{30, XK_bracketright},
    Key{31, XK_o},
    Key{32, XK_u},
    Key{33, XK_bracketleft},
    Key{34, XK_i},
    Key{35, XK_p},
    Key{36, XK_Return},
    Key{37, XK_l},
    Key{38, XK_j},
    Key{39, XK_apostrophe},
    Key{40, XK_k},
    Key{41, XK_semicolon},
    Key{42, XK_backslash},
    Key{43, XK_comma},
    Key{44, XK_slash},
    Key{45, XK_n},
    Key{46, XK_m},
    Key{47, XK_period},
    Key{48, XK_Tab},
    Key{49, XK_space},
    Key{50, XK_grave},
    Key{51, XK_BackSpace},
    Key{53, XK_Escape},
    Key{65, XK_KP_Decimal},
    Key{67, XK_KP_Multiply},
    Key{69, XK_KP_Add},
    Key{71, XK_Clear},
    Key{75, XK_KP_Divide},
    Key{76, XK_KP_Enter},
    Key{78, XK_KP_Subtract},
    Key{81, XK_KP_Equal},
    Key{82, XK_KP_0},
    Key{83, XK_KP_1},
    Key{84, XK_KP_2},
    Key{85, XK_KP_3},
    Key{86, XK_KP_4},
    Key{87, XK_KP_5},
    Key{88, XK_KP_6},
    Key{89, XK_KP_7},
    Key{91, XK_KP_8},
    Key{92, XK_KP_9},
    Key{96, XK_F5},
    Key{97, XK_F6},
    Key{98, XK_F7},
    Key{99, XK_F3},
    Key{100, XK_F8},
    Key{101, XK_F9},
    Key{103, XK_F11},
    Key{105, XK_F13},
    Key{107, XK_F14},
    Key{109, XK_F10},
    Key{111, XK_F12},
    Key{113, XK_F15},
    Key{114, XK_Insert},
    Key{115, XK_Home},
    Key{116, XK_Page_Up},
    Key{117, XK_Delete},
    Key{118, XK_F4},
    Key{119, XK_End},
    Key{120, XK_F2},
    Key{121, XK_Page_Down},
    Key{122, XK_F1},
    Key{123, XK_Left},
    Key{124, XK_Right},
    Key{125, XK_Down},
    Key{126, XK_Up},
};

}  // namespace

unsigned keysymForKeyCode(int carbonKeyCode) {
    for (const Key& key : kKeys)
        if (key.code == carbonKeyCode) return key.keysym;
    return 0;
}

}  // namespace tamarind
