#include "foundation/MachineID.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cctype>

#include "foundation/Files.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"

namespace tamarind {

namespace {

// Tamarind's application id, the message of the hash: any fixed 128 bits of our own.
constexpr std::array<std::uint8_t, 16> kApplicationID = {0x5d, 0x2c, 0x8a, 0x4e, 0x91, 0x3b, 0x47, 0x06,
                                                         0xa8, 0x7f, 0x1e, 0x62, 0xc3, 0xd9, 0x0b, 0x54};

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::optional<std::string> appSpecificMachineID(std::string_view machineIdText) {
    std::string_view text = trimmed(machineIdText);
    if (text.size() != 32) return std::nullopt;
    std::array<std::uint8_t, 16> machine{};
    for (std::size_t i = 0; i < 16; ++i) {
        int high = hexDigit(text[2 * i]), low = hexDigit(text[2 * i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        machine[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    // An all-zero id is what an unconfigured image carries: no machine's own.
    if (machine == std::array<std::uint8_t, 16>{}) return std::nullopt;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!HMAC(EVP_sha256(), machine.data(), static_cast<int>(machine.size()), kApplicationID.data(),
              kApplicationID.size(), digest, &length) ||
        length < 16)
        return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::copy(digest, digest + 16, bytes.begin());
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return Uuid(bytes).uuidString();
}

std::string machineID(Defaults& defaults, const std::filesystem::path& machineIdFile) {
    if (auto contents = readWholeFile(machineIdFile).bytes)
        if (auto id = appSpecificMachineID(*contents)) return *id;
    if (auto fallback = defaults.string(kMachineIdentifierFallbackKey); fallback && !fallback->empty())
        return *fallback;
    std::string made = Uuid::random().uuidString();
    defaults.set(kMachineIdentifierFallbackKey, made);
    Log("app").log("IOPlatformUUID unavailable; generated a fallback machine identifier.");
    Log("app").log("(%{public}s holds no machine id.)", machineIdFile.string());
    return made;
}

}  // namespace tamarind
