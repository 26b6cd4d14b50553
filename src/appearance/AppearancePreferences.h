#pragma once
// The settings that shape how clips are drawn and how the program shows itself
// in the menu bar, with two general flags, as stored properties
// (foundation/Preferences.h); the surfaces and the menu bar observe them, the
// Settings window calls the setters. Main thread only.
//
// Enumerations are stored by raw string (the case name). A missing key or an
// unknown string reads as the first case, and is left as stored: reading
// writes nothing, so an unknown value stays until the user chooses again.

#include <array>
#include <string_view>

#include "foundation/Defaults.h"
#include "foundation/Preferences.h"

namespace tamarind {

namespace appearanceKeys {
inline constexpr const char* theme = "appearance.theme";
inline constexpr const char* accent = "appearance.accent";
inline constexpr const char* cardDensity = "appearance.cardDensity";
inline constexpr const char* showsSourceAppIcons = "appearance.showsSourceAppIcons";
inline constexpr const char* timestampStyle = "appearance.timestampStyle";
inline constexpr const char* showsMenuBarIcon = "general.showsMenuBarIcon";
inline constexpr const char* menuBarIconStyle = "general.menuBarIconStyle";
inline constexpr const char* checksForUpdatesAutomatically = "general.checksForUpdatesAutomatically";
inline constexpr const char* hasCompletedOnboarding = "general.hasCompletedOnboarding";
}  // namespace appearanceKeys

enum class ThemeChoice { system, light, dark };
inline constexpr std::array<ThemeChoice, 3> kAllThemeChoices = {ThemeChoice::system, ThemeChoice::light,
                                                                 ThemeChoice::dark};
std::string_view rawValue(ThemeChoice theme);
ThemeChoice themeChoiceOrSystem(std::string_view raw);

enum class AccentChoice { indigo, blue, teal, green, orange, red, pink, purple, graphite };
inline constexpr std::array<AccentChoice, 9> kAllAccentChoices = {
    AccentChoice::indigo, AccentChoice::blue, AccentChoice::teal,   AccentChoice::green,   AccentChoice::orange,
    AccentChoice::red,    AccentChoice::pink, AccentChoice::purple, AccentChoice::graphite};
std::string_view rawValue(AccentChoice accent);
AccentChoice accentChoiceOrIndigo(std::string_view raw);

enum class CardDensity { comfortable, compact };
inline constexpr std::array<CardDensity, 2> kAllCardDensities = {CardDensity::comfortable, CardDensity::compact};
std::string_view rawValue(CardDensity density);
CardDensity cardDensityOrComfortable(std::string_view raw);

enum class TimestampStyle { relative, absolute };
inline constexpr std::array<TimestampStyle, 2> kAllTimestampStyles = {TimestampStyle::relative,
                                                                      TimestampStyle::absolute};
std::string_view rawValue(TimestampStyle style);
TimestampStyle timestampStyleOrRelative(std::string_view raw);
std::string_view label(TimestampStyle style);  // "Relative (2 minutes ago)"

enum class MenuBarIconStyle { monochrome, colored, hiddenWhenIdle };
inline constexpr std::array<MenuBarIconStyle, 3> kAllMenuBarIconStyles = {
    MenuBarIconStyle::monochrome, MenuBarIconStyle::colored, MenuBarIconStyle::hiddenWhenIdle};
std::string_view rawValue(MenuBarIconStyle style);
MenuBarIconStyle menuBarIconStyleOrMonochrome(std::string_view raw);
std::string_view label(MenuBarIconStyle style);   // "Hidden when idle"
std::string_view detailText(MenuBarIconStyle style);  // the line under the choice, one of appearanceTexts

// Texts of the Settings window that fix what these settings mean.
namespace appearanceTexts {
inline constexpr const char* showsSourceAppIconsLabel = "Show source app icons";
inline constexpr const char* showsSourceAppIconsDetail = "The icon of the app a clip came from.";
inline constexpr const char* menuBarIconStyleLabel = "Menu bar icon style";
inline constexpr const char* monochromeDetail = "Follows the menu bar, like every other system icon.";
inline constexpr const char* coloredDetail = "Tinted with your accent colour.";
inline constexpr const char* hiddenWhenIdleDetail = "Only appears when capture is paused or collect mode is on.";
}  // namespace appearanceTexts

class AppearancePreferences final : public Preferences {
public:
    AppearancePreferences(Defaults& defaults, MainLoop& loop);

    const Observable<ThemeChoice>& theme() const { return theme_; }
    const Observable<AccentChoice>& accent() const { return accent_; }
    const Observable<CardDensity>& cardDensity() const { return cardDensity_; }
    const Observable<bool>& showsSourceAppIcons() const { return showsSourceAppIcons_; }
    const Observable<TimestampStyle>& timestampStyle() const { return timestampStyle_; }
    const Observable<bool>& showsMenuBarIcon() const { return showsMenuBarIcon_; }
    const Observable<MenuBarIconStyle>& menuBarIconStyle() const { return menuBarIconStyle_; }
    const Observable<bool>& checksForUpdatesAutomatically() const { return checksForUpdatesAutomatically_; }
    const Observable<bool>& hasCompletedOnboarding() const { return hasCompletedOnboarding_; }

    // Each sets the property, then writes the value under its key.
    void setTheme(ThemeChoice value);
    void setAccent(AccentChoice value);
    void setCardDensity(CardDensity value);
    void setShowsSourceAppIcons(bool value);
    void setTimestampStyle(TimestampStyle value);
    void setShowsMenuBarIcon(bool value);
    void setMenuBarIconStyle(MenuBarIconStyle value);
    void setChecksForUpdatesAutomatically(bool value);
    void setHasCompletedOnboarding(bool value);

private:
    StoredProperty<ThemeChoice> theme_;
    StoredProperty<AccentChoice> accent_;
    StoredProperty<CardDensity> cardDensity_;
    StoredProperty<bool> showsSourceAppIcons_;
    StoredProperty<TimestampStyle> timestampStyle_;
    StoredProperty<bool> showsMenuBarIcon_;
    StoredProperty<MenuBarIconStyle> menuBarIconStyle_;
    StoredProperty<bool> checksForUpdatesAutomatically_;
    StoredProperty<bool> hasCompletedOnboarding_;
};

}  // namespace tamarind
