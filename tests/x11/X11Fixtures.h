#pragma once
// What the X11 tests share: a connection to a server that has only just started, a real loop run
// until something holds, another client that types and grabs keys, and the fixture that runs the
// built app on a private X server and session bus.

#include <X11/keysym.h>
#include <gtest/gtest.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

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

// A connection of our own to a private Xvfb, and a real loop to run it on.
class X11Test : public ::testing::Test {
protected:
    void SetUp() override {
        if (!session_.isRunning()) GTEST_SKIP() << session_.problem();
        auto opened = openX11Retrying(loop_, session_.display());
        ASSERT_TRUE(std::holds_alternative<std::unique_ptr<X11Connection>>(opened)) << std::get<std::string>(opened);
        x11_ = std::move(std::get<std::unique_ptr<X11Connection>>(opened));
    }
    bool runUntil(const std::function<bool()>& done, double seconds = 5) { return runLoopUntil(loop_, done, seconds); }

    X11Session session_;
    PollMainLoop loop_;
    std::unique_ptr<X11Connection> x11_;
};

// Another X client: it types through XTest and can grab keys of its own.
class OtherClient {
public:
    // A server that has only just started may still turn a connection away: tries for two seconds.
    explicit OtherClient(const std::string& display) {
        connection_ = xcb_connect(display.c_str(), nullptr);
        for (int attempt = 0; attempt < 40 && xcb_connection_has_error(connection_); ++attempt) {
            xcb_disconnect(connection_);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            connection_ = xcb_connect(display.c_str(), nullptr);
        }
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        symbols_ = xcb_key_symbols_alloc(connection_);
    }
    ~OtherClient() {
        xcb_key_symbols_free(symbols_);
        xcb_disconnect(connection_);
    }

    xcb_connection_t* connection() { return connection_; }
    xcb_window_t root() const { return root_; }
    xcb_keycode_t keycode(xcb_keysym_t symbol) {
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols_, symbol);
        xcb_keycode_t code = codes ? codes[0] : 0;
        std::free(codes);
        return code;
    }
    // A keycode that types nothing.
    xcb_keycode_t unusedKeycode() {
        const xcb_setup_t* setup = xcb_get_setup(connection_);
        for (int code = setup->min_keycode; code <= setup->max_keycode; ++code) {
            bool isEmpty = true;
            for (int column = 0; column < 4; ++column)
                isEmpty = isEmpty && xcb_key_symbols_get_keysym(symbols_, static_cast<xcb_keycode_t>(code), column) == 0;
            if (isEmpty) return static_cast<xcb_keycode_t>(code);
        }
        return 0;
    }

    void down(xcb_keycode_t key) { fake(XCB_KEY_PRESS, key); }
    void up(xcb_keycode_t key) { fake(XCB_KEY_RELEASE, key); }
    // Pressed in order, released in reverse.
    void type(const std::vector<xcb_keycode_t>& keys) {
        for (xcb_keycode_t key : keys) down(key);
        for (auto key = keys.rbegin(); key != keys.rend(); ++key) up(*key);
    }
    void type(const std::vector<xcb_keysym_t>& symbols, xcb_keycode_t last) {
        std::vector<xcb_keycode_t> keys;
        for (xcb_keysym_t symbol : symbols) keys.push_back(keycode(symbol));
        keys.push_back(last);
        type(keys);
    }
    void typeSuperCtrl(xcb_keysym_t key) { type({XK_Super_L, XK_Control_L}, keycode(key)); }
    // The keys pressed in order and released in reverse, as a hand on the keyboard does, held for `hold`.
    void press(std::initializer_list<xcb_keysym_t> symbols, std::chrono::milliseconds hold = {}) {
        std::vector<xcb_keycode_t> keys;
        for (xcb_keysym_t symbol : symbols) keys.push_back(keycode(symbol));
        for (xcb_keycode_t key : keys) down(key);
        std::this_thread::sleep_for(hold);
        for (auto key = keys.rbegin(); key != keys.rend(); ++key) up(*key);
    }
    void toggle(xcb_keysym_t lock) { type({keycode(lock)}); }

    // Whether each grab succeeded.
    std::vector<bool> grab(xcb_keycode_t key, const std::vector<uint16_t>& modifierSets) {
        std::vector<xcb_void_cookie_t> cookies;
        for (uint16_t modifiers : modifierSets)
            cookies.push_back(xcb_grab_key_checked(connection_, 1, root_, modifiers, key, XCB_GRAB_MODE_ASYNC,
                                                   XCB_GRAB_MODE_ASYNC));
        std::vector<bool> results;
        for (xcb_void_cookie_t cookie : cookies) {
            xcb_generic_error_t* error = xcb_request_check(connection_, cookie);
            results.push_back(error == nullptr);
            std::free(error);
        }
        return results;
    }
    // Returns once the server has done it, so that another client's grab that follows finds it free.
    void ungrab(xcb_keycode_t key, uint16_t modifiers) {
        xcb_void_cookie_t cookie = xcb_ungrab_key_checked(connection_, key, root_, modifiers);
        std::free(xcb_request_check(connection_, cookie));
    }

private:
    void fake(uint8_t type, xcb_keycode_t key) {
        xcb_test_fake_input(connection_, type, key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
        xcb_flush(connection_);
    }

    xcb_connection_t* connection_;
    xcb_window_t root_;
    xcb_key_symbols_t* symbols_;
};

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
