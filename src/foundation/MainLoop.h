#pragma once
// The one main thread of the program, as an interface, so that services never
// know which loop drives them: the Qt loop in the app, a poll loop headless,
// and a manual loop with virtual time in tests.
//
// Everything but post() is main-thread only. post() may be called from any
// thread; that is how work done elsewhere (recognition, decoding) comes back.

#include <chrono>
#include <functional>
#include <memory>

#include "foundation/Date.h"

namespace tamarind {

using Duration = std::chrono::nanoseconds;
using MonotonicTime = std::chrono::time_point<std::chrono::steady_clock, Duration>;
using Task = std::function<void()>;

// Two clocks kept apart: timers run on the monotonic one, which never jumps;
// dates shown and stored come from the wall one, which may.
class Clock {
public:
    virtual ~Clock() = default;
    virtual MonotonicTime now() const = 0;
    virtual Date wallNow() const = 0;
};

class SystemClock final : public Clock {
public:
    MonotonicTime now() const override;
    Date wallNow() const override;
};

namespace detail {
struct PendingTask;
struct FdWatchState;
}  // namespace detail

// Owns a delayed task: cancelled when cancel() is called or the handle is
// destroyed, unless detach() let it go. A cancelled task never runs, and its
// function (with what it captured) is released at once; cancelling a task that
// has run, or an empty handle, does nothing.
class TaskHandle {
public:
    TaskHandle() = default;
    explicit TaskHandle(std::shared_ptr<detail::PendingTask> task) : task_(std::move(task)) {}
    TaskHandle(TaskHandle&&) noexcept = default;
    TaskHandle& operator=(TaskHandle&& other) noexcept;
    ~TaskHandle() { cancel(); }

    void cancel();
    // Lets the task run even though the handle goes away.
    void detach() { task_.reset(); }
    // True while the task waits to run.
    bool isPending() const;

private:
    std::shared_ptr<detail::PendingTask> task_;
};

// Owns a watch on a file descriptor; the watch ends with the handle.
class FdWatch {
public:
    FdWatch() = default;
    explicit FdWatch(std::shared_ptr<detail::FdWatchState> state) : state_(std::move(state)) {}
    FdWatch(FdWatch&&) noexcept = default;
    FdWatch& operator=(FdWatch&& other) noexcept;
    ~FdWatch() { stop(); }

    void stop();

private:
    std::shared_ptr<detail::FdWatchState> state_;
};

class MainLoop {
public:
    virtual ~MainLoop() = default;

    // Runs `task` on the main thread after the tasks already due. Any thread.
    virtual void post(Task task) = 0;
    // Runs `task` once `delay` has passed on the monotonic clock. Tasks with
    // equal deadlines run in the order they were posted.
    [[nodiscard]] virtual TaskHandle postDelayed(Duration delay, Task task) = 0;
    // Calls `onReadable` on the main thread whenever `fd` has data (or hangs up).
    [[nodiscard]] virtual FdWatch watchFd(int fd, std::function<void()> onReadable) = 0;
    virtual const Clock& clock() const = 0;
};

}  // namespace tamarind
