#include "platform/x11/ClipboardTransfer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "foundation/Text.h"

namespace tamarind {

bool isProtocolTarget(std::string_view name) {
    static constexpr std::array<std::string_view, 6> kProtocol = {"TARGETS",      "MULTIPLE", "TIMESTAMP",
                                                                  "SAVE_TARGETS", "DELETE",   "INCR"};
    return std::find(kProtocol.begin(), kProtocol.end(), name) != kProtocol.end();
}

std::vector<std::string> targetNames(std::string_view reply, const std::function<std::string(std::uint32_t)>& nameOf) {
    std::vector<std::string> names;
    for (std::size_t at = 0; at + 4 <= reply.size(); at += 4) {
        std::uint32_t atom = 0;
        std::memcpy(&atom, reply.data() + at, 4);
        std::string name = nameOf(atom);
        if (name.empty() || isProtocolTarget(name)) continue;
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    return names;
}

TransferAssembly::TransferAssembly(long long maximumBytes, Storage storage)
    : maximumBytes_(std::max(0LL, maximumBytes)), storage_(storage) {}

std::size_t TransferAssembly::allowance() const {
    if (maximumBytes_ == 0) return std::numeric_limits<std::size_t>::max();
    if (isOverLimit_) return 0;
    return static_cast<std::size_t>(maximumBytes_) - size();
}

void TransferAssembly::refuse() {
    isOverLimit_ = true;
    // Swapped out, not cleared, so that the memory goes too.
    std::string().swap(text_);
    Data().swap(data_);
}

bool TransferAssembly::announce(std::string_view incrValue) {
    if (isOverLimit_) return false;
    if (incrValue.size() < 4) return true;
    std::uint32_t announced = 0;
    std::memcpy(&announced, incrValue.data(), 4);
    if (announced > allowance()) {
        refuse();
        return false;
    }
    std::size_t room = std::min<std::size_t>(announced, kLargestTransferReservation);
    if (storage_ == Storage::text) {
        text_.reserve(room);
    } else {
        data_.reserve(room);
    }
    return true;
}

bool TransferAssembly::append(std::string_view bytes) {
    if (isOverLimit_) return false;
    if (bytes.size() > allowance()) {
        refuse();
        return false;
    }
    if (storage_ == Storage::text) {
        text_.append(bytes);
    } else {
        data_.insert(data_.end(), bytes.begin(), bytes.end());
    }
    return true;
}

std::string TransferAssembly::takeText() { return std::exchange(text_, {}); }

Data TransferAssembly::takeData() { return std::exchange(data_, {}); }

std::string utf8Text(std::string bytes) {
    if (isValidUtf8(bytes)) return bytes;
    return validUtf8(bytes);
}

std::string latin1ToUtf8(std::string bytes) {
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
        return bytes;
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 4);
    for (unsigned char c : bytes) appendUtf8(text, c);
    return text;
}

std::string htmlToUtf8(std::string bytes) {
    auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    bool isLittle = bytes.size() >= 2 && byte(0) == 0xFF && byte(1) == 0xFE;
    bool isBig = bytes.size() >= 2 && byte(0) == 0xFE && byte(1) == 0xFF;
    if (!isLittle && !isBig) return utf8Text(std::move(bytes));
    auto unit = [&](std::size_t at) -> char32_t {
        unsigned a = byte(at), b = byte(at + 1);
        return isLittle ? char32_t(a | (b << 8)) : char32_t((a << 8) | b);
    };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 2; at + 1 < bytes.size(); at += 2) {
        char32_t code = unit(at);
        if (code >= 0xD800 && code < 0xDC00 && at + 3 < bytes.size()) {
            char32_t low = unit(at + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                at += 2;
            }
        }
        if (code == 0) break;
        // A lone surrogate becomes U+FFFD here, so the text is valid as it is built.
        appendUtf8(text, code);
    }
    return text;
}

std::vector<FileURL> fileURLsOf(std::string_view bytes, bool isGnomeCopiedFiles) {
    std::vector<FileURL> files;
    bool isFirst = true;
    for (std::string_view line : split(bytes, "\n")) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (std::exchange(isFirst, false) && isGnomeCopiedFiles) continue;
        if (line.empty() || line.front() == '#') continue;
        if (auto file = FileURL::fromUri(line)) files.push_back(*file);
    }
    return files;
}

}  // namespace tamarind
