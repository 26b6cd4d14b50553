// The tamarind executable: the desktop application with no command (or `app`), else the
// command line over the library.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <iostream>

#include "app/DesktopApp.h"
#include "cli/Cli.h"
#include "foundation/Log.h"

int main(int argc, char** argv) {
    using namespace tamarind;
    auto paths = Paths::fromProcessEnvironment();
    if (!paths) {
        std::fprintf(stderr, "tamarind: neither TAMARIND_HOME nor HOME names an absolute folder\n");
        return cli::kNotFoundOrRefused;
    }
    const char* testHost = std::getenv("TAMARIND_TEST_HOST");
    bool isTestHost = testHost && std::string_view(testHost) == "1";
    if (argc <= 1) return runDesktopApp(*paths, isTestHost);
    // A command prints its own results; only the library's errors belong on its stderr.
    if (!std::getenv("TAMARIND_LOG_LEVEL")) Log::setStderrThreshold(LogLevel::error);
    std::ios::sync_with_stdio(false);
    cli::CliContext context(*paths, cli::CliStreams{std::cin, std::cout, std::cerr, ::isatty(STDIN_FILENO) != 0,
                                                    ::isatty(STDOUT_FILENO) != 0, ::isatty(STDERR_FILENO) != 0});
    int code = cli::run(argc, argv, context);
    if (code != cli::kSuccess || !context.wantsDesktopApp()) return code;
    if (!std::getenv("TAMARIND_LOG_LEVEL")) Log::setStderrThreshold(LogLevel::notice);
    return runDesktopApp(*paths, isTestHost);
}
