#pragma once
// The status icon's menu, built once, and the entries and the icon kept in
// step with the app: the pause item follows a pause made anywhere, the collect
// item follows collect mode, and the icon shows or hides by the appearance
// settings. Items whose action isn't wired (their surface isn't built) are
// disabled. Main thread only.

#include <functional>

#include "appearance/AppearancePreferences.h"
#include "foundation/Log.h"
#include "foundation/Observable.h"
#include "library/ClipStore.h"
#include "platform/StatusItem.h"

namespace tamarind {

class MenuBarController {
public:
    struct Actions {
        std::function<void()> openLibrary;
        std::function<void()> toggleShelf;
        std::function<void()> openQuickPaste;
        std::function<void()> togglePauseCapture;
        std::function<void()> toggleCollectMode;
        std::function<void()> toggleTextExpansion;
        std::function<void()> openSettings;
        std::function<void()> checkForUpdates;
        std::function<void()> quit;
    };

    // The menu's items by index, separators included.
    enum Item : std::size_t {
        openLibrary = 0,
        showShelf = 1,
        quickPaste = 2,
        pauseCapture = 4,
        collectMode = 5,
        textExpansion = 6,
        checkForUpdates = 8,
        settings = 9,
        quit = 10,
    };

    // A library that doesn't keep copies as it should is said in the icon's tool tip.
    MenuBarController(StatusItem& statusItem, const Observable<bool>& isCapturePaused,
                      const Observable<bool>& isCollecting, const Observable<LibraryHealth>& libraryHealth,
                      AppearancePreferences& appearance, Actions actions);

    // Whether the icon should show: the setting, and for "hidden when idle" a reason to be seen.
    static bool isIconVisible(bool showsMenuBarIcon, MenuBarIconStyle style, bool isCapturePaused, bool isCollecting);

private:
    void update();

    StatusItem& statusItem_;
    const Observable<bool>& isCapturePaused_;
    const Observable<bool>& isCollecting_;
    const Observable<LibraryHealth>& libraryHealth_;
    AppearancePreferences& appearance_;
    std::vector<Subscription> subscriptions_;
    Log log_{"app"};
};

}  // namespace tamarind
