// autostart: the XDG autostart entry that starts the app with the session.

#include <ostream>

#include "cli/Commands.h"
#include "platform/xdg/XdgAutostart.h"

namespace tamarind::cli {

void addAutostartCommand(CLI::App& app, CliContext& context) {
    auto choice = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("autostart", "Start the app with the desktop session (on, off), or say whether it does");
    command->add_option("state", *choice, "on or off; without it, the current state")
        ->check(CLI::IsMember({"on", "off"}));
    command->callback([&context, choice] {
        auto folder = XdgAutostart::defaultFolder();
        if (!folder) refuse("neither XDG_CONFIG_HOME nor HOME names a folder for autostart entries");
        XdgAutostart autostart(*folder, XdgAutostart::thisProgram());
        if (!choice->empty()) {
            auto error = *choice == "on" ? autostart.registerItem() : autostart.unregisterItem();
            if (error) refuse("could not update " + autostart.entryFile().string() + ": " + *error);
        }
        context.out() << loginItemStatusText(autostart.status()) << " (" << autostart.entryFile().string() << ")\n";
    });
}

}  // namespace tamarind::cli
