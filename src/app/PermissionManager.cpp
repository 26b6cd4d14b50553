#include "app/PermissionManager.h"

namespace tamarind {

PermissionManager::PermissionManager(MainLoop& loop, Permissions& permissions)
    : loop_(loop),
      permissions_(permissions),
      hasAccessibilityAccess_(loop, false),
      hasScreenRecordingAccess_(loop, false),
      pending_(loop, {}) {
    refresh();
}

void PermissionManager::refresh() {
    bool accessibility = permissions_.hasAccessibilityAccess();
    bool screenRecording = permissions_.hasScreenRecordingAccess();
    if (accessibility != hasAccessibilityAccess_.value()) {
        hasAccessibilityAccess_.set(accessibility);
        log_.log("Accessibility access is now %{public}s.", accessibility ? "granted" : "denied");
    }
    if (screenRecording != hasScreenRecordingAccess_.value()) {
        hasScreenRecordingAccess_.set(screenRecording);
        log_.log("Screen Recording access is now %{public}s.", screenRecording ? "granted" : "denied");
    }
    std::set<Permission> pending = pending_.value();
    if (accessibility) pending.erase(Permission::accessibility);
    if (screenRecording) pending.erase(Permission::screenRecording);
    if (pending != pending_.value()) pending_.set(pending);
    if (pending.empty()) stopPolling();
}

void PermissionManager::requestAccessibility() {
    log_.log("Requesting Accessibility access.");
    if (permissions_.requestAccessibilityAccess()) return;
    std::set<Permission> pending = pending_.value();
    pending.insert(Permission::accessibility);
    pending_.set(pending);
    startPolling();
    openAccessibilitySettings();
}

void PermissionManager::requestScreenRecording() {
    if (permissions_.requestScreenRecordingAccess()) return;
    log_.log("Requesting Screen Recording access.");
    std::set<Permission> pending = pending_.value();
    pending.insert(Permission::screenRecording);
    pending_.set(pending);
    startPolling();
    openScreenRecordingSettings();
}

void PermissionManager::startPolling() {
    if (pollTask_.isPending()) return;
    log_.log("Started permission polling.");
    poll();
}

void PermissionManager::poll() {
    pollTask_ = loop_.postDelayed(kPermissionPollInterval, [this] {
        poll();  // first, so that refresh() may stop it
        refresh();
    });
}

void PermissionManager::stopPolling() {
    if (!pollTask_.isPending()) return;
    pollTask_.cancel();
    log_.log("Stopped permission polling.");
}

}  // namespace tamarind
