#include "appearance/AppearancePreferences.h"

#include <string>

namespace tamarind {

namespace {

// The case whose raw string is `raw`, else the first of `all`.
template <class Enum, std::size_t N> Enum caseOrFirst(const std::array<Enum, N>& all, std::string_view raw) {
    for (Enum value : all)
        if (rawValue(value) == raw) return value;
    return all.front();
}

}  // namespace

std::string_view rawValue(ThemeChoice theme) {
    switch (theme) {
    case ThemeChoice::system: return "system";
    case ThemeChoice::light: return "light";
    case ThemeChoice::dark: return "dark";
    }
    return "system";
}

ThemeChoice themeChoiceOrSystem(std::string_view raw) { return caseOrFirst(kAllThemeChoices, raw); }

std::string_view rawValue(AccentChoice accent) {
    switch (accent) {
    case AccentChoice::indigo: return "indigo";
    case AccentChoice::blue: return "blue";
    case AccentChoice::teal: return "teal";
    case AccentChoice::green: return "green";
    case AccentChoice::orange: return "orange";
    case AccentChoice::red: return "red";
    case AccentChoice::pink: return "pink";
    case AccentChoice::purple: return "purple";
    case AccentChoice::graphite: return "graphite";
    }
    return "indigo";
}

AccentChoice accentChoiceOrIndigo(std::string_view raw) { return caseOrFirst(kAllAccentChoices, raw); }

std::string_view rawValue(CardDensity density) {
    switch (density) {
    case CardDensity::comfortable: return "comfortable";
    case CardDensity::compact: return "compact";
    }
    return "comfortable";
}

CardDensity cardDensityOrComfortable(std::string_view raw) { return caseOrFirst(kAllCardDensities, raw); }

std::string_view rawValue(TimestampStyle style) {
    switch (style) {
    case TimestampStyle::relative: return "relative";
    case TimestampStyle::absolute: return "absolute";
    }
    return "relative";
}

TimestampStyle timestampStyleOrRelative(std::string_view raw) { return caseOrFirst(kAllTimestampStyles, raw); }

std::string_view label(TimestampStyle style) {
    switch (style) {
    case TimestampStyle::relative: return "Relative (2 minutes ago)";
    case TimestampStyle::absolute: return "Absolute (14:32)";
    }
    return "Relative (2 minutes ago)";
}

std::string_view rawValue(MenuBarIconStyle style) {
    switch (style) {
    case MenuBarIconStyle::monochrome: return "monochrome";
    case MenuBarIconStyle::colored: return "colored";
    case MenuBarIconStyle::hiddenWhenIdle: return "hiddenWhenIdle";
    }
    return "monochrome";
}

MenuBarIconStyle menuBarIconStyleOrMonochrome(std::string_view raw) {
    return caseOrFirst(kAllMenuBarIconStyles, raw);
}

std::string_view label(MenuBarIconStyle style) {
    switch (style) {
    case MenuBarIconStyle::monochrome: return "Monochrome";
    case MenuBarIconStyle::colored: return "Coloured";  // spelt as the detail beneath it spells "colour"
    case MenuBarIconStyle::hiddenWhenIdle: return "Hidden when idle";
    }
    return "Monochrome";
}

std::string_view detailText(MenuBarIconStyle style) {
    switch (style) {
    case MenuBarIconStyle::monochrome: return appearanceTexts::monochromeDetail;
    case MenuBarIconStyle::colored: return appearanceTexts::coloredDetail;
    case MenuBarIconStyle::hiddenWhenIdle: return appearanceTexts::hiddenWhenIdleDetail;
    }
    return appearanceTexts::monochromeDetail;
}

AppearancePreferences::AppearancePreferences(Defaults& defaults, MainLoop& loop)
    : Preferences(defaults, loop),
      theme_(*this, appearanceKeys::theme, enumSetting(themeChoiceOrSystem, rawValue)),
      accent_(*this, appearanceKeys::accent, enumSetting(accentChoiceOrIndigo, rawValue)),
      cardDensity_(*this, appearanceKeys::cardDensity, enumSetting(cardDensityOrComfortable, rawValue)),
      showsSourceAppIcons_(*this, appearanceKeys::showsSourceAppIcons, boolSetting(true)),
      timestampStyle_(*this, appearanceKeys::timestampStyle, enumSetting(timestampStyleOrRelative, rawValue)),
      showsMenuBarIcon_(*this, appearanceKeys::showsMenuBarIcon, boolSetting(true)),
      menuBarIconStyle_(*this, appearanceKeys::menuBarIconStyle, enumSetting(menuBarIconStyleOrMonochrome, rawValue)),
      checksForUpdatesAutomatically_(*this, appearanceKeys::checksForUpdatesAutomatically, boolSetting(true)),
      hasCompletedOnboarding_(*this, appearanceKeys::hasCompletedOnboarding, boolSetting()) {}

void AppearancePreferences::setTheme(ThemeChoice value) { theme_.set(value); }
void AppearancePreferences::setAccent(AccentChoice value) { accent_.set(value); }
void AppearancePreferences::setCardDensity(CardDensity value) { cardDensity_.set(value); }
void AppearancePreferences::setShowsSourceAppIcons(bool value) { showsSourceAppIcons_.set(value); }
void AppearancePreferences::setTimestampStyle(TimestampStyle value) { timestampStyle_.set(value); }
void AppearancePreferences::setShowsMenuBarIcon(bool value) { showsMenuBarIcon_.set(value); }
void AppearancePreferences::setMenuBarIconStyle(MenuBarIconStyle value) { menuBarIconStyle_.set(value); }
void AppearancePreferences::setChecksForUpdatesAutomatically(bool value) { checksForUpdatesAutomatically_.set(value); }
void AppearancePreferences::setHasCompletedOnboarding(bool value) { hasCompletedOnboarding_.set(value); }

}  // namespace tamarind
