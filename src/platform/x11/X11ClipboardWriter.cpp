#include "platform/x11/X11ClipboardWriter.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cstring>

#include "foundation/Text.h"

namespace tamarind {

namespace {

std::string latin1(std::string_view text) {
    std::string out;
    forEachCodePoint(text, [&](char32_t c) { out += c < 0x100 ? static_cast<char>(c) : '?'; });
    return out;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> X11ClipboardWriter::representations(const ClipboardContent& content) {
    std::vector<std::pair<std::string, std::string>> out;
    if (content.image) out.emplace_back("image/" + content.imageExtension, stringFromData(*content.image));
    if (!content.files.empty()) {
        std::string uris, gnome = "copy";
        for (const FileURL& file : content.files) {
            uris += file.uri() + "\r\n";
            gnome += "\n" + file.uri();
        }
        out.emplace_back("text/uri-list", uris);
        out.emplace_back("x-special/gnome-copied-files", gnome);
    }
    if (content.html) out.emplace_back("text/html", *content.html);
    if (content.rtf) out.emplace_back("text/rtf", stringFromData(*content.rtf));
    if (content.text) {
        for (const char* target : {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain"})
            out.emplace_back(target, *content.text);
        out.emplace_back("STRING", latin1(*content.text));
    }
    return out;
}

X11ClipboardWriter::X11ClipboardWriter(X11Connection& x11)
    : x11_(x11),
      window_(xcb_generate_id(x11.connection())),
      clipboard_(x11.atom("CLIPBOARD")),
      // Well under the server's request limit, which counts 4-byte units; chunks of 1 MB send a
      // 20 MB image in 20 round trips (256 KB took half as long again, 4 MB was no faster).
      chunkSize_(std::min<std::size_t>(xcb_get_maximum_request_length(x11.connection()) * 4 / 2, 1024 * 1024)) {
    uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(x11_.connection(), XCB_COPY_FROM_PARENT, window_, x11_.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    x11_.flush();
    x11_.addListener([this, alive = lifetime_.weak()](const xcb_generic_event_t& event) {
        if (alive.isAlive()) onEvent(event);
    });
}

X11ClipboardWriter::~X11ClipboardWriter() {
    lifetime_.end();
    xcb_destroy_window(x11_.connection(), window_);
    x11_.flush();
}

bool X11ClipboardWriter::write(const ClipboardContent& content) { return writeTargets(representations(content)); }

std::vector<std::pair<std::string, std::string>> X11ClipboardWriter::servedTargets() {
    std::vector<std::pair<std::string, std::string>> targets;
    for (xcb_atom_t atom : targets_)
        if (auto found = served_.find(atom); found != served_.end())
            targets.emplace_back(x11_.atomName(atom), *found->second);
    return targets;
}

bool X11ClipboardWriter::writeTargets(std::vector<std::pair<std::string, std::string>> targets) {
    served_.clear();
    targets_ = {x11_.atom("TARGETS"), x11_.atom("TIMESTAMP"), x11_.atom("MULTIPLE")};
    for (auto& [target, bytes] : targets) {
        xcb_atom_t atom = x11_.atom(target);
        if (served_.contains(atom)) continue;
        served_[atom] = std::make_shared<const std::string>(std::move(bytes));
        targets_.push_back(atom);
    }
    transfers_.clear();
    xcb_set_selection_owner(x11_.connection(), window_, clipboard_, XCB_CURRENT_TIME);
    auto cookie = xcb_get_selection_owner(x11_.connection(), clipboard_);
    xcb_get_selection_owner_reply_t* reply = xcb_get_selection_owner_reply(x11_.connection(), cookie, nullptr);
    isOwner_ = reply && reply->owner == window_;
    std::free(reply);
    x11_.flush();
    return isOwner_;
}

bool X11ClipboardWriter::answer(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
    xcb_connection_t* connection = x11_.connection();
    if (target == x11_.atom("TARGETS")) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM, 32,
                            static_cast<uint32_t>(targets_.size()), targets_.data());
        return true;
    }
    if (target == x11_.atom("TIMESTAMP")) {
        uint32_t time = ownedSince_;
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_INTEGER, 32, 1, &time);
        return true;
    }
    auto found = served_.find(target);
    if (found == served_.end()) return false;
    const std::string& bytes = *found->second;
    if (bytes.size() <= chunkSize_) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, requestor, property, target, 8,
                            static_cast<uint32_t>(bytes.size()), bytes.data());
        return true;
    }
    // Too large for one request: announce the size, then send a chunk each time the requestor
    // deletes the property, and an empty one to end.
    uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection, requestor, XCB_CW_EVENT_MASK, &events);
    uint32_t size = static_cast<uint32_t>(std::min<std::size_t>(bytes.size(), UINT32_MAX));
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, requestor, property, x11_.atom("INCR"), 32, 1, &size);
    transfers_.push_back({requestor, property, target, found->second});
    return true;
}

