#pragma once
// In-memory stand-ins for the clipboard and the desktop, for tests of the
// services above them. The clipboard is set by the test; a read answers on the
// next pass of the loop, as the real one does.

#include <optional>

#include "foundation/MainLoop.h"
#include "platform/Pasteboard.h"
#include "platform/Workspace.h"

namespace tamarind {

class FakePasteboard final : public Pasteboard {
public:
    explicit FakePasteboard(MainLoop& loop) : loop_(loop) {}

    long long changeCount() const override { return changeCount_; }
    void readSnapshot(std::function<void(PasteboardSnapshot)> done) override;

    // What another application copying would do: new content and a new count.
    void copy(PasteboardSnapshot content);
    void copyText(const std::string& text);
    int readCount() const { return readCount_; }

private:
    MainLoop& loop_;
    long long changeCount_ = 1;
    PasteboardSnapshot content_;
    int readCount_ = 0;
};

class FakeWorkspace final : public Workspace {
public:
    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    std::optional<RunningApplication> frontmost;
};

}  // namespace tamarind
