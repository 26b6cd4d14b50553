#pragma once
// The read side of the X11 CLIPBOARD selection. XFixes tells of every owner
// change, which raises the change counter, so nothing polls the server. A
// read asks the owner for TARGETS and then for each wanted target in turn,
// asynchronously and each with a time-out, following INCR transfers for
// large data (each chunk starts the time-out again).
//
// A read takes its snapshot from one owner. When the clipboard changes owner
// while a read is under way (our own write included), what was gathered is
// dropped and the new owner is read afresh from TARGETS; the caller's `done`
// gets the new owner's snapshot. The monitor, which sees the count move, may
// then read the same content once more, which the store takes as a repeat.
// An owner that changes again and again gets a few restarts, then the read
// delivers nothing.
//
// One time-out in total: an owner that lets a step time out is taken as not
// answering, so the rest of the read is given up and what was gathered is
// delivered. A quick refusal is an answer, and the read goes on.
//
// With a byte limit, a snapshot read refuses a target as soon as it is known
// to pass it (a property longer than the limit, an INCR transfer announced or
// arriving past it) and delivers a snapshot with nothing in it, which the
// ingest rejects as empty. A plain property past the limit is deleted, so
// that its bytes leave the server; an INCR owner is left to stop, as it sends
// its next chunk only once we delete the last. Memory for a large target is
// about its size plus a chunk. Archive reads, which put the user's clipboard
// back after a paste, have no limit.
//
// Targets become the snapshot's fields: image/png, else image/tiff, else any
// other image converted to PNG (on the converter worker when there is one: the
// next read waits for it, so snapshots keep their order); text/uri-list (else GNOME's copied files);
// UTF8_STRING, text/plain;charset=utf-8, text/plain, else Latin-1 STRING;
// text/rtf; text/html (UTF-16 as Firefox sends it is converted). The
// protocol's own targets are left out of `types`. An archive read takes every
// target as bytes. Our own writes count as changes at once, not when the
// server tells of them. Main thread only.

#include <algorithm>
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
#include "platform/x11/ClipboardTransfer.h"
#include "platform/x11/X11ClipboardWriter.h"
#include "platform/x11/X11Connection.h"

namespace tamarind {

inline constexpr Duration kClipboardRequestTimeout = std::chrono::milliseconds(500);
// Restarts one read allows for owner changes before it gives up.
inline constexpr int kMostClipboardReadRestarts = 5;

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

    // The most bytes a snapshot read takes of one target; 0 (the default) is no limit. Applies
    // from the next step read.
    void setMaximumBytes(long long maximumBytes) { maximumBytes_ = std::max(0LL, maximumBytes); }

    // Called when another program takes the clipboard this one wrote, as a process that only
    // serves what it wrote (the command line's paste) waits for.
    void setOnLost(std::function<void()> onLost) { onLost_ = std::move(onLost); }

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
        int restarts = 0;
    };
    // A property transfers land in, on our window.
    struct TransferProperty {
        xcb_atom_t atom = XCB_ATOM_NONE;
        std::optional<MonotonicTime> abandonedAt;
    };

    X11Clipboard(MainLoop& loop, X11Connection& x11, uint8_t xfixesEventBase, Worker* converter);
    void onEvent(const xcb_generic_event_t& event);
    void onSelectionNotify(const xcb_selection_notify_event_t& notify);
    void onChunk();
    // Reads the transfer property into `transfer_`: its type, or None when it is absent or
    // passes the limit (then `transfer_` is over it). Deletes it only when read whole.
    xcb_atom_t readTransferProperty();
    void startNextRead();
    void beginRead();
    void onOwnerChange();
    void requestNextStep();
    void onConversion(bool isAnswered);
    void onTimeOut();
    void refuseTooLarge();
    void giveUp();
    void abandonTransfer();
    void endTransfer();
    void takeTargets(std::string bytes);
    void take(const Step& step, TransferAssembly bytes);
    void finishRead();
    void takeConvertedImage(std::optional<Data> png);
    // Our own clipboard counts once, at the write, not again when the server tells of it.
    bool ownsClipboard() const { return writer_ && writer_->isOwner(); }
    X11ClipboardWriter& writer();
    bool countWrite(bool isOwner);
    xcb_atom_t property() const { return properties_[property_].atom; }

    MainLoop& loop_;
    X11Connection& x11_;
    uint8_t xfixesEventBase_;
    Worker* converter_;
    xcb_atom_t clipboard_;
    xcb_atom_t incr_;
    long long changeCount_ = 0;
    long long maximumBytes_ = 0;
    std::deque<Read> queued_;
    std::optional<Read> read_;
    // Raised at each read and restart, so that an image conversion finishing after a restart is
    // dropped.
    unsigned long long readGeneration_ = 0;
    // A transfer given up midway may still be written to by its owner (a late answer, the next
    // INCR chunk), so its property rests before it is used again and another takes its place.
    std::vector<TransferProperty> properties_;
    std::size_t property_ = 0;
    // The transfer under way: its target, and what has come of it.
    xcb_atom_t awaitedTarget_ = XCB_ATOM_NONE;
    bool isIncremental_ = false;
    TransferAssembly transfer_;
    TaskHandle timeout_;
    std::unique_ptr<X11ClipboardWriter> writer_;  // made on the first write
    std::function<void()> onLost_;
    Lifetime lifetime_;
    Log log_{"capture"};
};

}  // namespace tamarind
