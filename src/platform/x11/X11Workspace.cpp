#include "platform/x11/X11Workspace.h"

#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "foundation/Files.h"
#include "foundation/Text.h"

namespace tamarind {

X11Workspace::X11Workspace(X11Connection& x11, const DesktopEntryIndex* applications)
    : x11_(x11), applications_(applications) {}

std::optional<std::string> X11Workspace::sandboxAppID(const std::string& cgroup) {
    for (std::string_view line : split(cgroup, "\n")) {
        if (auto at = line.find("app-flatpak-"); at != std::string_view::npos) {
            std::string_view rest = line.substr(at + 12);
            // "<id>-<instance>.scope": the id holds dots, the instance only digits.
            auto dash = rest.rfind('-');
            if (dash != std::string_view::npos && dash > 0) return std::string(rest.substr(0, dash));
        }
        if (auto at = line.find("/snap."); at != std::string_view::npos) {
            std::string_view rest = line.substr(at + 6);
            auto dot = rest.find('.');
            if (dot != std::string_view::npos && dot > 0) return std::string(rest.substr(0, dot));
        }
    }
    return std::nullopt;
}

RunningApplication X11Workspace::applicationForClass(const std::string& instance, const std::string& windowClass,
                                                     const std::vector<DesktopEntry>& entries) {
    // A desktop file claims a class by StartupWMClass, or by being named after it.
    for (const std::string& key : {windowClass, instance}) {
        if (key.empty()) continue;
        for (const DesktopEntry& entry : entries)
            if (caseInsensitiveEquals(entry.startupWMClass, key)) return {entry.id, entry.name};
        for (const DesktopEntry& entry : entries) {
            std::string_view id = entry.id;
            bool endsWithKey = id.size() > key.size() && id[id.size() - key.size() - 1] == '.' &&
                               caseInsensitiveEquals(id.substr(id.size() - key.size()), key);
            if (caseInsensitiveEquals(id, key) || endsWithKey) return {entry.id, entry.name};
        }
    }
    std::string shown = windowClass.empty() ? instance : windowClass;
    return {shown, shown};
}

const std::vector<DesktopEntry>& X11Workspace::entries() const {
    static const std::vector<DesktopEntry> none;
    return applications_ ? applications_->entries() : none;
}

void X11Workspace::setOnActivation(std::function<void()> onActivation) {
    onActivation_ = std::move(onActivation);
    if (isWatchingRoot_) return;
    isWatchingRoot_ = true;
    // Other clients may listen to the root window too; its event mask is per client.
    uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(x11_.connection(), x11_.root(), XCB_CW_EVENT_MASK, &events);
    x11_.flush();
    xcb_atom_t active = x11_.atom("_NET_ACTIVE_WINDOW");
    x11_.addListener([this, active, alive = lifetime_.weak()](const xcb_generic_event_t& event) {
        if (!alive.isAlive() || (event.response_type & 0x7f) != XCB_PROPERTY_NOTIFY) return;
        const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (notify.window == x11_.root() && notify.atom == active && onActivation_) onActivation_();
    });
}

std::optional<RunningApplication> X11Workspace::frontmostApplication() {
    auto active = x11_.property(x11_.root(), x11_.atom("_NET_ACTIVE_WINDOW"));
    if (!active || active->bytes.size() < 4) return std::nullopt;
    xcb_window_t window = 0;
    std::memcpy(&window, active->bytes.data(), 4);
    if (window == XCB_WINDOW_NONE) return std::nullopt;
    auto wmClass = x11_.property(window, XCB_ATOM_WM_CLASS);
    std::string instance, windowClass;
    if (wmClass) {
        // Two NUL-terminated strings: the instance, then the class.
        std::string_view bytes = wmClass->bytes;
        auto end = bytes.find('\0');
        instance = std::string(bytes.substr(0, end));
        if (end != std::string_view::npos) windowClass = std::string(bytes.substr(end + 1, bytes.find('\0', end + 1) - end - 1));
    }
    RunningApplication application = applicationForClass(instance, windowClass, entries());
    application.window = window;
    if (auto pid = x11_.property(window, x11_.atom("_NET_WM_PID")); pid && pid->bytes.size() >= 4) {
        uint32_t processID = 0;
        std::memcpy(&processID, pid->bytes.data(), 4);
        if (processID == static_cast<uint32_t>(::getpid())) {
            application.bundleID = kOwnBundleID;
            application.name = "Tamarind";
            return application;
        }
        auto cgroup = readWholeFile("/proc/" + std::to_string(processID) + "/cgroup");
        if (cgroup.bytes)
            if (auto id = sandboxAppID(*cgroup.bytes)) {
                application.bundleID = *id;
                for (const DesktopEntry& entry : entries())
                    if (entry.id == *id) application.name = entry.name;
            }
    }
    if (!application.bundleID || application.bundleID->empty()) return std::nullopt;
    return application;
}

bool X11Workspace::isTerminated(const RunningApplication& application) {
    if (application.window == 0) return true;
    auto cookie = xcb_get_window_attributes(x11_.connection(), static_cast<xcb_window_t>(application.window));
    xcb_get_window_attributes_reply_t* reply = xcb_get_window_attributes_reply(x11_.connection(), cookie, nullptr);
    bool isGone = reply == nullptr;
    std::free(reply);
    return isGone;
}

bool X11Workspace::activate(const RunningApplication& application) {
    if (isTerminated(application)) return false;
    auto window = static_cast<xcb_window_t>(application.window);
    xcb_connection_t* connection = x11_.connection();
    xcb_atom_t active = x11_.atom("_NET_ACTIVE_WINDOW");
    if (x11_.property(x11_.root(), x11_.atom("_NET_SUPPORTING_WM_CHECK"))) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window;
        message.type = active;
        message.data.data32[0] = 2;  // from a pager-like tool, which window managers obey without focus-stealing checks
        message.data.data32[1] = XCB_CURRENT_TIME;
        xcb_send_event(connection, 0, x11_.root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    } else {
        // Nobody manages the windows: raise and focus it, and say so where a window manager would.
        uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(connection, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, x11_.root(), active, XCB_ATOM_WINDOW, 32, 1, &window);
    }
    x11_.flush();
    return true;
}

}  // namespace tamarind
