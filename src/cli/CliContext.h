#pragma once
// What every command works with: the paths, the streams, the settings and the
// library, opened on first use so that `tamarind settings list` never touches
// the store and `tamarind add` never seeds rules it doesn't read.
//
// Commands report failure by throwing CliFailure; run() prints its message on
// stderr and exits with its code. Nothing else leaves a command.

#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "appearance/AppearancePreferences.h"
#include "capture/CapturePreferences.h"
#include "foundation/Paths.h"
#include "foundation/PollMainLoop.h"
#include "library/ClipStore.h"
#include "rules/RuleEvaluation.h"
#include "rules/SmartRuleStore.h"

namespace tamarind {
class PlistFileDefaults;
}

namespace tamarind::cli {

// The documented exit codes.
enum ExitCode : int {
    kSuccess = 0,
    kNotFoundOrRefused = 1,
    kBadUsage = 2,
};

struct CliFailure : std::runtime_error {
    CliFailure(int exitCode, const std::string& message) : std::runtime_error(message), exitCode(exitCode) {}
    int exitCode;
};

[[noreturn]] inline void refuse(const std::string& message) { throw CliFailure(kNotFoundOrRefused, message); }
[[noreturn]] inline void badUsage(const std::string& message) { throw CliFailure(kBadUsage, message); }

struct CliStreams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool isInTerminal = false;
    bool isOutTerminal = false;
    bool isErrTerminal = false;
};

class CliContext {
public:
    CliContext(Paths paths, CliStreams streams);
    ~CliContext();
    CliContext(const CliContext&) = delete;
    CliContext& operator=(const CliContext&) = delete;

    const Paths& paths() const { return paths_; }
    std::istream& in() { return streams_.in; }
    std::ostream& out() { return streams_.out; }
    std::ostream& err() { return streams_.err; }
    bool isInTerminal() const { return streams_.isInTerminal; }
    bool isOutTerminal() const { return streams_.isOutTerminal; }
    bool isErrTerminal() const { return streams_.isErrTerminal; }
    MainLoop& loop() { return loop_; }
    Date now() const { return Date::systemNow(); }

    Defaults& defaults();
    // Why a setting this command changed is not in the settings file; none when all is saved (or
    // the settings were never opened).
    std::optional<std::string> unsavedSettings() const;
    CapturePreferences& preferences();
    AppearancePreferences& appearance();
    SmartRuleStore& rules();
    // Refuses when the library can't be opened from its files: the command line never falls
    // back to a store in memory, where what it writes would be lost.
    ClipStore& store();

    // A clip by its full id or a unique prefix of at least 6 characters. Refuses an unknown
    // id and an ambiguous prefix (naming the matches); a malformed one is bad usage.
    Uuid resolveClip(const std::string& argument);
    // `tamarind app` asks for the desktop application, which the executable starts.
    void requestDesktopApp() { wantsDesktopApp_ = true; }
    bool wantsDesktopApp() const { return wantsDesktopApp_; }

    // A collection by id, unique id prefix, or exact name.
    Collection resolveCollection(const std::string& argument);

private:
    Paths paths_;
    CliStreams streams_;
    PollMainLoop loop_;
    std::unique_ptr<PlistFileDefaults> defaults_;
    std::unique_ptr<CapturePreferences> preferences_;
    std::unique_ptr<AppearancePreferences> appearance_;
    std::unique_ptr<SmartRuleStore> rules_;
    std::unique_ptr<RulesInForce> rulesInForce_;
    SensitiveContentDetector secretDetector_;
    std::unique_ptr<ClipStore> store_;
    bool wantsDesktopApp_ = false;
};

// The shortest id prefix a listing shows: long enough to be unique in any real library,
// short enough to type.
inline constexpr std::size_t kShownIDLength = 8;
inline constexpr std::size_t kMinimumIDPrefix = 6;

}  // namespace tamarind::cli
