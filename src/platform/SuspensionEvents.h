#pragma once
// When the system wants capture to stop for a while: sleep, a locked screen, a
// session switched away; and when it may start again. On Linux these come
// from logind (PrepareForSleep, a session's Lock and Unlock) and from the
// screensaver (ActiveChanged). The monitor keeps one flag, not a count: the
// first resuming event clears it, whatever suspended it.

#include <functional>
#include <string>

namespace tamarind {

class SuspensionEvents {
public:
    virtual ~SuspensionEvents() = default;
    // Called with true to suspend, false to resume, and the event's name.
    virtual void setHandler(std::function<void(bool isSuspending, const std::string& reason)> handler) = 0;
};

}  // namespace tamarind
