// Fuzzes the multi-clip payload decoder and the link, colour and code tests
// that run on every copied text: none may crash, and a payload that decodes
// must encode and decode to itself.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "capture/MultiClipPayload.h"
#include "library/ClipClassifier.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tamarind;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    if (auto payload = MultiClipPayload::decode(Data(data, data + size))) {
        auto again = MultiClipPayload::decode(payload->encode());
        if (!again) std::abort();
        (void)payload->joinedText(", ");
        for (const MultiClipItem& item : payload->items) (void)item.summary();
    }
    (void)looksLikeLink(text);
    (void)looksLikeCode(text);
    (void)normalizedHex(text);
    PasteboardSnapshot snapshot;
    snapshot.string = std::string(text);
    ClipKind kind = classify(snapshot);
    (void)contentHash(snapshot, kind);
    return 0;
}
