#pragma once
// Runs a program as a child process and keeps what it wrote, for tests of a
// built executable. The child's stdin is the bytes given, or /dev/null; its
// environment is the test's own with the overrides on top.
//
// Input is written and both outputs are read in one poll loop, so a child that
// writes a lot before it reads (or stops reading early) never deadlocks the
// test. Several children started together are pumped by the same loop.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tamarind {

struct ProcessCommand {
    std::string program;
    std::vector<std::string> arguments;  // without argv[0], which is the program
    std::map<std::string, std::string> environment;
    std::optional<std::string> input;
};

struct ProcessResult {
    int exitCode = -1;      // -1 when the child did not exit by itself
    int signal = 0;         // the signal that ended it, if one did
    bool timedOut = false;  // killed by the runner's guard against a hung child
    std::string out;
    std::string err;
};

// Starts the child and pumps it to the end. Throws std::runtime_error when it can't be started.
ProcessResult runProcess(const ProcessCommand& command);

// Starts every command before waiting for any, so that they run at the same time; the
// results are in the order of the commands.
std::vector<ProcessResult> runProcessesTogether(const std::vector<ProcessCommand>& commands);

}  // namespace tamarind
