#pragma once
// The login item as an XDG autostart entry: $XDG_CONFIG_HOME/autostart/
// com.tamarind.Tamarind.desktop, running this program. An entry the user
// switched off in their desktop's settings (Hidden=true, or
// X-GNOME-Autostart-enabled=false) reads as not registered.

#include <filesystem>

#include "platform/LoginItem.h"

namespace tamarind {

class XdgAutostart final : public LoginItem {
public:
    // `autostartFolder`: usually $XDG_CONFIG_HOME/autostart; `program`: the path to start.
    XdgAutostart(std::filesystem::path autostartFolder, std::filesystem::path program);

    // $XDG_CONFIG_HOME/autostart, else ~/.config/autostart; none without HOME.
    static std::optional<std::filesystem::path> defaultFolder();
    // The running executable, as the entry should start it.
    static std::filesystem::path thisProgram();

    LoginItemStatus status() const override;
    std::optional<std::string> registerItem() override;
    std::optional<std::string> unregisterItem() override;

    std::filesystem::path entryFile() const { return folder_ / "com.tamarind.Tamarind.desktop"; }

private:
    std::filesystem::path folder_;
    std::filesystem::path program_;
};

}  // namespace tamarind
