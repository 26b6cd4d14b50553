// The hotkey table and the hotkey layer: stored form, slot defaults that stay cleared, the change
// notification, refused combinations, and the text form users type. A declared default cleared,
// reset and overridden by a stored value is tried through the command line, a process a step.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "paste/hotkeys/GlobalShortcuts.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

constexpr int kCommandControl = ModifierFlag::command | ModifierFlag::control;

class GlobalShortcutsTest : public ::testing::Test {
protected:
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    FakeHotKeys hotKeys;
    std::unique_ptr<KeyboardShortcuts> shortcuts = make();

    std::unique_ptr<KeyboardShortcuts> make() {
        return std::make_unique<KeyboardShortcuts>(defaults, loop, hotKeys, declaredDefaultShortcut);
    }
    std::optional<PlistValue> stored(const std::string& name) {
        return defaults.object(std::string(kKeyboardShortcutsKeyPrefix) + name);
    }
};

// The table's rows and the declared defaults are data; what is computed from the slot's number is tried here.
TEST_F(GlobalShortcutsTest, TheSlotRowsAndDefaultsAreNumberedFromOneWithTenOnTheZeroKey) {
    const auto& table = globalShortcutDescriptors();
    EXPECT_EQ(table.at(8).title, "Paste Clip 1");
    EXPECT_EQ(table.at(17).detail, "Pastes the 10th most recent clip with no UI.");
    EXPECT_THAT((std::vector<std::string>{ordinal(2), ordinal(3), ordinal(11), ordinal(12), ordinal(13), ordinal(22)}),
                ElementsAre("2nd", "3rd", "11th", "12th", "13th", "22nd"));
    EXPECT_EQ(slotDefaultShortcut(0).description(), "Super+Ctrl+1");
    EXPECT_EQ(slotDefaultShortcut(9).description(), "Super+Ctrl+0");
}

TEST_F(GlobalShortcutsTest, ShortcutsAreStoredAsCarbonJsonAndReadBackFromTextAndJson) {
    Shortcut slot = slotDefaultShortcut(0);
    EXPECT_EQ(slot.json(), R"({"carbonKeyCode":18,"carbonModifiers":4352})");
    EXPECT_EQ(Shortcut::fromJson(slot.json()), slot);
    EXPECT_EQ(slot.modifierFlags(), kCommandControl);
    EXPECT_FALSE(Shortcut::fromJson("{\"carbonKeyCode\":18}"));
    EXPECT_FALSE(Shortcut::fromJson("false"));

    EXPECT_EQ(Shortcut::fromDescription("super+ctrl+1"), slot);
    EXPECT_EQ(Shortcut::fromDescription("Ctrl + Alt + Down"),
              Shortcut::withFlags(125, ModifierFlag::control | ModifierFlag::option));
    EXPECT_EQ(Shortcut::fromDescription("Shift+F5")->description(), "Shift+F5");
    EXPECT_FALSE(Shortcut::fromDescription("Hyper+1"));
    EXPECT_FALSE(Shortcut::fromDescription("Ctrl+NoSuchKey"));
    EXPECT_FALSE(Shortcut::fromDescription(""));
    EXPECT_EQ((Shortcut{130, CarbonModifier::option}.description()), "Alt+key 130");
}

TEST_F(GlobalShortcutsTest, SlotDefaultsAreInstalledOnceSoAClearedSlotStaysCleared) {
    installSlotDefaults(*shortcuts, defaults);
    EXPECT_EQ(shortcuts->getShortcut("pasteSlot4"), slotDefaultShortcut(4));
    EXPECT_TRUE(defaults.boolValue(kSlotDefaultsInstalledKey));

    shortcuts->setShortcut(std::nullopt, "pasteSlot4");
    EXPECT_FALSE(stored("pasteSlot4")) << "no default declared: the key goes";
    EXPECT_FALSE(shortcuts->getShortcut("pasteSlot4"));
    // The next start.
    shortcuts = make();
    installSlotDefaults(*shortcuts, defaults);
    EXPECT_FALSE(shortcuts->getShortcut("pasteSlot4"));
    EXPECT_EQ(shortcuts->getShortcut("pasteSlot5"), slotDefaultShortcut(5));
}

TEST_F(GlobalShortcutsTest, HandlersFollowTheirShortcutAndEveryChangeIsAnnounced) {
    std::vector<std::string> changes;
    shortcuts->addChangeObserver([&](const std::string& name) { changes.push_back(name); });
    int presses = 0;
    shortcuts->onKeyDown("quickPaste", [&] { ++presses; });
    Shortcut old = Shortcut::withFlags(9, kCommandControl);
    EXPECT_TRUE(hotKeys.press(old));
    EXPECT_EQ(presses, 1);

    Shortcut moved = Shortcut::withFlags(35, kCommandControl);
    shortcuts->setShortcut(moved, "quickPaste");
    EXPECT_FALSE(hotKeys.press(old));
    EXPECT_TRUE(hotKeys.press(moved));
    EXPECT_EQ(presses, 2);
    shortcuts->setShortcut(std::nullopt, "quickPaste");
    EXPECT_TRUE(hotKeys.hotKeys.empty());
    EXPECT_THAT(changes, ElementsAre("quickPaste", "quickPaste"));

    shortcuts->removeHandler("quickPaste");
    shortcuts->reset("quickPaste");
    EXPECT_TRUE(hotKeys.hotKeys.empty()) << "no handler, nothing registered";
}

TEST_F(GlobalShortcutsTest, ACombinationTheSystemRefusesIsLoggedAndItsStoredValueStays) {
    LogCapture log;
    hotKeys.taken.push_back(Shortcut::withFlags(9, kCommandControl));
    shortcuts->onKeyDown("quickPaste", [] {});
    EXPECT_TRUE(hotKeys.hotKeys.empty());
    EXPECT_THAT(log.messages("paste"), ElementsAre("Error registering hotkey Super+Ctrl+V: 10"));
    EXPECT_EQ(shortcuts->getShortcut("quickPaste"), Shortcut::withFlags(9, kCommandControl));
    EXPECT_TRUE(shortcuts->registered().empty());
}

}  // namespace
}  // namespace tamarind
