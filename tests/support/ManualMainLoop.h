#pragma once
// A main loop on virtual time for tests: nothing runs until the test says so,
// and a six-hour timer fires in microseconds, never by sleeping.
//
// advanceBy() moves both clocks and runs each task at its own deadline, in
// deadline order; setWallNow() jumps the wall clock alone, as a user changing
// the time would, and fires nothing. Watched descriptors are polled without
// waiting at each pass.

#include "foundation/FdWatchSet.h"
#include "foundation/MainLoop.h"
#include "foundation/TaskQueue.h"

namespace tamarind {

class ManualClock final : public Clock {
public:
    explicit ManualClock(Date wallStart) : wall_(wallStart) {}
    MonotonicTime now() const override { return now_; }
    Date wallNow() const override { return wall_; }

    void advance(Duration by);
    void setWallNow(Date date) { wall_ = date; }

private:
    MonotonicTime now_{};
    Date wall_;
};

class ManualMainLoop final : public MainLoop {
public:
    // The wall clock starts at 2026-01-01T00:00:00Z unless told otherwise.
    explicit ManualMainLoop(Date wallStart = Date::fromReferenceSeconds(788918400));

    void post(Task task) override;
    [[nodiscard]] TaskHandle postDelayed(Duration delay, Task task) override;
    [[nodiscard]] FdWatch watchFd(int fd, std::function<void()> onReadable) override;
    const Clock& clock() const override { return clock_; }

    // One pass: the tasks due now that were posted before the pass began.
    std::size_t runPass();
    // Passes until one runs nothing. A task that re-posts itself forever keeps
    // this going forever; step such a task with runPass().
    std::size_t runUntilIdle();
    // Runs everything due up to now + `by`, each task with the clocks at its deadline.
    std::size_t advanceBy(Duration by);
    void setWallNow(Date date) { clock_.setWallNow(date); }

    bool hasPendingTasks() { return !queue_.isEmpty(); }

private:
    ManualClock clock_;
    TaskQueue queue_;
    FdWatchSet watches_;
};

}  // namespace tamarind
