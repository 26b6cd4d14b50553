// The tamarind executable: the command line over the library, and (later) the desktop app.

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "cli/Cli.h"
#include "foundation/Log.h"

int main(int argc, char** argv) {
    using namespace tamarind;
    // A command prints its own results; only the library's errors belong on its stderr.
    if (!std::getenv("TAMARIND_LOG_LEVEL")) Log::setStderrThreshold(LogLevel::error);
    auto paths = Paths::fromProcessEnvironment();
    if (!paths) {
        std::fprintf(stderr, "tamarind: neither TAMARIND_HOME nor HOME names an absolute folder\n");
        return cli::kNotFoundOrRefused;
    }
    std::ios::sync_with_stdio(false);
    cli::CliContext context(*paths, cli::CliStreams{std::cin, std::cout, std::cerr, ::isatty(STDIN_FILENO) != 0,
                                                    ::isatty(STDOUT_FILENO) != 0, ::isatty(STDERR_FILENO) != 0});
    return cli::run(argc, argv, context);
}
