#pragma once
// The notations a stored hex colour can be copied in. Stored by raw string
// (the case name); an unknown string reads as `hex`.

#include <array>
#include <string_view>

namespace tamarind {

enum class ColorFormat { hex, rgb, rgba, hsl, swiftUI, uiColor, cssVariable };

inline constexpr std::array<ColorFormat, 7> kAllColorFormats = {
    ColorFormat::hex,     ColorFormat::rgb,     ColorFormat::rgba,       ColorFormat::hsl,
    ColorFormat::swiftUI, ColorFormat::uiColor, ColorFormat::cssVariable};

std::string_view rawValue(ColorFormat format);
ColorFormat colorFormatOrHex(std::string_view raw);

}  // namespace tamarind
