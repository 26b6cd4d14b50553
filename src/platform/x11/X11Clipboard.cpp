#include "platform/x11/X11Clipboard.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "foundation/Text.h"
#include "foundation/ImageCodec.h"

namespace tamarind {

namespace {

constexpr std::array<std::string_view, 4> kStringTargets = {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain",
                                                           "STRING"};
constexpr std::array<std::string_view, 3> kRtfTargets = {"text/rtf", "application/rtf", "text/richtext"};
constexpr std::array<std::string_view, 2> kFileTargets = {"text/uri-list", "x-special/gnome-copied-files"};

std::string latin1ToUtf8(std::string_view bytes) {
    std::string text;
    for (unsigned char c : bytes) appendUtf8(text, c);
    return text;
}

// Firefox and Chromium send text/html as UTF-16 with a byte-order mark.
std::string htmlToUtf8(const std::string& bytes) {
    bool isLittle = bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
                    static_cast<unsigned char>(bytes[1]) == 0xFE;
    bool isBig = bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFE &&
                 static_cast<unsigned char>(bytes[1]) == 0xFF;
    if (!isLittle && !isBig) return validUtf8(bytes);
    std::string text;
    auto unit = [&](std::size_t at) -> char32_t {
        auto a = static_cast<unsigned char>(bytes[at]), b = static_cast<unsigned char>(bytes[at + 1]);
        return isLittle ? char32_t(a | (b << 8)) : char32_t((a << 8) | b);
    };
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
        appendUtf8(text, code);
    }
    return validUtf8(text);
}

std::vector<FileURL> fileURLsOf(const std::string& bytes, bool isGnomeCopiedFiles) {
    std::vector<FileURL> files;
    bool isFirst = true;
    for (std::string_view line : split(bytes, "\n")) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        // GNOME's list starts with "copy" or "cut".
        if (std::exchange(isFirst, false) && isGnomeCopiedFiles) continue;
        if (line.empty() || line.front() == '#') continue;
        if (auto file = FileURL::fromUri(line)) files.push_back(*file);
    }
    return files;
}

}  // namespace

bool X11Clipboard::isProtocolTarget(std::string_view name) {
    static constexpr std::array<std::string_view, 6> kProtocol = {"TARGETS", "MULTIPLE", "TIMESTAMP",
                                                                  "SAVE_TARGETS", "DELETE", "INCR"};
    return std::find(kProtocol.begin(), kProtocol.end(), name) != kProtocol.end();
}

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
      property_(x11.atom("TAMARIND_CLIPBOARD")),
      incr_(x11.atom("INCR")) {
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
            notify.owner != XCB_WINDOW_NONE && !(writer_ && notify.owner == writer_->window()))
            ++changeCount_;
        return;
    }
    if (!read_) return;
    if (type == XCB_SELECTION_NOTIFY) {
        const auto& notify = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
        if (notify.requestor != x11_.window() || notify.selection != clipboard_ || notify.target != awaitedTarget_ ||
            isIncremental_)
            return;
        if (notify.property == XCB_ATOM_NONE) return onConversion(std::nullopt);
        auto property = x11_.property(x11_.window(), property_, true);
        x11_.flush();
        if (!property) return onConversion(std::nullopt);
        if (property->type == incr_) {
            // The owner sends the data in chunks, each after we delete the last.
            isIncremental_ = true;
            incoming_.clear();
            return;
        }
        return onConversion(std::move(property->bytes));
    }
    if (type == XCB_PROPERTY_NOTIFY && isIncremental_) {
        const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
        if (notify.window != x11_.window() || notify.atom != property_ || notify.state != XCB_PROPERTY_NEW_VALUE)
            return;
        auto chunk = x11_.property(x11_.window(), property_, true);
        x11_.flush();
        if (!chunk || chunk->bytes.empty()) return onConversion(std::move(incoming_));
        incoming_ += chunk->bytes;
        // Each chunk shows the owner is alive: its time-out starts again.
        timeout_ = loop_.postDelayed(kClipboardRequestTimeout, [this] { onConversion(std::nullopt); });
    }
}

