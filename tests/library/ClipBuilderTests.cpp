#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "foundation/Log.h"
#include "library/ClipBuilder.h"
#include "library/ClipClassifier.h"
#include "library/FileBookmark.h"
#include "foundation/ImageCodec.h"
#include "support/Images.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

TEST(ImageCodec, ThumbnailsShrinkToTheLongSideAndNeverEnlarge) {
    auto sizeOf = [](const std::optional<Data>& png) -> std::string {
        if (!png) return "none";
        auto size = imagePixelSize(*png);
        return size ? std::to_string(int(size->width)) + "x" + std::to_string(int(size->height)) : "undecodable";
    };
    EXPECT_EQ(sizeOf(makeThumbnail(makePng(100, 100))), "100x100");
    EXPECT_EQ(sizeOf(makeThumbnail(makePng(2048, 1024))), "512x256");
    EXPECT_EQ(sizeOf(makeThumbnail(makePng(1000, 3))), "512x2") << "1.536 rounds to 2";
    EXPECT_EQ(sizeOf(makeThumbnail(makePng(3000, 1))), "512x1") << "never below one pixel";
    EXPECT_EQ(sizeOf(makeThumbnail(makeBmp(600, 300))), "512x256") << "other formats are read too";
    auto thumbnail = makeThumbnail(makePng(10, 10));
    ASSERT_TRUE(thumbnail);
    EXPECT_THAT(Data(thumbnail->begin(), thumbnail->begin() + 4), ElementsAre(0x89, 'P', 'N', 'G'));
}

TEST(ImageCodec, BytesThatDoNotDecodeGiveNothingAndNeverCrash) {
    Data png = makePng(40, 30);
    std::vector<Data> bad = {Data{}, dataFromString("not an image"), Data(png.begin(), png.begin() + 40),
                             Data(png.begin(), png.begin() + 8)};
    Data corrupted = png;
    for (std::size_t i = 60; i < corrupted.size(); i += 7) corrupted[i] ^= 0x5A;
    bad.push_back(corrupted);
    for (const Data& bytes : bad) {
        EXPECT_FALSE(makeThumbnail(bytes)) << bytes.size();
        EXPECT_FALSE(convertToPng(bytes)) << bytes.size();
    }
    EXPECT_FALSE(imagePixelSize(dataFromString("GIF89a")));
    EXPECT_EQ(imagePixelSize(png), (PixelSize{40, 30}));
}

