// Hotkeys while one of our menus holds the keyboard: the menu's key presses reach the hotkeys'
// matcher, a match goes no further, and nothing is matched while no menu is open.

#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QMenu>

#include <vector>

#include "platform/qt/MenuKeyFilter.h"

namespace tamarind {
namespace {

class MenuKeyFilterTest : public ::testing::Test {
protected:
    void SetUp() override { QApplication::instance()->installEventFilter(&filter); }
    void TearDown() override { QApplication::instance()->removeEventFilter(&filter); }

    // A press as the xcb platform reports it: the X key code and modifier state ride along.
    static QKeyEvent press(std::uint32_t keycode, std::uint32_t state, bool isRepeat = false) {
        return QKeyEvent(QEvent::KeyPress, Qt::Key_1, Qt::ControlModifier | Qt::MetaModifier, keycode, 0, state,
                         QString("1"), isRepeat);
    }

    std::vector<std::pair<std::uint32_t, std::uint32_t>> seen;
    MenuKeyFilter filter{[this](std::uint32_t keycode, std::uint32_t state) {
        seen.emplace_back(keycode, state);
        return keycode == 10;  // the only hotkey: key code 10
    }};
};

TEST_F(MenuKeyFilterTest, AnOpenMenusKeyPressesReachTheHotkeysAndAMatchStopsThere) {
    QMenu menu;
    menu.addAction("Pause Capture");
    QKeyEvent outside = press(10, 0x44);
    QApplication::sendEvent(&menu, &outside);
    EXPECT_TRUE(seen.empty()) << "no menu open: the grabs deliver the hotkeys themselves";

    menu.popup(QPoint(10, 10));
    ASSERT_EQ(QApplication::activePopupWidget(), &menu);
    QKeyEvent hotkey = press(10, 0x44);
    QKeyEvent other = press(11, 0x44);
    QKeyEvent repeat = press(10, 0x44, true);
    EXPECT_TRUE(QApplication::sendEvent(&menu, &hotkey)) << "a hotkey is taken";
    QApplication::sendEvent(&menu, &other);
    QApplication::sendEvent(&menu, &repeat);
    EXPECT_EQ(seen, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{10, 0x44}, {11, 0x44}}))
        << "each press once, with its native code and state; a repeat isn't a new press";
    menu.close();
}

}  // namespace
}  // namespace tamarind
