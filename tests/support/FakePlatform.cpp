#include "support/FakePlatform.h"

#include "foundation/Text.h"

namespace tamarind {

namespace {

PasteboardArchive::Item itemOf(const PasteboardSnapshot& snapshot) {
    PasteboardArchive::Item item;
    if (snapshot.imageData) item.emplace_back("image/" + snapshot.imageFileExtension.value_or("png"), *snapshot.imageData);
    if (!snapshot.fileURLs.empty()) {
        std::string uris;
        for (const FileURL& file : snapshot.fileURLs) uris += file.uri() + "\r\n";
        item.emplace_back("text/uri-list", dataFromString(uris));
    }
    if (snapshot.htmlString) item.emplace_back("text/html", dataFromString(*snapshot.htmlString));
    if (snapshot.rtfData) item.emplace_back("text/rtf", *snapshot.rtfData);
    if (snapshot.string) item.emplace_back("text/plain;charset=utf-8", dataFromString(*snapshot.string));
    return item;
}

PasteboardSnapshot snapshotOf(const PasteboardArchive::Item& item) {
    PasteboardSnapshot snapshot;
    for (const auto& [type, bytes] : item) {
        snapshot.types.push_back(type);
        if (type == "text/plain;charset=utf-8") snapshot.string = stringFromData(bytes);
        if (type == "text/html") snapshot.htmlString = stringFromData(bytes);
        if (type == "text/rtf") snapshot.rtfData = bytes;
        if (type.starts_with("image/")) {
            snapshot.imageData = bytes;
            snapshot.imageFileExtension = type.substr(6);
        }
        if (type == "text/uri-list")
            for (std::string_view line : split(stringFromData(bytes), "\r\n"))
                if (auto file = FileURL::fromUri(line)) snapshot.fileURLs.push_back(*file);
    }
    return snapshot;
}

}  // namespace

bool FakePasteboard::write(ClipboardContent content) {
    PasteboardSnapshot snapshot;
    snapshot.string = content.text;
    snapshot.htmlString = content.html;
    snapshot.rtfData = content.rtf;
    snapshot.imageData = content.image;
    if (content.image) snapshot.imageFileExtension = content.imageExtension;
    snapshot.fileURLs = content.files;
    writes.push_back(std::move(content));
    current_ = itemOf(snapshot);
    content_ = snapshotOf(current_);
    ++changeCount_;
    return true;
}

void FakePasteboard::readArchive(std::function<void(PasteboardArchive)> done) {
    ++archiveReads;
    PasteboardArchive archive;
    if (!current_.empty()) archive.items.push_back(current_);
    loop_.post([done = std::move(done), archive = std::move(archive)]() mutable { done(std::move(archive)); });
}

bool FakePasteboard::writeArchive(const PasteboardArchive& archive) {
    current_.clear();
    for (const PasteboardArchive::Item& item : archive.items)
        if (!item.empty()) {
            current_ = item;
            break;
        }
    content_ = snapshotOf(current_);
    ++changeCount_;
    return true;
}

std::optional<std::string> FakePasteboard::currentText() const {
    for (const auto& [type, bytes] : current_)
        if (type == "text/plain;charset=utf-8") return stringFromData(bytes);
    return std::nullopt;
}

bool FakeHotKeys::press(const Shortcut& shortcut) {
    std::vector<std::function<void()>> handlers;
    for (const auto& [identifier, hotKey] : hotKeys)
        if (hotKey.first == shortcut) handlers.push_back(hotKey.second);
    for (const auto& handler : handlers) handler();
    return !handlers.empty();
}

bool FakeHotKeys::isRegistered(const Shortcut& shortcut) const {
    return std::any_of(hotKeys.begin(), hotKeys.end(), [&](const auto& entry) { return entry.second.first == shortcut; });
}

void FakePasteboard::readSnapshot(std::function<void(PasteboardSnapshot)> done) {
    ++readCount_;
    PasteboardSnapshot snapshot = content_;
    snapshot.changeCount = changeCount_;
    loop_.post([done = std::move(done), snapshot = std::move(snapshot)]() mutable { done(std::move(snapshot)); });
}

void FakePasteboard::copy(PasteboardSnapshot content) {
    current_ = itemOf(content);
    content_ = std::move(content);
    ++changeCount_;
}

void FakePasteboard::copyText(const std::string& text) {
    PasteboardSnapshot snapshot;
    snapshot.types = {"UTF8_STRING", "text/plain"};
    snapshot.string = text;
    copy(std::move(snapshot));
}

}  // namespace tamarind
