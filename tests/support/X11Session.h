#pragma once
// A private X server (Xvfb) for one test, and the X clients the test starts on
// it (xclip, our clipboard owner), all stopped when the session ends. The
// session's DISPLAY is put into the environment of every client it starts.

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tamarind {

class X11Session {
public:
    // Starts Xvfb on the first free display from :90. isRunning() is false when Xvfb is
    // missing or did not come up; `problem()` says why.
    X11Session();
    ~X11Session();
    X11Session(const X11Session&) = delete;
    X11Session& operator=(const X11Session&) = delete;

    bool isRunning() const { return xvfb_ > 0; }
    const std::string& problem() const { return problem_; }
    const std::string& display() const { return display_; }

    // Also set in the environment of every client started from now on.
    void setEnvironment(const std::string& name, const std::string& value) { environment_[name] = value; }
    // A private session bus (dbus-daemon) for the clients; false when it can't be started.
    bool startSessionBus();
    const std::string& sessionBusAddress() const { return busAddress_; }

    // Starts a client on this display; it runs until it exits or the session ends. With
    // `waitsForLine`, returns once the client printed that line (or after 5 s).
    pid_t start(const std::string& program, const std::vector<std::string>& arguments,
                const std::optional<std::string>& waitsForLine = std::nullopt);
    // Ends a client started here (SIGTERM) and waits for it.
    void stop(pid_t client);

    // True when `program` is on PATH.
    static bool hasProgram(const std::string& program);

private:
    std::string display_;
    pid_t xvfb_ = -1;
    std::vector<pid_t> clients_;
    std::map<std::string, std::string> environment_;
    std::string busAddress_;
    pid_t bus_ = -1;
    std::string problem_;
};

}  // namespace tamarind
