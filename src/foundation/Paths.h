#pragma once
// Where the library and the settings live, by the XDG base-directory rules:
//   library   $XDG_DATA_HOME/Tamarind        (default ~/.local/share/Tamarind)
//   settings  $XDG_CONFIG_HOME/tamarind/defaults.plist
//   cache     $XDG_CACHE_HOME/tamarind
// $TAMARIND_HOME, when set, stands in for the home-level roots (share/, config/,
// cache/ inside it), so tests and a second instance never touch the user's data.
// A relative XDG variable is ignored, as the XDG rules require.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "foundation/Files.h"

namespace tamarind {

struct Paths {
    std::filesystem::path applicationSupport;  // the library: stores, blobs/, icons/, favicons/, crashes/
    std::filesystem::path configuration;       // holds defaults.plist
    std::filesystem::path cache;

    std::filesystem::path defaultsFile() const { return configuration / "defaults.plist"; }
    std::filesystem::path blobs() const { return applicationSupport / "blobs"; }

    // From an environment lookup (std::getenv in the app, a map in tests).
    // Absent when neither TAMARIND_HOME nor HOME gives an absolute root.
    static std::optional<Paths> fromEnvironment(
        const std::function<std::optional<std::string>(const std::string&)>& environment);
    static std::optional<Paths> fromProcessEnvironment();

    // Creates the three folders (0700). Absent on success.
    std::optional<FileError> createFolders() const;
};

}  // namespace tamarind
