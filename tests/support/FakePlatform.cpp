#include "support/FakePlatform.h"

namespace tamarind {

void FakePasteboard::readSnapshot(std::function<void(PasteboardSnapshot)> done) {
    ++readCount_;
    PasteboardSnapshot snapshot = content_;
    snapshot.changeCount = changeCount_;
    loop_.post([done = std::move(done), snapshot = std::move(snapshot)]() mutable { done(std::move(snapshot)); });
}

void FakePasteboard::copy(PasteboardSnapshot content) {
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
