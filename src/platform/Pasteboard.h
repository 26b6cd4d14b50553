#pragma once
// The system clipboard as capture sees it: a change counter that costs
// nothing to read, and an asynchronous read of everything it holds. On X11
// the counter rises on each owner change of the CLIPBOARD selection, and a
// read converts the owner's targets one by one, each with a time-out.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/PasteboardSnapshot.h"

namespace tamarind {

// What a copy puts on the clipboard.
struct ClipboardContent {
    std::optional<std::string> text;
    std::optional<std::string> html;
    std::optional<Data> rtf;
    std::optional<Data> image;
    std::string imageExtension = "png";  // "png" or "tiff"
    std::vector<FileURL> files;
};

// Everything the clipboard holds, copied into memory (never to disk) so that it can be put back
// after a paste: per item, each type with its bytes, in the owner's order. X11 has one item.
struct PasteboardArchive {
    using Item = std::vector<std::pair<std::string, Data>>;
    std::vector<Item> items;
    bool isEmpty() const {
        for (const Item& item : items)
            if (!item.empty()) return false;
        return true;
    }
};

class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    // Rises on every change of the clipboard's content; no I/O.
    virtual long long changeCount() const = 0;
    // Reads what the clipboard holds now and calls `done` on the main loop with it (without
    // the source application, which the caller adds). Never blocks; a hung owner costs at most
    // the backend's time-out. One read at a time: a call while one runs is queued after it. The
    // snapshot comes from one owner of the clipboard; a backend that reads under a size limit
    // delivers one with nothing in it for a clipboard past the limit.
    virtual void readSnapshot(std::function<void(PasteboardSnapshot)> done) = 0;
    // Replaces what the clipboard holds (empty content clears it), served for as long as this
    // program owns it. False when the system gave it to nobody.
    virtual bool write(ClipboardContent content) = 0;

    // Reads every type the clipboard offers, as bytes, and calls `done` on the main loop; queued
    // behind a read under way, as readSnapshot is.
    virtual void readArchive(std::function<void(PasteboardArchive)> done) = 0;
    // Serves an archive's types again (the first non-empty item where only one can be held). With
    // no item, the clipboard is only cleared.
    virtual bool writeArchive(const PasteboardArchive& archive) = 0;
};

}  // namespace tamarind
