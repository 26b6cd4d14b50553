#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <thread>

#include "foundation/Debouncer.h"
#include "foundation/Observable.h"
#include "foundation/PollMainLoop.h"
#include "support/ManualMainLoop.h"

namespace tamarind {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(ManualMainLoop, RunsByDeadlineThenPostingOrderEachAtItsTimeAndNeverRunsCancelledTasks) {
    ManualMainLoop loop;
    std::string order;
    auto stamp = [&](const std::string& what) {
        auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(loop.clock().now().time_since_epoch()).count();
        order += what + "@" + std::to_string(ms) + " ";
    };
    TaskHandle chained;
    TaskHandle b2 = loop.postDelayed(2s, [&] { stamp("b2"); });
    TaskHandle a1 = loop.postDelayed(1s, [&] {
        stamp("a1");
        chained = loop.postDelayed(500ms, [&] { stamp("chained"); });
    });
    TaskHandle c2 = loop.postDelayed(2s, [&] { stamp("c2"); });
    TaskHandle cancelled = loop.postDelayed(1s, [&] { stamp("never"); });
    // Due at the same moment as the task it cancels, and posted before it.
    TaskHandle d2 = loop.postDelayed(2s, [&] { stamp("d2"); });
    TaskHandle e2;
    TaskHandle canceller = loop.postDelayed(2s, [&] {
        stamp("canceller");
        e2.cancel();
    });
    e2 = loop.postDelayed(2s, [&] { stamp("e2"); });
    loop.post([&] { stamp("now"); });
    cancelled.cancel();

    loop.advanceBy(1200ms);
    EXPECT_EQ(order, "now@0 a1@1000 ");
    loop.advanceBy(1s);
    EXPECT_EQ(order, "now@0 a1@1000 chained@1500 b2@2000 c2@2000 d2@2000 canceller@2000 ");
    EXPECT_FALSE(loop.hasPendingTasks());

