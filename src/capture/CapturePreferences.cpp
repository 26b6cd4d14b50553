#include "capture/CapturePreferences.h"

#include <algorithm>

namespace tamarind {

namespace {

// Absent: the default list. Stored as an array, sorted ascending.
SettingCodec<std::set<std::string>> exclusionsSetting() {
    return {[](const Defaults& defaults, const std::string& key) {
                auto stored = defaults.stringArray(key);
                if (!stored) return CapturePreferences::defaultExcludedBundleIDs();
                return std::set<std::string>(stored->begin(), stored->end());
            },
            [](Defaults& defaults, const std::string& key, const std::set<std::string>& value) {
                PlistArray sorted;  // a std::set iterates in ascending byte order
                for (const std::string& id : value) sorted.emplace_back(id);
                defaults.set(key, std::move(sorted));
            }};
}

// Below 1 day means none, which is stored as 0.
SettingCodec<std::optional<long long>> maximumAgeSetting() {
    return {[](const Defaults& defaults, const std::string& key) {
                long long days = defaults.integer(key);
                return days < 1 ? std::nullopt : std::optional<long long>(days);
            },
            [](Defaults& defaults, const std::string& key, const std::optional<long long>& value) {
                defaults.set(key, static_cast<std::int64_t>(value.value_or(0)));
            }};
}

}  // namespace

const std::set<std::string>& CapturePreferences::defaultExcludedBundleIDs() {
    static const std::set<std::string> ids = {
        // The password managers and keychain of the original platform.
        "com.agilebits.onepassword", "com.agilebits.onepassword7", "com.1password.1password", "com.bitwarden.desktop",
        "com.apple.keychainaccess", "com.dashlane.Dashlane", "com.dashlane.dashlanephonefinal",
        "com.lastpass.LastPass", "com.lastpass.lastpassmacdesktop", "me.proton.pass.electron",
        "in.sinew.Enpass-Desktop", "io.enpass.Enpass",
        // The same programs on Linux, by desktop-file or Flatpak id and by window class.
        "org.keepassxc.KeePassXC", "keepassxc", "bitwarden", "1password", "com.onepassword.OnePassword",
        "proton-pass", "me.proton.Pass", "enpass", "org.gnome.seahorse.Application", "seahorse",
        "org.kde.kwalletmanager5", "org.kde.kwalletmanager", "kwalletmanager5"};
    return ids;
}

CapturePreferences::CapturePreferences(Defaults& defaults, MainLoop& loop)
    : Preferences(defaults, loop),
      isPaused_(*this, captureKeys::isPaused, boolSetting()),
      excludedBundleIDs_(*this, captureKeys::excludedBundleIDs, exclusionsSetting()),
      maximumClipCount_(*this, captureKeys::maximumClipCount,
                        integerSetting(0, [](long long count) { return count < 1 ? kDefaultMaximumClipCount : count; })),
      maximumAgeInDays_(*this, captureKeys::maximumAgeInDays, maximumAgeSetting()),
      isFaviconFetchEnabled_(*this, captureKeys::faviconFetchEnabled, boolSetting()),
      restoresPasteboardAfterPaste_(*this, captureKeys::restoresPasteboardAfterPaste, boolSetting()),
      isOCREnabled_(*this, captureKeys::ocrEnabled, boolSetting(true)),
      isScreenshotHistoryEnabled_(*this, captureKeys::screenshotHistoryEnabled, boolSetting(true)),
      deletesOriginalScreenshot_(*this, captureKeys::deletesOriginalScreenshot, boolSetting()),
      preferredColorFormat_(*this, captureKeys::preferredColorFormat, enumSetting(colorFormatOrHex, rawValue)),
      pasteKeystroke_(*this, captureKeys::pasteKeystroke, enumSetting(pasteKeystrokeOrAutomatic, rawValue)),
      multiClipJoiner_(*this, captureKeys::multiClipJoiner, enumSetting(multiClipJoinerOrNewline, rawValue)),
      multiClipCustomSeparator_(*this, captureKeys::multiClipCustomSeparator, stringSetting(" | ")),
      minimumCharacters_(*this, captureKeys::minimumCharacters, integerSetting()),
      maximumMegabytes_(*this, captureKeys::maximumMegabytes,
                        doubleSetting(0, [](double megabytes) { return std::max(0.0, megabytes); })),
      isSensitiveDetectionEnabled_(*this, captureKeys::sensitiveDetectionEnabled, boolSetting(true)),
      sensitiveHandling_(*this, captureKeys::sensitiveHandling, enumSetting(sensitiveHandlingFromRawValue, rawValue)),
      autoResumeMinutes_(*this, captureKeys::autoResumeMinutes, integerSetting()) {}

void CapturePreferences::setPaused(bool value) { isPaused_.set(value); }
void CapturePreferences::setExcludedBundleIDs(std::set<std::string> value) { excludedBundleIDs_.set(std::move(value)); }
void CapturePreferences::setMaximumClipCount(long long value) { maximumClipCount_.set(value); }
void CapturePreferences::setMaximumAgeInDays(std::optional<long long> value) { maximumAgeInDays_.set(value); }
void CapturePreferences::setFaviconFetchEnabled(bool value) { isFaviconFetchEnabled_.set(value); }
void CapturePreferences::setRestoresPasteboardAfterPaste(bool value) { restoresPasteboardAfterPaste_.set(value); }
void CapturePreferences::setOCREnabled(bool value) { isOCREnabled_.set(value); }
void CapturePreferences::setScreenshotHistoryEnabled(bool value) { isScreenshotHistoryEnabled_.set(value); }
void CapturePreferences::setDeletesOriginalScreenshot(bool value) { deletesOriginalScreenshot_.set(value); }
void CapturePreferences::setPreferredColorFormat(ColorFormat value) { preferredColorFormat_.set(value); }
void CapturePreferences::setPasteKeystroke(PasteKeystroke value) { pasteKeystroke_.set(value); }
void CapturePreferences::setMultiClipJoiner(MultiClipJoiner value) { multiClipJoiner_.set(value); }
void CapturePreferences::setMultiClipCustomSeparator(std::string value) { multiClipCustomSeparator_.set(std::move(value)); }
void CapturePreferences::setMinimumCharacters(long long value) { minimumCharacters_.set(value); }
void CapturePreferences::setMaximumMegabytes(double value) { maximumMegabytes_.set(value); }
void CapturePreferences::setSensitiveDetectionEnabled(bool value) { isSensitiveDetectionEnabled_.set(value); }
void CapturePreferences::setSensitiveHandling(SensitiveHandling value) { sensitiveHandling_.set(value); }
void CapturePreferences::setAutoResumeMinutes(long long value) { autoResumeMinutes_.set(value); }

void CapturePreferences::restoreDefaultExclusions() { setExcludedBundleIDs(defaultExcludedBundleIDs()); }

CaptureLimits captureLimits(const CapturePreferences& preferences) {
    double megabytes = preferences.maximumMegabytes().value();
    return CaptureLimits{
        .minimumCharacters = std::max(0LL, preferences.minimumCharacters().value()),
        .maximumBytes = megabytes > 0 ? static_cast<long long>(megabytes * 1'048'576) : 0,
        .detectsSensitiveContent = preferences.isSensitiveDetectionEnabled().value(),
        .skipsSensitiveContent = preferences.sensitiveHandling().value() == SensitiveHandling::skip,
    };
}

}  // namespace tamarind
