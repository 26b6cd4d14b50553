#include "platform/x11/X11Clipboard.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

#include "foundation/ImageCodec.h"

namespace tamarind {

namespace {

constexpr std::array<std::string_view, 4> kStringTargets = {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain",
                                                           "STRING"};
constexpr std::array<std::string_view, 3> kRtfTargets = {"text/rtf", "application/rtf", "text/richtext"};
constexpr std::array<std::string_view, 2> kFileTargets = {"text/uri-list", "x-special/gnome-copied-files"};

// A property given up on is used again only after this, when its owner has long given up too.
constexpr Duration kAbandonedPropertyRest = std::chrono::seconds(60);
// Past this a TARGETS list is not a clipboard worth reading: each unknown atom costs a round trip.
constexpr long long kLargestTargetList = 16 * 1024;

}  // namespace

std::variant<std::unique_ptr<X11Clipboard>, std::string> X11Clipboard::create(MainLoop& loop, X11Connection& x11,
                                                                                Worker* converter) {
    xcb_connection_t* connection = x11.connection();
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (!extension || !extension->present) return std::string("the X server has no XFIXES extension");
    // XFixes answers nothing until a client has said which version it speaks.
    auto cookie = xcb_xfixes_query_version(connection, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION);
    std::free(xcb_xfixes_query_version_reply(connection, cookie, nullptr));
    return std::unique_ptr<X11Clipboard>(new X11Clipboard(loop, x11, extension->first_event, converter));
}

X11Clipboard::X11Clipboard(MainLoop& loop, X11Connection& x11, uint8_t xfixesEventBase, Worker* converter)
    : loop_(loop),
      x11_(x11),
      xfixesEventBase_(xfixesEventBase),
      converter_(converter),
      clipboard_(x11.atom("CLIPBOARD")),
      incr_(x11.atom("INCR")) {
    properties_.push_back(TransferProperty{x11.atom("TAMARIND_CLIPBOARD"), std::nullopt});
    xcb_xfixes_select_selection_input(x11_.connection(), x11_.window(), clipboard_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    x11_.flush();
    x11_.addListener([this, alive = lifetime_.weak()](const xcb_generic_event_t& event) {
        if (alive.isAlive()) onEvent(event);
    });
}

X11Clipboard::~X11Clipboard() { lifetime_.end(); }

void X11Clipboard::onEvent(const xcb_generic_event_t& event) {
    uint8_t type = event.response_type & 0x7f;
    if (type == xfixesEventBase_ + XCB_XFIXES_SELECTION_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
        // An owner that went away leaves the clipboard empty: nothing new to read.
        if (notify.selection == clipboard_ && notify.subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER &&
            notify.owner != XCB_WINDOW_NONE && !(writer_ && notify.owner == writer_->window())) {
            ++changeCount_;
            onOwnerChange();
        }
        return;
    }
    if (!read_) return;
    if (type == XCB_SELECTION_NOTIFY)
        return onSelectionNotify(reinterpret_cast<const xcb_selection_notify_event_t&>(event));
    if (type == XCB_PROPERTY_NOTIFY && isIncremental_) {
        const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (notify.window == x11_.window() && notify.atom == property() && notify.state == XCB_PROPERTY_NEW_VALUE)
            onChunk();
    }
}

void X11Clipboard::onSelectionNotify(const xcb_selection_notify_event_t& notify) {
    // A late answer to a request given up on names another target or lands in another property.
    if (notify.requestor != x11_.window() || notify.selection != clipboard_ || notify.target != awaitedTarget_ ||
        isIncremental_ || (notify.property != XCB_ATOM_NONE && notify.property != property()))
        return;
    if (notify.property == XCB_ATOM_NONE) return onConversion(false);
    xcb_atom_t type = readTransferProperty();
    if (transfer_.isOverLimit()) return refuseTooLarge();
    if (type == XCB_ATOM_NONE) return onConversion(false);
    if (type == incr_) {
        // The owner sends the data in chunks, each after we delete the last; it has answered.
        isIncremental_ = true;
        timeout_ = loop_.postDelayed(kClipboardRequestTimeout, [this] { onTimeOut(); });
        return;
    }
    onConversion(true);
}

void X11Clipboard::onChunk() {
    std::size_t before = transfer_.size();
    xcb_atom_t type = readTransferProperty();
    if (transfer_.isOverLimit()) return refuseTooLarge();
    // An empty chunk ends the transfer.
    if (type == XCB_ATOM_NONE || transfer_.size() == before) return onConversion(true);
    // Each chunk shows the owner is alive: its time-out starts again.
    timeout_ = loop_.postDelayed(kClipboardRequestTimeout, [this] { onTimeOut(); });
}

xcb_atom_t X11Clipboard::readTransferProperty() {
    // One word more than the limit allows, so that a longer property shows as such without being
    // read whole.
    std::size_t allowance = transfer_.allowance();
    constexpr std::size_t kAllWords = UINT32_MAX / 4;
    auto words = static_cast<uint32_t>(std::min(kAllWords, allowance / 4 + 1));
    xcb_connection_t* connection = x11_.connection();
    auto cookie = xcb_get_property(connection, 0, x11_.window(), property(), XCB_GET_PROPERTY_TYPE_ANY, 0, words);
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection, cookie, nullptr);
    xcb_atom_t type = reply ? reply->type : xcb_atom_t{XCB_ATOM_NONE};
    bool fits = false;
    if (type != XCB_ATOM_NONE) {
        std::string_view value(static_cast<const char*>(xcb_get_property_value(reply)),
                               static_cast<std::size_t>(xcb_get_property_value_length(reply)));
        fits = type == incr_ && !isIncremental_ ? transfer_.announce(value) : transfer_.append(value);
    }
    std::free(reply);
    // Deleting an INCR property or a chunk asks the owner for the next chunk: one past the limit
    // stays, and the owner stops there. A plain property past it is deleted, so that its bytes
    // leave the server.
    if (fits || (type != XCB_ATOM_NONE && type != incr_ && !isIncremental_))
        xcb_delete_property(connection, x11_.window(), property());
    // Also hands on what the server sent while the reply was awaited.
    x11_.flush();
    return fits ? type : xcb_atom_t{XCB_ATOM_NONE};
}

bool X11Clipboard::countWrite(bool isOwner) {
    // At once, so that a paste can note the count its own write made.
    if (isOwner) {
        ++changeCount_;
        onOwnerChange();
    }
    return isOwner;
}

bool X11Clipboard::write(ClipboardContent content) {
    return countWrite(writer().write(content));
}

bool X11Clipboard::writeArchive(const PasteboardArchive& archive) {
    std::vector<std::pair<std::string, std::string>> targets;
    // One selection holds one item: the first that has anything.
    for (const PasteboardArchive::Item& item : archive.items) {
        if (item.empty()) continue;
        for (const auto& [type, bytes] : item) targets.emplace_back(type, stringFromData(bytes));
        break;
    }
    return countWrite(writer().writeTargets(std::move(targets)));
}

X11ClipboardWriter& X11Clipboard::writer() {
    if (!writer_) {
        writer_ = std::make_unique<X11ClipboardWriter>(x11_);
        writer_->setOnLost([this] {
            if (onLost_) onLost_();
        });
    }
    return *writer_;
}

void X11Clipboard::readSnapshot(std::function<void(PasteboardSnapshot)> done) {
    Read read;
    read.done = std::move(done);
    queued_.push_back(std::move(read));
    if (!read_) startNextRead();
}

void X11Clipboard::readArchive(std::function<void(PasteboardArchive)> done) {
    // What we serve ourselves needs no round trip through the server.
    if (ownsClipboard() && !read_) {
        PasteboardArchive archive;
        PasteboardArchive::Item item;
        for (auto& [type, bytes] : writer_->servedTargets()) item.emplace_back(type, dataFromString(bytes));
        archive.items.push_back(std::move(item));
        loop_.post([done = std::move(done), archive = std::move(archive)]() mutable { done(std::move(archive)); });
        return;
    }
    Read read;
    read.archiveDone = std::move(done);
    queued_.push_back(std::move(read));
    if (!read_) startNextRead();
}

void X11Clipboard::startNextRead() {
    if (queued_.empty()) return;
    read_ = std::move(queued_.front());
    queued_.pop_front();
    beginRead();
}

void X11Clipboard::beginRead() {
    ++readGeneration_;
    read_->steps = {Step{x11_.atom("TARGETS"), "TARGETS", Field::targets}};
    read_->next = 0;
    requestNextStep();
}

void X11Clipboard::onOwnerChange() {
    if (!read_) return;
    // The old owner may still answer, or send its next chunk: into a property we no longer read.
    if (awaitedTarget_ != XCB_ATOM_NONE) abandonTransfer();
    endTransfer();
    if (++read_->restarts > kMostClipboardReadRestarts) {
        log_.info("The clipboard changed owner %{public}d times during one read; not read.", read_->restarts);
        return giveUp();
    }
    log_.debug("The clipboard changed owner during a read; reading the new owner.");
    read_->snapshot = PasteboardSnapshot();
    read_->archived.clear();
    read_->unconvertedImage.reset();
    beginRead();
}

void X11Clipboard::requestNextStep() {
    if (read_->next >= read_->steps.size()) return finishRead();
    const Step& step = read_->steps[read_->next];
    awaitedTarget_ = step.target;
    isIncremental_ = false;
    bool isBinary = step.field == Field::image || step.field == Field::rtf || step.field == Field::raw;
    long long limit = step.field == Field::targets ? kLargestTargetList : read_->archiveDone ? 0 : maximumBytes_;
    transfer_ = TransferAssembly(limit, isBinary ? TransferAssembly::Storage::data : TransferAssembly::Storage::text);
    xcb_delete_property(x11_.connection(), x11_.window(), property());
    xcb_convert_selection(x11_.connection(), x11_.window(), clipboard_, step.target, property(), XCB_CURRENT_TIME);
    x11_.flush();
    timeout_ = loop_.postDelayed(kClipboardRequestTimeout, [this] { onTimeOut(); });
}

void X11Clipboard::endTransfer() {
    timeout_.cancel();
    awaitedTarget_ = XCB_ATOM_NONE;
    isIncremental_ = false;
    transfer_ = TransferAssembly();
}

void X11Clipboard::onConversion(bool isAnswered) {
    TransferAssembly bytes = std::move(transfer_);
    endTransfer();
    const Step step = read_->steps[read_->next++];
    // A PNG refused or empty: the TIFF, when the owner offers one, is asked for next.
    if ((!isAnswered || bytes.size() == 0) && step.field == Field::image && step.name == "image/png") {
        const auto& types = read_->snapshot.types;
        if (std::find(types.begin(), types.end(), "image/tiff") != types.end())
            read_->steps.insert(read_->steps.begin() + static_cast<std::ptrdiff_t>(read_->next),
                                Step{x11_.atom("image/tiff"), "image/tiff", Field::image});
    }
    if (isAnswered) {
        if (step.field == Field::targets) {
            takeTargets(bytes.takeText());
        } else {
            take(step, std::move(bytes));
        }
    }
    requestNextStep();
}

// The owner is taken as not answering: asking it for more would cost a time-out each.
void X11Clipboard::onTimeOut() {
    log_.debug("The clipboard owner did not answer for %{public}s in time; the rest of the read is given up.",
               read_->steps[read_->next].name);
    abandonTransfer();
    endTransfer();
    finishRead();
}

void X11Clipboard::refuseTooLarge() {
    if (read_->steps[read_->next].field == Field::targets) {
        log_.info("The clipboard owner offers more targets than can be read; not read.");
    } else {
        log_.info("The clipboard holds more than the size limit; not read.");
    }
    abandonTransfer();
    giveUp();
}

// Delivers nothing: a snapshot or archive with nothing in it.
void X11Clipboard::giveUp() {
    endTransfer();
    read_->snapshot = PasteboardSnapshot();
    read_->archived.clear();
    read_->unconvertedImage.reset();
    finishRead();
}

void X11Clipboard::abandonTransfer() {
    MonotonicTime now = loop_.clock().now();
    properties_[property_].abandonedAt = now;
    for (std::size_t i = 0; i < properties_.size(); ++i) {
        TransferProperty& candidate = properties_[i];
        if (candidate.abandonedAt && now - *candidate.abandonedAt < kAbandonedPropertyRest) continue;
        candidate.abandonedAt.reset();
        property_ = i;
        return;
    }
    properties_.push_back(
        TransferProperty{x11_.atom("TAMARIND_CLIPBOARD_" + std::to_string(properties_.size())), std::nullopt});
    property_ = properties_.size() - 1;
}

// Types in the owner's order, and the steps that fetch each wanted field from the best target.
void X11Clipboard::takeTargets(std::string bytes) {
    std::vector<std::string> names = targetNames(bytes, [this](std::uint32_t atom) { return x11_.atomName(atom); });
    read_->snapshot.types = names;
    if (read_->archiveDone) {
        for (const std::string& name : names) read_->steps.push_back(Step{x11_.atom(name), name, Field::raw});
        return;
    }
    auto offered = [&](std::string_view name) { return std::find(names.begin(), names.end(), name) != names.end(); };
    auto first = [&](auto candidates) -> std::optional<std::string> {
        for (std::string_view candidate : candidates)
            if (offered(candidate)) return std::string(candidate);
        return std::nullopt;
    };
    auto add = [&](std::optional<std::string> name, Field field) {
        if (name) read_->steps.push_back(Step{x11_.atom(*name), *name, field});
    };
    std::optional<std::string> image = offered("image/png") ? "image/png" : offered("image/tiff") ? "image/tiff" : std::optional<std::string>();
    if (!image)
        for (const std::string& name : names)
            if (name.starts_with("image/")) {
                image = name;
                break;
            }
    add(image, Field::image);
    add(first(kFileTargets), Field::files);
    add(first(kStringTargets), Field::string);
    add(first(kRtfTargets), Field::rtf);
    add(offered("text/html") ? std::optional<std::string>("text/html") : std::nullopt, Field::html);
}

void X11Clipboard::take(const Step& step, TransferAssembly bytes) {
    PasteboardSnapshot& snapshot = read_->snapshot;
    switch (step.field) {
    case Field::targets: break;
    case Field::image: {
        Data data = bytes.takeData();
        if (data.empty()) return;
        if (step.name != "image/png" && step.name != "image/tiff") {
            read_->unconvertedImage = std::move(data);
            return;
        }
        snapshot.imageFileExtension = step.name == "image/png" ? "png" : "tiff";
        snapshot.imagePixelSize = imagePixelSize(data);
        snapshot.imageData = std::move(data);
        break;
    }
    case Field::files:
        snapshot.fileURLs = fileURLsOf(bytes.takeText(), step.name == "x-special/gnome-copied-files");
        break;
    case Field::string:
        snapshot.string = step.name == "STRING" ? latin1ToUtf8(bytes.takeText()) : utf8Text(bytes.takeText());
        break;
    case Field::rtf: snapshot.rtfData = bytes.takeData(); break;
    case Field::html: snapshot.htmlString = htmlToUtf8(bytes.takeText()); break;
    case Field::raw: read_->archived.emplace_back(step.name, bytes.takeData()); break;
    }
}

void X11Clipboard::finishRead() {
    if (read_->unconvertedImage) {
        Data image = std::move(*read_->unconvertedImage);
        read_->unconvertedImage.reset();
        if (converter_) {
            // Decoding and encoding take tens of milliseconds for a big image; the read stays
            // under way meanwhile, so the next one waits. A restart meanwhile drops the result.
            converter_->run([this, &loop = loop_, image = std::move(image), alive = lifetime_.weak(),
                             generation = readGeneration_] {
                loop.post([this, png = convertToPng(image), alive, generation]() mutable {
                    if (!alive.isAlive() || !read_ || generation != readGeneration_) return;
                    takeConvertedImage(std::move(png));
                    finishRead();
                });
            });
            return;
        }
        takeConvertedImage(convertToPng(image));
    }
    Read read = std::move(*read_);
    read_.reset();
    read.snapshot.changeCount = changeCount_;
    if (read.archiveDone) {
        PasteboardArchive archive;
        if (!read.archived.empty()) archive.items.push_back(std::move(read.archived));
        loop_.post([done = std::move(read.archiveDone), archive = std::move(archive)]() mutable {
            done(std::move(archive));
        });
        return startNextRead();
    }
    loop_.post([done = std::move(read.done), snapshot = std::move(read.snapshot)]() mutable { done(std::move(snapshot)); });
    startNextRead();
}

void X11Clipboard::takeConvertedImage(std::optional<Data> png) {
    if (!png) return;
    read_->snapshot.imageFileExtension = "png";
    read_->snapshot.imagePixelSize = imagePixelSize(*png);
    read_->snapshot.imageData = std::move(*png);
}

}  // namespace tamarind
