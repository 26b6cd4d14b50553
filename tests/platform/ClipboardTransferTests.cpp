// What the X11 clipboard reader does with the bytes an owner sends, without a server: the target
// list, a transfer under a byte limit, and the decoders.

#include <gtest/gtest.h>

#include <map>

#include "foundation/Text.h"
#include "platform/x11/ClipboardTransfer.h"

namespace tamarind {
namespace {

std::string atoms(std::initializer_list<std::uint32_t> list) {
    std::string bytes;
    for (std::uint32_t atom : list) bytes.append(reinterpret_cast<const char*>(&atom), 4);
    return bytes;
}

std::string incrValue(std::uint32_t size) { return atoms({size}); }

TEST(ClipboardTransfer, TheTargetListKeepsTheOwnersOrderOnceEachWithoutTheProtocolOrUnknownAtoms) {
    std::map<std::uint32_t, std::string> names = {{1, "TARGETS"},  {2, "text/html"}, {3, "UTF8_STRING"},
                                                  {4, "MULTIPLE"}, {5, "TIMESTAMP"}, {6, "SAVE_TARGETS"},
                                                  {7, "INCR"},     {8, "DELETE"},    {9, "image/png"}};
    auto nameOf = [&](std::uint32_t atom) { return names.contains(atom) ? names[atom] : std::string(); };
    // 42 is unknown to the server; the last two bytes are half an atom.
    std::string reply = atoms({1, 2, 5, 3, 42, 2, 4, 6, 7, 8, 9}) + "\x03\x00";
    EXPECT_EQ(targetNames(reply, nameOf), (std::vector<std::string>{"text/html", "UTF8_STRING", "image/png"}));
    EXPECT_TRUE(targetNames("", nameOf).empty());
}

TEST(ClipboardTransfer, ALimitRefusesWhatPassesItAsSoonAsItDoesAndKeepsNothing) {
    // An announcement past the limit is refused before any chunk comes.
    TransferAssembly announced(100);
    EXPECT_FALSE(announced.announce(incrValue(101)));
    EXPECT_TRUE(announced.isOverLimit());
    EXPECT_FALSE(announced.append("a"));

    // Chunks that add up past it: the one that passes is refused, and what came is dropped.
    TransferAssembly chunks(100, TransferAssembly::Storage::data);
    EXPECT_TRUE(chunks.announce(incrValue(10)));  // an owner may understate
    EXPECT_TRUE(chunks.append(std::string(60, 'a')));
    EXPECT_EQ(chunks.allowance(), 40u);
    EXPECT_FALSE(chunks.append(std::string(41, 'b')));
    EXPECT_EQ(chunks.size(), 0u);
    EXPECT_EQ(chunks.allowance(), 0u);
    EXPECT_FALSE(chunks.append(""));
    EXPECT_TRUE(chunks.takeData().empty());

    // Exactly the limit is within it.
    TransferAssembly exact(100);
    EXPECT_TRUE(exact.announce(incrValue(100)));
    EXPECT_TRUE(exact.append(std::string(100, 'c')));
    EXPECT_FALSE(exact.isOverLimit());
    EXPECT_EQ(exact.takeText(), std::string(100, 'c'));

    // No limit: a 4 GB announcement is taken (reserving no more than the bound), and a short INCR
    // value, which says nothing of the size, too.
    TransferAssembly unlimited(0, TransferAssembly::Storage::data);
    EXPECT_TRUE(unlimited.announce(incrValue(0xFFFFFFFF)));
    EXPECT_TRUE(unlimited.append("abc"));
    EXPECT_TRUE(unlimited.append("def"));
    EXPECT_EQ(unlimited.takeData(), dataFromString("abcdef"));
    TransferAssembly shortValue(10);
    EXPECT_TRUE(shortValue.announce("\x01"));
}

TEST(ClipboardTransfer, DecodersGiveValidUtf8FromEachEncodingOwnersSend) {
    EXPECT_EQ(utf8Text("Grüße"), "Grüße");
    EXPECT_EQ(utf8Text("a\xFF"
                       "b"),
              "a\uFFFDb");
    EXPECT_EQ(latin1ToUtf8("caf\xE9 \xFF"), "café ÿ");
    EXPECT_EQ(latin1ToUtf8("plain"), "plain");

    // UTF-16 with a byte-order mark, either order, with a pair for U+1F600; a NUL ends it.
    std::string little("\xFF\xFE<\0b\0>\0\xE9\0=\xD8\x00\xDE\0\0z\0", 18);
    EXPECT_EQ(htmlToUtf8(little), "<b>é😀");
    std::string big("\xFE\xFF\0<\0b\0>", 8);
    EXPECT_EQ(htmlToUtf8(big), "<b>");
    // A lone surrogate, and an odd byte at the end.
    std::string lone("\xFF\xFE\x00\xD8x\0!", 7);
    EXPECT_EQ(htmlToUtf8(lone), "\uFFFDx");
    EXPECT_EQ(htmlToUtf8("<p>\xC3</p>"), "<p>\uFFFD</p>");
}

}  // namespace
}  // namespace tamarind
