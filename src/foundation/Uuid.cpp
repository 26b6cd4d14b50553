#include "foundation/Uuid.h"

#include <openssl/rand.h>

#include <cstdlib>
#include <random>

namespace tamarind {

Uuid Uuid::random() {
    std::array<std::uint8_t, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        // OpenSSL's generator failing is all but impossible; never hand out a fixed id.
        std::random_device device;
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(device());
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return Uuid(bytes);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        int high = nibble(text[i]), low = nibble(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes[byte++] = static_cast<std::uint8_t>(high << 4 | low);
        i += 2;
    }
    return Uuid(bytes);
}

std::string Uuid::uuidString() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kHex[bytes_[i] >> 4];
        text += kHex[bytes_[i] & 0x0F];
    }
    return text;
}

}  // namespace tamarind
