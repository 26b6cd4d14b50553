#pragma once
// The pure functions that all of capture rests on: what kind a copy is, what
// counts as a link, a colour or code, and the content hash that finds
// duplicates. Any thread.

#include <optional>
#include <string>
#include <string_view>

#include "library/ClipKind.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

// The first match wins: files, then images (a screenshot when a screenshot
// tool copied it), then text by its shape, rich text, code, plain text.
// Never `multiClip`: only collect mode makes those.
ClipKind classify(const PasteboardSnapshot& snapshot);

// Whether the (already trimmed) text is a whole link in one of the eight
// schemes we accept, with a host or a path as its scheme needs.
bool looksLikeLink(std::string_view text);
// A score of braces, semicolons, indentation, keywords and operators above 3;
// never for fewer than three lines.
bool looksLikeCode(std::string_view text);
// "#abc" -> "#AABBCC", "ff8800" -> "#FF8800"; absent unless the trimmed text is
// three or six hex digits after at most one "#".
std::optional<std::string> normalizedHex(std::string_view text);

// Lower-case hex SHA-256 identifying the content, whatever its formatting.
std::string contentHash(const PasteboardSnapshot& snapshot, ClipKind kind);
// Trim, collapse runs of blanks and tabs to one blank, SHA-256. Line breaks stay significant.
std::string textHash(std::string_view text);

// Source ids whose copied images are screenshots: the macOS capture UI and
// the Linux screenshot tools (docs/capture.md).
bool isScreenshotSource(std::string_view bundleID);

}  // namespace tamarind
