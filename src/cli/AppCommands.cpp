// pause, resume and status: commands for the running app, over D-Bus.

#include <ostream>

#include "cli/Commands.h"
#include "platform/qt/DBusControl.h"

namespace tamarind::cli {

namespace {

std::string callApp(const std::string& method) {
    DBusControl::Reply reply = DBusControl::call(method);
    if (!reply.isAnswered) refuse(reply.error);
    return reply.value;
}

void printStatus(CliContext& context, bool json) {
    std::string text = callApp("Status");
    Json status = Json::parse(text, nullptr, false);
    if (status.is_discarded() || !status.is_object()) refuse("the running app answered something else: " + text);
    if (json) {
        printJson(context, status);
        return;
    }
    context.out() << "capture      " << (status.value("isPaused", false) ? "paused" : "running") << "\n"
                  << "this session " << status.value("capturedThisSession", 0LL) << " captured, "
                  << status.value("rejectedThisSession", 0LL) << " rejected\n";
    if (status.contains("lastResult")) context.out() << "last copy    " << status.value("lastResult", "") << "\n";
    if (status.value("isCollecting", false))
        context.out() << "collecting   " << status.value("collectedItems", 0LL) << " items so far\n";
    if (status.contains("libraryProblem"))
        context.out() << "library      " << status.value("libraryProblem", "") << " ("
                      << status.value("waitingCopies", 0LL) << " copies waiting)\n";
}

}  // namespace

void addAppCommands(CLI::App& app, CliContext& context) {
    app.add_subcommand("pause", "Pause capture in the running app")->callback([] { callApp("Pause"); });
    app.add_subcommand("resume", "Resume capture in the running app")->callback([] { callApp("Resume"); });
    CLI::App* collect = app.add_subcommand("collect", "Collect mode in the running app: stage copies, store them as one clip");
    collect->require_subcommand(1);
    for (auto [name, method, help] : {std::tuple{"begin", "CollectBegin", "Start staging copies"},
                                      std::tuple{"finish", "CollectFinish", "Store the staged copies as one clip"},
                                      std::tuple{"cancel", "CollectCancel", "Drop the staged copies"},
                                      std::tuple{"toggle", "CollectToggle", "Begin, or finish while collecting"}})
        collect->add_subcommand(name, help)->callback([method = std::string(method)] { callApp(method); });

    auto json = std::make_shared<bool>(false);
    CLI::App* status = app.add_subcommand("status", "The running app's capture state and session counters");
    status->add_flag("--json", *json, "Print one JSON object");
    status->callback([&context, json] { printStatus(context, *json); });
}

}  // namespace tamarind::cli
