// The X11 clipboard reader's peak memory for one large text offered over INCR: a child process
// takes CLIPBOARD and serves SIZE megabytes in chunks, and this process reads it through the real
// X11Clipboard, as the app does, then prints its peak resident memory (getrusage) before and
// after the read; with LIMIT_MB, under that size limit. Run under an X server
// (bench/clipboard_read_bench.sh starts a private Xvfb). Megabytes are 10^6 bytes.
//
//   clipboard_read_memory [SIZE_MB [LIMIT_MB]]   (default 200, no limit)

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/PollMainLoop.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Connection.h"

namespace {

// Under the core protocol's largest request (256 KB), as toolkits keep their chunks.
constexpr std::size_t kChunk = 256 * 1024 - 1024;

xcb_atom_t intern(xcb_connection_t* connection, const char* name) {
    auto reply = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, std::strlen(name), name), nullptr);
    xcb_atom_t atom = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    std::free(reply);
    return atom;
}

// Serves `size` bytes of text as UTF8_STRING over INCR until the clipboard is taken or the parent
// closes `ready`'s other end; tells the parent through `ready` once it owns the clipboard.
int serve(std::size_t size, int ready) {
    std::string text;
    text.reserve(size);
    for (long i = 0; text.size() < size; ++i) text += "line " + std::to_string(i) + " of a very long paste\n";
    text.resize(size);
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) return 1;
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    xcb_window_t window = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_atom_t clipboard = intern(connection, "CLIPBOARD"), targets = intern(connection, "TARGETS"),
               utf8 = intern(connection, "UTF8_STRING"), incr = intern(connection, "INCR");
    xcb_set_selection_owner(connection, window, clipboard, XCB_CURRENT_TIME);
    xcb_flush(connection);
    if (write(ready, "r", 1) != 1) return 1;
    xcb_window_t requestor = XCB_WINDOW_NONE;
    xcb_atom_t property = XCB_ATOM_NONE;
    std::size_t sent = 0;
    bool isSending = false;
    while (xcb_generic_event_t* event = xcb_wait_for_event(connection)) {
        uint8_t type = event->response_type & 0x7f;
        if (type == XCB_SELECTION_CLEAR) break;
        if (type == XCB_SELECTION_REQUEST) {
            auto* request = reinterpret_cast<xcb_selection_request_event_t*>(event);
            xcb_selection_notify_event_t notify{};
            notify.response_type = XCB_SELECTION_NOTIFY;
            notify.requestor = request->requestor;
            notify.selection = request->selection;
            notify.target = request->target;
            notify.property = request->property;
            if (request->target == targets) {
                xcb_atom_t list[] = {targets, utf8};
                xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request->requestor, request->property,
                                    XCB_ATOM_ATOM, 32, 2, list);
            } else if (request->target == utf8) {
                uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE, announced = static_cast<uint32_t>(text.size());
                xcb_change_window_attributes(connection, request->requestor, XCB_CW_EVENT_MASK, &mask);
                xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request->requestor, request->property, incr, 32,
                                    1, &announced);
                requestor = request->requestor;
                property = request->property;
                sent = 0;
                isSending = true;
            } else {
                notify.property = XCB_ATOM_NONE;
            }
            xcb_send_event(connection, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT,
                           reinterpret_cast<const char*>(&notify));
        } else if (type == XCB_PROPERTY_NOTIFY && isSending) {
            auto* change = reinterpret_cast<xcb_property_notify_event_t*>(event);
            if (change->state == XCB_PROPERTY_DELETE && change->window == requestor && change->atom == property) {
                std::size_t length = std::min(kChunk, text.size() - sent);
                xcb_change_property(connection, XCB_PROP_MODE_REPLACE, requestor, property, utf8, 8,
                                    static_cast<uint32_t>(length), text.data() + sent);
                sent += length;
                isSending = length > 0;
            }
        }
        xcb_flush(connection);
        std::free(event);
    }
    xcb_disconnect(connection);
    return 0;
}

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024 / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tamarind;
    std::size_t megabytes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200;
    std::size_t size = megabytes * 1'000'000;
    long long limit = argc > 2 ? std::strtoll(argv[2], nullptr, 10) * 1'000'000 : 0;
    // The owner is forked first, so that its copy of the text is never in this process.
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return 1;
    pid_t owner = fork();
    if (owner == 0) {
        close(pipeFds[0]);
        _exit(serve(size, pipeFds[1]));
    }
    close(pipeFds[1]);
    char byte = 0;
    if (read(pipeFds[0], &byte, 1) != 1) {
        std::fprintf(stderr, "the owner did not start (is DISPLAY set?)\n");
        return 1;
    }

    PollMainLoop loop;
    auto connection = X11Connection::open(loop);
    if (!std::holds_alternative<std::unique_ptr<X11Connection>>(connection)) return 1;
    auto created = X11Clipboard::create(loop, *std::get<std::unique_ptr<X11Connection>>(connection));
    if (!std::holds_alternative<std::unique_ptr<X11Clipboard>>(created)) return 1;
    X11Clipboard& clipboard = *std::get<std::unique_ptr<X11Clipboard>>(created);
    clipboard.setMaximumBytes(limit);

    double before = peakMegabytes();
    auto started = std::chrono::steady_clock::now();
    std::size_t received = 0;
    clipboard.readSnapshot([&](PasteboardSnapshot snapshot) {
        received = snapshot.string ? snapshot.string->size() : 0;
        loop.quit();
    });
    loop.run();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    double after = peakMegabytes();
    kill(owner, SIGTERM);
    waitpid(owner, nullptr, 0);

    double clipMB = static_cast<double>(size) / 1e6;
    std::printf("clip %.0f MB over INCR in %zu KB chunks, limit %lld MB: received %zu bytes in %.2f s\n", clipMB,
                kChunk / 1024, limit / 1'000'000, received, seconds);
    std::printf("peak RSS before the read %.1f MB, after %.1f MB: the read added %.1f MB (%.2f x the clip)\n", before,
                after, after - before, (after - before) / clipMB);
    return received == (limit > 0 && static_cast<long long>(size) > limit ? 0 : size) ? 0 : 2;
}
