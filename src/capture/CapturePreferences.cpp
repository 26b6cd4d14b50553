#include "capture/CapturePreferences.h"

#include <algorithm>

namespace tamarind {

namespace {

std::set<std::string> readExclusions(const Defaults& defaults) {
    auto stored = defaults.stringArray(captureKeys::excludedBundleIDs);
    if (!stored) return CapturePreferences::defaultExcludedBundleIDs();
    return std::set<std::string>(stored->begin(), stored->end());
}

std::optional<long long> readMaximumAge(const Defaults& defaults) {
    long long days = defaults.integer(captureKeys::maximumAgeInDays);
    return days < 1 ? std::nullopt : std::optional<long long>(days);
}

long long readMaximumClipCount(const Defaults& defaults) {
    long long count = defaults.integer(captureKeys::maximumClipCount);
    return count < 1 ? kDefaultMaximumClipCount : count;
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

bool CapturePreferences::boolOrDefault(const char* key, bool fallback) const {
    return defaults_.object(key) ? defaults_.boolValue(key) : fallback;
}

CapturePreferences::CapturePreferences(Defaults& defaults, MainLoop& loop)
    : defaults_(defaults),
      isPaused_(loop, false),
      excludedBundleIDs_(loop, {}),
      maximumClipCount_(loop, kDefaultMaximumClipCount),
      maximumAgeInDays_(loop, std::nullopt),
      isFaviconFetchEnabled_(loop, false),
      restoresPasteboardAfterPaste_(loop, false),
      isOCREnabled_(loop, true),
      isScreenshotHistoryEnabled_(loop, true),
      deletesOriginalScreenshot_(loop, false),
      preferredColorFormat_(loop, ColorFormat::hex),
      pasteKeystroke_(loop, PasteKeystroke::automatic),
      multiClipJoiner_(loop, MultiClipJoiner::newline),
      multiClipCustomSeparator_(loop, ""),
      minimumCharacters_(loop, 0),
      maximumMegabytes_(loop, 0),
      isSensitiveDetectionEnabled_(loop, true),
      sensitiveHandling_(loop, SensitiveHandling::storeBlurred),
      autoResumeMinutes_(loop, 0) {
    reload();
    // Another program (the command line) may change the settings while this one runs.
    observation_ = defaults_.observe([this](const std::string&) { reload(); });
}

namespace {

// Only a value that differs is set, so that a reload tells the subscribers of real changes only.
template <class T> void update(Observable<T>& observable, T value) {
    if (!(observable.value() == value)) observable.set(std::move(value));
}

}  // namespace

void CapturePreferences::reload() {
    update(isPaused_, defaults_.boolValue(captureKeys::isPaused));
    update(excludedBundleIDs_, readExclusions(defaults_));
    update(maximumClipCount_, readMaximumClipCount(defaults_));
    update(maximumAgeInDays_, readMaximumAge(defaults_));
    update(isFaviconFetchEnabled_, defaults_.boolValue(captureKeys::faviconFetchEnabled));
    update(restoresPasteboardAfterPaste_, defaults_.boolValue(captureKeys::restoresPasteboardAfterPaste));
    update(isOCREnabled_, boolOrDefault(captureKeys::ocrEnabled, true));
    update(isScreenshotHistoryEnabled_, boolOrDefault(captureKeys::screenshotHistoryEnabled, true));
    update(deletesOriginalScreenshot_, defaults_.boolValue(captureKeys::deletesOriginalScreenshot));
    update(preferredColorFormat_, colorFormatOrHex(defaults_.string(captureKeys::preferredColorFormat).value_or("")));
    update(pasteKeystroke_, pasteKeystrokeOrAutomatic(defaults_.string(captureKeys::pasteKeystroke).value_or("")));
    update(multiClipJoiner_, multiClipJoinerOrNewline(defaults_.string(captureKeys::multiClipJoiner).value_or("")));
    update(multiClipCustomSeparator_, defaults_.string(captureKeys::multiClipCustomSeparator).value_or(" | "));
    update(minimumCharacters_, static_cast<long long>(defaults_.integer(captureKeys::minimumCharacters)));
    update(maximumMegabytes_, std::max(0.0, defaults_.doubleValue(captureKeys::maximumMegabytes)));
    update(isSensitiveDetectionEnabled_, boolOrDefault(captureKeys::sensitiveDetectionEnabled, true));
    update(sensitiveHandling_,
           sensitiveHandlingFromRawValue(defaults_.string(captureKeys::sensitiveHandling).value_or("")));
    update(autoResumeMinutes_, static_cast<long long>(defaults_.integer(captureKeys::autoResumeMinutes)));
}

void CapturePreferences::setPaused(bool value) {
    isPaused_.set(value);
    defaults_.set(captureKeys::isPaused, value);
}

void CapturePreferences::setExcludedBundleIDs(std::set<std::string> value) {
    PlistArray sorted;  // a std::set iterates in ascending byte order
    for (const std::string& id : value) sorted.emplace_back(id);
    excludedBundleIDs_.set(std::move(value));
    defaults_.set(captureKeys::excludedBundleIDs, std::move(sorted));
}

void CapturePreferences::setMaximumClipCount(long long value) {
    maximumClipCount_.set(value);
    defaults_.set(captureKeys::maximumClipCount, value);
}

void CapturePreferences::setMaximumAgeInDays(std::optional<long long> value) {
    maximumAgeInDays_.set(value);
    defaults_.set(captureKeys::maximumAgeInDays, value.value_or(0));
}

void CapturePreferences::setFaviconFetchEnabled(bool value) {
    isFaviconFetchEnabled_.set(value);
    defaults_.set(captureKeys::faviconFetchEnabled, value);
}

void CapturePreferences::setRestoresPasteboardAfterPaste(bool value) {
    restoresPasteboardAfterPaste_.set(value);
    defaults_.set(captureKeys::restoresPasteboardAfterPaste, value);
}

void CapturePreferences::setOCREnabled(bool value) {
    isOCREnabled_.set(value);
    defaults_.set(captureKeys::ocrEnabled, value);
}

void CapturePreferences::setScreenshotHistoryEnabled(bool value) {
    isScreenshotHistoryEnabled_.set(value);
    defaults_.set(captureKeys::screenshotHistoryEnabled, value);
}

void CapturePreferences::setDeletesOriginalScreenshot(bool value) {
    deletesOriginalScreenshot_.set(value);
    defaults_.set(captureKeys::deletesOriginalScreenshot, value);
}

void CapturePreferences::setPreferredColorFormat(ColorFormat value) {
    preferredColorFormat_.set(value);
    defaults_.set(captureKeys::preferredColorFormat, rawValue(value));
}

void CapturePreferences::setPasteKeystroke(PasteKeystroke value) {
    pasteKeystroke_.set(value);
    defaults_.set(captureKeys::pasteKeystroke, std::string(rawValue(value)));
}

void CapturePreferences::setMultiClipJoiner(MultiClipJoiner value) {
    multiClipJoiner_.set(value);
    defaults_.set(captureKeys::multiClipJoiner, rawValue(value));
}

void CapturePreferences::setMultiClipCustomSeparator(std::string value) {
    multiClipCustomSeparator_.set(value);
    defaults_.set(captureKeys::multiClipCustomSeparator, std::move(value));
}

void CapturePreferences::setMinimumCharacters(long long value) {
    minimumCharacters_.set(value);
    defaults_.set(captureKeys::minimumCharacters, value);
}

void CapturePreferences::setMaximumMegabytes(double value) {
    maximumMegabytes_.set(value);
    defaults_.set(captureKeys::maximumMegabytes, value);
}

void CapturePreferences::setSensitiveDetectionEnabled(bool value) {
    isSensitiveDetectionEnabled_.set(value);
    defaults_.set(captureKeys::sensitiveDetectionEnabled, value);
}

void CapturePreferences::setSensitiveHandling(SensitiveHandling value) {
    sensitiveHandling_.set(value);
    defaults_.set(captureKeys::sensitiveHandling, rawValue(value));
}

void CapturePreferences::setAutoResumeMinutes(long long value) {
    autoResumeMinutes_.set(value);
    defaults_.set(captureKeys::autoResumeMinutes, value);
}

void CapturePreferences::restoreDefaultExclusions() { setExcludedBundleIDs(defaultExcludedBundleIDs()); }

CaptureLimits captureLimits(const CapturePreferences& preferences) {
    double megabytes = preferences.maximumMegabytes().value();
    return CaptureLimits{
        .minimumCharacters = std::max(0LL, preferences.minimumCharacters().value()),
        .maximumBytes = megabytes > 0 ? static_cast<long long>(megabytes * 1'048'576) : 0,
        .detectsSensitiveContent = preferences.isSensitiveDetectionEnabled().value(),
        .sensitiveHandling = preferences.sensitiveHandling().value(),
    };
}

}  // namespace tamarind
