#pragma once
// Several staged copies stored as one `multiClip` clip: the payload's JSON and
// its two flattenings, to one text and to a list of files. Pure; any thread.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Data.h"
#include "foundation/Date.h"
#include "foundation/Uuid.h"

namespace tamarind {

struct MultiClipItem {
    Uuid id;
    std::string kind;  // raw string of the item's ClipKind
    std::optional<std::string> text;
    std::optional<std::string> blobFilename;
    std::vector<std::string> filePaths;
    Date capturedAt;

    // The one line lists show: "Image"; the file names joined with ", "; or the
    // first non-empty line of the trimmed text, "Empty" when there is none.
    std::string summary() const;

    friend bool operator==(const MultiClipItem&, const MultiClipItem&) = default;
};

struct MultiClipPayload {
    std::vector<MultiClipItem> items;

    // Each item's line (images by their summary, files by their paths joined
    // with the same separator, anything else by its text); empty lines dropped.
    std::string joinedText(std::string_view separator) const;
    std::vector<std::string> filePaths() const;

    // {"items":[{"id":…,"kind":…,"text":…,"blobFilename":…,"filePaths":[…],"capturedAt":…}]};
    // absent optionals are left out.
    Data encode() const;
    // Absent for JSON of any other shape; never throws.
    static std::optional<MultiClipPayload> decode(const Data& data);

    friend bool operator==(const MultiClipPayload&, const MultiClipPayload&) = default;
};

enum class MultiClipJoiner { newline, comma, doubleNewline, space, custom };

inline constexpr std::array<MultiClipJoiner, 5> kAllMultiClipJoiners = {
    MultiClipJoiner::newline, MultiClipJoiner::comma, MultiClipJoiner::doubleNewline, MultiClipJoiner::space,
    MultiClipJoiner::custom};

std::string_view rawValue(MultiClipJoiner joiner);
// Unknown strings read as `newline`.
MultiClipJoiner multiClipJoinerOrNewline(std::string_view raw);
// `customSeparator` is the text of `custom`; the others ignore it.
std::string separator(MultiClipJoiner joiner, std::string_view customSeparator);

}  // namespace tamarind