TEST(BlobStore, WritesPrivateFlatFilesAndSweepsOrphans) {
    TemporaryFolder folder;
    BlobStore store(folder.path() / "blobs");
    EXPECT_TRUE(store.existingFilenames().empty()) << "a missing folder lists as empty";
    Uuid id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    auto written = store.write(Data{1, 2, 3}, id, "png");
    ASSERT_TRUE(std::holds_alternative<std::string>(written));
    EXPECT_EQ(std::get<std::string>(written), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F.png");
    struct stat status {};
    ASSERT_EQ(::stat(store.url(std::get<std::string>(written)).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(store.root().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);

    std::string a = std::get<std::string>(store.write(Data{1}, Uuid::random(), "tiff"));
    std::string b = std::get<std::string>(store.write(Data{2}, Uuid::random(), "png"));
    EXPECT_EQ(store.existingFilenames().size(), 3u);
    EXPECT_EQ(store.removeOrphans({a, "not-there.png"}), 2);
    EXPECT_THAT(store.existingFilenames(), UnorderedElementsAre(a));
    store.remove(b);         // already gone: not an error
    store.remove("../etc");  // never leaves the folder
    store.remove(a);
    EXPECT_TRUE(store.existingFilenames().empty());
    // A folder that can't be made is the clip builder's failed-write test.
}

class ClipBuilderTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ClipBuilder builder{BlobStore(folder.path() / "blobs"), "MACHINE-1"};
};

TEST_F(ClipBuilderTest, BuildsATextClipWithEveryDerivedField) {
    PasteboardSnapshot snapshot;
    snapshot.string = "Café  #abc ";
    snapshot.htmlString = "<i>x</i>";
    snapshot.sourceAppBundleID = "org.gnome.TextEditor";
    snapshot.sourceAppName = "Text Editor";
    snapshot.capturedAt = Date::fromReferenceSeconds(100);
    Clip clip = builder.build(snapshot, ClipKind::richText, contentHash(snapshot, ClipKind::richText), /*isSensitive=*/true);
    EXPECT_FALSE(clip.id.isNil());
    EXPECT_EQ(clip.createdAt, Date::fromReferenceSeconds(100));
    EXPECT_EQ(clip.kind, "richText");
    EXPECT_EQ(clip.charCount, 11);
    EXPECT_EQ(clip.byteSize, 12 + 8);
    EXPECT_EQ(clip.searchText, "café  #abc  text editor");
    EXPECT_EQ(clip.contentHash, textHash("Café #abc"));
    EXPECT_EQ(clip.originDeviceID, "MACHINE-1");
    EXPECT_TRUE(clip.isSensitive);
    EXPECT_FALSE(clip.urlString);
    EXPECT_FALSE(clip.hexColor) << "only colour clips get a hex colour";
    EXPECT_FALSE(clip.blobFilename);

    snapshot.string = " #abc ";
    EXPECT_EQ(builder.build(snapshot, ClipKind::color, contentHash(snapshot, ClipKind::color), false).hexColor, "#AABBCC");
    snapshot.string = "rgb(1, 2, 3)";
    EXPECT_FALSE(builder.build(snapshot, ClipKind::color, contentHash(snapshot, ClipKind::color), false).hexColor);
    snapshot.string = "https://example.com";
    EXPECT_EQ(builder.build(snapshot, ClipKind::link, contentHash(snapshot, ClipKind::link), false).urlString, "https://example.com");
}

TEST_F(ClipBuilderTest, ImagesGetABlobAThumbnailAndTheirSize) {
    PasteboardSnapshot snapshot;
    snapshot.imageData = makePng(1024, 512);
    snapshot.imageFileExtension = "png";
    snapshot.imagePixelSize = PixelSize{1024.9, 512.2};
    Clip clip = builder.build(snapshot, ClipKind::image, contentHash(snapshot, ClipKind::image), false);
    ASSERT_TRUE(clip.blobFilename);
    EXPECT_THAT(builder.blobStore().existingFilenames(), ElementsAre(*clip.blobFilename));
    EXPECT_TRUE(clip.blobFilename->ends_with(".png"));
    EXPECT_NE(clip.blobFilename->substr(0, 36), clip.id.uuidString()) << "the blob has its own id";
    EXPECT_EQ(imagePixelSize(*clip.thumbnailData), (PixelSize{512, 256}));
    EXPECT_EQ(clip.imageWidth, 1024);
    EXPECT_EQ(clip.imageHeight, 512);
    EXPECT_EQ(clip.byteSize, static_cast<long long>(snapshot.imageData->size()));
    EXPECT_EQ(clip.charCount, 0);

    snapshot.imageFileExtension.reset();
    snapshot.imagePixelSize.reset();
    Clip noSize = builder.build(snapshot, ClipKind::screenshot, contentHash(snapshot, ClipKind::screenshot), false);
    EXPECT_TRUE(noSize.blobFilename->ends_with(".png"));
    EXPECT_EQ(noSize.imageWidth, 0);
}

TEST_F(ClipBuilderTest, AFailedBlobWriteKeepsTheClipWithItsThumbnail) {
    ASSERT_FALSE(writeFileAtomically(folder.path() / "plain-file", "x"));
    ClipBuilder blocked(BlobStore(folder.path() / "plain-file" / "blobs"), "M");
    PasteboardSnapshot snapshot;
    snapshot.imageData = makePng(8, 8);
    LogCapture log;
    Clip clip = blocked.build(snapshot, ClipKind::image, contentHash(snapshot, ClipKind::image), false);
    EXPECT_FALSE(clip.blobFilename);
    EXPECT_TRUE(clip.thumbnailData);
    ASSERT_EQ(log.messages("library").size(), 1u);
    EXPECT_TRUE(log.messages("library")[0].starts_with("Blob write failed: ")) << log.messages("library")[0];
}

TEST_F(ClipBuilderTest, FileClipsKeepBookmarksAndSearchByFileName) {
    PasteboardSnapshot snapshot;
    snapshot.fileURLs = {FileURL{"/home/ann/Q3 Report.PDF"}, FileURL{"/home/ann/notes.txt"}};
    snapshot.sourceAppName = "Files";
    Clip clip = builder.build(snapshot, ClipKind::file, contentHash(snapshot, ClipKind::file), false);
    ASSERT_TRUE(clip.fileBookmarks);
    EXPECT_EQ(decodeFileBookmarks(*clip.fileBookmarks), snapshot.fileURLs);
    EXPECT_EQ(clip.searchText, "files q3 report.pdf notes.txt");
    EXPECT_EQ(clip.byteSize, 0);
}

}  // namespace
}  // namespace tamarind
