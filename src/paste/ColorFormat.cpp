#include "paste/ColorFormat.h"

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

ColorFormat colorFormatOrHex(std::string_view raw) {
    for (ColorFormat format : kAllColorFormats)
        if (rawValue(format) == raw) return format;
    return ColorFormat::hex;
}

}  // namespace tamarind
