#include "support/ProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace tamarind {

namespace {

// Long enough for any command under a loaded machine; only a hung child reaches it.
constexpr auto kHungChildLimit = std::chrono::minutes(3);

struct Child {
    pid_t pid = -1;
    int inFd = -1;  // our end of its stdin, while input is left to write
    int outFd = -1;
    int errFd = -1;
    std::string input;
    std::size_t written = 0;
    ProcessResult result;
};

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

void makePipe(int fds[2]) {
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
}

// Built before fork: the child may only make async-signal-safe calls until it execs.
std::vector<std::string> environmentOf(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry) {
        std::string text(*entry);
        std::string name = text.substr(0, text.find('='));
        if (!overrides.contains(name)) entries.push_back(std::move(text));
    }
    for (const auto& [name, value] : overrides) entries.push_back(name + "=" + value);
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& text : strings) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

Child start(const ProcessCommand& command) {
    // A child that stops reading its stdin must give us EPIPE, not kill the test.
    static const bool ignoresPipeSignal = [] { return ::signal(SIGPIPE, SIG_IGN) != SIG_ERR; }();
    (void)ignoresPipeSignal;

    std::vector<std::string> arguments{command.program};
    arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
    std::vector<std::string> environment = environmentOf(command.environment);
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(environment);

    int in[2] = {-1, -1}, out[2], err[2];
    if (command.input) {
        makePipe(in);
    } else {
        in[0] = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (in[0] < 0) throw std::runtime_error("cannot open /dev/null");
    }
    makePipe(out);
    makePipe(err);
    pid_t pid = ::fork();
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
        struct sigaction defaultAction {};
        defaultAction.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &defaultAction, nullptr);
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    Child child;
    child.pid = pid;
    closeFd(in[0]);
    closeFd(out[1]);
    closeFd(err[1]);
    child.outFd = out[0];
    child.errFd = err[0];
    if (command.input) {
        child.inFd = in[1];
        child.input = *command.input;
        ::fcntl(child.inFd, F_SETFL, O_NONBLOCK);
        if (child.input.empty()) closeFd(child.inFd);
    }
    return child;
}

void readInto(int& fd, std::string& into) {
    char buffer[1 << 16];
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n > 0) {
        into.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        closeFd(fd);
    }
}

void writeSome(Child& child) {
    ssize_t n = ::write(child.inFd, child.input.data() + child.written, child.input.size() - child.written);
    if (n > 0) child.written += static_cast<std::size_t>(n);
    // EPIPE: the child has read all it wants, which is its business.
    bool isDone = child.written == child.input.size() || (n < 0 && errno != EINTR && errno != EAGAIN);
    if (isDone) closeFd(child.inFd);
}

void pump(std::vector<Child>& children) {
    auto deadline = std::chrono::steady_clock::now() + kHungChildLimit;
    for (;;) {
        std::vector<pollfd> fds;
        std::vector<std::pair<Child*, int*>> owners;
        for (Child& child : children) {
            if (child.inFd >= 0) {
                fds.push_back({child.inFd, POLLOUT, 0});
                owners.emplace_back(&child, &child.inFd);
            }
            for (int* fd : {&child.outFd, &child.errFd}) {
                if (*fd < 0) continue;
                fds.push_back({*fd, POLLIN, 0});
                owners.emplace_back(&child, fd);
            }
        }
        if (fds.empty()) break;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            for (Child& child : children) {
                if (child.outFd < 0 && child.errFd < 0) continue;
                child.result.timedOut = true;
                ::kill(child.pid, SIGKILL);
                closeFd(child.inFd);
                closeFd(child.outFd);
                closeFd(child.errFd);
            }
            break;
        }
        if (::poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0 && errno != EINTR)
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].revents == 0) continue;
            auto [child, fd] = owners[i];
            if (fd == &child->inFd) {
                writeSome(*child);
            } else {
                readInto(*fd, fd == &child->outFd ? child->result.out : child->result.err);
            }
        }
    }
    for (Child& child : children) {
        closeFd(child.inFd);
        int status = 0;
        while (::waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (WIFEXITED(status)) child.result.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) child.result.signal = WTERMSIG(status);
    }
}

}  // namespace

ProcessResult runProcess(const ProcessCommand& command) { return runProcessesTogether({command}).front(); }

std::vector<ProcessResult> runProcessesTogether(const std::vector<ProcessCommand>& commands) {
    std::vector<Child> children;
    children.reserve(commands.size());
    for (const ProcessCommand& command : commands) children.push_back(start(command));
    pump(children);
    std::vector<ProcessResult> results;
    for (Child& child : children) results.push_back(std::move(child.result));
    return results;
}

}  // namespace tamarind
