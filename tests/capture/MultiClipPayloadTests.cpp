#include <gtest/gtest.h>

#include "capture/MultiClipPayload.h"

namespace tamarind {
namespace {

MultiClipItem item(std::string kind, std::optional<std::string> text, std::vector<std::string> paths = {}) {
    return MultiClipItem{Uuid::random(), std::move(kind), std::move(text), std::nullopt, std::move(paths),
                         Date::fromReferenceSeconds(1)};
}

TEST(MultiClipPayload, JoinsLinesDroppingEmptyOnes) {
    MultiClipPayload payload{{item("text", "first"), item("text", ""), item("image", std::nullopt),
                              item("screenshot", std::nullopt), item("file", std::nullopt, {"/a/x.txt", "/b/y"}),
                              item("code", std::nullopt), item("link", "https://e.com")}};
    EXPECT_EQ(payload.joinedText(", "), "first, Image, Image, /a/x.txt, /b/y, https://e.com");
    EXPECT_EQ(payload.joinedText(separator(MultiClipJoiner::custom, "")), "firstImageImage/a/x.txt/b/yhttps://e.com");
    EXPECT_EQ(separator(MultiClipJoiner::custom, "|"), "|");
    EXPECT_EQ(multiClipJoinerOrNewline("tab"), MultiClipJoiner::newline) << "an unknown stored joiner";
    EXPECT_EQ(payload.filePaths(), (std::vector<std::string>{"/a/x.txt", "/b/y"}));
    EXPECT_EQ(MultiClipPayload{}.joinedText("\n"), "");
}

TEST(MultiClipPayload, SummariesForLists) {
    EXPECT_EQ(item("screenshot", "ignored").summary(), "Image");
    EXPECT_EQ(item("file", std::nullopt, {"/a/x.txt", "/b/y/"}).summary(), "x.txt, y");
    EXPECT_EQ(item("text", "\n \n  hello\nworld").summary(), "hello");
    EXPECT_EQ(item("text", " \n\t").summary(), "Empty");
    EXPECT_EQ(item("code", std::nullopt).summary(), "Empty");
}

TEST(MultiClipPayload, JsonRoundTripsAndRejectsOtherShapes) {
    MultiClipPayload payload{{item("text", "a \"quoted\" é"), item("file", std::nullopt, {"/x"})}};
    payload.items[1].blobFilename = "B.png";
    payload.items[1].capturedAt = Date::fromReferenceSeconds(817000000.25);
    auto decoded = MultiClipPayload::decode(payload.encode());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, payload);
    std::string json = stringFromData(MultiClipPayload{{item("text", std::nullopt)}}.encode());
    EXPECT_EQ(json.find("\"text\":"), std::string::npos) << "an absent text is left out: " << json;
    EXPECT_NE(json.find("\"capturedAt\":1"), std::string::npos) << json;

    for (std::string_view bad : {"", "[]", "{}", R"({"items":{}})", R"({"items":[{}]})",
                                 R"({"items":[{"id":"x","kind":"text","filePaths":[],"capturedAt":0}]})",
                                 R"({"items":[{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","kind":"text","filePaths":[1],"capturedAt":0}]})",
                                 R"({"items":[{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","kind":"text","filePaths":[],"capturedAt":"0"}]})",
                                 R"({"items":[{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","kind":"text","text":5,"filePaths":[],"capturedAt":0}]})"})
        EXPECT_FALSE(MultiClipPayload::decode(dataFromString(bad))) << bad;
    EXPECT_TRUE(MultiClipPayload::decode(dataFromString(
        R"({"items":[{"id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","kind":"text","text":null,"filePaths":[],"capturedAt":0}]})")));
}

}  // namespace
}  // namespace tamarind
