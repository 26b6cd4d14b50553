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

std::string storedString(const Defaults& defaults, const char* key) { return defaults.string(key).value_or(""); }

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

bool AppearancePreferences::boolOrDefault(const char* key, bool fallback) const {
    return defaults_.object(key) ? defaults_.boolValue(key) : fallback;
}

AppearancePreferences::AppearancePreferences(Defaults& defaults, MainLoop& loop)
    : defaults_(defaults),
      theme_(loop, themeChoiceOrSystem(storedString(defaults, appearanceKeys::theme))),
      accent_(loop, accentChoiceOrIndigo(storedString(defaults, appearanceKeys::accent))),
      cardDensity_(loop, cardDensityOrComfortable(storedString(defaults, appearanceKeys::cardDensity))),
      showsSourceAppIcons_(loop, boolOrDefault(appearanceKeys::showsSourceAppIcons, true)),
      timestampStyle_(loop, timestampStyleOrRelative(storedString(defaults, appearanceKeys::timestampStyle))),
      showsMenuBarIcon_(loop, boolOrDefault(appearanceKeys::showsMenuBarIcon, true)),
      menuBarIconStyle_(loop, menuBarIconStyleOrMonochrome(storedString(defaults, appearanceKeys::menuBarIconStyle))),
      checksForUpdatesAutomatically_(loop, boolOrDefault(appearanceKeys::checksForUpdatesAutomatically, true)),
      hasCompletedOnboarding_(loop, defaults.boolValue(appearanceKeys::hasCompletedOnboarding)) {}

void AppearancePreferences::setTheme(ThemeChoice value) {
    theme_.set(value);
    defaults_.set(appearanceKeys::theme, rawValue(value));
}

void AppearancePreferences::setAccent(AccentChoice value) {
    accent_.set(value);
    defaults_.set(appearanceKeys::accent, rawValue(value));
}

void AppearancePreferences::setCardDensity(CardDensity value) {
    cardDensity_.set(value);
    defaults_.set(appearanceKeys::cardDensity, rawValue(value));
}

void AppearancePreferences::setShowsSourceAppIcons(bool value) {
    showsSourceAppIcons_.set(value);
    defaults_.set(appearanceKeys::showsSourceAppIcons, value);
}

void AppearancePreferences::setTimestampStyle(TimestampStyle value) {
    timestampStyle_.set(value);
    defaults_.set(appearanceKeys::timestampStyle, rawValue(value));
}

void AppearancePreferences::setShowsMenuBarIcon(bool value) {
    showsMenuBarIcon_.set(value);
    defaults_.set(appearanceKeys::showsMenuBarIcon, value);
}

void AppearancePreferences::setMenuBarIconStyle(MenuBarIconStyle value) {
    menuBarIconStyle_.set(value);
    defaults_.set(appearanceKeys::menuBarIconStyle, rawValue(value));
}

void AppearancePreferences::setChecksForUpdatesAutomatically(bool value) {
    checksForUpdatesAutomatically_.set(value);
    defaults_.set(appearanceKeys::checksForUpdatesAutomatically, value);
}

void AppearancePreferences::setHasCompletedOnboarding(bool value) {
    hasCompletedOnboarding_.set(value);
    defaults_.set(appearanceKeys::hasCompletedOnboarding, value);
}

}  // namespace tamarind
