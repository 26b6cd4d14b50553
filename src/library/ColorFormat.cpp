#include "library/ColorFormat.h"

#include <algorithm>
#include <charconv>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace tamarind {

std::string_view rawValue(ColorFormat format) {
    switch (format) {
    case ColorFormat::hex: return "hex";
    case ColorFormat::rgb: return "rgb";
    case ColorFormat::rgba: return "rgba";
    case ColorFormat::hsl: return "hsl";
    case ColorFormat::swiftUI: return "swiftUI";
    case ColorFormat::uiColor: return "uiColor";
    case ColorFormat::cssVariable: return "cssVariable";
    }
    return "hex";
}

namespace {

// "0.231", whatever the process's locale: the app's toolkit sets the user's, which may use commas.
std::string threeDecimals(double value) {
    char text[32];
    auto [end, error] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 3);
    return error == std::errc() ? std::string(text, end) : std::string("0.000");
}

}  // namespace

std::optional<std::string> render(ColorFormat format, std::string_view hex) {
    if (hex.starts_with('#')) hex.remove_prefix(1);
    if (hex.size() != 6 || !std::all_of(hex.begin(), hex.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); }))
        return std::nullopt;
    auto value = static_cast<std::uint32_t>(std::stoul(std::string(hex), nullptr, 16));
    double r = ((value >> 16) & 0xFF) / 255.0, g = ((value >> 8) & 0xFF) / 255.0, b = (value & 0xFF) / 255.0;
    auto whole = [](double channel) { return static_cast<int>(channel * 255.0); };
    std::string upper, lower;
    for (char c : hex) {
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    char text[128];
    switch (format) {
    case ColorFormat::hex: return "#" + upper;
    case ColorFormat::rgb: std::snprintf(text, sizeof text, "rgb(%d, %d, %d)", whole(r), whole(g), whole(b)); break;
    case ColorFormat::rgba: std::snprintf(text, sizeof text, "rgba(%d, %d, %d, 1)", whole(r), whole(g), whole(b)); break;
    case ColorFormat::hsl: {
        double high = std::max({r, g, b}), low = std::min({r, g, b});
        double lightness = (high + low) * 0.5, hue = 0, saturation = 0;
        if (high != low) {
            double d = high - low;
            saturation = lightness > 0.5 ? d / (2 - high - low) : d / (high + low);
            if (r == high) {
                hue = (g - b) / d + (g < b ? 6 : 0);
            } else if (g == high) {
                hue = (b - r) / d + 2;
            } else {
                hue = (r - g) / d + 4;
            }
            hue *= 60;
        }
        std::snprintf(text, sizeof text, "hsl(%ld, %ld%%, %ld%%)", std::lround(hue), std::lround(saturation * 100),
                      std::lround(lightness * 100));
        break;
    }
    case ColorFormat::swiftUI:
        return "Color(red: " + threeDecimals(r) + ", green: " + threeDecimals(g) + ", blue: " + threeDecimals(b) + ")";
    case ColorFormat::uiColor:
        return "UIColor(red: " + threeDecimals(r) + ", green: " + threeDecimals(g) + ", blue: " + threeDecimals(b) +
               ", alpha: 1)";
    case ColorFormat::cssVariable: return "--color-" + lower + ": #" + upper + ";";
    }
    return std::string(text);
}

ColorFormat colorFormatOrHex(std::string_view raw) {
    for (ColorFormat format : kAllColorFormats)
        if (rawValue(format) == raw) return format;
    return ColorFormat::hex;
}

}  // namespace tamarind
