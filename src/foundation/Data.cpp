#include "foundation/Data.h"

#include <openssl/evp.h>

namespace tamarind {

Data dataFromString(std::string_view bytes) { return Data(bytes.begin(), bytes.end()); }

std::string stringFromData(const Data& data) { return std::string(data.begin(), data.end()); }

std::string base64Encode(const Data& data) {
    std::string out(4 * ((data.size() + 2) / 3), '\0');
    int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), data.data(),
                                  static_cast<int>(data.size()));
    out.resize(static_cast<std::size_t>(written));
    return out;
}

std::optional<Data> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool alphabet = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
                        c == '/';
        if (c == '=') {
            // Padding: one or two characters, and only at the very end.
            if (i + 2 < text.size()) return std::nullopt;
            ++padding;
        } else if (!alphabet || padding > 0) {
            return std::nullopt;
        }
    }
    Data out(text.size() / 4 * 3);
    int decoded = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<int>(text.size()));
    if (decoded < 0) return std::nullopt;
    out.resize(static_cast<std::size_t>(decoded) - padding);
    return out;
}

}  // namespace tamarind
