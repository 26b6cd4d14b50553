#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "appearance/AppearancePreferences.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

TEST(AppearancePreferences, UnknownStoredValuesReadAsTheFirstCaseAndStayStored) {
    ManualMainLoop loop;
    PlistDictionary stored = {{appearanceKeys::theme, "sepia"},
                              {appearanceKeys::accent, "Blue"},  // the raw strings are case-sensitive
                              {appearanceKeys::cardDensity, 1},
                              {appearanceKeys::timestampStyle, ""},
                              {appearanceKeys::menuBarIconStyle, true},
                              {appearanceKeys::showsSourceAppIcons, false},
                              {appearanceKeys::showsMenuBarIcon, false},
                              {appearanceKeys::checksForUpdatesAutomatically, "no"}};
    InMemoryDefaults defaults(stored);
    AppearancePreferences preferences(defaults, loop);
    EXPECT_EQ(*preferences.theme(), ThemeChoice::system);
    EXPECT_EQ(*preferences.accent(), AccentChoice::indigo);
    EXPECT_EQ(*preferences.cardDensity(), CardDensity::comfortable);
    EXPECT_EQ(*preferences.timestampStyle(), TimestampStyle::relative);
    EXPECT_EQ(*preferences.menuBarIconStyle(), MenuBarIconStyle::monochrome);
    // A present key is read as stored, even where the default is true.
    EXPECT_FALSE(*preferences.showsSourceAppIcons() || *preferences.showsMenuBarIcon() ||
                 *preferences.checksForUpdatesAutomatically());
    EXPECT_EQ(defaults.dictionaryRepresentation(), stored) << "nothing is rewritten until the user chooses";
}

TEST(AppearancePreferences, SettersNotifyAndWriteBackInTheStoredForm) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    AppearancePreferences preferences(defaults, loop);
    EXPECT_TRUE(defaults.dictionaryRepresentation().empty()) << "reading the defaults writes nothing";
    std::vector<MenuBarIconStyle> styles;
    Subscription subscription =
        preferences.menuBarIconStyle().subscribe([&](const MenuBarIconStyle& v) { styles.push_back(v); }, true);

    preferences.setTheme(ThemeChoice::dark);
    preferences.setAccent(AccentChoice::graphite);
    preferences.setCardDensity(CardDensity::compact);
    preferences.setShowsSourceAppIcons(false);
    preferences.setTimestampStyle(TimestampStyle::absolute);
    preferences.setShowsMenuBarIcon(false);
    preferences.setMenuBarIconStyle(MenuBarIconStyle::hiddenWhenIdle);
    preferences.setChecksForUpdatesAutomatically(false);
    preferences.setHasCompletedOnboarding(true);
    loop.runUntilIdle();
    EXPECT_THAT(styles, ::testing::ElementsAre(MenuBarIconStyle::hiddenWhenIdle));

    PlistDictionary expected = {{appearanceKeys::theme, "dark"},
                                {appearanceKeys::accent, "graphite"},
                                {appearanceKeys::cardDensity, "compact"},
                                {appearanceKeys::showsSourceAppIcons, false},
                                {appearanceKeys::timestampStyle, "absolute"},
                                {appearanceKeys::showsMenuBarIcon, false},
                                {appearanceKeys::menuBarIconStyle, "hiddenWhenIdle"},
                                {appearanceKeys::checksForUpdatesAutomatically, false},
                                {appearanceKeys::hasCompletedOnboarding, true}};
    EXPECT_EQ(defaults.dictionaryRepresentation(), expected);

    // Choosing the default again stores it rather than dropping the key.
    preferences.setShowsMenuBarIcon(true);
    preferences.setTheme(ThemeChoice::system);
    EXPECT_EQ(defaults.object(appearanceKeys::showsMenuBarIcon), PlistValue(true));
    EXPECT_EQ(defaults.object(appearanceKeys::theme), PlistValue("system"));
}

}  // namespace
}  // namespace tamarind
