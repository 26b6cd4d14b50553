#pragma once
// What the X11 tests share: a connection to a server that has only just started, a real loop run
// until something holds, and the fixture that runs the built app on a private X server and
// session bus.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "foundation/Json.h"
#include "foundation/PollMainLoop.h"
#include "platform/x11/X11Connection.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryFolder.h"
#include "support/X11Session.h"

namespace tamarind {

// A server that has only just started may still turn a connection away: tries for a second.
inline std::variant<std::unique_ptr<X11Connection>, std::string> openX11Retrying(MainLoop& loop,
                                                                                const std::string& display) {
    auto opened = X11Connection::open(loop, display.c_str());
    for (int attempt = 0; attempt < 20 && !std::holds_alternative<std::unique_ptr<X11Connection>>(opened); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        opened = X11Connection::open(loop, display.c_str());
    }
    return opened;
}

// Runs the loop until `done` holds, for at most `seconds`; whether it came to hold.
inline bool runLoopUntil(PollMainLoop& loop, const std::function<bool()>& done, double seconds = 5) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::function<void()> check;
    TaskHandle timer;
    check = [&] {
        if (done() || std::chrono::steady_clock::now() > deadline) return loop.quit();
        timer = loop.postDelayed(std::chrono::milliseconds(5), check);
    };
    loop.post(check);
    loop.run();
    return done();
}

// The built program as a user runs it, on a private X server and session bus, in a private
// TAMARIND_HOME.
class DesktopAppTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!session_.isRunning()) GTEST_SKIP() << session_.problem();
        if (!X11Session::hasProgram("xclip")) GTEST_SKIP() << "xclip is not installed";
        ASSERT_TRUE(session_.startSessionBus()) << "dbus-daemon did not start";
        session_.setEnvironment("TAMARIND_HOME", home_.path().string());
    }

    ProcessResult tamarind(std::vector<std::string> arguments, std::optional<std::string> input = std::nullopt) {
        return runProcess(ProcessCommand{TAMARIND_BINARY, std::move(arguments),
                                         {{"DISPLAY", session_.display()},
                                          {"DBUS_SESSION_BUS_ADDRESS", session_.sessionBusAddress()},
                                          {"TAMARIND_HOME", home_.path().string()}},
                                         std::move(input)});
    }

    // The app's status once it answers on the bus (it claims its name before it captures).
    std::optional<Json> status() {
        for (int attempt = 0; attempt < 100; ++attempt) {
            ProcessResult result = tamarind({"status", "--json"});
            if (result.exitCode == 0) return parseJson(result.out);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return std::nullopt;
    }

    // Copies with xclip and waits (up to `attempts` × 50 ms) until the library holds `expected` clips.
    bool copyAndWait(const std::string& text, long long expected, int attempts = 100) {
        session_.start("sh", {"-c", "printf '%s' \"$0\" | xclip -selection clipboard -i", text});
        for (int attempt = 0; attempt < attempts; ++attempt) {
            if (tamarind({"list", "--count"}).out == std::to_string(expected) + "\n") return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    X11Session session_;
    TemporaryFolder home_;
};

}  // namespace tamarind
