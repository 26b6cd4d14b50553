#include "app/MenuBarController.h"

namespace tamarind {

MenuBarController::MenuBarController(StatusItem& statusItem, const Observable<bool>& isCapturePaused,
                                     const Observable<bool>& isCollecting,
                                     const Observable<LibraryHealth>& libraryHealth, AppearancePreferences& appearance,
                                     Actions actions)
    : statusItem_(statusItem),
      isCapturePaused_(isCapturePaused),
      isCollecting_(isCollecting),
      libraryHealth_(libraryHealth),
      appearance_(appearance) {
    statusItem_.setMenu({
        {"Open Library", actions.openLibrary, ""},
        {"Show Shelf", actions.toggleShelf, ""},
        {"Quick Paste", actions.openQuickPaste, ""},
        {"", nullptr, ""},
        {"Pause Capture", actions.togglePauseCapture, ""},
        {"Collect Mode", actions.toggleCollectMode, ""},
        {"Text Expansion", actions.toggleTextExpansion, ""},
        {"", nullptr, ""},
        {"Check for Updates\u2026", actions.checkForUpdates, ""},
        {"Settings\u2026", actions.openSettings, ""},
        {"Quit Tamarind", actions.quit, "Ctrl+Q"},
    });
    update();
    auto onChange = [this](const auto&) { update(); };
    subscriptions_.push_back(isCapturePaused_.subscribe(onChange, true));
    subscriptions_.push_back(isCollecting_.subscribe(onChange, true));
    subscriptions_.push_back(libraryHealth_.subscribe(onChange, true));
    subscriptions_.push_back(appearance_.showsMenuBarIcon().subscribe(onChange, true));
    subscriptions_.push_back(appearance_.menuBarIconStyle().subscribe(onChange, true));
    log_.log("Menu bar item installed.");
}

bool MenuBarController::isIconVisible(bool showsMenuBarIcon, MenuBarIconStyle style, bool isCapturePaused,
                                      bool isCollecting) {
    return showsMenuBarIcon && (style != MenuBarIconStyle::hiddenWhenIdle || isCapturePaused || isCollecting);
}

void MenuBarController::update() {
    bool isPaused = isCapturePaused_.value();
    bool isCollecting = isCollecting_.value();
    statusItem_.setItemTitle(pauseCapture, isPaused ? "Resume Capture" : "Pause Capture");
    statusItem_.setItemTitle(collectMode, isCollecting ? "Finish Collecting" : "Collect Mode");
    MenuBarIconStyle style = appearance_.menuBarIconStyle().value();
    statusItem_.setLook(style == MenuBarIconStyle::colored ? StatusIconLook::colored : StatusIconLook::monochrome);
    std::string problem = libraryHealth_->message();
    statusItem_.setToolTip(problem.empty() ? "Tamarind" : problem);
    statusItem_.setVisible(isIconVisible(appearance_.showsMenuBarIcon().value(), style, isPaused, isCollecting));
}

}  // namespace tamarind
