#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/ClipCaptureService.h"
#include "capture/SensitiveContent.h"
#include "rules/RuleEvaluation.h"
#include "support/FakePlatform.h"
#include "support/ManualMainLoop.h"
#include "support/TemporaryFolder.h"

namespace tamarind {
namespace {

using ::testing::ElementsAre;

class ClipCaptureServiceTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    ManualMainLoop loop;
    InMemoryDefaults defaults;
    FakePasteboard pasteboard{loop};
    FakeWorkspace workspace;
    std::vector<SmartRule> rules;
    RulesInForce rulesInForce{[this] { return rules; }};
    SensitiveContentDetector secrets;
    std::unique_ptr<ClipStore> store;
    std::unique_ptr<CapturePreferences> preferences;
    std::unique_ptr<ClipboardMonitor> monitor;
    std::unique_ptr<ClipCaptureService> capture;

    void make() {
        store = std::make_unique<ClipStore>(loop, TamarindStores{*ModelContainer::openInMemory(), nullptr, false},
                                            BlobStore(folder.path() / "blobs"), "TEST",
                                            IngestPolicy{&rulesInForce, &secrets});
        preferences = std::make_unique<CapturePreferences>(defaults, loop);
        monitor = std::make_unique<ClipboardMonitor>(loop, pasteboard, workspace);
        capture = std::make_unique<ClipCaptureService>(loop, *store, *preferences, *monitor);
    }
    void SetUp() override { make(); }

    // Another application copies; the next tick picks it up.
    void copy(const std::string& text, const std::string& app = "org.gnome.TextEditor") {
        workspace.frontmost = RunningApplication{app, "App"};
        pasteboard.copyText(text);
        loop.advanceBy(kClipboardPollInterval);
    }
    std::string counters() const {
        const auto& last = capture->lastResult().value();
        return "captured " + std::to_string(*capture->capturedThisSession()) + ", rejected " +
               std::to_string(*capture->rejectedThisSession()) + ", last " + (last ? last->description() : "none");
    }
    // The library, oldest first.
    std::string stored() {
        std::string out;
        for (const Clip& clip : store->fetchPage(0, ClipQuery{}, ClipSortOrder::oldest, 100))
            out += (out.empty() ? "" : ", ") + clip.text.value_or("?") + (clip.isFavorite ? "[fav]" : "");
        return out;
    }
    void ingestDirectly(const std::string& text, double at) {
        PasteboardSnapshot snapshot;
        snapshot.types = {"UTF8_STRING"};
        snapshot.string = text;
        snapshot.capturedAt = Date::fromReferenceSeconds(at);
        store->ingest(snapshot, {});
    }
};

TEST_F(ClipCaptureServiceTest, CollectModeNeverSeesWhatTheGateRefuses) {
    std::vector<std::string> staged;
    capture->setStageInsteadOfStoring([&](const PasteboardSnapshot& snapshot, ClipKind kind) {
        staged.push_back(*snapshot.string + " as " + std::string(rawValue(kind)));
        return true;
    });
    capture->start();
    copy("hunter2", "com.bitwarden.desktop");
    EXPECT_EQ(counters(), "captured 0, rejected 1, last rejected(excluded app com.bitwarden.desktop)");
    EXPECT_TRUE(staged.empty());

    copy("https://example.com/a");
    EXPECT_THAT(staged, ElementsAre("https://example.com/a as link"));
    EXPECT_EQ(counters(), "captured 1, rejected 1, last rejected(excluded app com.bitwarden.desktop)")
        << "a staged copy leaves the last result as it was";
    EXPECT_EQ(stored(), "");
}

TEST_F(ClipCaptureServiceTest, InsertsAreAnnouncedWithTheRuleFlagAndRepeatsMoveNoCounter) {
    SmartRule favorite = SmartRule::makeNew();
    favorite.isEnabled = true;
    favorite.conditions = {RuleCondition{Uuid::random(), RuleCondition::Field::textContains, "invoice"}};
    favorite.actions = {RuleAction::markFavorite()};
    rules = {favorite};
    std::vector<std::string> announced;
    capture->setOnClipInserted(
        [&](const Clip& clip, bool matchedRule) { announced.push_back(*clip.text + (matchedRule ? " (rule)" : "")); });
    int offered = 0;
    capture->setStageInsteadOfStoring([&](const PasteboardSnapshot&, ClipKind) {
        ++offered;
        return false;
    });
    capture->start();

    copy("invoice 42");
    copy("lunch at noon");
    EXPECT_EQ(counters(), "captured 2, rejected 0, last inserted");
    copy("invoice 42");
    EXPECT_EQ(counters(), "captured 2, rejected 0, last deduplicated") << "a promotion moves no counter";
    EXPECT_THAT(announced, ElementsAre("invoice 42 (rule)", "lunch at noon")) << "and is not announced";
    EXPECT_EQ(offered, 3) << "collect mode declined each copy, so the store took them";
    EXPECT_EQ(stored(), "lunch at noon, invoice 42[fav]");
}

TEST_F(ClipCaptureServiceTest, RetentionRunsAtStartAndEverySixHoursEvenWhilePaused) {
    defaults.set(captureKeys::isPaused, true);
    defaults.set(captureKeys::maximumClipCount, 2);
    make();
    for (const char* text : {"a", "b", "c", "d"}) ingestDirectly(text, text[0]);  // created at 97 to 100
    LogCapture log;
    capture->start();
    EXPECT_EQ(stored(), "c, d") << "the sweep at start";
    EXPECT_FALSE(monitor->isPolling());
    EXPECT_THAT(log.messages("capture"),
                ElementsAre("Starting capture; persisted pause state = true.", "Capture paused."));

    ingestDirectly("e", 200);
    ingestDirectly("f", 201);
    preferences->setMaximumClipCount(3);
    EXPECT_EQ(stored(), "c, d, e, f") << "a new limit waits for the next sweep";
    loop.advanceBy(kRetentionInterval - std::chrono::seconds(1));
    EXPECT_EQ(stored(), "c, d, e, f");
    loop.advanceBy(std::chrono::seconds(1));
    EXPECT_EQ(stored(), "d, e, f");

    ingestDirectly("g", 202);
    loop.advanceBy(kRetentionInterval);
    EXPECT_EQ(stored(), "e, f, g") << "and the one after";

    capture.reset();
    ingestDirectly("h", 203);
    loop.advanceBy(kRetentionInterval);
    EXPECT_EQ(stored(), "e, f, g, h") << "the sweep ends with the service";
}

}  // namespace
}  // namespace tamarind
