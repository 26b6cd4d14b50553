#include "cli/Cli.h"

#include <CLI/CLI.hpp>

#include <ostream>
#include <sstream>

#include "cli/Commands.h"

namespace tamarind::cli {

namespace {

constexpr const char* kDescription =
    "Tamarind: a clipboard and screenshot history for Linux desktops.\n"
    "Run without a command to start the desktop application. The commands below read and change\n"
    "the same library while it runs. Exit codes: 0 success, 1 not found or refused, 2 bad usage.";

void configure(CLI::App& app, CliContext& context) {
    app.set_version_flag("--version", "tamarind " TAMARIND_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough(false);
    app.footer("Clip ids may be shortened to a unique prefix of 6 or more characters.\n"
               "See `tamarind COMMAND --help` and docs/cli.md.");
    CLI::App* appCommand = app.add_subcommand("app", "Start the desktop application");
    appCommand->callback([&context] { context.requestDesktopApp(); });
    addClipCommands(app, context);
    addLibraryCommands(app, context);
    addRuleCommands(app, context);
    addSettingsCommands(app, context);
    addTransferCommands(app, context);
    addAppCommands(app, context);
    addAutostartCommand(app, context);
    addCopyCommand(app, context);
    addShortcutCommands(app, context);
}

}  // namespace

int run(int argc, const char* const* argv, CliContext& context) {
    CLI::App app{kDescription, "tamarind"};
    try {
        configure(app, context);
        app.parse(argc, argv);
        // A change that only lives in this process is lost when it ends: not a success.
        if (auto why = context.unsavedSettings()) {
            context.err() << "tamarind: could not save the settings: " << *why << "\n";
            return kNotFoundOrRefused;
        }
        return kSuccess;
    } catch (const CLI::CallForHelp&) {
        context.out() << app.help();
        return kSuccess;
    } catch (const CLI::CallForAllHelp&) {
        context.out() << app.help("", CLI::AppFormatMode::All);
        return kSuccess;
    } catch (const CLI::CallForVersion&) {
        context.out() << app.version() << "\n";
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        context.err() << "tamarind: " << error.what() << "\nRun with --help for usage.\n";
        return kBadUsage;
    } catch (const CliFailure& failure) {
        if (*failure.what()) context.err() << "tamarind: " << failure.what() << "\n";
        return failure.exitCode;
    } catch (const std::exception& error) {
        context.err() << "tamarind: " << error.what() << "\n";
        return kNotFoundOrRefused;
    }
}

}  // namespace tamarind::cli
