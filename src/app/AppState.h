#pragma once
// The composition root: builds every service once, in a fixed order, wires
// them with callbacks and observations, and owns them for the process's life.
// The platform backends are handed in, so the same wiring runs on X11 and on
// the fakes of the tests. Services not built yet join here as they land.
// Main thread only.

#include <memory>
#include <optional>

#include "capture/ClipCaptureService.h"
#include "capture/ClipboardMonitor.h"
#include "capture/CollectModeService.h"
#include "app/AccessibilityPrompt.h"
#include "app/PermissionManager.h"
#include "capture/CapturePreferences.h"
#include "foundation/Lifetime.h"
#include "foundation/Defaults.h"
#include "foundation/Paths.h"
#include "platform/LoginItem.h"
#include "platform/SuspensionEvents.h"
#include "library/ClipStore.h"
#include "paste/PasteCoordinator.h"
#include "paste/PasteService.h"
#include "paste/hotkeys/GlobalShortcuts.h"
#include "rules/RuleEvaluation.h"
#include "rules/SmartRuleStore.h"

namespace tamarind {

struct PlatformServices {
    Pasteboard& pasteboard;
    Workspace& workspace;
    SuspensionEvents* suspension = nullptr;  // none: capture is never suspended
    LoginItem* loginItem = nullptr;          // none: always "not registered"
    Permissions* permissions = nullptr;      // none: no permission manager, every grant assumed
    KeyEvents* keyEvents = nullptr;          // none: a paste leaves the clip on the clipboard
    HotKeys* hotKeys = nullptr;              // with a HUD: the hotkeys and their pastes
    HUD* hud = nullptr;
    Alerts* alerts = nullptr;               // none: a blocked paste asks for the grant instead of alerting
    bool isWaylandSession = false;          // synthesised input can't be granted at all
};

class AppState {
public:
    // Stores passed in are used as they are; without them they are opened in the library
    // folder, with every fall-back.
    AppState(MainLoop& loop, Defaults& defaults, const Paths& paths, PlatformServices platform,
             std::optional<TamarindStores> stores = std::nullopt);
    ~AppState();
    AppState(const AppState&) = delete;
    AppState& operator=(const AppState&) = delete;

    // Present when the platform was given its grants.
    PermissionManager* permissions() { return permissions_.get(); }
    // Present when the platform has alerts and grants: what a paste that couldn't be pressed shows.
    AccessibilityPrompt* accessibilityPrompt() { return accessibilityPrompt_.get(); }
    ClipStore& store() { return *store_; }
    CapturePreferences& preferences() { return *preferences_; }
    SmartRuleStore& rules() { return *rules_; }
    CollectModeService& collectMode() { return *collectMode_; }
    ClipboardMonitor& monitor() { return *monitor_; }
    ClipCaptureService& capture() { return *capture_; }
    // Present when the platform has hotkeys and a HUD.
    KeyboardShortcuts* shortcuts() { return shortcuts_.get(); }
    PasteCoordinator* pasteCoordinator() { return pasteCoordinator_.get(); }
    const Observable<bool>& isCapturePaused() const { return isCapturePaused_; }
    bool isAutoResumeArmed() const { return autoResumeTask_.isPending(); }
    const Observable<LoginItemStatus>& launchAtLoginStatus() const { return launchAtLoginStatus_; }

    // The once-only wiring of the running system.
    void start();
    // The saved setting first, then the monitor, then the mirror.
    void togglePause();
    // Registers or unregisters the login item; the status ends as the item reports it.
    void setLaunchAtLogin(bool enable);
    // A shortcut changed from outside (the command line): none clears it; a clip's shortcut binds
    // or unbinds the clip. Empty when done, else what went wrong.
    std::string setShortcut(const std::string& name, std::optional<Shortcut> shortcut);
    std::string resetShortcut(const std::string& name);
    // Each hotkey that has keys: "active" (grabbed), "taken" (another program holds the keys) or
    // "unused" (nothing of this build answers it yet).
    std::map<std::string, std::string> shortcutStates() const;

private:
    void armAutoResume(bool isPaused);

    MainLoop& loop_;
    std::unique_ptr<PermissionManager> permissions_;
    std::unique_ptr<AccessibilityPrompt> accessibilityPrompt_;
    std::unique_ptr<CapturePreferences> preferences_;
    std::unique_ptr<SmartRuleStore> rules_;
    std::unique_ptr<RulesInForce> rulesInForce_;
    SensitiveContentDetector secretDetector_;
    // Before the store, which hands it thumbnails to make, so that it outlives the store.
    ThreadWorker imageWorker_;
    std::unique_ptr<ClipStore> store_;
    std::unique_ptr<CollectModeService> collectMode_;
    std::unique_ptr<ClipboardMonitor> monitor_;
    std::unique_ptr<ClipCaptureService> capture_;
    std::unique_ptr<PasteService> paste_;
    std::unique_ptr<KeyboardShortcuts> shortcuts_;
    std::unique_ptr<PasteCoordinator> pasteCoordinator_;
    Observable<bool> isCapturePaused_;
    LoginItem* loginItem_;
    HUD* hud_;
    Observable<LoginItemStatus> launchAtLoginStatus_;
    TaskHandle autoResumeTask_;
    std::vector<Subscription> subscriptions_;
    Lifetime lifetime_;
    Log log_{"app"};
};

}  // namespace tamarind