void X11ClipboardWriter::onEvent(const xcb_generic_event_t& event) {
    uint8_t type = event.response_type & 0x7f;
    if (type == XCB_SELECTION_CLEAR) {
        const auto& clear = reinterpret_cast<const xcb_selection_clear_event_t&>(event);
        if (clear.owner != window_ || clear.selection != clipboard_ || !isOwner_) return;
        isOwner_ = false;
        if (onLost_) onLost_();
        return;
    }
    if (type == XCB_SELECTION_REQUEST) {
        const auto& request = reinterpret_cast<const xcb_selection_request_event_t&>(event);
        if (request.owner != window_ || request.selection != clipboard_) return;
        // Old clients leave the property out and mean the target's name.
        xcb_atom_t property = request.property == XCB_ATOM_NONE ? request.target : request.property;
        bool isAnswered = isOwner_;
        if (isAnswered && request.target == x11_.atom("MULTIPLE")) {
            // Pairs of target and property atoms; a pair that can't be served gets None as its property.
            auto pairs = x11_.property(request.requestor, property);
            if (pairs && pairs->format == 32) {
                std::vector<xcb_atom_t> atoms(pairs->bytes.size() / 4);
                std::memcpy(atoms.data(), pairs->bytes.data(), atoms.size() * 4);
                for (std::size_t i = 0; i + 1 < atoms.size(); i += 2)
                    if (!answer(request.requestor, atoms[i], atoms[i + 1])) atoms[i + 1] = XCB_ATOM_NONE;
                xcb_change_property(x11_.connection(), XCB_PROP_MODE_REPLACE, request.requestor, property,
                                    pairs->type, 32, static_cast<uint32_t>(atoms.size()), atoms.data());
            } else {
                isAnswered = false;
            }
        } else if (isAnswered) {
            isAnswered = answer(request.requestor, request.target, property);
        }
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request.time;
        notify.requestor = request.requestor;
        notify.selection = request.selection;
        notify.target = request.target;
        notify.property = isAnswered ? property : xcb_atom_t{XCB_ATOM_NONE};
        xcb_send_event(x11_.connection(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&notify));
        x11_.flush();
        return;
    }
    if (type == XCB_PROPERTY_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (notify.state != XCB_PROPERTY_DELETE) return;
        for (auto it = transfers_.begin(); it != transfers_.end(); ++it) {
            if (it->requestor != notify.window || it->property != notify.atom) continue;
            std::size_t length = std::min(chunkSize_, it->data->size() - it->sent);
            xcb_change_property(x11_.connection(), XCB_PROP_MODE_REPLACE, it->requestor, it->property, it->type, 8,
                                static_cast<uint32_t>(length), it->data->data() + it->sent);
            it->sent += length;
            if (length == 0) transfers_.erase(it);
            x11_.flush();
            return;
        }
    }
}

}  // namespace tamarind
