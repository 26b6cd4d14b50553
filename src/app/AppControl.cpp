#include "app/AppControl.h"

#include "app/AppState.h"
#include "foundation/Json.h"

namespace tamarind {

namespace {

constexpr const char* kStillStarting = "Tamarind is still starting";

std::string statusJson(AppState& state) {
    Json status{{"isPaused", state.isCapturePaused().value()},
                {"capturedThisSession", state.capture().capturedThisSession().value()},
                {"rejectedThisSession", state.capture().rejectedThisSession().value()},
                {"isCollecting", state.collectMode().isActive().value()},
                {"collectedItems", state.collectMode().payload().value().items.size()},
                {"library", libraryHealthName(state.store().health()->kind)},
                {"waitingCopies", state.store().pendingIngestCount()}};
    if (std::string problem = state.store().health()->message(); !problem.empty()) status["libraryProblem"] = problem;
    if (const auto& last = state.capture().lastResult().value()) {
        status["lastResult"] = last->description();
        if (last->kind != IngestResult::Kind::rejected) status["lastClipID"] = last->clipID.uuidString();
    }
    return status.dump();
}

}  // namespace

ControlHandlers appControlHandlers(AppState* const& running) {
    ControlHandlers handlers;
    handlers.show = [] {};  // no window to show yet
    handlers.pause = [&running] {
        if (running && !running->isCapturePaused().value()) running->togglePause();
    };
    handlers.resume = [&running] {
        if (running && running->isCapturePaused().value()) running->togglePause();
    };
    handlers.togglePause = [&running] {
        if (running) running->togglePause();
    };
    handlers.status = [&running] { return running ? statusJson(*running) : std::string("{}"); };
    handlers.collectBegin = [&running] {
        if (running) running->collectMode().begin();
    };
    handlers.collectFinish = [&running] {
        if (running) running->collectMode().finish();
    };
    handlers.collectCancel = [&running] {
        if (running) running->collectMode().cancel();
    };
    handlers.collectToggle = [&running] {
        if (running) running->collectMode().toggle();
    };
    // The bus counts slots from 1, as the command line and the keys do; the coordinator from 0.
    handlers.pasteSlot = [&running](int slot) {
        if (running && running->pasteCoordinator()) running->pasteCoordinator()->pasteSlot(slot - 1);
    };
    handlers.pasteNext = [&running] {
        if (running && running->pasteCoordinator()) running->pasteCoordinator()->pasteNext();
    };
    handlers.setShortcut = [&running](const std::string& name, const std::string& json) -> std::string {
        if (!running) return kStillStarting;
        std::optional<Shortcut> shortcut;
        if (!json.empty() && !(shortcut = Shortcut::fromJson(json))) return "not a stored shortcut: " + json;
        return running->setShortcut(name, shortcut);
    };
    handlers.resetShortcut = [&running](const std::string& name) -> std::string {
        return running ? running->resetShortcut(name) : kStillStarting;
    };
    handlers.shortcutStates = [&running] {
        Json states = Json::object();
        if (running)
            for (const auto& [name, state] : running->shortcutStates()) states[name] = state;
        return states.dump();
    };
    return handlers;
}

}  // namespace tamarind
