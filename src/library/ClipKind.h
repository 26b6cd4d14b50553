#pragma once
// What a clip is. Stored by its raw string; a raw string written by a later
// version reads as `text` while the stored string itself is kept.

#include <array>
#include <optional>
#include <string_view>

namespace tamarind {

enum class ClipKind { text, richText, link, image, screenshot, file, code, color, multiClip };

// Declaration order, which is also the order lists and pickers show.
inline constexpr std::array<ClipKind, 9> kAllClipKinds = {
    ClipKind::text, ClipKind::richText,  ClipKind::link,  ClipKind::image,     ClipKind::screenshot,
    ClipKind::file, ClipKind::code,      ClipKind::color, ClipKind::multiClip,
};

std::string_view rawValue(ClipKind kind);  // "richText"
std::string_view label(ClipKind kind);     // "Rich Text"
// Absent for a string that names no kind.
std::optional<ClipKind> clipKindFromRawValue(std::string_view raw);
// The reading rule of stored records: unknown strings read as `text`.
inline ClipKind clipKindOrText(std::string_view raw) { return clipKindFromRawValue(raw).value_or(ClipKind::text); }

}  // namespace tamarind
