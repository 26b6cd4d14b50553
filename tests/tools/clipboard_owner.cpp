// A clipboard owner for the X11 tests: takes CLIPBOARD and serves the targets it is given,
// as an application offering several formats at once does.
//
//   clipboard_owner [--never-answer] [--incr-above BYTES] [--class CLASS] TARGET=FILE...
//
// --never-answer  answers TARGETS and nothing else, as a hung owner would
// --incr-above    sends data larger than this in INCR chunks of that size
// --class         gives its window this WM_CLASS and makes it the active window
// Prints "ready" once it owns the selection; exits when another client takes it, or on SIGTERM.

#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

xcb_connection_t* connection;

xcb_atom_t atom(const std::string& name) {
    auto reply = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, name.size(), name.c_str()), nullptr);
    xcb_atom_t value = reply ? reply->atom : XCB_ATOM_NONE;
    std::free(reply);
    return value;
}

struct Transfer {  // an INCR transfer under way to one requestor
    xcb_window_t requestor;
    xcb_atom_t property;
    xcb_atom_t type;
    std::string data;
    std::size_t sent = 0;
};

}  // namespace

int main(int argc, char** argv) {
    bool neverAnswers = false;
    std::size_t incrAbove = 0;
    std::string windowClass;
    std::vector<std::pair<std::string, std::string>> targets;  // name, bytes
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--never-answer") {
            neverAnswers = true;
        } else if (argument == "--incr-above" && i + 1 < argc) {
            incrAbove = std::strtoull(argv[++i], nullptr, 10);
        } else if (argument == "--class" && i + 1 < argc) {
            windowClass = argv[++i];
        } else if (auto equals = argument.find('='); equals != std::string::npos) {
            std::ifstream file(argument.substr(equals + 1), std::ios::binary);
            if (!file) {
                std::fprintf(stderr, "clipboard_owner: cannot read %s\n", argument.substr(equals + 1).c_str());
                return 2;
            }
            targets.emplace_back(argument.substr(0, equals), std::string(std::istreambuf_iterator<char>(file), {}));
        } else {
            std::fprintf(stderr, "clipboard_owner: bad argument %s\n", argument.c_str());
            return 2;
        }
    }

    connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) return 1;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    xcb_window_t window = xcb_generate_id(connection);
    uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 10, 10, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_EVENT_MASK, &events);
    if (!windowClass.empty()) {
        std::string value = windowClass + '\0' + windowClass + '\0';
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            value.size(), value.data());
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, screen->root, atom("_NET_ACTIVE_WINDOW"),
                            XCB_ATOM_WINDOW, 32, 1, &window);
    }
    xcb_atom_t clipboard = atom("CLIPBOARD"), targetsAtom = atom("TARGETS"), incr = atom("INCR"),
               timestamp = atom("TIMESTAMP");
    std::map<xcb_atom_t, std::string> served;
    for (const auto& [name, bytes] : targets) served[atom(name)] = bytes;

    xcb_set_selection_owner(connection, window, clipboard, XCB_CURRENT_TIME);
    auto owner = xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, clipboard), nullptr);
    bool owns = owner && owner->owner == window;
    std::free(owner);
    if (!owns) return 1;
    std::printf("ready\n");
    std::fflush(stdout);

    std::vector<Transfer> transfers;
    while (xcb_generic_event_t* event = xcb_wait_for_event(connection)) {
        uint8_t type = event->response_type & 0x7f;
        if (type == XCB_SELECTION_CLEAR) {
            std::free(event);
            break;
        }
        if (type == XCB_SELECTION_REQUEST) {
            auto* request = reinterpret_cast<xcb_selection_request_event_t*>(event);
            xcb_atom_t property = request->property == XCB_ATOM_NONE ? request->target : request->property;
            bool answered = true;
            if (request->target == targetsAtom) {
                std::vector<xcb_atom_t> list = {targetsAtom, timestamp};
                for (const auto& [target, bytes] : served) list.push_back(target);
                xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request->requestor, property, XCB_ATOM_ATOM,
                                    32, list.size(), list.data());
            } else if (neverAnswers) {
                std::free(event);
                continue;
            } else if (auto found = served.find(request->target); found != served.end()) {
                const std::string& bytes = found->second;
                if (incrAbove > 0 && bytes.size() > incrAbove) {
                    // Announce the size, then send a chunk each time the requestor deletes the property.
                    uint32_t size = bytes.size();
                    uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
                    xcb_change_window_attributes(connection, request->requestor, XCB_CW_EVENT_MASK, &mask);
                    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request->requestor, property, incr, 32, 1,
                                        &size);
                    transfers.push_back({request->requestor, property, request->target, bytes});
                } else {
                    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request->requestor, property,
                                        request->target, 8, bytes.size(), bytes.data());
                }
            } else {
                answered = false;
            }
            xcb_selection_notify_event_t notify{};
            notify.response_type = XCB_SELECTION_NOTIFY;
            notify.time = request->time;
            notify.requestor = request->requestor;
            notify.selection = request->selection;
            notify.target = request->target;
            notify.property = answered ? property : XCB_ATOM_NONE;
            xcb_send_event(connection, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT,
                           reinterpret_cast<const char*>(&notify));
        } else if (type == XCB_PROPERTY_NOTIFY) {
            auto* notify = reinterpret_cast<xcb_property_notify_event_t*>(event);
            if (notify->state == XCB_PROPERTY_DELETE) {
                for (auto it = transfers.begin(); it != transfers.end(); ++it) {
                    if (it->requestor != notify->window || it->property != notify->atom) continue;
                    std::size_t length = std::min(incrAbove, it->data.size() - it->sent);
                    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, it->requestor, it->property, it->type, 8,
                                        length, it->data.data() + it->sent);
                    it->sent += length;
                    if (length == 0) transfers.erase(it);  // the empty chunk ends the transfer
                    break;
                }
            }
        }
        xcb_flush(connection);
        std::free(event);
    }
    xcb_disconnect(connection);
    return 0;
}
