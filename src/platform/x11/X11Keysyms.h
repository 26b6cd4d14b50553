#pragma once
// The X11 keysym of each key the stored shortcuts name by macOS virtual key code.

namespace tamarind {

// The keysym (X11 and xkb) of the key a macOS virtual key code names, the unshifted one; 0 when
// unknown.
unsigned keysymForKeyCode(int carbonKeyCode);

}  // namespace tamarind
