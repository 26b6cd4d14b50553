#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "library/Clip.h"
#include "library/FileBookmark.h"

namespace tamarind {
namespace {

// The raw strings and labels themselves are read through the classifier's and the titles' tests.
TEST(Clip, DisplayTitleByKindWithTheLabelWhenABranchGivesNothing) {
    auto title = [](auto edit) {
        Clip clip;
        edit(clip);
        return clip.displayTitle();
    };
    EXPECT_EQ(title([](Clip& c) { c.aiTitle = "Generated"; c.text = "text"; }), "Generated");
    EXPECT_EQ(title([](Clip& c) { c.aiTitle = ""; c.text = "\n  \n  First line  \nsecond"; }), "First line");
    EXPECT_EQ(title([](Clip& c) { c.text = std::string(130, 'x'); }), std::string(120, 'x'));
    EXPECT_EQ(title([](Clip& c) { c.text = std::string(4000, '\n') + "late"; }), "Text")
        << "only the first 4000 characters are looked at";
    EXPECT_EQ(title([](Clip& c) { c.kind = "code"; c.text = "   "; }), "Code");
    EXPECT_EQ(title([](Clip& c) { c.kind = "file"; }), "File");
    EXPECT_EQ(title([](Clip& c) { c.kind = "file"; c.fileBookmarks = encodeFileBookmarks({{"/home/a/Report.pdf"}}); }),
              "Report.pdf");
    EXPECT_EQ(title([](Clip& c) { c.kind = "file"; c.fileBookmarks = encodeFileBookmarks({{"/a"}, {"/b"}, {"/c"}}); }),
              "3 files");
    EXPECT_EQ(title([](Clip& c) { c.kind = "color"; c.hexColor = "#aabbcc"; c.text = "abc"; }), "#AABBCC");
    EXPECT_EQ(title([](Clip& c) { c.kind = "color"; c.text = "rgb(1, 2, 3)"; }), "RGB(1, 2, 3)");
    EXPECT_EQ(title([](Clip& c) { c.kind = "image"; c.imageWidth = 1920; c.imageHeight = 1080; }), "1920 × 1080");
    EXPECT_EQ(title([](Clip& c) { c.kind = "screenshot"; c.imageWidth = 1920; }), "Screenshot");
    EXPECT_EQ(title([](Clip& c) { c.kind = "link"; c.urlString = "https://www.example.com/x"; }), "example.com");
    EXPECT_EQ(title([](Clip& c) { c.kind = "link"; c.urlString = "mailto:ann@example.com"; }), "Link");
    EXPECT_EQ(title([](Clip& c) { c.kind = "multiClip"; c.text = "a\nb"; }), "a");
    EXPECT_EQ(title([](Clip& c) { c.kind = "hologram"; }), "Text") << "a kind from a later version reads as text";
    EXPECT_EQ(clipKindFromRawValue("RichText"), std::nullopt) << "raw strings are case-sensitive";
}

TEST(Clip, SearchTextFoldsTextAppAndFileNames) {
    Clip clip = Clip::make(Date::fromReferenceSeconds(5));
    EXPECT_FALSE(clip.id.isNil());
    clip.text = "Hello ÉCOLE";
    clip.ocrText = "";
    clip.sourceAppName = "Firefox";
    clip.rebuildSearchText({"Straße.TXT"});
    EXPECT_EQ(clip.searchText, "hello école firefox straße.txt");
}

TEST(Collection, ViewModesAndBoardColumns) {
    Collection collection = Collection::make(Date::fromReferenceSeconds(1));
    collection.viewMode = "gallery";
    EXPECT_EQ(collection.viewModeValue(), CollectionViewMode::list);
    collection.viewMode = "board";
    EXPECT_EQ(collection.viewModeValue(), CollectionViewMode::board);

    EXPECT_TRUE(collection.boardColumns().empty());
    collection.setBoardColumns({"To do", "Doing \"now\"", "Done ✓"});
    EXPECT_EQ(stringFromData(*collection.boardColumnsData), R"(["To do","Doing \"now\"","Done ✓"])");
    EXPECT_THAT(collection.boardColumns(), ::testing::ElementsAre("To do", "Doing \"now\"", "Done ✓"));
    collection.boardColumnsData = dataFromString(R"(["a", 2])");
    EXPECT_TRUE(collection.boardColumns().empty());
    collection.setBoardColumns({"bad \xFF"});
    EXPECT_FALSE(collection.boardColumnsData) << "a failed encoding stores none";
}

TEST(FileBookmark, RoundTripsPathsOfAnyBytesAndSkipsBlobsThatAreNotBookmarks) {
    std::vector<FileURL> files = {{"/home/ann/My Report (1).pdf"}, {"/tmp/caf\xC3\xA9"}, {"/tmp/raw\xFF\xFE"}};
    Data encoded = encodeFileBookmarks(files);
    EXPECT_EQ(decodeFileBookmarks(encoded), files);
    auto blob = FileBookmark::fromBlob(decodeFileBookmarkBlobs(encoded)[0]);
    ASSERT_TRUE(blob);
    EXPECT_EQ(blob->uri, "file:///home/ann/My%20Report%20(1).pdf");

    Data mixed = dataFromString(R"([")" + base64Encode(dataFromString("not json")) + R"(",")" +
                                base64Encode(FileBookmark::from({"/ok"}).blob()) + R"("])");
    EXPECT_EQ(decodeFileBookmarks(mixed), std::vector<FileURL>{{"/ok"}});
    EXPECT_TRUE(decodeFileBookmarks(dataFromString("[1]")).empty());
    EXPECT_TRUE(decodeFileBookmarks(dataFromString("{")).empty());
    EXPECT_FALSE(FileBookmark::fromBlob(dataFromString(R"({"path":"relative"})")));
}

TEST(PasteboardSnapshot, EmptinessAndEstimatedSize) {
    PasteboardSnapshot snapshot;
    EXPECT_TRUE(snapshot.isEmpty());
    snapshot.string = " \n\u00A0";
    snapshot.htmlString = "<p>html alone is empty</p>";
    EXPECT_TRUE(snapshot.isEmpty());
    snapshot.rtfData = Data{1};
    EXPECT_FALSE(snapshot.isEmpty());
    snapshot.imageData = Data(10);
    snapshot.fileURLs = {FileURL{"/a/very/long/path/that/counts/nothing"}};
    EXPECT_EQ(snapshot.estimatedByteSize(), 4 + 1 + 26 + 10);
    EXPECT_EQ(FileURL::fromUri("file://localhost/a%20b"), FileURL{"/a b"});
    EXPECT_EQ(FileURL::fromUri("file://elsewhere/a"), std::nullopt);
    EXPECT_EQ(FileURL::fromUri("https://x/a"), std::nullopt);
    EXPECT_EQ(FileURL{"/"}.lastPathComponent(), "/");
    EXPECT_EQ(FileURL{"/a/b/"}.lastPathComponent(), "b");
}

}  // namespace
}  // namespace tamarind
