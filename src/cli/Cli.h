#pragma once
// The command-line front end: `tamarind <command> ...` over the same library
// the app uses. Exit codes: 0 success, 1 not found or refused, 2 bad usage.

#include <string>
#include <vector>

#include "cli/CliContext.h"

namespace tamarind::cli {

// Parses and runs one command line (argv[0] included). Errors go to the context's
// stderr, one line naming the bad argument; no exception leaves. `tamarind app`
// runs nothing here: it marks the context, and the caller starts the app.
int run(int argc, const char* const* argv, CliContext& context);

}  // namespace tamarind::cli
