#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/Log.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

TEST(Log, RendersTheSystemMarkersAsPlainValues) {
    LogCapture capture;
    Log capture_log("capture");
    Log library("library");
    capture_log.info("Starting capture; persisted pause state = %{bool,public}d.", true);
    capture_log.log("Captured %{public}s clip from %{public}s%{public}s.", "text", "unknown", "");
    library.log("Retention removed %{public}ld clips.", 42);
    library.fault("Could not open the store%s: %{public}s", " with CloudKit", "disk full");
    capture_log.log("Capture resumed automatically after %{public}ld minutes.", std::size_t{15});
    EXPECT_THAT(capture.messages("capture"),
                ElementsAre("Starting capture; persisted pause state = true.", "Captured text clip from unknown.",
                            "Capture resumed automatically after 15 minutes."));
    EXPECT_THAT(capture.messages("library"),
                ElementsAre("Retention removed 42 clips.", "Could not open the store with CloudKit: disk full"));
    EXPECT_EQ(capture.records()[3].level, LogLevel::fault);
}

TEST(Log, FormatsOddSpecifiersWithoutEverCrashing) {
    const LogArgument args[] = {std::int64_t{-7}, std::string("secret"), 2.5, false, std::uint64_t{255}};
    EXPECT_EQ(formatLogMessage("%d|%{private}s|%.1f|%{bool}d|%lx|100%%", args), "-7|<private>|2.5|false|ff|100%");
    EXPECT_EQ(formatLogMessage("%{public}s and %{public}s", std::span<const LogArgument>(args, 1)), "-7 and <missing>");
    EXPECT_EQ(formatLogMessage("50% off %{public", {}), "50% off %{public");
    EXPECT_EQ(formatLogMessage("trailing %", {}), "trailing %");
    EXPECT_EQ(formatLogMessage("%{bool,public}d", std::span<const LogArgument>(args, 1)), "true");
}

TEST(Log, NestedCapturesEachSeeTheLinesOfTheirOwnLife) {
    Log log("paste");
    LogCapture outer;
    log.debug("one");
    {
        LogCapture inner;
        log.error("two");
        EXPECT_THAT(inner.messages("paste"), ElementsAre("two"));
    }
    log.info("three");
    EXPECT_THAT(outer.messages("paste"), ElementsAre("one", "two", "three"));
}

TEST(Log, LevelNamesTakeTheNoticeAliasAndRefuseTheRestUnchanged) {
    LogLevel level = LogLevel::error;
    EXPECT_FALSE(parseLogLevel("verbose", level));
    EXPECT_EQ(level, LogLevel::error);
    ASSERT_TRUE(parseLogLevel("notice", level));
    EXPECT_EQ(level, LogLevel::notice);
}

}  // namespace
}  // namespace tamarind
