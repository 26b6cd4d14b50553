// A paste goes back to the window it was meant for after another one came to the front: through
// the window manager's _NET_ACTIVE_WINDOW (openbox here), and with no window manager at all, where
// the paste raises and focuses the window itself. Our paste_target windows record what arrives.

#include <gtest/gtest.h>

#include <fstream>

#include "capture/CapturePreferences.h"
#include "paste/PasteService.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11KeySender.h"
#include "platform/x11/X11Workspace.h"
#include "x11/X11Fixtures.h"

namespace tamarind {
namespace {

class PasteActivationTest : public X11Test {
protected:
    void SetUp() override {
        X11Test::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        clipboard_ = std::move(std::get<std::unique_ptr<X11Clipboard>>(X11Clipboard::create(loop_, *x11_)));
        sender_ = std::move(std::get<std::unique_ptr<X11KeySender>>(X11KeySender::create(loop_, *x11_)));
        workspace_ = std::make_unique<X11Workspace>(*x11_);
        paste_ = std::make_unique<PasteService>(
            loop_, PlatformForPaste{*clipboard_, *workspace_, nullptr, sender_.get()}, BlobStore(home_.path()),
            preferences_);
    }

    bool isInFront(const std::string& windowClass) {
        auto frontmost = workspace_->frontmostApplication();
        return frontmost && frontmost->bundleID == windowClass;
    }
    std::string pastedInto(const std::string& windowClass) {
        std::ifstream file(home_.path() / (windowClass + ".jsonl"));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    void openWindow(const std::string& windowClass, bool isManaged) {
        std::vector<std::string> arguments{(home_.path() / (windowClass + ".jsonl")).string(), "--class", windowClass};
        if (isManaged) arguments.push_back("--managed");
        session_.start(TAMARIND_PASTE_TARGET, arguments, "ready");
        ASSERT_TRUE(runUntil([&] { return isInFront(windowClass); })) << windowClass << " never came to the front";
    }

    // The editor is recorded as the target, another window comes to the front, then the paste.
    void pasteBackIntoTheEditor(bool isManaged) {
        openWindow("gedit", isManaged);
        paste_->recordTargetApplication();
        openWindow("mousepad", isManaged);

        Clip clip = Clip::make(Date::systemNow());
        clip.text = "for the editor";
        std::optional<PasteOutcome> outcome;
        paste_->paste(clip, {}, [&](PasteOutcome result) { outcome = result; });
        ASSERT_TRUE(runUntil([&] { return outcome && !pastedInto("gedit").empty(); })) << pastedInto("mousepad");
        EXPECT_EQ(outcome, PasteOutcome::pasted);
        EXPECT_NE(pastedInto("gedit").find("\"text\":\"for the editor\""), std::string::npos) << pastedInto("gedit");
        EXPECT_EQ(pastedInto("mousepad"), "");
        EXPECT_TRUE(isInFront("gedit"));
    }

    TemporaryFolder home_;
    InMemoryDefaults defaults_;
    CapturePreferences preferences_{defaults_, loop_};
    std::unique_ptr<X11Clipboard> clipboard_;
    std::unique_ptr<X11KeySender> sender_;
    std::unique_ptr<X11Workspace> workspace_;
    std::unique_ptr<PasteService> paste_;
};

TEST_F(PasteActivationTest, TheWindowManagerBringsBackTheTargetBeforeTheKeystroke) {
    if (!X11Session::hasProgram("openbox")) GTEST_SKIP() << "openbox is not installed (scripts/setup installs it)";
    // Its start-up command runs once it manages windows; a window mapped before may not get the focus.
    session_.start("openbox", {"--sm-disable", "--startup", "echo ready"}, "ready");
    ASSERT_TRUE(x11_->property(x11_->root(), x11_->atom("_NET_SUPPORTING_WM_CHECK"))) << "openbox did not come up";
    pasteBackIntoTheEditor(true);
}

TEST_F(PasteActivationTest, WithNoWindowManagerThePasteRaisesAndFocusesTheTargetItself) {
    pasteBackIntoTheEditor(false);
}

}  // namespace
}  // namespace tamarind
