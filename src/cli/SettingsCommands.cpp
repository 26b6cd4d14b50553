// settings list|get|set|reset over the known keys, read and written through the
// preferences class that owns them, so that the command line reads a value
// exactly as the app does and writes it in the same type.

#include <charconv>
#include <cmath>
#include <ostream>

#include "appearance/AppearancePreferences.h"
#include "cli/Commands.h"
#include "foundation/Text.h"

namespace tamarind::cli {

namespace {

struct Setting {
    const char* key;
    std::string type;  // as `settings list` shows it
    const char* help;
    std::function<Json(CliContext&)> get;
    std::function<void(CliContext&, const std::string&)> set;
};

[[noreturn]] void badValue(const Setting& setting, const std::string& value) {
    badUsage(std::string(setting.key) + " takes " + setting.type + ", not '" + value + "'");
}

template <class Number> std::optional<Number> parseNumber(const std::string& text) {
    Number value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<bool> parseBool(const std::string& text) {
    std::string lower = lowercased(text);
    if (lower == "true" || lower == "yes" || lower == "on" || lower == "1") return true;
    if (lower == "false" || lower == "no" || lower == "off" || lower == "0") return false;
    return std::nullopt;
}

template <class Enum, std::size_t N> std::string choices(const std::array<Enum, N>& all) {
    std::string text = "one of";
    for (Enum value : all) text += std::string(" ") + std::string(rawValue(value));
    return text;
}

template <class Enum, std::size_t N> std::optional<Enum> parseEnum(const std::array<Enum, N>& all, const std::string& text) {
    for (Enum value : all)
        if (rawValue(value) == text) return value;
    return std::nullopt;
}

// The preferences class that owns a key, as the command line opens it.
CapturePreferences& capture(CliContext& context) { return context.preferences(); }
AppearancePreferences& appearance(CliContext& context) { return context.appearance(); }

// A setting read and written through its owner's property and setter, so that the command line
// reads a value as the app does and stores it in the same type. `parse` is absent for bad input.
template <class P, class T>
Setting ownedSetting(const char* key, std::string type, const char* help, P& (*owner)(CliContext&),
                     const Observable<T>& (P::*get)() const, void (P::*set)(T),
                     std::function<std::optional<T>(const std::string&)> parse, std::function<Json(const T&)> show) {
    Setting setting{key, std::move(type), help, nullptr, nullptr};
    setting.get = [owner, get, show](CliContext& context) { return show((owner(context).*get)().value()); };
    setting.set = [setting, owner, set, parse](CliContext& context, const std::string& text) {
        auto value = parse(text);
        if (!value) badValue(setting, text);
        (owner(context).*set)(std::move(*value));
    };
    return setting;
}

template <class P>
Setting boolSetting(const char* key, const char* help, P& (*owner)(CliContext&), const Observable<bool>& (P::*get)() const,
                    void (P::*set)(bool)) {
    return ownedSetting<P, bool>(key, "true or false", help, owner, get, set, parseBool,
                                 [](const bool& value) { return Json(value); });
}

Setting integerSetting(const char* key, const char* help, const Observable<long long>& (CapturePreferences::*get)() const,
                       void (CapturePreferences::*set)(long long)) {
    return ownedSetting<CapturePreferences, long long>(key, "an integer", help, capture, get, set,
                                                       parseNumber<long long>,
                                                       [](const long long& value) { return Json(value); });
}

template <class P, class Enum, std::size_t N>
Setting enumSetting(const char* key, const char* help, P& (*owner)(CliContext&), const std::array<Enum, N>& all,
                    const Observable<Enum>& (P::*get)() const, void (P::*set)(Enum)) {
    return ownedSetting<P, Enum>(
        key, choices(all), help, owner, get, set, [all](const std::string& text) { return parseEnum(all, text); },
        [](const Enum& value) { return Json(std::string(rawValue(value))); });
}

const std::vector<Setting>& settings() {
    using P = CapturePreferences;
    using A = AppearancePreferences;
    static const std::vector<Setting> all = [] {
        std::vector<Setting> list = {
            boolSetting(captureKeys::isPaused, "Capture is paused", capture, &P::isPaused, &P::setPaused),
            integerSetting(captureKeys::maximumClipCount, "Clips kept at most (below 1 reads as 10000)",
                           &P::maximumClipCount, &P::setMaximumClipCount),
            integerSetting(captureKeys::minimumCharacters, "Shorter texts are not captured (0: no minimum)",
                           &P::minimumCharacters, &P::setMinimumCharacters),
            integerSetting(captureKeys::autoResumeMinutes, "A pause ends by itself after this many minutes (0: never)",
                           &P::autoResumeMinutes, &P::setAutoResumeMinutes),
            boolSetting(captureKeys::faviconFetchEnabled, "Fetch the icons of copied links", capture,
                        &P::isFaviconFetchEnabled, &P::setFaviconFetchEnabled),
            boolSetting(captureKeys::restoresPasteboardAfterPaste, "Put the clipboard back after a paste", capture,
                        &P::restoresPasteboardAfterPaste, &P::setRestoresPasteboardAfterPaste),
            boolSetting(captureKeys::ocrEnabled, "Recognise the text of images", capture, &P::isOCREnabled,
                        &P::setOCREnabled),
            boolSetting(captureKeys::screenshotHistoryEnabled, "Keep screenshots in the history", capture,
                        &P::isScreenshotHistoryEnabled, &P::setScreenshotHistoryEnabled),
            boolSetting(captureKeys::deletesOriginalScreenshot, "Delete a screenshot's file once it is kept", capture,
                        &P::deletesOriginalScreenshot, &P::setDeletesOriginalScreenshot),
            boolSetting(captureKeys::sensitiveDetectionEnabled, "Look for passwords, keys and card numbers", capture,
                        &P::isSensitiveDetectionEnabled, &P::setSensitiveDetectionEnabled),
            enumSetting(captureKeys::sensitiveHandling, "What happens to a sensitive clip", capture,
                        kAllSensitiveHandlings, &P::sensitiveHandling, &P::setSensitiveHandling),
            enumSetting(captureKeys::preferredColorFormat, "How colours are copied", capture, kAllColorFormats,
                        &P::preferredColorFormat, &P::setPreferredColorFormat),
            enumSetting(captureKeys::pasteKeystroke,
                        "The keystroke that pastes (auto: Ctrl+Shift+V into terminals, Ctrl+V elsewhere)", capture,
                        kAllPasteKeystrokes, &P::pasteKeystroke, &P::setPasteKeystroke),
            enumSetting(captureKeys::multiClipJoiner, "What joins the parts of a multi-clip", capture,
                        kAllMultiClipJoiners, &P::multiClipJoiner, &P::setMultiClipJoiner),
            enumSetting(appearanceKeys::theme, "Light, dark, or as the desktop is", appearance, kAllThemeChoices,
                        &A::theme, &A::setTheme),
            enumSetting(appearanceKeys::accent, "The accent colour", appearance, kAllAccentChoices, &A::accent,
                        &A::setAccent),
            enumSetting(appearanceKeys::cardDensity, "How much room a clip's card takes", appearance,
                        kAllCardDensities, &A::cardDensity, &A::setCardDensity),
            boolSetting(appearanceKeys::showsSourceAppIcons, appearanceTexts::showsSourceAppIconsDetail, appearance,
                        &A::showsSourceAppIcons, &A::setShowsSourceAppIcons),
            enumSetting(appearanceKeys::timestampStyle, "How a clip's time is shown", appearance,
                        kAllTimestampStyles, &A::timestampStyle, &A::setTimestampStyle),
            boolSetting(appearanceKeys::showsMenuBarIcon, "Show the icon in the status area", appearance,
                        &A::showsMenuBarIcon, &A::setShowsMenuBarIcon),
            enumSetting(appearanceKeys::menuBarIconStyle, "How the status icon looks", appearance,
                        kAllMenuBarIconStyles, &A::menuBarIconStyle, &A::setMenuBarIconStyle),
            boolSetting(appearanceKeys::checksForUpdatesAutomatically,
                        "Look for new versions (the distribution's packages update Tamarind)", appearance,
                        &A::checksForUpdatesAutomatically, &A::setChecksForUpdatesAutomatically),
            boolSetting(appearanceKeys::hasCompletedOnboarding, "The first-run guide has been seen", appearance,
                        &A::hasCompletedOnboarding, &A::setHasCompletedOnboarding),
        };
        Setting age{captureKeys::maximumAgeInDays, "an integer", "Clips older than this many days go (0: no limit)",
                    nullptr, nullptr};
        age.get = [](CliContext& context) { return Json(capture(context).maximumAgeInDays().value().value_or(0)); };
        age.set = [age](CliContext& context, const std::string& text) {
            auto days = parseNumber<long long>(text);
            if (!days) badValue(age, text);
            capture(context).setMaximumAgeInDays(*days < 1 ? std::nullopt : days);
        };
        list.push_back(age);
        Setting megabytes{captureKeys::maximumMegabytes, "a number", "Larger captures are refused (0: no limit)",
                          nullptr, nullptr};
        megabytes.get = [](CliContext& context) { return Json(capture(context).maximumMegabytes().value()); };
        megabytes.set = [megabytes](CliContext& context, const std::string& text) {
            auto value = parseNumber<double>(text);
            // from_chars reads "inf" and "nan"; neither is a size, and infinity can't be read back.
            if (!value || !std::isfinite(*value)) badValue(megabytes, text);
            capture(context).setMaximumMegabytes(*value);
        };
        list.push_back(megabytes);
        Setting separator{captureKeys::multiClipCustomSeparator, "a string",
                          "The separator of the custom multi-clip joiner", nullptr, nullptr};
        separator.get = [](CliContext& context) { return Json(capture(context).multiClipCustomSeparator().value()); };
        separator.set = [](CliContext& context, const std::string& text) {
            capture(context).setMultiClipCustomSeparator(text);
        };
        list.push_back(separator);
        Setting excluded{captureKeys::excludedBundleIDs, "application ids separated by commas",
                         "Applications never captured from", nullptr, nullptr};
        excluded.get = [](CliContext& context) {
            Json ids = Json::array();
            for (const std::string& id : capture(context).excludedBundleIDs().value()) ids.push_back(id);
            return ids;
        };
        excluded.set = [](CliContext& context, const std::string& text) {
            std::set<std::string> ids;
            for (std::string_view id : split(text, ","))
                if (!trimmed(id).empty()) ids.insert(std::string(trimmed(id)));
            capture(context).setExcludedBundleIDs(std::move(ids));
        };
        list.push_back(excluded);
        std::sort(list.begin(), list.end(),
                  [](const Setting& a, const Setting& b) { return std::string_view(a.key) < std::string_view(b.key); });
        return list;
    }();
    return all;
}

const Setting& settingNamed(const std::string& key) {
    for (const Setting& setting : settings())
        if (key == setting.key) return setting;
    badUsage("'" + key + "' is not a setting; `tamarind settings list` shows them");
}

// As `settings set` takes it: lists with commas, strings as they are.
std::string shown(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_array()) return value.dump();
    std::vector<std::string> items;
    for (const Json& item : value) items.push_back(shown(item));
    return join(items, ",");
}

}  // namespace

void addSettingsCommands(CLI::App& app, CliContext& context) {
    CLI::App* command = addListingCommand(app, "settings", "Read and change the settings (list by default)",
                                          "Every known setting with its value", [&context](bool json) {
        if (json) {
            Json object = Json::object();
            for (const Setting& setting : settings()) object[setting.key] = setting.get(context);
            printJson(context, object);
            return;
        }
        for (const Setting& setting : settings()) {
            // Strings quoted, so that blanks at their ends show.
            Json value = setting.get(context);
            context.out() << setting.key << " = " << (value.is_string() ? value.dump() : shown(value)) << "    # "
                          << setting.help << "; " << setting.type << "\n";
        }
    }).command;

    auto key = std::make_shared<std::string>();
    CLI::App* get = command->add_subcommand("get", "One setting's value (its default when never set)");
    get->add_option("key", *key, "A dotted key, e.g. capture.maximumClipCount")->required();
    get->callback([&context, key] {
        context.out() << shown(settingNamed(*key).get(context)) << "\n";
    });

    auto assignment = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* set = command->add_subcommand("set", "Change a setting; the value is checked against its type");
    set->add_option("key", assignment->first, "A dotted key")->required();
    set->add_option("value", assignment->second, "The new value")->required();
    set->callback([&context, assignment] { settingNamed(assignment->first).set(context, assignment->second); });

    auto resetKey = std::make_shared<std::string>();
    CLI::App* reset = command->add_subcommand("reset", "Forget a setting, so that its default applies");
    reset->add_option("key", *resetKey, "A dotted key")->required();
    reset->callback([&context, resetKey] {
        context.defaults().remove(settingNamed(*resetKey).key);
    });
}

}  // namespace tamarind::cli
