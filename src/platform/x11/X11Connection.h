#pragma once
// One connection to the X server, shared by the X11 backends: atoms by name
// (interned once), a small window of our own to receive selections and
// properties on, and the server's events handed to every listener from the
// main loop. Main thread only.

#include <xcb/xcb.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "foundation/Lifetime.h"
#include "foundation/MainLoop.h"

namespace tamarind {

class X11Connection {
public:
    // None, with the reason, when no display can be reached (DISPLAY unset, no server).
    static std::variant<std::unique_ptr<X11Connection>, std::string> open(MainLoop& loop,
                                                                         const char* display = nullptr);
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* connection() const { return connection_; }
    xcb_window_t root() const { return root_; }
    // Unmapped, 1 by 1, listening to its own property changes.
    xcb_window_t window() const { return window_; }

    // Whether the server offers this extension ("XFIXES", "XTEST"...).
    bool hasExtension(const std::string& name);

    xcb_atom_t atom(const std::string& name);
    // The atom's name; empty for an atom the server doesn't know.
    std::string atomName(xcb_atom_t atom);

    // Called once when the server goes away (or the connection breaks): nothing more will come.
    void setOnDisconnected(std::function<void()> onDisconnected) { onDisconnected_ = std::move(onDisconnected); }

    // Listeners see every event, in order; they ignore what isn't theirs.
    using Listener = std::function<void(const xcb_generic_event_t&)>;
    void addListener(Listener listener) { listeners_.push_back(std::move(listener)); }

    // Reads what the server has sent and hands it to the listeners; the loop calls this when the
    // connection's socket is readable, and a backend after a request it waits on.
    void dispatch();

    // Sends what is queued to the server and hands on what it sent meanwhile.
    void flush() {
        xcb_flush(connection_);
        dispatchLater();
    }

    // A property of a window as bytes, with its type; none when absent or the window is gone.
    struct Property {
        xcb_atom_t type = XCB_ATOM_NONE;
        int format = 8;
        std::string bytes;
    };
    std::optional<Property> property(xcb_window_t window, xcb_atom_t property, bool deletes = false);

private:
    X11Connection(MainLoop& loop, xcb_connection_t* connection, xcb_window_t root);
    void dispatchLater();

    MainLoop& loop_;
    xcb_connection_t* connection_;
    xcb_window_t root_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    std::map<std::string, xcb_atom_t> atoms_;
    std::map<xcb_atom_t, std::string> names_;
    std::vector<Listener> listeners_;
    std::function<void()> onDisconnected_;
    FdWatch watch_;
    bool isDispatchPosted_ = false;
    Lifetime lifetime_;
};

}  // namespace tamarind
