// "Copy" and "copy as": the notations of a colour, the transforms, and what each kind writes.

#include <gtest/gtest.h>

#include "paste/ClipActions.h"
#include "support/FakePlatform.h"
#include "support/Images.h"
#include "foundation/ImageCodec.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

TEST(ColorFormat, RendersEachNotationAsTheExamplesShow) {
    const std::pair<ColorFormat, const char*> expected[] = {
        {ColorFormat::hex, "#3B5BFD"},
        {ColorFormat::rgb, "rgb(59, 91, 253)"},
        {ColorFormat::rgba, "rgba(59, 91, 253, 1)"},
        {ColorFormat::hsl, "hsl(230, 98%, 61%)"},
        {ColorFormat::swiftUI, "Color(red: 0.231, green: 0.357, blue: 0.992)"},
        {ColorFormat::uiColor, "UIColor(red: 0.231, green: 0.357, blue: 0.992, alpha: 1)"},
        {ColorFormat::cssVariable, "--color-3b5bfd: #3B5BFD;"},
    };
    for (auto [format, text] : expected) EXPECT_EQ(render(format, "#3b5bfd"), text) << rawValue(format);
    EXPECT_EQ(render(ColorFormat::hex, "3B5BFD"), render(ColorFormat::hex, "#3b5bfd"));
    EXPECT_EQ(render(ColorFormat::hsl, "#000000"), "hsl(0, 0%, 0%)");
    EXPECT_EQ(render(ColorFormat::hsl, "#FFFFFF"), "hsl(0, 0%, 100%)");
    EXPECT_EQ(render(ColorFormat::hsl, "#FF0000"), "hsl(0, 100%, 50%)");
    for (const char* bad : {"#3B5BF", "#3B5BFDA", "", "#", "GGGGGG", "#12 456", "+12345"})
        EXPECT_FALSE(render(ColorFormat::rgb, bad)) << bad;
}

class ClipActionsTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    FakePasteboard pasteboard{loop};
    BlobStore blobs{folder.path() / "blobs"};
    ClipActionService actions{pasteboard, blobs};

    Clip clip(const std::string& kind, std::optional<std::string> text) {
        Clip made = Clip::make(Date::fromReferenceSeconds(1));
        made.kind = kind;
        made.text = std::move(text);
        return made;
    }
};

TEST_F(ClipActionsTest, TransformsChangeOnlyThePlainText) {
    Clip rich = clip("richText", "Grüße, Straße");
    rich.richTextData = dataFromString("{\\rtf1 Grüße}");
    rich.htmlString = "<b>Grüße</b>";
    actions.copy(rich, CopyTransform::uppercase);
    ASSERT_EQ(pasteboard.writes.size(), 1u);
    EXPECT_EQ(pasteboard.writes[0].text, "GRÜSSE, STRASSE");
    EXPECT_EQ(pasteboard.writes[0].rtf, rich.richTextData);
    EXPECT_EQ(pasteboard.writes[0].html, rich.htmlString);

    actions.copy(clip("text", " \n\t "), CopyTransform::trimmed);
    EXPECT_EQ(pasteboard.writes.back().text, "") << "an empty string is still written";
    actions.copy(clip("code", "hello wORLD"), CopyTransform::capitalized);
    EXPECT_EQ(pasteboard.writes.back().text, "Hello World");
}

TEST_F(ClipActionsTest, ImagesGoAsPngIgnoringTheTransformAndWhatCantBeReadClearsTheClipboard) {
    Clip image = clip("image", std::nullopt);
    image.blobFilename = std::get<std::string>(blobs.write(makePng(4, 3), image.id, "png"));
    actions.copy(image, CopyTransform::uppercase);
    EXPECT_EQ(pasteboard.writes.back().image, makePng(4, 3));
    EXPECT_EQ(pasteboard.writes.back().imageExtension, "png");
    EXPECT_FALSE(pasteboard.writes.back().text);

    Clip tiff = clip("image", std::nullopt);
    tiff.blobFilename = std::get<std::string>(blobs.write(makeTiff(5, 2), tiff.id, "tiff"));
    actions.copy(tiff, CopyTransform::plain);
    ASSERT_TRUE(pasteboard.writes.back().image);
    EXPECT_EQ(pasteboard.writes.back().imageExtension, "png");
    EXPECT_EQ(imagePixelSize(*pasteboard.writes.back().image), (PixelSize{5, 2})) << "a TIFF blob is offered as PNG";

    blobs.remove(*image.blobFilename);
    image.fullImageData = makePng(4, 3);
    actions.copy(image, CopyTransform::plain);
    EXPECT_FALSE(pasteboard.writes.back().image) << "an unreadable file writes nothing, inline data or not";
    EXPECT_FALSE(pasteboard.writes.back().text);
    actions.copy(clip("text", std::nullopt), CopyTransform::plain);
    EXPECT_FALSE(pasteboard.writes.back().text) << "no text: nothing is written";
}

}  // namespace
}  // namespace tamarind
