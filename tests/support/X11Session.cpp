#include "support/X11Session.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace tamarind {

namespace {

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments, const std::string& display,
            int outputFd, const std::map<std::string, std::string>& environment = {}) {
    pid_t child = ::fork();
    if (child != 0) return child;
    ::setenv("DISPLAY", display.c_str(), 1);
    for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
    int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, 0);
    ::dup2(outputFd >= 0 ? outputFd : null, 1);
    ::dup2(null, 2);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execvp(program.c_str(), argv.data());
    ::_exit(127);
}

bool canConnect(const std::string& display) {
    xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
    bool connected = !xcb_connection_has_error(connection);
    xcb_disconnect(connection);
    return connected;
}

// What a child wrote until `marker` (or its end, or 5 s).
std::string readUntil(int fd, const std::string& marker) {
    std::string output;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (output.find(marker) == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd readable{fd, POLLIN, 0};
        if (::poll(&readable, 1, 50) <= 0) continue;
        char buffer[256];
        ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count <= 0) break;
        output.append(buffer, static_cast<std::size_t>(count));
    }
    return output;
}

void endProcess(pid_t pid) {
    ::kill(pid, SIGTERM);
    for (int i = 0; i < 200; ++i) {
        if (::waitpid(pid, nullptr, WNOHANG) == pid) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

}  // namespace

bool X11Session::hasProgram(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/bin:/bin";
    for (std::size_t start = 0; start <= folders.size();) {
        std::size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        if (::access((folders.substr(start, end - start) + "/" + program).c_str(), X_OK) == 0) return true;
        start = end + 1;
    }
    return false;
}

X11Session::X11Session() {
    if (!hasProgram("Xvfb")) {
        problem_ = "Xvfb is not installed (scripts/setup installs it)";
        return;
    }
    // Displays are taken by their lock files; two test programs running at once pick others.
    for (int number = 90; number < 190; ++number) {
        if (std::filesystem::exists("/tmp/.X" + std::to_string(number) + "-lock")) continue;
        display_ = ":" + std::to_string(number);
        xvfb_ = spawn("Xvfb", {display_, "-nolisten", "tcp", "-screen", "0", "1280x800x24"}, display_, -1);
        for (int i = 0; i < 500 && !canConnect(display_); ++i) {
            if (::waitpid(xvfb_, nullptr, WNOHANG) == xvfb_) break;  // lost the race for this display
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (canConnect(display_)) return;
        endProcess(xvfb_);
        xvfb_ = -1;
    }
    problem_ = "no X display could be started";
}

bool X11Session::startSessionBus() {
    if (!hasProgram("dbus-daemon")) return false;
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return false;
    // Not forked away: it stays our child, ended with the session.
    bus_ = spawn("dbus-daemon", {"--session", "--nofork", "--print-address=1"}, display_, pipeFds[1]);
    ::close(pipeFds[1]);
    std::string output = readUntil(pipeFds[0], "\n");
    ::close(pipeFds[0]);
    if (output.find('\n') == std::string::npos) return false;
    busAddress_ = output.substr(0, output.find('\n'));
    setEnvironment("DBUS_SESSION_BUS_ADDRESS", busAddress_);
    return true;
}

X11Session::~X11Session() {
    for (pid_t client : clients_) endProcess(client);
    if (bus_ > 0) endProcess(bus_);
    if (xvfb_ > 0) endProcess(xvfb_);
}

pid_t X11Session::start(const std::string& program, const std::vector<std::string>& arguments,
                        const std::optional<std::string>& waitsForLine) {
    int pipeFds[2] = {-1, -1};
    if (waitsForLine && ::pipe2(pipeFds, O_CLOEXEC) != 0) return -1;
    pid_t child = spawn(program, arguments, display_, waitsForLine ? pipeFds[1] : -1, environment_);
    clients_.push_back(child);
    if (!waitsForLine) return child;
    ::close(pipeFds[1]);
    readUntil(pipeFds[0], *waitsForLine + "\n");
    ::close(pipeFds[0]);
    return child;
}

void X11Session::stop(pid_t client) {
    std::erase(clients_, client);
    endProcess(client);
}

}  // namespace tamarind
