#pragma once
// Keeps the two grants' state current and, while a request is pending, asks
// again every 2 seconds, since the system says nothing when the user grants
// one: features begin to work without a restart. Main thread only.

#include <set>

#include "foundation/Log.h"
#include "foundation/MainLoop.h"
#include "foundation/Observable.h"
#include "platform/Permissions.h"

namespace tamarind {

inline constexpr Duration kPermissionPollInterval = std::chrono::seconds(2);

class PermissionManager {
public:
    enum class Permission { accessibility, screenRecording };

    PermissionManager(MainLoop& loop, Permissions& permissions);

    const Observable<bool>& hasAccessibilityAccess() const { return hasAccessibilityAccess_; }
    const Observable<bool>& hasScreenRecordingAccess() const { return hasScreenRecordingAccess_; }
    const Observable<std::set<Permission>>& pending() const { return pending_; }
    bool isPolling() const { return pollTask_.isPending(); }

    void refresh();
    void requestAccessibility();
    void requestScreenRecording();
    void openAccessibilitySettings() { permissions_.openSettings("accessibility"); }
    void openScreenRecordingSettings() { permissions_.openSettings("screenRecording"); }

private:
    void startPolling();
    void stopPolling();
    void poll();

    MainLoop& loop_;
    Permissions& permissions_;
    Observable<bool> hasAccessibilityAccess_;
    Observable<bool> hasScreenRecordingAccess_;
    Observable<std::set<Permission>> pending_;
    TaskHandle pollTask_;
    Log log_{"app"};
};

}  // namespace tamarind
