#pragma once
// One line of an export as `tamarind import` reads it: a JSON object whose fields say what the
// clipboard held and how the clip was marked. Kept apart from the command so that it can be fed
// lines without a library behind it.

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Date.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind::cli {

struct ImportLine {
    // Absent when the line can't be read; `error` then says why, in the words the command prints
    // after "line N: ". Empty when the line was read.
    std::optional<PasteboardSnapshot> snapshot;
    std::string error;
    bool isFavorite = false;
    bool isPinned = false;
};

// Never throws. The marks are read with the rest, so that a line whose marks can't be read adds
// nothing. A line without a date was copied at `importedAt`.
ImportLine readImportLine(std::string_view text, Date importedAt);

}  // namespace tamarind::cli
