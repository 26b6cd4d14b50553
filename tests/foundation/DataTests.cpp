#include <gtest/gtest.h>

#include "foundation/Data.h"
#include "foundation/Date.h"

namespace tamarind {
namespace {

TEST(Base64, EncodesAndDecodesEveryPaddingLengthAndRejectsMalformedTextInsteadOfGuessing) {
    for (std::string_view text : {"", "f", "fo", "foo", "foob", "fooba", "foobar"}) {
        Data data = dataFromString(text);
        auto decoded = base64Decode(base64Encode(data));
        ASSERT_TRUE(decoded) << text;
        EXPECT_EQ(*decoded, data) << text;
    }
    EXPECT_EQ(base64Encode(dataFromString("foobar")), "Zm9vYmFy");
    EXPECT_EQ(base64Encode(dataFromString("fo")), "Zm8=");
    for (std::string_view bad : {"Zm9", "Zm9v!", "Zm=v", "Z===", "Zm8=Zm8=", "Zm9v\n", " Zm9v"})
        EXPECT_FALSE(base64Decode(bad)) << bad;
}

TEST(Date, Iso8601RoundTripsExactlyIncludingFractionsAndTheDistantPastReadsOffsetsAndRejectsNonsense) {
    for (double seconds : {0.0, 0.25, -99.75, 817000000.123456789, 1e-9, 63113904000.0, -3.1e10}) {
        Date date = Date::fromReferenceSeconds(seconds);
        auto parsed = Date::parseIso8601(date.iso8601());
        ASSERT_TRUE(parsed) << date.iso8601();
        EXPECT_EQ(parsed->secondsSinceReferenceDate(), seconds) << date.iso8601();
    }
    EXPECT_EQ(Date::fromReferenceSeconds(0).iso8601(), "2001-01-01T00:00:00Z");
    EXPECT_EQ(Date::fromReferenceSeconds(-99.75).iso8601(), "2000-12-31T23:58:20.25Z");
    EXPECT_EQ(Date::fromUnixSeconds(0).iso8601(), "1970-01-01T00:00:00Z");
    EXPECT_EQ(Date::parseIso8601("2001-01-01T02:00:00+02:00")->secondsSinceReferenceDate(), 0);
    EXPECT_EQ(Date::parseIso8601("2000-12-31T19:30:00-0430")->secondsSinceReferenceDate(), 0);
    for (std::string_view bad : {"", "2001-01-01", "2001-02-30T00:00:00Z", "2001-01-01T24:00:00Z",
                                 "2001-01-01T00:00:00", "2001-01-01T00:00:00.Z", "2001-01-01T00:00:00Zjunk"})
        EXPECT_FALSE(Date::parseIso8601(bad)) << bad;
}

}  // namespace
}  // namespace tamarind
