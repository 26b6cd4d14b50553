// settings list|get|set|reset over the known keys, read and written through the
// preferences class that owns them, so that the command line reads a value
// exactly as the app does and writes it in the same type.

#include <charconv>
#include <cmath>
#include <ostream>

#include "cli/Commands.h"
#include "foundation/Text.h"

namespace tamarind::cli {

namespace {

struct Setting {
    const char* key;
    std::string type;  // as `settings list` shows it
    const char* help;
    std::function<Json(const CapturePreferences&)> get;
    std::function<void(CapturePreferences&, const std::string&)> set;
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

Setting boolSetting(const char* key, const char* help, const Observable<bool>& (CapturePreferences::*get)() const,
                    void (CapturePreferences::*set)(bool)) {
    Setting setting{key, "true or false", help, nullptr, nullptr};
    setting.get = [get](const CapturePreferences& p) { return Json((p.*get)().value()); };
    setting.set = [setting, set](CapturePreferences& p, const std::string& text) {
        auto value = parseBool(text);
        if (!value) badValue(setting, text);
        (p.*set)(*value);
    };
    return setting;
}

Setting integerSetting(const char* key, const char* help, const Observable<long long>& (CapturePreferences::*get)() const,
                       void (CapturePreferences::*set)(long long)) {
    Setting setting{key, "an integer", help, nullptr, nullptr};
    setting.get = [get](const CapturePreferences& p) { return Json((p.*get)().value()); };
    setting.set = [setting, set](CapturePreferences& p, const std::string& text) {
        auto value = parseNumber<long long>(text);
        if (!value) badValue(setting, text);
        (p.*set)(*value);
    };
    return setting;
}

template <class Enum, std::size_t N>
Setting enumSetting(const char* key, const char* help, const std::array<Enum, N>& all,
                    const Observable<Enum>& (CapturePreferences::*get)() const, void (CapturePreferences::*set)(Enum)) {
    Setting setting{key, choices(all), help, nullptr, nullptr};
    setting.get = [get](const CapturePreferences& p) { return Json(std::string(rawValue((p.*get)().value()))); };
    setting.set = [setting, set, all](CapturePreferences& p, const std::string& text) {
        auto value = parseEnum(all, text);
        if (!value) badValue(setting, text);
        (p.*set)(*value);
    };
    return setting;
}

const std::vector<Setting>& settings() {
    using P = CapturePreferences;
    static const std::vector<Setting> all = [] {
        std::vector<Setting> list = {
            boolSetting(captureKeys::isPaused, "Capture is paused", &P::isPaused, &P::setPaused),
            integerSetting(captureKeys::maximumClipCount, "Clips kept at most (below 1 reads as 10000)",
                           &P::maximumClipCount, &P::setMaximumClipCount),
            integerSetting(captureKeys::minimumCharacters, "Shorter texts are not captured (0: no minimum)",
                           &P::minimumCharacters, &P::setMinimumCharacters),
            integerSetting(captureKeys::autoResumeMinutes, "A pause ends by itself after this many minutes (0: never)",
                           &P::autoResumeMinutes, &P::setAutoResumeMinutes),
            boolSetting(captureKeys::faviconFetchEnabled, "Fetch the icons of copied links",
                        &P::isFaviconFetchEnabled, &P::setFaviconFetchEnabled),
            boolSetting(captureKeys::restoresPasteboardAfterPaste, "Put the clipboard back after a paste",
                        &P::restoresPasteboardAfterPaste, &P::setRestoresPasteboardAfterPaste),
            boolSetting(captureKeys::ocrEnabled, "Recognise the text of images", &P::isOCREnabled, &P::setOCREnabled),
            boolSetting(captureKeys::screenshotHistoryEnabled, "Keep screenshots in the history",
                        &P::isScreenshotHistoryEnabled, &P::setScreenshotHistoryEnabled),
            boolSetting(captureKeys::deletesOriginalScreenshot, "Delete a screenshot's file once it is kept",
                        &P::deletesOriginalScreenshot, &P::setDeletesOriginalScreenshot),
            boolSetting(captureKeys::sensitiveDetectionEnabled, "Look for passwords, keys and card numbers",
                        &P::isSensitiveDetectionEnabled, &P::setSensitiveDetectionEnabled),
            enumSetting(captureKeys::sensitiveHandling, "What happens to a sensitive clip", kAllSensitiveHandlings,
                        &P::sensitiveHandling, &P::setSensitiveHandling),
            enumSetting(captureKeys::preferredColorFormat, "How colours are copied", kAllColorFormats,
                        &P::preferredColorFormat, &P::setPreferredColorFormat),
            enumSetting(captureKeys::pasteKeystroke,
                        "The keystroke that pastes (auto: Ctrl+Shift+V into terminals, Ctrl+V elsewhere)",
                        kAllPasteKeystrokes, &P::pasteKeystroke, &P::setPasteKeystroke),
            enumSetting(captureKeys::multiClipJoiner, "What joins the parts of a multi-clip", kAllMultiClipJoiners,
                        &P::multiClipJoiner, &P::setMultiClipJoiner),
        };
        Setting age{captureKeys::maximumAgeInDays, "an integer", "Clips older than this many days go (0: no limit)",
                    nullptr, nullptr};
        age.get = [](const P& p) { return Json(p.maximumAgeInDays().value().value_or(0)); };
        age.set = [age](P& p, const std::string& text) {
            auto days = parseNumber<long long>(text);
            if (!days) badValue(age, text);
            p.setMaximumAgeInDays(*days < 1 ? std::nullopt : days);
        };
        list.push_back(age);
        Setting megabytes{captureKeys::maximumMegabytes, "a number", "Larger captures are refused (0: no limit)",
                          nullptr, nullptr};
        megabytes.get = [](const P& p) { return Json(p.maximumMegabytes().value()); };
        megabytes.set = [megabytes](P& p, const std::string& text) {
            auto value = parseNumber<double>(text);
            // from_chars reads "inf" and "nan"; neither is a size, and infinity can't be read back.
            if (!value || !std::isfinite(*value)) badValue(megabytes, text);
            p.setMaximumMegabytes(*value);
        };
        list.push_back(megabytes);
        Setting separator{captureKeys::multiClipCustomSeparator, "a string",
                          "The separator of the custom multi-clip joiner", nullptr, nullptr};
        separator.get = [](const P& p) { return Json(p.multiClipCustomSeparator().value()); };
        separator.set = [](P& p, const std::string& text) { p.setMultiClipCustomSeparator(text); };
        list.push_back(separator);
        Setting excluded{captureKeys::excludedBundleIDs, "application ids separated by commas",
                         "Applications never captured from", nullptr, nullptr};
        excluded.get = [](const P& p) {
            Json ids = Json::array();
            for (const std::string& id : p.excludedBundleIDs().value()) ids.push_back(id);
            return ids;
        };
        excluded.set = [](P& p, const std::string& text) {
            std::set<std::string> ids;
            for (std::string_view id : split(text, ","))
                if (!trimmed(id).empty()) ids.insert(std::string(trimmed(id)));
            p.setExcludedBundleIDs(std::move(ids));
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
        CapturePreferences& preferences = context.preferences();
        if (json) {
            Json object = Json::object();
            for (const Setting& setting : settings()) object[setting.key] = setting.get(preferences);
            printJson(context, object);
            return;
        }
        for (const Setting& setting : settings()) {
            // Strings quoted, so that blanks at their ends show.
            Json value = setting.get(preferences);
            context.out() << setting.key << " = " << (value.is_string() ? value.dump() : shown(value)) << "    # "
                          << setting.help << "; " << setting.type << "\n";
        }
    }).command;

    auto key = std::make_shared<std::string>();
    CLI::App* get = command->add_subcommand("get", "One setting's value (its default when never set)");
    get->add_option("key", *key, "A dotted key, e.g. capture.maximumClipCount")->required();
    get->callback([&context, key] {
        context.out() << shown(settingNamed(*key).get(context.preferences())) << "\n";
    });

    auto assignment = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* set = command->add_subcommand("set", "Change a setting; the value is checked against its type");
    set->add_option("key", assignment->first, "A dotted key")->required();
    set->add_option("value", assignment->second, "The new value")->required();
    set->callback([&context, assignment] { settingNamed(assignment->first).set(context.preferences(), assignment->second); });

    auto resetKey = std::make_shared<std::string>();
    CLI::App* reset = command->add_subcommand("reset", "Forget a setting, so that its default applies");
    reset->add_option("key", *resetKey, "A dotted key")->required();
    reset->callback([&context, resetKey] {
        context.defaults().remove(settingNamed(*resetKey).key);
    });
}

}  // namespace tamarind::cli
