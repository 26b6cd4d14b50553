#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "foundation/Json.h"

namespace tamarind {
namespace {

// `{"m": <raw>}`, or `{}` for no text.
Json member(std::string_view raw) {
    return raw.empty() ? Json::object() : Json::parse("{\"m\":" + std::string(raw) + "}");
}

// What a reader gives for member "m", or the error it throws: these texts reach the user.
template <class Reader>
std::string read(const Json& object, Reader reader) {
    try {
        return "ok " + Json(reader(object, "m")).dump();
    } catch (const JsonDecodeError& error) {
        return error.what();
    }
}

TEST(JsonMember, EachReaderNamesTheMemberAndWhatItShouldHaveHeld) {
    auto string = [](const Json& o, std::string_view k) { return requiredString(o, k); };
    auto optString = [](const Json& o, std::string_view k) { return optionalString(o, k).value_or("absent"); };
    auto boolean = [](const Json& o, std::string_view k) { return requiredBool(o, k); };
    auto number = [](const Json& o, std::string_view k) { return requiredNumber(o, k); };
    auto integer = [](const Json& o, std::string_view k) { return optionalInteger(o, k).value_or(-1); };
    auto array = [](const Json& o, std::string_view k) { return requiredArray(o, k); };
    auto uuid = [](const Json& o, std::string_view k) { return requiredUuid(o, k).uuidString(); };
    auto optUuid = [](const Json& o, std::string_view k) {
        auto id = optionalUuid(o, k);
        return id ? id->uuidString() : "absent";
    };

    EXPECT_EQ(read(member(""), string), "missing member \"m\"");
    EXPECT_EQ(read(member("null"), string), "member \"m\": expected a string")
        << "null is no value for a required member";
    EXPECT_EQ(read(member("1"), string), "member \"m\": expected a string");
    EXPECT_EQ(read(member(""), optString), "ok \"absent\"");
    EXPECT_EQ(read(member("null"), optString), "ok \"absent\"");
    EXPECT_EQ(read(member("[]"), optString), "member \"m\": expected a string");
    EXPECT_EQ(read(member("\"yes\""), boolean), "member \"m\": expected a Boolean");
    EXPECT_EQ(read(member("\"2\""), number), "member \"m\": expected a number");
    EXPECT_EQ(read(member("-0.5"), number), "ok -0.5");
    EXPECT_EQ(read(member("{}"), array), "member \"m\": expected an array");
    EXPECT_EQ(read(member("\"e621e1f8-c36c-495a-93fc-0c247a3e6e5f\""), uuid),
              "ok \"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\"");
    EXPECT_EQ(read(member("7"), uuid), "member \"m\": expected a UUID string");
    EXPECT_EQ(read(member("\"7\""), optUuid), "member \"m\": not a UUID: 7");
    EXPECT_EQ(read(member("null"), optUuid), "ok \"absent\"");

    // Numbers that parse but would be stored as something else.
    Json infinite = {{"m", std::numeric_limits<double>::infinity()}};
    EXPECT_EQ(read(infinite, number), "member \"m\": number out of range");
    EXPECT_EQ(read(member("9223372036854775807"), integer), "ok 9223372036854775807");
    EXPECT_EQ(read(member("9223372036854775808"), integer), "member \"m\": expected an integer");
    EXPECT_EQ(read(member("7.0"), integer), "member \"m\": expected an integer");
    EXPECT_EQ(read(member("-3"), integer), "ok -3");
    EXPECT_EQ(read(member("null"), integer), "ok -1");
}

}  // namespace
}  // namespace tamarind
