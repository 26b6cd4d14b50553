#pragma once
// File-system helpers with the library's permissions: folders 0700, files 0600.
// Errors come back as values with the system's text; nothing here throws.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Data.h"

namespace tamarind {

struct FileError {
    std::string message;  // "open /path: Permission denied"
};

// Creates the folder and any missing parents, each new one 0700. An existing
// folder is left as it is. Absent on success.
std::optional<FileError> createPrivateDirectories(const std::filesystem::path& folder);

// When a write reaches the disk: before the call returns, or when syncToDisk() is called later
// (off the main loop). Either way it survives the process being killed at once; only a power
// cut in between can take it.
enum class Durability { now, later };

// Writes to a temporary file beside `path`, fsyncs it, renames it over `path`
// and fsyncs the folder, so a reader sees the old content or the new, never a
// mix, even after a crash. The file ends 0600. Absent on success.
std::optional<FileError> writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                                             Durability durability = Durability::now);
// The fsyncs a Durability::later write left out: the file's, then its folder's.
std::optional<FileError> syncToDisk(const std::filesystem::path& path);

// The whole file, or the error that stopped the read.
struct FileContents {
    std::optional<std::string> bytes;
    std::optional<FileError> error;
    bool notFound = false;
};
FileContents readWholeFile(const std::filesystem::path& path);

}  // namespace tamarind