bool X11Clipboard::countWrite(bool isOwner) {
    // At once, so that a paste can note the count its own write made.
    if (isOwner) ++changeCount_;
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
    read_->steps = {Step{x11_.atom("TARGETS"), "TARGETS", Field::targets}};
    requestNextStep();
}

void X11Clipboard::requestNextStep() {
    if (read_->next >= read_->steps.size()) return finishRead();
    const Step& step = read_->steps[read_->next];
    awaitedTarget_ = step.target;
    isIncremental_ = false;
    xcb_delete_property(x11_.connection(), x11_.window(), property_);
    xcb_convert_selection(x11_.connection(), x11_.window(), clipboard_, step.target, property_, XCB_CURRENT_TIME);
    x11_.flush();
    timeout_ = loop_.postDelayed(kClipboardRequestTimeout, [this] {
        log_.debug("The clipboard owner did not answer for %{public}s in time.", read_->steps[read_->next].name);
        onConversion(std::nullopt);
    });
}

void X11Clipboard::onConversion(std::optional<std::string> bytes) {
    timeout_.cancel();
    awaitedTarget_ = XCB_ATOM_NONE;
    isIncremental_ = false;
    const Step step = read_->steps[read_->next++];
    // A PNG that fails or never comes: the TIFF, when the owner offers one, is asked for next.
    if ((!bytes || bytes->empty()) && step.field == Field::image && step.name == "image/png") {
        const auto& types = read_->snapshot.types;
        if (std::find(types.begin(), types.end(), "image/tiff") != types.end())
            read_->steps.insert(read_->steps.begin() + static_cast<std::ptrdiff_t>(read_->next),
                                Step{x11_.atom("image/tiff"), "image/tiff", Field::image});
    }
    if (bytes) {
        if (step.field == Field::targets) {
            takeTargets(*bytes);
        } else {
            take(step, std::move(*bytes));
        }
    }
    requestNextStep();
}

// Types in the owner's order, and the steps that fetch each wanted field from the best target.
void X11Clipboard::takeTargets(const std::string& bytes) {
    std::vector<std::string> names;
    for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) {
        xcb_atom_t atom = 0;
        std::memcpy(&atom, bytes.data() + at, 4);
        std::string name = x11_.atomName(atom);
        if (name.empty() || isProtocolTarget(name)) continue;
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
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

void X11Clipboard::take(const Step& step, std::string bytes) {
    PasteboardSnapshot& snapshot = read_->snapshot;
    switch (step.field) {
    case Field::targets: break;
    case Field::image: {
        if (bytes.empty()) return;
        Data data = dataFromString(bytes);
        if (step.name != "image/png" && step.name != "image/tiff") {
            read_->unconvertedImage = std::move(data);
            return;
        }
        snapshot.imageFileExtension = step.name == "image/png" ? "png" : "tiff";
        snapshot.imagePixelSize = imagePixelSize(data);
        snapshot.imageData = std::move(data);
        break;
    }
    case Field::files: snapshot.fileURLs = fileURLsOf(bytes, step.name == "x-special/gnome-copied-files"); break;
    case Field::string: snapshot.string = step.name == "STRING" ? latin1ToUtf8(bytes) : validUtf8(bytes); break;
    case Field::rtf: snapshot.rtfData = dataFromString(bytes); break;
    case Field::html: snapshot.htmlString = htmlToUtf8(bytes); break;
    case Field::raw: read_->archived.emplace_back(step.name, dataFromString(bytes)); break;
    }
}

void X11Clipboard::finishRead() {
    if (read_->unconvertedImage) {
        Data image = std::move(*read_->unconvertedImage);
        read_->unconvertedImage.reset();
        if (converter_) {
            // Decoding and encoding take tens of milliseconds for a big image; the read stays
            // under way meanwhile, so the next one waits.
            converter_->run([this, &loop = loop_, image = std::move(image), alive = lifetime_.weak()] {
                loop.post([this, png = convertToPng(image), alive]() mutable {
                    if (!alive.isAlive()) return;
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
