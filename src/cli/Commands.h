#pragma once
// The subcommands, registered by area. Each registration keeps its options
// alive in the callbacks it installs; the callbacks run while CLI11 parses.

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

#include "cli/CliContext.h"

namespace tamarind::cli {

// The filters of `list`, `smart save` and `export`: every field of a library query.
struct FilterOptions {
    std::string search;
    std::string kind;
    std::string app;
    std::string collection;
    bool favorites = false;
    bool pinned = false;
    std::optional<long long> withinDays;
};

void addFilterOptions(CLI::App& command, FilterOptions& filters);
// Bad usage for a kind that names none; refused for a collection that isn't there.
ClipQuery queryOf(CliContext& context, const FilterOptions& filters);
// Keeps the clips made within the last `days` days; none, 0 or less: all.
void keepWithinDays(std::vector<Clip>& clips, std::optional<long long> days, Date now);
// A smart collection by id, unique id prefix or exact name; refused when there is none.
const SmartCollection& resolveSmartCollection(CliContext& context, const std::string& argument);

// A command that lists when given no subcommand and as `NAME list`, with --json before or after
// `list`. The list function is handed the flag.
struct ListingCommand {
    CLI::App* command;
    std::shared_ptr<bool> json;
};
ListingCommand addListingCommand(CLI::App& app, const std::string& name, const std::string& help,
                                 const std::string& listHelp, std::function<void(bool json)> list);

void addClipCommands(CLI::App& app, CliContext& context);
void addLibraryCommands(CLI::App& app, CliContext& context);
void addRuleCommands(CLI::App& app, CliContext& context);
void addSettingsCommands(CLI::App& app, CliContext& context);
void addTransferCommands(CLI::App& app, CliContext& context);
void addAppCommands(CLI::App& app, CliContext& context);
void addAutostartCommand(CLI::App& app, CliContext& context);
void addCopyCommand(CLI::App& app, CliContext& context);
void addShortcutCommands(CLI::App& app, CliContext& context);

// Copies the clip (a background child serves it) and types the paste keystroke into the window
// in front, as `tamarind paste` does.
void pasteClip(CliContext& context, const std::string& id, bool isPlain);

// Reads a file, or stdin for "-". Refused when it can't be read.
std::string readInput(CliContext& context, const std::string& path);
// Indented on a terminal, one line otherwise; invalid UTF-8 stored by an older program is
// replaced, never a reason to fail.
template <class AnyJson> void printJson(CliContext& context, const AnyJson& value) {
    context.out() << value.dump(context.isOutTerminal() ? 2 : -1, ' ', false, AnyJson::error_handler_t::replace)
                  << "\n";
}

}  // namespace tamarind::cli
