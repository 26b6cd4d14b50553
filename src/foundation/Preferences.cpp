#include "foundation/Preferences.h"

#include "foundation/Log.h"

namespace tamarind {

Preferences::Preferences(Defaults& defaults, MainLoop& loop)
    : defaults_(defaults),
      loop_(loop),
      observation_(defaults.observe([this](const std::string& key) { keyChanged(key); })) {}

void Preferences::keyChanged(const std::string& key) {
    bool isHeld = false;
    for (StoredPropertyBase* property : properties_) {
        if (property->key() != key) continue;
        isHeld = true;
        property->reload();
    }
    if (!isHeld) keyDidChange(key);
}

namespace {

// A plain setting is read from a Boolean, a number or a string, converted as the Defaults do. A
// value of any other type (data, a date, an array, a dictionary) can't be: the setting reads as its
// fallback, which the log says, and the value stays stored.
bool isPlainValue(const Defaults& defaults, const std::string& key) {
    std::optional<PlistValue> value = defaults.object(key);
    if (!value) return false;
    if (value->isBool() || value->isInteger() || value->isDouble() || value->isString()) return true;
    Log("settings").error("The stored value of %{public}s is not a plain value; the setting reads as its default.",
                          key);
    return false;
}

}  // namespace

void keepUnreadableValueAside(Defaults& defaults, const std::string& key,
                              const std::function<bool(const PlistValue&)>& isReadable) {
    std::optional<PlistValue> stored = defaults.object(key);
    if (!stored || isReadable(*stored)) return;
    std::string aside = key + ".unreadable";
    for (int suffix = 2; defaults.object(aside); ++suffix) aside = key + ".unreadable-" + std::to_string(suffix);
    defaults.set(aside, std::move(*stored));
    Log("settings").error("The stored value of %{public}s could not be read; it is kept as %{public}s.", key, aside);
}

SettingCodec<bool> boolSetting(bool fallback) {
    return {[fallback](const Defaults& defaults, const std::string& key) {
                return isPlainValue(defaults, key) ? defaults.boolValue(key) : fallback;
            },
            [](Defaults& defaults, const std::string& key, const bool& value) { defaults.set(key, value); }};
}

SettingCodec<long long> integerSetting(long long fallback, std::function<long long(long long)> adjust) {
    return {[fallback, adjust](const Defaults& defaults, const std::string& key) {
                long long value = isPlainValue(defaults, key) ? defaults.integer(key) : fallback;
                return adjust ? adjust(value) : value;
            },
            [](Defaults& defaults, const std::string& key, const long long& value) {
                defaults.set(key, static_cast<std::int64_t>(value));
            }};
}

SettingCodec<double> doubleSetting(double fallback, std::function<double(double)> adjust) {
    return {[fallback, adjust](const Defaults& defaults, const std::string& key) {
                double value = isPlainValue(defaults, key) ? defaults.doubleValue(key) : fallback;
                return adjust ? adjust(value) : value;
            },
            [](Defaults& defaults, const std::string& key, const double& value) { defaults.set(key, value); }};
}

SettingCodec<std::string> stringSetting(std::string fallback) {
    return {[fallback](const Defaults& defaults, const std::string& key) {
                return isPlainValue(defaults, key) ? defaults.string(key).value_or(fallback) : fallback;
            },
            [](Defaults& defaults, const std::string& key, const std::string& value) { defaults.set(key, value); }};
}

}  // namespace tamarind
