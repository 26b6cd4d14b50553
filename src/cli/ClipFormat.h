#pragma once
// How the command line prints clips: one line each for people, one JSON
// object each for programs. A sensitive clip's content is withheld from both
// unless the user asks with --reveal.

#include <string>

#include "foundation/Json.h"
#include "library/Clip.h"

namespace tamarind::cli {

// ISO 8601 in UTC to the microsecond ("2026-11-23T00:12:41.010312Z"), which every JSON
// reader takes; the stored date may carry more digits than that.
std::string isoDate(Date date);

// "12s", "5m", "3h", "2d", "6w", "2y": the age of a clip at a glance.
std::string compactAge(Date createdAt, Date now);

// "3F2A1B9C  text        5m  F-  Hello world": id prefix, kind, age, favourite and pinned
// marks, and the display title on one line, cut to `width` characters (0: no cut).
std::string clipLine(const Clip& clip, Date now, bool reveal, std::size_t width);

// Keys in the order written, so that "id" comes first where people read it.
using OrderedJson = nlohmann::ordered_json;

// Every stored field but the thumbnail and the full image, dates in ISO 8601, the file
// bookmarks as paths and the multi-clip payload as JSON, plus the derived displayTitle.
// Without `reveal`, a sensitive clip's content fields are left out and "redacted" is true.
OrderedJson clipJson(const Clip& clip, bool reveal);

}  // namespace tamarind::cli
