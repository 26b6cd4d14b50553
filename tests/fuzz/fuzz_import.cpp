// Feeds arbitrary bytes to the reader of `tamarind import` lines, which sees whatever file the user
// points it at. It must never crash or throw; a line it refuses must say why (the command prints
// the reason, and counts the line as unreadable); a line it reads must give texts that are valid
// UTF-8, since they go on to the store, the search folds and other programs' clipboards, and a
// date that reads the same when written again. What the store does next with the snapshot
// (classify, hash) runs too.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "cli/ImportLine.h"
#include "foundation/Text.h"
#include "library/ClipClassifier.h"

namespace {

void requireUtf8(std::string_view text) {
    if (!tamarind::isValidUtf8(text)) std::abort();
}

void requireUtf8IfPresent(const std::optional<std::string>& text) {
    if (text) requireUtf8(*text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tamarind;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const Date importedAt = Date::fromReferenceSeconds(800'000'000.5);
    cli::ImportLine line = cli::readImportLine(text, importedAt);
    if (!line.snapshot) {
        if (line.error.empty()) std::abort();
        return 0;
    }
    if (!line.error.empty()) std::abort();

    const PasteboardSnapshot& snapshot = *line.snapshot;
    requireUtf8IfPresent(snapshot.string);
    requireUtf8IfPresent(snapshot.htmlString);
    requireUtf8IfPresent(snapshot.sourceAppBundleID);
    requireUtf8IfPresent(snapshot.sourceAppName);
    requireUtf8IfPresent(snapshot.imageFileExtension);
    for (const FileURL& file : snapshot.fileURLs) requireUtf8(file.path);
    for (const std::string& type : snapshot.types) requireUtf8(type);
    if (snapshot.imageData && !snapshot.imageFileExtension) std::abort();

    double seconds = snapshot.capturedAt.secondsSinceReferenceDate();
    if (!std::isfinite(seconds)) std::abort();
    if (seconds >= 0) {
        auto again = Date::parseIso8601(snapshot.capturedAt.iso8601());
        if (!again || *again != snapshot.capturedAt) std::abort();
    }

    (void)snapshot.isEmpty();
    (void)snapshot.estimatedByteSize();
    for (const FileURL& file : snapshot.fileURLs) (void)file.uri();
    ClipKind kind = classify(snapshot);
    (void)contentHash(snapshot, kind);
    return 0;
}
