#pragma once
// The one home of the settings that govern capture, retention and a few
// neighbours: stored properties (foundation/Preferences.h), so that a change
// made by the command line reaches the running app at once. Services observe
// the properties and nothing else reads these keys. Main thread only.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "capture/MultiClipPayload.h"
#include "capture/SensitiveContent.h"
#include "foundation/Defaults.h"
#include "foundation/Preferences.h"
#include "library/ClipStore.h"
#include "library/ColorFormat.h"
#include "platform/KeyEvents.h"

namespace tamarind {

namespace captureKeys {
inline constexpr const char* isPaused = "capture.isPaused";
inline constexpr const char* excludedBundleIDs = "capture.excludedBundleIDs";
inline constexpr const char* maximumClipCount = "capture.maximumClipCount";
inline constexpr const char* maximumAgeInDays = "capture.maximumAgeInDays";
inline constexpr const char* faviconFetchEnabled = "library.faviconFetchEnabled";
inline constexpr const char* restoresPasteboardAfterPaste = "paste.restoresPasteboardAfterPaste";
inline constexpr const char* ocrEnabled = "capture.ocrEnabled";
inline constexpr const char* screenshotHistoryEnabled = "capture.screenshotHistoryEnabled";
inline constexpr const char* deletesOriginalScreenshot = "capture.deletesOriginalScreenshot";
inline constexpr const char* preferredColorFormat = "capture.preferredColorFormat";
inline constexpr const char* pasteKeystroke = "paste.keystroke";
inline constexpr const char* multiClipJoiner = "multiClip.joiner";
inline constexpr const char* multiClipCustomSeparator = "multiClip.customSeparator";
inline constexpr const char* minimumCharacters = "capture.minimumCharacters";
inline constexpr const char* maximumMegabytes = "capture.maximumMegabytes";
inline constexpr const char* sensitiveDetectionEnabled = "privacy.sensitiveDetectionEnabled";
inline constexpr const char* sensitiveHandling = "privacy.sensitiveHandling";
inline constexpr const char* autoResumeMinutes = "capture.autoResumeMinutes";
}  // namespace captureKeys

inline constexpr long long kDefaultMaximumClipCount = 10000;

class CapturePreferences final : public Preferences {
public:
    CapturePreferences(Defaults& defaults, MainLoop& loop);

    // The macOS password managers and keychain, then the same programs' Linux
    // ids (docs/capture.md).
    static const std::set<std::string>& defaultExcludedBundleIDs();

    const Observable<bool>& isPaused() const { return isPaused_; }
    const Observable<std::set<std::string>>& excludedBundleIDs() const { return excludedBundleIDs_; }
    const Observable<long long>& maximumClipCount() const { return maximumClipCount_; }
    const Observable<std::optional<long long>>& maximumAgeInDays() const { return maximumAgeInDays_; }
    const Observable<bool>& isFaviconFetchEnabled() const { return isFaviconFetchEnabled_; }
    const Observable<bool>& restoresPasteboardAfterPaste() const { return restoresPasteboardAfterPaste_; }
    const Observable<bool>& isOCREnabled() const { return isOCREnabled_; }
    const Observable<bool>& isScreenshotHistoryEnabled() const { return isScreenshotHistoryEnabled_; }
    const Observable<bool>& deletesOriginalScreenshot() const { return deletesOriginalScreenshot_; }
    const Observable<ColorFormat>& preferredColorFormat() const { return preferredColorFormat_; }
    const Observable<PasteKeystroke>& pasteKeystroke() const { return pasteKeystroke_; }
    const Observable<MultiClipJoiner>& multiClipJoiner() const { return multiClipJoiner_; }
    const Observable<std::string>& multiClipCustomSeparator() const { return multiClipCustomSeparator_; }
    const Observable<long long>& minimumCharacters() const { return minimumCharacters_; }
    const Observable<double>& maximumMegabytes() const { return maximumMegabytes_; }
    const Observable<bool>& isSensitiveDetectionEnabled() const { return isSensitiveDetectionEnabled_; }
    const Observable<SensitiveHandling>& sensitiveHandling() const { return sensitiveHandling_; }
    const Observable<long long>& autoResumeMinutes() const { return autoResumeMinutes_; }

    // Each sets the property, then writes the value under its key.
    void setPaused(bool value);
    void setExcludedBundleIDs(std::set<std::string> value);  // stored as an array, sorted ascending
    void setMaximumClipCount(long long value);
    void setMaximumAgeInDays(std::optional<long long> value);  // none is stored as 0
    void setFaviconFetchEnabled(bool value);
    void setRestoresPasteboardAfterPaste(bool value);
    void setOCREnabled(bool value);
    void setScreenshotHistoryEnabled(bool value);
    void setDeletesOriginalScreenshot(bool value);
    void setPreferredColorFormat(ColorFormat value);
    void setPasteKeystroke(PasteKeystroke value);
    void setMultiClipJoiner(MultiClipJoiner value);
    void setMultiClipCustomSeparator(std::string value);
    void setMinimumCharacters(long long value);
    void setMaximumMegabytes(double value);
    void setSensitiveDetectionEnabled(bool value);
    void setSensitiveHandling(SensitiveHandling value);
    void setAutoResumeMinutes(long long value);
    // The "Restore Defaults" button beside the "Never Capture From" list.
    void restoreDefaultExclusions();

private:
    StoredProperty<bool> isPaused_;
    StoredProperty<std::set<std::string>> excludedBundleIDs_;
    StoredProperty<long long> maximumClipCount_;
    StoredProperty<std::optional<long long>> maximumAgeInDays_;
    StoredProperty<bool> isFaviconFetchEnabled_;
    StoredProperty<bool> restoresPasteboardAfterPaste_;
    StoredProperty<bool> isOCREnabled_;
    StoredProperty<bool> isScreenshotHistoryEnabled_;
    StoredProperty<bool> deletesOriginalScreenshot_;
    StoredProperty<ColorFormat> preferredColorFormat_;
    StoredProperty<PasteKeystroke> pasteKeystroke_;
    StoredProperty<MultiClipJoiner> multiClipJoiner_;
    StoredProperty<std::string> multiClipCustomSeparator_;
    StoredProperty<long long> minimumCharacters_;
    StoredProperty<double> maximumMegabytes_;
    StoredProperty<bool> isSensitiveDetectionEnabled_;
    StoredProperty<SensitiveHandling> sensitiveHandling_;
    StoredProperty<long long> autoResumeMinutes_;
};

// Texts of the settings screen that fix what these settings mean.
namespace captureTexts {
inline constexpr const char* retentionNote = "Pinned and favourite clips are never removed by either rule.";
inline constexpr const char* pauseNote = "Nothing is recorded while paused. The setting survives a relaunch.";
inline constexpr const char* autoResumeNote = "So a quick pause does not silently stay on for days.";
inline constexpr const char* exclusionNote =
    "This list is in addition to the concealed-pasteboard marker, which Tamarind always honours.";
inline constexpr const char* sizeLimitNote =
    "Size limits are applied before anything is written, so an ignored clip never touches the database.";
}  // namespace captureTexts

// The store's limits by these settings: a negative minimum reads as none, and a maximum of
// megabytes above 0 gives that many mebibytes, truncated (0: no limit).
CaptureLimits captureLimits(const CapturePreferences& preferences);

}  // namespace tamarind
