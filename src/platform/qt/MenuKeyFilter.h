#pragma once
// While one of our own menus is open it holds the keyboard, and the hotkeys'
// passive grabs are silent. This filter hands each key press the menu gets to
// `dispatch` (the native key code and modifier state, as X11HotKeys matches
// them), so that the hotkeys keep working; a press that was a hotkey goes no
// further. Presses while no menu is open pass untouched.

#include <QObject>

#include <cstdint>
#include <functional>

namespace tamarind {

class MenuKeyFilter final : public QObject {
public:
    using Dispatch = std::function<bool(std::uint32_t keycode, std::uint32_t state)>;
    // Install on the application: QApplication::instance()->installEventFilter(&filter).
    explicit MenuKeyFilter(Dispatch dispatch) : dispatch_(std::move(dispatch)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    Dispatch dispatch_;
};

}  // namespace tamarind
