#pragma once
// The byte-level half of reading the X11 clipboard, apart from xcb so that it can be tested and
// fuzzed without a server: a TARGETS reply made names, one target's bytes gathered under a byte
// limit (in one property or in INCR chunks), and the decoders that make those bytes the
// snapshot's text and files. Pure; any thread.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Data.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

// The protocol's targets, never clipboard content.
bool isProtocolTarget(std::string_view name);

// The targets a TARGETS reply lists (32-bit atoms in this client's byte order, as the server
// sends a format-32 property), in the owner's order, once each. An atom `nameOf` doesn't know
// (it gives "") and the protocol's own targets are left out; a trailing partial atom is ignored.
std::vector<std::string> targetNames(std::string_view reply, const std::function<std::string(std::uint32_t)>& nameOf);

// One target's bytes as they come, in one property or as INCR chunks. With a limit, what passes
// it is refused as soon as it does: the bytes gathered are dropped and every later append
// refused, so the memory held never passes the limit either. Text and binary targets are kept in
// the type they end in, so that taking them copies nothing.
class TransferAssembly {
public:
    enum class Storage { text, data };

    // `maximumBytes` 0 is no limit.
    explicit TransferAssembly(long long maximumBytes = 0, Storage storage = Storage::text);

    // An INCR transfer's start: `incrValue` is its property's value, the size to come (a lower
    // bound; absent when shorter than 4 bytes). Room is reserved for it, up to a bound, as a
    // hostile owner may announce 4 GB and send nothing. False when the announced size passes
    // the limit.
    [[nodiscard]] bool announce(std::string_view incrValue);
    // False when the total passes the limit (or had already).
    [[nodiscard]] bool append(std::string_view bytes);

    bool isOverLimit() const { return isOverLimit_; }
    std::size_t size() const { return storage_ == Storage::text ? text_.size() : data_.size(); }
    // How many more bytes may come before the limit is passed; SIZE_MAX without a limit.
    std::size_t allowance() const;

    // What was gathered, in the storage it was made with (the other gives nothing).
    std::string takeText();
    Data takeData();

private:
    void refuse();

    long long maximumBytes_;
    Storage storage_;
    bool isOverLimit_ = false;
    std::string text_;
    Data data_;
};

// The largest reservation an INCR announcement makes; more is appended as it comes.
inline constexpr std::size_t kLargestTransferReservation = std::size_t{512} << 20;

// Each decoder gives valid UTF-8 and moves its input through when it already is, so that a text
// of hundreds of megabytes is not copied again.
std::string utf8Text(std::string bytes);
std::string latin1ToUtf8(std::string bytes);
// As UTF-8, or UTF-16 with a byte-order mark as Firefox and Chromium send it; a UTF-16 NUL ends it.
std::string htmlToUtf8(std::string bytes);
// text/uri-list (comments skipped, only file:// URIs), or GNOME's copied files, whose first line
// says "copy" or "cut".
std::vector<FileURL> fileURLsOf(std::string_view bytes, bool isGnomeCopiedFiles);

}  // namespace tamarind
