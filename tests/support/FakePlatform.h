#pragma once
// In-memory stand-ins for the clipboard and the desktop, for tests of the
// services above them. The clipboard is set by the test; a read answers on the
// next pass of the loop, as the real one does.

#include <optional>

#include <algorithm>
#include <map>

#include "foundation/MainLoop.h"
#include "paste/HUD.h"
#include "platform/Alerts.h"
#include "platform/HotKeys.h"
#include "platform/KeyEvents.h"
#include "platform/Pasteboard.h"
#include "platform/Permissions.h"
#include "platform/StatusItem.h"
#include "platform/SuspensionEvents.h"
#include "platform/Workspace.h"

namespace tamarind {

class FakePasteboard final : public Pasteboard {
public:
    explicit FakePasteboard(MainLoop& loop) : loop_(loop) {}

    long long changeCount() const override { return changeCount_; }
    void readSnapshot(std::function<void(PasteboardSnapshot)> done) override;
    // Kept for the test; a write is a change of the clipboard like any other.
    bool write(ClipboardContent content) override;
    std::vector<ClipboardContent> writes;
    void readArchive(std::function<void(PasteboardArchive)> done) override;
    bool writeArchive(const PasteboardArchive& archive) override;
    int archiveReads = 0;

    // What the clipboard holds now, as the types a reader is offered and their bytes.
    const PasteboardArchive::Item& current() const { return current_; }
    // The text type of `current()`, if any.
    std::optional<std::string> currentText() const;

    // What another application copying would do: new content and a new count.
    void copy(PasteboardSnapshot content);
    void copyText(const std::string& text);
    int readCount() const { return readCount_; }

private:
    MainLoop& loop_;
    long long changeCount_ = 1;
    PasteboardSnapshot content_;
    PasteboardArchive::Item current_;
    int readCount_ = 0;
};

// Keeps what the controller set, for the test to read.
class FakeStatusItem final : public StatusItem {
public:
    void setMenu(std::vector<StatusMenuItem> menu) override { items = std::move(menu); }
    void setItemTitle(std::size_t index, const std::string& title) override { items.at(index).title = title; }
    void setVisible(bool value) override { isVisible = value; }
    void setLook(StatusIconLook value) override { look = value; }
    void setToolTip(const std::string& text) override { toolTip = text; }

    std::vector<StatusMenuItem> items;
    std::string toolTip;
    bool isVisible = false;
    StatusIconLook look = StatusIconLook::monochrome;
};

// Keeps the handler; `deliver` is the system going to sleep, locking or waking, as logind or the
// screensaver would tell of it, at once.
class FakeSuspensionEvents final : public SuspensionEvents {
public:
    void setHandler(std::function<void(bool isSuspending, const std::string& reason)> value) override {
        handler = std::move(value);
    }
    // Whether a handler was there to hear it.
    bool deliver(bool isSuspending, const std::string& reason) {
        if (!handler) return false;
        handler(isSuspending, reason);
        return true;
    }
    std::function<void(bool isSuspending, const std::string& reason)> handler;
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

// The application in front is whatever the test says; windows in `closedWindows` are gone.
class FakeWorkspace final : public Workspace {
public:
    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    void setOnActivation(std::function<void()> callback) override { onActivation = std::move(callback); }
    bool isTerminated(const RunningApplication& application) override {
        return std::find(closedWindows.begin(), closedWindows.end(), application.window) != closedWindows.end();
    }
    bool activate(const RunningApplication& application) override {
        if (isTerminated(application)) return false;
        activated.push_back(application);
        frontmost = application;
        return true;
    }
    std::function<void()> onActivation;
    std::optional<RunningApplication> frontmost;
    std::vector<std::uint64_t> closedWindows;
    std::vector<RunningApplication> activated;
};

// Keystrokes are counted and answered on the next pass of the loop; the held modifiers are set
// by the test. With `isRefused` the keystroke can't be made.
class FakeKeyEvents final : public KeyEvents {
public:
    explicit FakeKeyEvents(MainLoop& loop) : loop_(loop) {}
    int currentModifierFlags() override { return modifierFlags; }
    void sendPaste(std::function<void(bool)> done) override {
        if (!isRefused) ++pastesSent;
        loop_.post([done = std::move(done), sent = !isRefused] { done(sent); });
    }
    int modifierFlags = 0;
    int pastesSent = 0;
    bool isRefused = false;

private:
    MainLoop& loop_;
};

// Registered combinations by identifier; `press` fires the handlers of a combination, as the
// system would. Combinations in `taken` are refused with status 10, as a grab another client holds.
class FakeHotKeys final : public HotKeys {
public:
    int registerHotKey(int identifier, const Shortcut& shortcut, std::function<void()> onKeyDown) override {
        if (std::find(taken.begin(), taken.end(), shortcut) != taken.end()) return 10;
        hotKeys[identifier] = {shortcut, std::move(onKeyDown)};
        return 0;
    }
    void unregisterHotKey(int identifier) override { hotKeys.erase(identifier); }
    // Whether anything was registered for it.
    bool press(const Shortcut& shortcut);
    bool isRegistered(const Shortcut& shortcut) const;

    std::map<int, std::pair<Shortcut, std::function<void()>>> hotKeys;
    std::vector<Shortcut> taken;
};

// Keeps each alert run; the test answers the oldest open one.
class FakeAlerts final : public Alerts {
public:
    void runModal(AlertContent content, std::function<void(std::size_t)> done) override {
        shown.push_back(std::move(content));
        open.push_back(std::move(done));
    }
    void answer(std::size_t button) {
        auto done = std::move(open.front());
        open.erase(open.begin());
        done(button);
    }
    std::vector<AlertContent> shown;
    std::vector<std::function<void(std::size_t)>> open;
};

// Keeps what was shown; a show replaces the last one.
class FakeHUD final : public HUD {
public:
    void show(HUDContent content, Duration duration) override {
        shown.push_back(std::move(content));
        lastDuration = duration;
        isVisible = true;
    }
    void dismiss() override { isVisible = false; }
    std::vector<HUDContent> shown;
    Duration lastDuration{};
    bool isVisible = false;
};

}  // namespace tamarind
