#include <gtest/gtest.h>

#include "library/ClipClassifier.h"
#include "support/Images.h"

namespace tamarind {
namespace {

PasteboardSnapshot textSnapshot(std::string text) {
    PasteboardSnapshot snapshot;
    snapshot.string = std::move(text);
    return snapshot;
}

std::string kindOf(const PasteboardSnapshot& snapshot) { return std::string(rawValue(classify(snapshot))); }
std::string kindOf(std::string text) { return kindOf(textSnapshot(std::move(text))); }

TEST(Classify, FirstMatchWinsInTheDocumentedOrder) {
    PasteboardSnapshot fileAndImage;
    fileAndImage.fileURLs = {FileURL{"/tmp/a.png"}};
    fileAndImage.imageData = makePng(4, 4);
    EXPECT_EQ(kindOf(fileAndImage), "file");

    PasteboardSnapshot image;
    image.imageData = Data{1, 2, 3};
    image.string = "https://example.com";
    EXPECT_EQ(kindOf(image), "image");
    image.sourceAppBundleID = "org.kde.spectacle";
    EXPECT_EQ(kindOf(image), "screenshot");

    PasteboardSnapshot rich;
    rich.htmlString = "<b>x</b>";
    EXPECT_EQ(kindOf(rich), "richText");
    rich.htmlString.reset();
    EXPECT_EQ(kindOf(rich), "text") << "nothing at all is text";

    // A link and a colour keep their kind beside HTML; other rich copies are never code.
    PasteboardSnapshot richLink = textSnapshot("  https://example.com/a?b=c \n");
    richLink.htmlString = "<a>";
    EXPECT_EQ(kindOf(richLink), "link");
    PasteboardSnapshot richCode = textSnapshot("int main() {\n  return 0;\n  x;\n}");
    EXPECT_EQ(kindOf(richCode), "code");
    richCode.rtfData = Data{'{'};
    EXPECT_EQ(kindOf(richCode), "richText");
}

TEST(Classify, ColoursByShapeOnly) {
    for (const char* colour : {"#FFF", "fff", "bad", "cafe12", " #a1b2c3 ", "rgb(1, 2, 3)", "RGBA(1,2,3,0.5)",
                               "hsl(120 50% 50% / 0.3)", "rgb(1,2)"})
        EXPECT_EQ(kindOf(colour), "color") << colour;
    for (const char* other : {"#FFFF", "#ggg", "rgb()", "rgb(a)", "cafe 12", "##fff"})
        EXPECT_NE(kindOf(other), "color") << other;
    EXPECT_EQ(normalizedHex("#abc"), "#AABBCC");
    EXPECT_EQ(normalizedHex(" ff8800\n"), "#FF8800");
    EXPECT_EQ(normalizedHex("rgb(1, 2, 3)"), std::nullopt);
    EXPECT_EQ(normalizedHex("##abc"), std::nullopt);
    EXPECT_EQ(normalizedHex("abcd"), std::nullopt);
}

TEST(LooksLikeLink, AcceptsTheEightSchemesWithWhatEachNeeds) {
    for (const char* link : {"https://example.com", "HTTP://EXAMPLE.COM/x", "ftp://h/f", "ftps://h", "ssh://git@h",
                             "sftp://h:22/p", "mailto:ann@example.com", "file:///etc/hosts"})
        EXPECT_TRUE(looksLikeLink(link)) << link;
    for (const char* text : {"", "http:foo", "http://", "mailto:", "file://host", "javascript:alert(1)",
                             "www.example.com", "https://exa mple.com", "https://example.com\u00A0x", "ftp:/x",
                             "https://example.com/%zz"})
        EXPECT_FALSE(looksLikeLink(text)) << text;

    std::string longLink = "https://example.com/" + std::string(4096 - 20, 'a');
    EXPECT_EQ(longLink.size(), 4096u);
    EXPECT_TRUE(looksLikeLink(longLink));
    EXPECT_FALSE(looksLikeLink(longLink + "a"));
    EXPECT_NE(kindOf(longLink + "a"), "link");
}

TEST(LooksLikeCode, ScoresAboveThreeAndNeverUnderThreeLines) {
    EXPECT_TRUE(looksLikeCode("func f() {\n    return 1;\n    let x = 2;\n}"));
    EXPECT_FALSE(looksLikeCode("func f() { return 1; let x = 2; } // => != ==\n    if else while for;"))
        << "two lines are never code";
    // Braces (2) and an operator (1) only: 3 is not above 3.
    EXPECT_FALSE(looksLikeCode("a {\nb\n} //"));
    // Keywords count occurrences: "if" three times gives 2 points, with braces 4.
    EXPECT_TRUE(looksLikeCode("if {\nif\nif }"));
    EXPECT_FALSE(looksLikeCode("Dear Ann,\nthanks for the lunch.\nSee you soon."));
    // "#include" is one word, since "#" belongs to words.
    EXPECT_TRUE(looksLikeCode("#include <a>\n#include <b>\n#include <c>\nx;\ny;"));
    // Indentation: 1 of 4 lines is under 0.3; 2 of 4 is over.
    EXPECT_FALSE(looksLikeCode("{\n  a\nb\n}"));
    EXPECT_TRUE(looksLikeCode("{\n  a\n\tb\n}"));
    // Words are cut in the lower-cased text: "İ" lower-cases to "i" and a combining dot, which ends a word.
    EXPECT_TRUE(looksLikeCode("{\n\u0130for \u0130for\n\u0130for }"));
    EXPECT_FALSE(looksLikeCode("{\n\u00E9for \u00E9for\n\u00E9for }")) << "\u00E9for is one word";
    EXPECT_TRUE(looksLikeCode("{\nFOR While\nIF }")) << "keywords match in any case";
    std::string huge = "{\n" + std::string(200000, 'x') + "\n}";
    EXPECT_FALSE(looksLikeCode(huge));
}

TEST(ContentHash, IgnoresOuterWhitespaceAndBlankRunsButNotLineBreaks) {
    auto hash = [](const char* text) { return contentHash(textSnapshot(text), ClipKind::text); };
    EXPECT_EQ(hash("  hello   world  "), hash("hello world"));
    EXPECT_EQ(hash("hello\t \tworld"), hash("hello world"));
    EXPECT_NE(hash("hello\nworld"), hash("hello world"));
    EXPECT_EQ(hash("hello world"), "b94d27b9934d3e08a52e52d7da7dabfac484efe37a5380ee9088f7ace2efcde9");
    EXPECT_EQ(contentHash(PasteboardSnapshot{}, ClipKind::richText), hash(""));

    PasteboardSnapshot image;
    image.imageData = dataFromString("abc");
    image.string = "ignored";
    EXPECT_EQ(contentHash(image, ClipKind::image), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    image.imageData.reset();
    EXPECT_EQ(contentHash(image, ClipKind::screenshot), hash("ignored"));

    PasteboardSnapshot files;
    files.fileURLs = {FileURL{"/a b"}, FileURL{"/c"}};
    EXPECT_EQ(contentHash(files, ClipKind::file), textHash("/a b\n/c"));
}

}  // namespace
}  // namespace tamarind