    // A task reposting itself does not starve the others.
    int spins = 0;
    std::function<void()> spin = [&] {
        ++spins;
        loop.post(spin);
    };
    loop.post(spin);
    bool otherRan = false;
    loop.post([&] { otherRan = true; });
    EXPECT_EQ(loop.runPass(), 2u);
    EXPECT_TRUE(otherRan);
    EXPECT_EQ(loop.runPass(), 1u);
    EXPECT_EQ(spins, 2);
}

TEST(ManualMainLoop, HandlesCancelOnDestructionUnlessDetachedAndReleaseCapturesAtOnce) {
    ManualMainLoop loop;
    int ran = 0;
    auto token = std::make_shared<int>(0);
    {
        TaskHandle dropped = loop.postDelayed(1s, [&ran, token] { ++ran; });
        EXPECT_EQ(token.use_count(), 2);
    }
    EXPECT_EQ(token.use_count(), 1) << "a cancelled task keeps what it captured";
    loop.postDelayed(1s, [&] { ran += 10; }).detach();
    TaskHandle moved = loop.postDelayed(1s, [&] { ran += 100; });
    TaskHandle target = std::move(moved);
    moved.cancel();  // an emptied handle: nothing happens
    loop.advanceBy(1s);
    EXPECT_EQ(ran, 110);
    EXPECT_FALSE(target.isPending());
    target.cancel();  // after it ran: nothing happens
}

TEST(ManualMainLoop, TimersFollowTheMonotonicClockNotTheWallClock) {
    ManualMainLoop loop(Date::fromReferenceSeconds(1000));
    std::vector<double> firedAtWall;
    TaskHandle timer = loop.postDelayed(10s, [&] { firedAtWall.push_back(loop.clock().wallNow().secondsSinceReferenceDate()); });
    loop.setWallNow(Date::fromReferenceSeconds(1000 + 86400));  // the user sets the clock a day ahead
    loop.runUntilIdle();
    EXPECT_TRUE(firedAtWall.empty());
    loop.setWallNow(Date::fromReferenceSeconds(1000));
    // Each task sees the clocks at its own deadline while the loop advances.
    TaskHandle later = loop.postDelayed(6h, [&] { firedAtWall.push_back(loop.clock().wallNow().secondsSinceReferenceDate()); });
    loop.advanceBy(7h);
    EXPECT_THAT(firedAtWall, ElementsAre(1010, 1000 + 6 * 3600));
    EXPECT_EQ(loop.clock().wallNow().secondsSinceReferenceDate(), 1000 + 7 * 3600);
}

TEST(Debouncer, RunsOnceAfterTheLastCallAndNotAfterCancel) {
    ManualMainLoop loop;
    Debouncer debouncer(loop, 150ms);
    std::vector<int> runs;
    debouncer.call([&] { runs.push_back(1); });
    loop.advanceBy(100ms);
    debouncer.call([&] { runs.push_back(2); });
    loop.advanceBy(149ms);
    EXPECT_TRUE(runs.empty());
    EXPECT_TRUE(debouncer.isPending());
    loop.advanceBy(1ms);
    EXPECT_THAT(runs, ElementsAre(2));

    debouncer.call([&] { runs.push_back(3); });
    debouncer.cancel();
    loop.advanceBy(1s);
    EXPECT_THAT(runs, ElementsAre(2));
    {
        Debouncer shortLived(loop, 10ms);
        shortLived.call([&] { runs.push_back(4); });
    }
    loop.advanceBy(1s);
    EXPECT_THAT(runs, ElementsAre(2)) << "a destroyed debouncer's action ran";
}

TEST(Observable, DeliversOnTheLoopInOrderWithOptionalDropFirstAndNeverAfterTheObservableIsGone) {
    ManualMainLoop loop;
    Observable<int> count(loop, 1);
    std::vector<int> all, later;
    Subscription a = count.subscribe([&](const int& v) { all.push_back(v); });
    Subscription b = count.subscribe([&](const int& v) { later.push_back(v); }, /*dropsFirst=*/true);
    count.set(2);
    count.set(2);
    EXPECT_TRUE(all.empty()) << "delivered inside the setter";
    EXPECT_EQ(count.value(), 2);
    loop.runUntilIdle();
    EXPECT_THAT(all, ElementsAre(1, 2, 2));
    EXPECT_THAT(later, ElementsAre(2, 2));

    count.set(3);
    b.cancel();  // a delivery already posted is dropped
    loop.runUntilIdle();
    EXPECT_THAT(later, ElementsAre(2, 2));
    EXPECT_THAT(all, ElementsAre(1, 2, 2, 3));

    // A delivery outliving its observable is dropped.
    std::vector<std::string> seen;
    Subscription outliving;
    {
        Observable<std::string> name(loop, "a");
        outliving = name.subscribe([&](const std::string& v) { seen.push_back(v); });
        name.set("b");
    }
    loop.runUntilIdle();
    EXPECT_TRUE(seen.empty());
}

TEST(PollMainLoop, RunsTimersFdsAndTasksPostedFromOtherThreads) {
    PollMainLoop loop;
    std::vector<std::string> events;
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    FdWatch watch = loop.watchFd(pipeFds[0], [&] {
        char c;
        if (::read(pipeFds[0], &c, 1) == 1) events.push_back(std::string("fd:") + c);
    });
    TaskHandle timer = loop.postDelayed(20ms, [&] {
        events.push_back("timer");
        [[maybe_unused]] auto n = ::write(pipeFds[1], "x", 1);
    });
    TaskHandle never = loop.postDelayed(10ms, [&] { events.push_back("cancelled"); });
    never.cancel();
    std::thread worker;
    TaskHandle start = loop.postDelayed(40ms, [&] {
        worker = std::thread([&] { loop.post([&] { events.push_back("from worker"); loop.quit(); }); });
    });
    loop.run();
    worker.join();
    EXPECT_THAT(events, ElementsAre("timer", "fd:x", "from worker"));
    watch.stop();
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
}

}  // namespace
}  // namespace tamarind
