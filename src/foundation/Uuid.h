#pragma once
// Identifiers of clips, collections and devices: random (version 4) UUIDs.
// Their text is the upper-case canonical form, which is also how settings,
// notifications and shortcut names refer to a clip; parsing takes either case.

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tamarind {

class Uuid {
public:
    // The nil UUID, all zeros. Use random() for a new identifier.
    constexpr Uuid() = default;
    explicit constexpr Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

    // From the system's cryptographic random source.
    static Uuid random();
    // "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", in either case; absent for any other shape.
    static std::optional<Uuid> parse(std::string_view text);

    std::string uuidString() const;  // upper case
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
    bool isNil() const { return *this == Uuid(); }

    friend constexpr auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace tamarind

template <> struct std::hash<tamarind::Uuid> {
    std::size_t operator()(const tamarind::Uuid& id) const noexcept {
        std::size_t value = 0;
        for (std::uint8_t byte : id.bytes()) value = value * 131 + byte;
        return value;
    }
};
