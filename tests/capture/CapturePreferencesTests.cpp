#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/CapturePreferences.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

TEST(CapturePreferences, StoredValuesFollowTheReadingRules) {
    ManualMainLoop loop;
    for (long long stored : {0LL, -5LL}) {
        InMemoryDefaults defaults({{captureKeys::maximumClipCount, stored}, {captureKeys::maximumAgeInDays, stored}});
        CapturePreferences preferences(defaults, loop);
        EXPECT_EQ(*preferences.maximumClipCount(), 10000) << stored;
        EXPECT_EQ(*preferences.maximumAgeInDays(), std::nullopt) << stored;
    }
    // A Boolean stored false where the default is true, an emptied list, a negative size, and raw
    // values that name no case (the enums share one reading).
    InMemoryDefaults defaults({{captureKeys::ocrEnabled, false},
                               {captureKeys::excludedBundleIDs, PlistArray{}},
                               {captureKeys::maximumMegabytes, -2.0},
                               {captureKeys::maximumAgeInDays, 30},
                               {captureKeys::preferredColorFormat, "cmyk"},
                               {captureKeys::sensitiveHandling, "shred"}});
    CapturePreferences preferences(defaults, loop);
    EXPECT_FALSE(*preferences.isOCREnabled());
    EXPECT_TRUE(preferences.excludedBundleIDs()->empty()) << "an emptied list must not refill itself";
    EXPECT_EQ(*preferences.maximumMegabytes(), 0);
    EXPECT_EQ(*preferences.maximumAgeInDays(), 30);
    EXPECT_EQ(*preferences.preferredColorFormat(), ColorFormat::hex);
    EXPECT_EQ(*preferences.sensitiveHandling(), SensitiveHandling::storeBlurred);

    InMemoryDefaults mixed({{captureKeys::excludedBundleIDs, PlistArray{"a", 1}}});
    EXPECT_EQ(*CapturePreferences(mixed, loop).excludedBundleIDs(), CapturePreferences::defaultExcludedBundleIDs())
        << "a key that holds no array of strings gives the default";

    // Values of a type no setting converts from read as the default, are logged, and stay stored.
    LogCapture log;
    InMemoryDefaults wrong({{captureKeys::ocrEnabled, PlistArray{"yes"}},
                            {captureKeys::maximumClipCount, Data{1, 2}},
                            {captureKeys::maximumMegabytes, PlistDictionary{{"megabytes", 5}}},
                            {captureKeys::minimumCharacters, "7"}});
    CapturePreferences typed(wrong, loop);
    EXPECT_TRUE(*typed.isOCREnabled());
    EXPECT_EQ(*typed.maximumClipCount(), 10000);
    EXPECT_EQ(*typed.maximumMegabytes(), 0);
    EXPECT_EQ(*typed.minimumCharacters(), 7) << "a numeric string converts";
    EXPECT_EQ(log.messages("settings").size(), 3u);
    EXPECT_TRUE(wrong.object(captureKeys::ocrEnabled)->isArray()) << "a read never writes";
}

TEST(CapturePreferences, SettersNotifyAndWriteBackInTheStoredForm) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    CapturePreferences preferences(defaults, loop);
    EXPECT_TRUE(defaults.dictionaryRepresentation().empty()) << "reading the defaults writes nothing";
    std::vector<bool> paused;
    Subscription subscription = preferences.isPaused().subscribe([&](const bool& v) { paused.push_back(v); }, true);
    preferences.setPaused(true);
    preferences.setExcludedBundleIDs({"zeta", "Alpha", "beta"});
    preferences.setMaximumAgeInDays(std::nullopt);
    preferences.setSensitiveHandling(SensitiveHandling::skip);
    preferences.setPreferredColorFormat(ColorFormat::cssVariable);
    loop.runUntilIdle();
    EXPECT_THAT(paused, ::testing::ElementsAre(true));
    EXPECT_EQ(PlistValue(defaults.dictionaryRepresentation()),
              PlistValue(PlistDictionary{{captureKeys::isPaused, true},
                                         {captureKeys::excludedBundleIDs, PlistArray{"Alpha", "beta", "zeta"}},
                                         {captureKeys::maximumAgeInDays, 0},
                                         {captureKeys::sensitiveHandling, "skip"},
                                         {captureKeys::preferredColorFormat, "cssVariable"}}));
}

TEST(CapturePreferences, AChangeMadeByAnotherProgramIsTakenInAndToldOnce) {
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    CapturePreferences preferences(defaults, loop);
    std::vector<PasteKeystroke> keystrokes;
    std::vector<bool> restores;
    Subscription a = preferences.pasteKeystroke().subscribe([&](const PasteKeystroke& v) { keystrokes.push_back(v); }, true);
    Subscription b =
        preferences.restoresPasteboardAfterPaste().subscribe([&](const bool& v) { restores.push_back(v); }, true);
    // As the settings file tells when the command line rewrote it.
    defaults.set(captureKeys::pasteKeystroke, PlistValue("shift+insert"));
    defaults.set("some.other.key", PlistValue(1));
    preferences.setRestoresPasteboardAfterPaste(true);
    defaults.remove(captureKeys::pasteKeystroke);
    loop.runUntilIdle();
    EXPECT_THAT(keystrokes, ::testing::ElementsAre(PasteKeystroke::shiftInsert, PasteKeystroke::automatic));
    EXPECT_THAT(restores, ::testing::ElementsAre(true)) << "a setter's own write isn't told twice";
}

}  // namespace
}  // namespace tamarind
