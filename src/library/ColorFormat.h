#pragma once
// The notations a stored hex colour can be copied in. Stored by raw string
// (the case name); an unknown string reads as `hex`.

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tamarind {

enum class ColorFormat { hex, rgb, rgba, hsl, swiftUI, uiColor, cssVariable };

inline constexpr std::array<ColorFormat, 7> kAllColorFormats = {
    ColorFormat::hex,     ColorFormat::rgb,     ColorFormat::rgba,       ColorFormat::hsl,
    ColorFormat::swiftUI, ColorFormat::uiColor, ColorFormat::cssVariable};

std::string_view rawValue(ColorFormat format);
ColorFormat colorFormatOrHex(std::string_view raw);

// The colour "#3b5bfd" (or "3B5BFD") in this notation: "#3B5BFD", "rgb(59, 91, 253)",
// "hsl(230, 98%, 61%)", "Color(red: 0.231, …)"… Absent unless it is six hex digits.
std::optional<std::string> render(ColorFormat format, std::string_view hex);

}  // namespace tamarind
