// The grants' state, and the 2-second poll that runs only while a request is pending.

#include <gtest/gtest.h>

#include "app/PermissionManager.h"
#include "platform/x11/X11Permissions.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

TEST(PermissionManager, AGrantWhilePollingEndsThePollAndIsLoggedOnce) {
    ManualMainLoop loop;
    FakePermissions permissions;
    LogCapture logs;
    PermissionManager manager(loop, permissions);
    manager.requestAccessibility();
    manager.requestAccessibility();  // a second request starts no second poll
    EXPECT_TRUE(manager.isPolling());
    EXPECT_EQ(manager.pending().value(), std::set{PermissionManager::Permission::accessibility});
    EXPECT_EQ(permissions.opened, (std::vector<std::string>{"accessibility", "accessibility"}));

    loop.advanceBy(std::chrono::seconds(10));  // refused in the settings: still asking
    EXPECT_TRUE(manager.isPolling());
    permissions.accessibility = true;
    loop.advanceBy(std::chrono::seconds(2));
    EXPECT_FALSE(manager.isPolling());
    EXPECT_TRUE(manager.pending().value().empty());
    EXPECT_TRUE(manager.hasAccessibilityAccess().value());
    loop.advanceBy(std::chrono::seconds(10));
    EXPECT_EQ(logs.messages("app"),
              (std::vector<std::string>{"Requesting Accessibility access.", "Started permission polling.",
                                        "Requesting Accessibility access.", "Accessibility access is now granted.",
                                        "Stopped permission polling."}));
}

TEST(PermissionManager, AnX11SessionHasBothAndAWaylandOneNeither) {
    ManualMainLoop loop;
    X11Permissions x11(false);
    PermissionManager granted(loop, x11);
    EXPECT_TRUE(granted.hasAccessibilityAccess().value());
    EXPECT_TRUE(granted.hasScreenRecordingAccess().value());
    granted.requestScreenRecording();
    EXPECT_FALSE(granted.isPolling());

    X11Permissions wayland(true);
    PermissionManager missing(loop, wayland);
    EXPECT_FALSE(missing.hasScreenRecordingAccess().value());
    missing.requestScreenRecording();
    EXPECT_EQ(missing.pending().value(), std::set{PermissionManager::Permission::screenRecording});
}

}  // namespace
}  // namespace tamarind
