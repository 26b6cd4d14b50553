#pragma once
// In-memory stand-ins for the clipboard and the desktop, for tests of the
// services above them. The clipboard is set by the test; a read answers on the
// next pass of the loop, as the real one does.

#include <optional>

#include "foundation/MainLoop.h"
#include "platform/Pasteboard.h"
#include "platform/Permissions.h"
#include "platform/StatusItem.h"
#include "platform/Workspace.h"

namespace tamarind {

class FakePasteboard final : public Pasteboard {
public:
    explicit FakePasteboard(MainLoop& loop) : loop_(loop) {}

    long long changeCount() const override { return changeCount_; }
    void readSnapshot(std::function<void(PasteboardSnapshot)> done) override;
    // Kept for the test; a write is a change of the clipboard like any other.
    bool write(ClipboardContent content) override {
        writes.push_back(std::move(content));
        ++changeCount_;
        return true;
    }
    std::vector<ClipboardContent> writes;

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

// Keeps what the controller set, for the test to read.
class FakeStatusItem final : public StatusItem {
public:
    void setMenu(std::vector<StatusMenuItem> menu) override { items = std::move(menu); }
    void setItemTitle(std::size_t index, const std::string& title) override { items.at(index).title = title; }
    void setVisible(bool value) override { isVisible = value; }
    void setLook(StatusIconLook value) override { look = value; }

    std::vector<StatusMenuItem> items;
    bool isVisible = false;
    StatusIconLook look = StatusIconLook::monochrome;
};

// Grants the test sets; counts the settings pages opened.
class FakePermissions final : public Permissions {
public:
    bool hasAccessibilityAccess() override { return accessibility; }
    bool hasScreenRecordingAccess() override { return screenRecording; }
    bool requestAccessibilityAccess() override { return accessibility; }
    bool requestScreenRecordingAccess() override { return screenRecording; }
    void openSettings(const std::string& which) override { opened.push_back(which); }

    bool accessibility = false;
    bool screenRecording = false;
    std::vector<std::string> opened;
};

class FakeWorkspace final : public Workspace {
public:
    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    void setOnActivation(std::function<void()> callback) override { onActivation = std::move(callback); }
    std::function<void()> onActivation;
    std::optional<RunningApplication> frontmost;
};

}  // namespace tamarind
