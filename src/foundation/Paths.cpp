#include "foundation/Paths.h"

#include <cstdlib>

namespace tamarind {

std::optional<Paths> Paths::fromEnvironment(
    const std::function<std::optional<std::string>(const std::string&)>& environment) {
    auto absolute = [&](const std::string& name) -> std::optional<std::filesystem::path> {
        auto value = environment(name);
        if (!value || value->empty() || (*value)[0] != '/') return std::nullopt;
        return std::filesystem::path(*value);
    };

    if (auto home = absolute("TAMARIND_HOME")) {
        return Paths{*home / "share" / "Tamarind", *home / "config" / "tamarind", *home / "cache" / "tamarind"};
    }
    auto home = absolute("HOME");
    auto root = [&](const std::string& variable, const char* fallback) -> std::optional<std::filesystem::path> {
        if (auto value = absolute(variable)) return value;
        if (home) return *home / fallback;
        return std::nullopt;
    };
    auto data = root("XDG_DATA_HOME", ".local/share");
    auto config = root("XDG_CONFIG_HOME", ".config");
    auto cache = root("XDG_CACHE_HOME", ".cache");
    if (!data || !config || !cache) return std::nullopt;
    return Paths{*data / "Tamarind", *config / "tamarind", *cache / "tamarind"};
}

std::optional<Paths> Paths::fromProcessEnvironment() {
    return fromEnvironment([](const std::string& name) -> std::optional<std::string> {
        if (const char* value = std::getenv(name.c_str())) return std::string(value);
        return std::nullopt;
    });
}

std::optional<FileError> Paths::createFolders() const {
    for (const auto& folder : {applicationSupport, configuration, cache})
        if (auto error = createPrivateDirectories(folder)) return error;
    return std::nullopt;
}

}  // namespace tamarind
