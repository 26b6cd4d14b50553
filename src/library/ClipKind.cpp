#include "library/ClipKind.h"

namespace tamarind {

std::string_view rawValue(ClipKind kind) {
    switch (kind) {
    case ClipKind::text: return "text";
    case ClipKind::richText: return "richText";
    case ClipKind::link: return "link";
    case ClipKind::image: return "image";
    case ClipKind::screenshot: return "screenshot";
    case ClipKind::file: return "file";
    case ClipKind::code: return "code";
    case ClipKind::color: return "color";
    case ClipKind::multiClip: return "multiClip";
    }
    return "text";
}

std::string_view label(ClipKind kind) {
    switch (kind) {
    case ClipKind::text: return "Text";
    case ClipKind::richText: return "Rich Text";
    case ClipKind::link: return "Link";
    case ClipKind::image: return "Image";
    case ClipKind::screenshot: return "Screenshot";
    case ClipKind::file: return "File";
    case ClipKind::code: return "Code";
    case ClipKind::color: return "Color";
    case ClipKind::multiClip: return "Multiple";
    }
    return "Text";
}

std::optional<ClipKind> clipKindFromRawValue(std::string_view raw) {
    for (ClipKind kind : kAllClipKinds)
        if (rawValue(kind) == raw) return kind;
    return std::nullopt;
}

}  // namespace tamarind
