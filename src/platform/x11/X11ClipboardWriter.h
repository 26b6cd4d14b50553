#pragma once
// The write side of the X11 CLIPBOARD: takes the selection and serves every
// representation it was given until another client takes it. Text goes out as
// UTF8_STRING, text/plain;charset=utf-8, text/plain and STRING (Latin-1, with
// "?" for what it can't hold); HTML as text/html, RTF as text/rtf, an image as
// image/png (or image/tiff), files as text/uri-list and GNOME's copied files.
// TARGETS, TIMESTAMP and MULTIPLE are answered, and data larger than the
// server takes in one request goes out in INCR chunks. Main thread only.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Lifetime.h"
#include "platform/Pasteboard.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

class X11ClipboardWriter {
public:
    explicit X11ClipboardWriter(X11Connection& x11);
    ~X11ClipboardWriter();

    // Takes the clipboard with this content. False when the server gave it to nobody.
    bool write(const ClipboardContent& content);
    // Takes it with these targets and their bytes, served as they are (an archive put back).
    bool writeTargets(std::vector<std::pair<std::string, std::string>> targets);
    bool isOwner() const { return isOwner_; }
    xcb_window_t window() const { return window_; }
    // What is served now, in the order TARGETS lists it, without the protocol's own targets.
    std::vector<std::pair<std::string, std::string>> servedTargets();
    // Called once when another client takes the clipboard.
    void setOnLost(std::function<void()> onLost) { onLost_ = std::move(onLost); }

    // The targets and bytes served for this content, in the order TARGETS lists them.
    static std::vector<std::pair<std::string, std::string>> representations(const ClipboardContent& content);

private:
    struct Transfer {  // an INCR transfer under way to one requestor
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        std::shared_ptr<const std::string> data;
        std::size_t sent = 0;
    };

    void onEvent(const xcb_generic_event_t& event);
    // Puts one target's data on the requestor's property; false when the target isn't served.
    bool answer(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property);

    X11Connection& x11_;
    xcb_window_t window_;
    xcb_atom_t clipboard_;
    // Shared with the INCR transfers under way, so a large image isn't copied per reader.
    std::map<xcb_atom_t, std::shared_ptr<const std::string>> served_;
    std::vector<xcb_atom_t> targets_;
    xcb_timestamp_t ownedSince_ = XCB_CURRENT_TIME;
    bool isOwner_ = false;
    std::size_t chunkSize_;
    std::vector<Transfer> transfers_;
    std::function<void()> onLost_;
    Lifetime lifetime_;
};

}  // namespace tamarind
