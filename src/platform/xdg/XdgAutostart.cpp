#include "platform/xdg/XdgAutostart.h"

#include <cstdlib>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace tamarind {

const char* loginItemStatusText(LoginItemStatus status) {
    switch (status) {
    case LoginItemStatus::notRegistered: return "Not registered";
    case LoginItemStatus::enabled: return "Enabled";
    case LoginItemStatus::requiresApproval: return "Requires approval in System Settings";
    case LoginItemStatus::notFound: return "Not found";
    }
    return "Unknown";
}

XdgAutostart::XdgAutostart(std::filesystem::path autostartFolder, std::filesystem::path program)
    : folder_(std::move(autostartFolder)), program_(std::move(program)) {}

std::optional<std::filesystem::path> XdgAutostart::defaultFolder() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config == '/')
        return std::filesystem::path(config) / "autostart";
    if (const char* home = std::getenv("HOME"); home && *home == '/')
        return std::filesystem::path(home) / ".config" / "autostart";
    return std::nullopt;
}

std::filesystem::path XdgAutostart::thisProgram() {
    std::error_code error;
    auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path("tamarind") : program;
}

LoginItemStatus XdgAutostart::status() const {
    auto contents = readWholeFile(entryFile());
    if (!contents.bytes) return LoginItemStatus::notRegistered;
    for (std::string_view line : split(*contents.bytes, "\n")) {
        line = trimmed(line);
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false") return LoginItemStatus::notRegistered;
    }
    return LoginItemStatus::enabled;
}

std::optional<std::string> XdgAutostart::registerItem() {
    if (auto error = createPrivateDirectories(folder_)) return error->message;
    // The program's path is quoted as the desktop entry rules ask, for paths with blanks.
    std::string exec = "\"" + program_.string() + "\"";
    std::string entry = "[Desktop Entry]\n"
                        "Type=Application\n"
                        "Name=Tamarind\n"
                        "Comment=Clipboard history\n"
                        "Exec=" + exec + "\n"
                        "Icon=edit-paste\n"
                        "Terminal=false\n"
                        "X-GNOME-Autostart-enabled=true\n";
    if (auto error = writeFileAtomically(entryFile(), entry)) return error->message;
    return std::nullopt;
}

std::optional<std::string> XdgAutostart::unregisterItem() {
    std::error_code error;
    std::filesystem::remove(entryFile(), error);
    if (error) return "remove " + entryFile().string() + ": " + error.message();
    return std::nullopt;
}

}  // namespace tamarind
