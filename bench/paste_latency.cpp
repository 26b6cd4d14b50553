// paste_latency OUT N -- presses Super+Ctrl+1 through XTest N times on $DISPLAY and prints how
// long each took from the press to the paste keystroke's arrival in tests/tools/paste_target,
// which appends one line with "keyAt" (system clock, microseconds) to OUT per paste.
// The running app pastes slot 1 at each press. Used by bench/paste_bench.sh.

#include <X11/keysym.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

long long nowMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The keyAt of line `index` (from 0) of OUT, once it is there.
std::optional<long long> keyAt(const std::string& out, std::size_t index) {
    std::ifstream file(out);
    std::string line;
    for (std::size_t at = 0; std::getline(file, line); ++at) {
        if (at != index) continue;
        auto found = line.find("\"keyAt\":");
        if (found == std::string::npos) return std::nullopt;
        return std::stoll(line.substr(found + 8));
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: paste_latency OUT N\n");
        return 2;
    }
    std::string out = argv[1];
    int count = std::atoi(argv[2]);
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::fprintf(stderr, "paste_latency: no X display\n");
        return 1;
    }
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);
    std::vector<xcb_keycode_t> keys;
    for (xcb_keysym_t symbol : {XK_Super_L, XK_Control_L, XK_1}) {
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, symbol);
        keys.push_back(codes ? codes[0] : 0);
        std::free(codes);
    }
    std::vector<double> samples;
    for (int press = 0; press < count; ++press) {
        long long pressedAt = nowMicroseconds();
        for (xcb_keycode_t key : keys)
            xcb_test_fake_input(connection, XCB_KEY_PRESS, key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
        for (auto key = keys.rbegin(); key != keys.rend(); ++key)
            xcb_test_fake_input(connection, XCB_KEY_RELEASE, *key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
        xcb_flush(connection);
        std::optional<long long> arrived;
        for (int poll = 0; poll < 5000 && !arrived; ++poll) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            arrived = keyAt(out, press);
        }
        if (!arrived) {
            std::fprintf(stderr, "paste_latency: press %d never arrived\n", press + 1);
            return 1;
        }
        samples.push_back((*arrived - pressedAt) / 1000.0);
        std::fprintf(stderr, "# sample hotkey_to_keystroke_ms = %.2f\n", samples.back());
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
    }
    std::sort(samples.begin(), samples.end());
    auto at = [&](double q) { return samples[std::min(samples.size() - 1, std::size_t(q * samples.size()))]; };
    std::printf("hotkey_to_keystroke_ms median=%.2f p90=%.2f min=%.2f max=%.2f n=%zu\n", at(0.5), at(0.9),
                samples.front(), samples.back(), samples.size());
    xcb_key_symbols_free(symbols);
    xcb_disconnect(connection);
    return 0;
}
