#pragma once
// `tamarind` with no command: the desktop application on X11, run until
// SIGINT or SIGTERM. Capture only for now; the tray, panels and hotkeys join
// as they are built.

#include "foundation/Paths.h"

namespace tamarind {

// The exit status: 0 after a signal, 1 when the display or the library can't be reached. A test
// host ($TAMARIND_TEST_HOST=1) builds the services and stops before the menu and capture.
int runDesktopApp(const Paths& paths, bool isTestHost);

}  // namespace tamarind
