#pragma once
// What the running app answers on the session bus (DBusControl's methods), over its AppState.
// The bus name is claimed before the app is built, so that a second start finds the first at
// once; until `running` points at the app, and again once it is cleared at quit, each command
// does nothing and each question answers that Tamarind is still starting (or with an empty
// object). Main thread only.

#include "platform/qt/DBusControl.h"

namespace tamarind {

class AppState;

// `running` is read at each call, so it must outlive the handlers.
ControlHandlers appControlHandlers(AppState* const& running);

}  // namespace tamarind
