#include "foundation/Sha256.h"

#include <openssl/evp.h>

namespace tamarind {

std::string sha256Hex(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 0x0F];
    }
    return text;
}

}  // namespace tamarind
