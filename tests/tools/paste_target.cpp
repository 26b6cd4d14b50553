// A window for the X11 tests that records what is pasted into it: it takes the keyboard focus,
// names itself the active window, and at each Ctrl+V (or Ctrl+Shift+V, Shift+Insert) reads the
// clipboard as an application would and appends one JSON line to OUT:
//   {"keys":"ctrl+v","keyAt":…,"types":[…],"text":…,"html":…,"rtf":…,"image":"4x3","files":[…]}
// where keyAt is when the keystroke arrived, in microseconds of the system clock (for benches).
//
//   paste_target OUT [--class CLASS] [--managed]
//
// --managed  leaves the focus and the active window to the window manager
// Prints "ready" once its window is up (unmanaged: with the focus); runs until SIGTERM.

#include <X11/keysym.h>
#include <xcb/xcb_keysyms.h>

#include <chrono>
#include <fstream>
#include <iostream>

#include "foundation/Json.h"
#include "foundation/PollMainLoop.h"
#include "platform/x11/X11Clipboard.h"

int main(int argc, char** argv) {
    using namespace tamarind;
    if (argc < 2) {
        std::cerr << "usage: paste_target OUT [--class CLASS]\n";
        return 2;
    }
    std::string out = argv[1];
    std::string windowClass = "paste-target";
    bool isManaged = false;
    for (int i = 2; i < argc; ++i) {
        if (std::string(argv[i]) == "--class" && i + 1 < argc) windowClass = argv[++i];
        if (std::string(argv[i]) == "--managed") isManaged = true;
    }
    PollMainLoop loop;
    auto opened = X11Connection::open(loop);
    if (auto* error = std::get_if<std::string>(&opened)) {
        std::cerr << "paste_target: " << *error << "\n";
        return 1;
    }
    X11Connection& x11 = *std::get<std::unique_ptr<X11Connection>>(opened);
    x11.setOnDisconnected([&loop] { loop.quit(); });
    auto clipboard = std::move(std::get<std::unique_ptr<X11Clipboard>>(X11Clipboard::create(loop, x11)));
    xcb_connection_t* connection = x11.connection();
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(connection);

    xcb_window_t window = xcb_generate_id(connection);
    uint32_t events = XCB_EVENT_MASK_KEY_PRESS;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, x11.root(), 0, 0, 300, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    std::string value = windowClass + '\0' + windowClass + '\0';
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(value.size()), value.data());
    xcb_map_window(connection, window);
    if (!isManaged) {
        // No window manager: do what one would.
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, x11.root(), x11.atom("_NET_ACTIVE_WINDOW"),
                            XCB_ATOM_WINDOW, 32, 1, &window);
    }
    x11.flush();

    x11.addListener([&](const xcb_generic_event_t& event) {
        if ((event.response_type & 0x7f) != XCB_KEY_PRESS) return;
        const auto& key = reinterpret_cast<const xcb_key_press_event_t&>(event);
        if (key.event != window) return;
        xcb_keysym_t symbol = xcb_key_symbols_get_keysym(symbols, key.detail, 0);
        bool isControl = key.state & XCB_MOD_MASK_CONTROL, isShift = key.state & XCB_MOD_MASK_SHIFT;
        std::string keys;
        if (symbol == XK_v && isControl) keys = isShift ? "ctrl+shift+v" : "ctrl+v";
        if (symbol == XK_Insert && isShift) keys = "shift+insert";
        if (keys.empty()) return;
        auto keyAt = std::chrono::duration_cast<std::chrono::microseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
        clipboard->readSnapshot([out, keys, keyAt](PasteboardSnapshot snapshot) {
            Json line{{"keys", keys}, {"keyAt", keyAt}, {"types", snapshot.types}};
            if (snapshot.string) line["text"] = *snapshot.string;
            if (snapshot.htmlString) line["html"] = *snapshot.htmlString;
            if (snapshot.rtfData) line["rtf"] = stringFromData(*snapshot.rtfData);
            if (snapshot.imagePixelSize)
                line["image"] = std::to_string(static_cast<int>(snapshot.imagePixelSize->width)) + "x" +
                                std::to_string(static_cast<int>(snapshot.imagePixelSize->height));
            Json files = Json::array();
            for (const FileURL& file : snapshot.fileURLs) files.push_back(file.path);
            if (!files.empty()) line["files"] = files;
            std::ofstream(out, std::ios::app) << line.dump() << "\n";
        });
    });
    std::cout << "ready" << std::endl;
    loop.run();
    xcb_key_symbols_free(symbols);
    return 0;
}
