// Fuzzes what the X11 clipboard reader makes of an owner's bytes: the target list, an INCR
// transfer under a byte limit, and the text and file decoders. None may crash; the names are
// never the protocol's own; what is gathered never passes the limit and is, when the limit
// holds, exactly what was sent; every decoded text is valid UTF-8.

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "foundation/Text.h"
#include "platform/x11/ClipboardTransfer.h"

namespace {

// An atom's name: a protocol target, an unknown atom (""), or one made from its number, which
// several atoms share, so that repeats reach the list's once-each rule.
std::string nameOf(std::uint32_t atom) {
    static const char* const kKnown[] = {"TARGETS", "MULTIPLE", "TIMESTAMP",   "SAVE_TARGETS", "DELETE",
                                         "INCR",    "",         "UTF8_STRING", "text/html",    "image/png"};
    if (atom % 16 < std::size(kKnown)) return kKnown[atom % 16];
    return "t" + std::to_string(atom % 997);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tamarind;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    if (input.size() < 2) return 0;
    // The first byte picks the limit (0 is none) and the storage, the second the chunk size.
    long long limit = (static_cast<unsigned char>(input[0]) >> 1) * 97LL;
    auto storage = (input[0] & 1) ? TransferAssembly::Storage::data : TransferAssembly::Storage::text;
    std::size_t chunkSize = static_cast<unsigned char>(input[1]) + 1;
    std::string_view rest = input.substr(2);

    std::vector<std::string> names = targetNames(rest, nameOf);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].empty() || isProtocolTarget(names[i])) std::abort();
        for (std::size_t j = 0; j < i; ++j)
            if (names[i] == names[j]) std::abort();
    }

    // The first four bytes as the INCR value, the rest in chunks. Without a limit the value is
    // kept under 64 KB: reserving hundreds of megabytes under AddressSanitizer takes a tenth of a
    // second, and nothing but the reservation's size depends on it.
    std::string incrValue(rest.substr(0, 4));
    if (limit == 0 && incrValue.size() == 4) incrValue[2] = incrValue[3] = 0;
    TransferAssembly transfer(limit, storage);
    bool isWithin = transfer.announce(incrValue);
    std::string sent;
    for (std::size_t at = 4; at < rest.size() && isWithin; at += chunkSize) {
        std::string_view chunk = rest.substr(at, chunkSize);
        isWithin = transfer.append(chunk);
        if (isWithin) sent.append(chunk);
        if (isWithin == transfer.isOverLimit()) std::abort();
        if (limit > 0 && transfer.size() > static_cast<std::size_t>(limit)) std::abort();
        if (limit > 0 && transfer.size() + transfer.allowance() != static_cast<std::size_t>(limit) && isWithin)
            std::abort();
    }
    if (transfer.isOverLimit() && (transfer.size() != 0 || transfer.append(""))) std::abort();
    if (!transfer.isOverLimit()) {
        std::string gathered =
            storage == TransferAssembly::Storage::text ? transfer.takeText() : stringFromData(transfer.takeData());
        if (gathered != sent) std::abort();
    }

    std::string bytes(rest);
    std::string text = utf8Text(bytes);
    if (!isValidUtf8(text) || (isValidUtf8(bytes) && text != bytes)) std::abort();
    std::string latin1 = latin1ToUtf8(bytes);
    if (!isValidUtf8(latin1) || codePointCount(latin1) != bytes.size()) std::abort();
    if (!isValidUtf8(htmlToUtf8(bytes))) std::abort();
    for (const FileURL& file : fileURLsOf(bytes, (input[0] & 2) != 0))
        if (file.path.empty() || file.path.front() != '/') std::abort();
    return 0;
}
