#pragma once
// The transient panel that says what a paste hotkey did: a symbol, a bold title
// and an optional second line on a dark rounded card, centred on the screen
// under the pointer, fading out once the duration it was shown for has passed.
// Main thread only.
//
// The panel is made on the first show and kept for the life of the process. It
// never takes the focus or the mouse, so the paste lands in the window behind
// it and a click goes through it. A show while the panel is up (waiting or
// fading) replaces its content and restarts the wait, so a fast run of presses
// keeps one panel on screen with changing text.

#include <QString>
#include <QWidget>

#include <chrono>
#include <memory>

#include "paste/HUD.h"

namespace tamarind {

class HUDPanel;

class HUDController final : public HUD {
public:
    // How long the panel takes to fade out once the wait is over.
    static constexpr Duration kFadeDuration = std::chrono::milliseconds(180);
    // The fade is stepped through the loop, one opacity change per step.
    static constexpr Duration kFadeStep = std::chrono::milliseconds(15);

    explicit HUDController(MainLoop& loop);
    ~HUDController() override;

    void show(HUDContent content, Duration duration) override;
    // Hides the panel at once, without fading. Not an error before any show.
    void dismiss() override;

    // The panel, once shown (for tests and pictures).
    QWidget* panel() const;
    // The lines as shown: elided to fit, and the subtitle empty while it is hidden.
    QString titleText() const;
    QString subtitleText() const;

private:
    void stepFade(MonotonicTime fadeStart);

    MainLoop& loop_;
    std::unique_ptr<HUDPanel> panel_;
    // The wait before the fade, then each step of the fade: one handle, so one
    // cancel stops whichever is under way. Declared after the panel so that it
    // is cancelled before the panel goes.
    TaskHandle pending_;
};

}  // namespace tamarind
