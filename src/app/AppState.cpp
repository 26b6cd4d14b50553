#include "app/AppState.h"

#include "foundation/MachineID.h"

namespace tamarind {

namespace {

// The loop must stay free: a write waits this long for another process's to end, and then the copy
// waits in memory and is tried again.
constexpr std::chrono::milliseconds kAppBusyTimeout{200};

// Long enough to read two sentences.
constexpr Duration kLibraryProblemHUDDuration = std::chrono::seconds(6);

TamarindStores openLibrary(const Paths& paths) {
    // Sync is not built yet: the store is the local one.
    return openStores(paths.applicationSupport, StoreOptions{.busyTimeout = kAppBusyTimeout});
}

}  // namespace

AppState::AppState(MainLoop& loop, Defaults& defaults, const Paths& paths, PlatformServices platform,
                   std::optional<TamarindStores> stores)
    : loop_(loop),
      isCapturePaused_(loop, false),
      loginItem_(platform.loginItem),
      hud_(platform.hud),
      launchAtLoginStatus_(loop, LoginItemStatus::notRegistered) {
    if (platform.permissions) permissions_ = std::make_unique<PermissionManager>(loop, *platform.permissions);
    if (platform.permissions && platform.alerts)
        accessibilityPrompt_ =
            std::make_unique<AccessibilityPrompt>(*platform.alerts, *platform.permissions, platform.isWaylandSession);
    preferences_ = std::make_unique<CapturePreferences>(defaults, loop);
    rules_ = std::make_unique<SmartRuleStore>(defaults, loop);
    rulesInForce_ = std::make_unique<RulesInForce>([rules = rules_.get()] { return rules->activeRules(); });
    store_ = std::make_unique<ClipStore>(loop, stores ? std::move(*stores) : openLibrary(paths),
                                         BlobStore(paths.blobs()), machineID(defaults),
                                         IngestPolicy{rulesInForce_.get(), &secretDetector_}, &imageWorker_);
    collectMode_ = std::make_unique<CollectModeService>(loop, *store_, BlobStore(paths.blobs()), *preferences_);
    store_->setCaptureLimits(captureLimits(*preferences_));
    monitor_ = std::make_unique<ClipboardMonitor>(loop, platform.pasteboard, platform.workspace);
    capture_ = std::make_unique<ClipCaptureService>(loop, *store_, *preferences_, *monitor_);
    paste_ = std::make_unique<PasteService>(
        loop, PlatformForPaste{platform.pasteboard, platform.workspace, platform.permissions, platform.keyEvents},
        BlobStore(paths.blobs()), *preferences_, &imageWorker_);
    if (platform.hotKeys && platform.hud) {
        shortcuts_ = std::make_unique<KeyboardShortcuts>(defaults, loop, *platform.hotKeys, declaredDefaultShortcut);
        pasteCoordinator_ = std::make_unique<PasteCoordinator>(
            loop, *store_, *paste_, *platform.hud, *shortcuts_, defaults, platform.keyEvents,
            [prompt = accessibilityPrompt_.get(), permissions = permissions_.get(),
             alive = lifetime_.weak()] {
                if (!alive.isAlive()) return;
                if (prompt) {
                    prompt->show();
                } else if (permissions) {
                    permissions->requestAccessibility();
                }
            });
    }
    if (platform.suspension)
        platform.suspension->setHandler(
            [monitor = monitor_.get(), alive = lifetime_.weak()](bool isSuspending, const std::string& reason) {
                if (alive.isAlive()) monitor->setSuspended(isSuspending, reason);
            });
    isCapturePaused_.set(preferences_->isPaused().value());
    if (loginItem_) launchAtLoginStatus_.set(loginItem_->status());

    subscriptions_.push_back(monitor_->isPaused().subscribe([this](const bool& isPaused) {
        isCapturePaused_.set(isPaused);
        armAutoResume(isPaused);
    }));
    // The saved setting changed by another program (`tamarind settings set capture.isPaused`)
    // pauses or resumes as the menu would; the monitor ignores a value it already has.
    subscriptions_.push_back(preferences_->isPaused().subscribe(
        [this](const bool& isPaused) { monitor_->setPaused(isPaused); }, true));
    subscriptions_.push_back(preferences_->autoResumeMinutes().subscribe(
        [this](const long long&) { armAutoResume(monitor_->isPaused().value()); }, true));
    // Any one of the four rebuilds the whole of the limits.
    auto rebuildLimits = [this](const auto&) { store_->setCaptureLimits(captureLimits(*preferences_)); };
    subscriptions_.push_back(preferences_->minimumCharacters().subscribe(rebuildLimits, true));
    subscriptions_.push_back(preferences_->maximumMegabytes().subscribe(rebuildLimits, true));
    subscriptions_.push_back(preferences_->isSensitiveDetectionEnabled().subscribe(rebuildLimits, true));
    subscriptions_.push_back(preferences_->sensitiveHandling().subscribe(rebuildLimits, true));
}

AppState::~AppState() { lifetime_.end(); }

void AppState::start() {
    capture_->setStageInsteadOfStoring(
        [collect = collectMode_.get(), alive = lifetime_.weak()](const PasteboardSnapshot& snapshot,
                                                                            ClipKind kind) {
            return alive.isAlive() && collect->stage(snapshot, kind);
        });
    capture_->start();
    paste_->recordTargetApplication();
    if (pasteCoordinator_) {
        pasteCoordinator_->registerShortcuts();
        shortcuts_->onKeyDown("collectMode", [collect = collectMode_.get()] { collect->toggle(); });
    }
    if (hud_) {
        // Once when the library stops keeping copies as it should, and once at start when it
        // could not be opened; the status and the log say it for as long as it lasts.
        subscriptions_.push_back(store_->health().subscribe([hud = hud_](const LibraryHealth& health) {
            if (health.kind == LibraryHealth::Kind::healthy) return;
            const char* title = health.kind == LibraryHealth::Kind::waiting ? "Copies are waiting to be saved"
                                                                             : "The library is in memory only";
            hud->show(HUDContent{"exclamationmark.triangle", title, health.message(), true}, kLibraryProblemHUDDuration);
        }));
        collectMode_->setOnStored([hud = hud_](long long count) {
            hud->show(HUDContent{"square.stack.3d.up.fill", collectFinishTitle(count), kCollectModeStoredDetail, false},
                      kPasteHUDDuration);
        });
    }
    // Another process (the command line) may write the same library.
    store_->watchForOutsideChanges(std::chrono::seconds(1));
    isCapturePaused_.set(preferences_->isPaused().value());
}

void AppState::togglePause() {
    bool isPaused = !monitor_->isPaused().value();
    preferences_->setPaused(isPaused);
    monitor_->setPaused(isPaused);
    isCapturePaused_.set(isPaused);
}

void AppState::setLaunchAtLogin(bool enable) {
    if (!loginItem_) return;
    auto error = enable ? loginItem_->registerItem() : loginItem_->unregisterItem();
    if (error) {
        log_.error("Failed to update login item: %{public}s", *error);
    } else {
        log_.log("Launch at login %{public}s.", enable ? "enabled" : "disabled");
    }
    launchAtLoginStatus_.set(loginItem_->status());
}

std::string AppState::setShortcut(const std::string& name, std::optional<Shortcut> shortcut) {
    if (!pasteCoordinator_) return "hotkeys are not available in this session";
    std::optional<Uuid> clipID = clipIDOfShortcutName(name);
    if (!clipID && !globalShortcutDescriptor(name)) return "no shortcut is named " + name;
    if (clipID && !shortcut) {
        pasteCoordinator_->unbind(*clipID);
        shortcuts_->setShortcut(std::nullopt, name);
        return "";
    }
    shortcuts_->setShortcut(shortcut, name);
    if (clipID) pasteCoordinator_->bind(*clipID);
    if (shortcut && shortcuts_->hasHandler(name) && !shortcuts_->registered().contains(name))
        return shortcut->description() + " is held by another program; it is saved and tried again at the next start";
    return "";
}

std::string AppState::resetShortcut(const std::string& name) {
    return setShortcut(name, declaredDefaultShortcut(name));
}

std::map<std::string, std::string> AppState::shortcutStates() const {
    std::map<std::string, std::string> states;
    if (!shortcuts_) return states;
    std::vector<std::string> names;
    for (const ShortcutDescriptor& descriptor : globalShortcutDescriptors()) names.push_back(descriptor.name);
    for (const Uuid& id : pasteCoordinator_->bindings().boundClipIDs()) names.push_back(clipShortcutName(id));
    std::map<std::string, Shortcut> registered = shortcuts_->registered();
    for (const std::string& name : names) {
        if (!shortcuts_->getShortcut(name)) continue;
        states[name] = !shortcuts_->hasHandler(name) ? "unused" : registered.contains(name) ? "active" : "taken";
    }
    return states;
}

void AppState::armAutoResume(bool isPaused) {
    autoResumeTask_.cancel();
    long long minutes = preferences_->autoResumeMinutes().value();
    if (!isPaused || minutes < 1) return;
    autoResumeTask_ = loop_.postDelayed(std::chrono::minutes(minutes), [this, minutes] {
        if (!monitor_->isPaused().value()) return;
        preferences_->setPaused(false);
        monitor_->setPaused(false);
        isCapturePaused_.set(false);
        log_.log("Capture resumed automatically after %{public}ld minutes.", minutes);
    });
}

}  // namespace tamarind
