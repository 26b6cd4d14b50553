#include "platform/x11/X11Connection.h"

#include <cstdlib>
#include <cstring>

namespace tamarind {

std::variant<std::unique_ptr<X11Connection>, std::string> X11Connection::open(MainLoop& loop, const char* display) {
    if (!display && !std::getenv("DISPLAY")) return std::string("DISPLAY is not set");
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(display, &screenNumber);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return std::string("cannot connect to the X display ") + (display ? display : std::getenv("DISPLAY"));
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) xcb_screen_next(&screens);
    return std::unique_ptr<X11Connection>(new X11Connection(loop, connection, screens.data->root));
}

X11Connection::X11Connection(MainLoop& loop, xcb_connection_t* connection, xcb_window_t root)
    : loop_(loop), connection_(connection), root_(root) {
    window_ = xcb_generate_id(connection_);
    uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, root_, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    static constexpr char kTitle[] = "Tamarind";
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        sizeof kTitle - 1, kTitle);
    xcb_flush(connection_);
    watch_ = loop.watchFd(xcb_get_file_descriptor(connection_), [this] { dispatch(); });
}

X11Connection::~X11Connection() {
    watch_.stop();
    xcb_destroy_window(connection_, window_);
    xcb_disconnect(connection_);
}

xcb_atom_t X11Connection::atom(const std::string& name) {
    if (auto found = atoms_.find(name); found != atoms_.end()) return found->second;
    auto cookie = xcb_intern_atom(connection_, 0, static_cast<uint16_t>(name.size()), name.c_str());
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection_, cookie, nullptr);
    xcb_atom_t atom = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    dispatchLater();
    if (atom != XCB_ATOM_NONE) {
        atoms_[name] = atom;
        names_[atom] = name;
    }
    return atom;
}

std::string X11Connection::atomName(xcb_atom_t atom) {
    if (auto found = names_.find(atom); found != names_.end()) return found->second;
    auto cookie = xcb_get_atom_name(connection_, atom);
    xcb_get_atom_name_reply_t* reply = xcb_get_atom_name_reply(connection_, cookie, nullptr);
    std::string name;
    if (reply) name.assign(xcb_get_atom_name_name(reply), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply)));
    std::free(reply);
    dispatchLater();
    if (!name.empty()) {
        names_[atom] = name;
        atoms_[name] = atom;
    }
    return name;
}

void X11Connection::dispatch() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection_)) {
        // A listener may add another; iterate by index over what is there now.
        for (std::size_t i = 0, count = listeners_.size(); i < count; ++i) listeners_[i](*event);
        std::free(event);
    }
    // A closed socket stays readable: without this the loop would spin on it.
    if (xcb_connection_has_error(connection_)) {
        watch_.stop();
        if (auto onDisconnected = std::move(onDisconnected_)) onDisconnected();
    }
}

std::optional<X11Connection::Property> X11Connection::property(xcb_window_t window, xcb_atom_t name, bool deletes) {
    auto cookie = xcb_get_property(connection_, deletes ? 1 : 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0,
                                   UINT32_MAX / 4);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection_, cookie, nullptr);
    if (!reply) return std::nullopt;
    std::optional<Property> result;
    if (reply->type != XCB_ATOM_NONE) {
        result = Property{reply->type, reply->format,
                          std::string(static_cast<const char*>(xcb_get_property_value(reply)),
                                      static_cast<std::size_t>(xcb_get_property_value_length(reply)))};
    }
    std::free(reply);
    dispatchLater();
    return result;
}

// Events that came in while a reply was awaited wait in xcb's queue, where the socket's
// readiness no longer tells of them.
void X11Connection::dispatchLater() {
    if (isDispatchPosted_) return;
    isDispatchPosted_ = true;
    loop_.post([this, alive = lifetime_.weak()] {
        if (!alive.isAlive()) return;
        isDispatchPosted_ = false;
        dispatch();
    });
}

bool X11Connection::hasExtension(const std::string& name) {
    auto cookie = xcb_query_extension(connection_, static_cast<std::uint16_t>(name.size()), name.c_str());
    xcb_query_extension_reply_t* reply = xcb_query_extension_reply(connection_, cookie, nullptr);
    bool present = reply && reply->present;
    std::free(reply);
    return present;
}

}  // namespace tamarind
