#pragma once
// The read side of the X11 CLIPBOARD selection. XFixes tells of every owner
// change, which raises the change counter, so nothing polls the server. A
// read asks the owner for TARGETS and then for each wanted target in turn,
// asynchronously and each with a time-out, following INCR transfers for
// large data; a hung or dead owner costs at most its time-outs.
//
// Targets become the snapshot's fields: image/png, else image/tiff, else any
// other image converted to PNG (on the converter worker when there is one: the
// next read waits for it, so snapshots keep their order); text/uri-list (else GNOME's copied files);
// UTF8_STRING, text/plain;charset=utf-8, text/plain, else Latin-1 STRING;
// text/rtf; text/html (UTF-16 as Firefox sends it is converted). The
// protocol's own targets are left out of `types`. An archive read takes every
// target as bytes. Our own writes count as changes at once, not when the
// server tells of them. Main thread only.

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "foundation/Lifetime.h"
#include "foundation/Log.h"
#include "foundation/Worker.h"
#include "platform/Pasteboard.h"
#include "platform/x11/X11ClipboardWriter.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

inline constexpr Duration kClipboardRequestTimeout = std::chrono::milliseconds(500);

class X11Clipboard final : public Pasteboard {
public:
    // The error text when the server lacks XFIXES. Without `converter` (a process with no loop to
    // keep free) an image is converted during the read. It must outlive the clipboard.
    static std::variant<std::unique_ptr<X11Clipboard>, std::string> create(MainLoop& loop, X11Connection& x11,
                                                                          Worker* converter = nullptr);
    ~X11Clipboard() override;

    long long changeCount() const override { return changeCount_; }
    void readSnapshot(std::function<void(PasteboardSnapshot)> done) override;
    bool write(ClipboardContent content) override;
    void readArchive(std::function<void(PasteboardArchive)> done) override;
    bool writeArchive(const PasteboardArchive& archive) override;

    // Called when another program takes the clipboard this one wrote, as a process that only
    // serves what it wrote (the command line's paste) waits for.
    void setOnLost(std::function<void()> onLost) { onLost_ = std::move(onLost); }

    // The protocol's targets, never clipboard content.
    static bool isProtocolTarget(std::string_view name);

private:
    enum class Field { targets, image, files, string, rtf, html, raw };
    struct Step {
        xcb_atom_t target = XCB_ATOM_NONE;
        std::string name;
        Field field = Field::targets;
    };
    // A read for a snapshot, or (with `archiveDone`) for an archive of every target as bytes.
    struct Read {
        std::function<void(PasteboardSnapshot)> done;
        std::function<void(PasteboardArchive)> archiveDone;
        PasteboardSnapshot snapshot;
        PasteboardArchive::Item archived;
        std::optional<Data> unconvertedImage;  // an image in a format other than PNG or TIFF
        std::vector<Step> steps;
        std::size_t next = 0;
    };

    X11Clipboard(MainLoop& loop, X11Connection& x11, uint8_t xfixesEventBase, Worker* converter);
    void onEvent(const xcb_generic_event_t& event);
    void startNextRead();
    void requestNextStep();
    void onConversion(std::optional<std::string> bytes);
    void takeTargets(const std::string& bytes);
    void take(const Step& step, std::string bytes);
    void finishRead();
    void takeConvertedImage(std::optional<Data> png);
    // Our own clipboard counts once, at the write, not again when the server tells of it.
    bool ownsClipboard() const { return writer_ && writer_->isOwner(); }
    X11ClipboardWriter& writer();
    bool countWrite(bool isOwner);

    MainLoop& loop_;
    X11Connection& x11_;
    uint8_t xfixesEventBase_;
    Worker* converter_;
    xcb_atom_t clipboard_;
    xcb_atom_t property_;
    xcb_atom_t incr_;
    long long changeCount_ = 0;
    std::deque<Read> queued_;
    std::optional<Read> read_;
    // The transfer under way: its target, and the chunks of an INCR one.
    xcb_atom_t awaitedTarget_ = XCB_ATOM_NONE;
    bool isIncremental_ = false;
    std::string incoming_;
    TaskHandle timeout_;
    std::unique_ptr<X11ClipboardWriter> writer_;  // made on the first write
    std::function<void()> onLost_;
    Lifetime lifetime_;
    Log log_{"capture"};
};

}  // namespace tamarind
