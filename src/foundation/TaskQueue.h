#pragma once
// The deadline-ordered queue behind every MainLoop implementation: a heap keyed
// by deadline, then by posting order. Thread-safe, so post() may come from any
// thread; tasks run on whichever thread calls runDue().

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <queue>
#include <vector>

#include "foundation/MainLoop.h"

namespace tamarind {

namespace detail {

// Cancelled and run on the main thread only, so it needs no lock of its own.
struct PendingTask {
    Task function;  // emptied when the task runs or is cancelled
    bool isDone = false;
};

struct FdWatchState {
    int fd = -1;
    std::function<void()> onReadable;
    bool isActive = true;
    // Set by a loop that must let go of the descriptor at once (before its owner closes it).
    std::function<void()> onStop;
};

}  // namespace detail

class TaskQueue {
public:
    // Adds a task; returns its shared state for a TaskHandle.
    std::shared_ptr<detail::PendingTask> push(MonotonicTime deadline, Task task);

    // Runs the tasks that were due when the call began: deadline at or before
    // `now` and posted before the call. Tasks they post wait for the next call,
    // so a task that re-posts itself cannot starve the loop. Returns how many ran.
    std::size_t runDue(MonotonicTime now);

    // The earliest deadline among tasks not yet cancelled.
    std::optional<MonotonicTime> nextDeadline();
    bool isEmpty();

    // Called after every push, outside the lock; loops use it to wake a sleeping poll.
    void setOnPush(std::function<void()> onPush) { onPush_ = std::move(onPush); }

private:
    struct Entry {
        MonotonicTime deadline;
        std::uint64_t sequence;
        std::shared_ptr<detail::PendingTask> task;
    };
    struct Later {
        bool operator()(const Entry& a, const Entry& b) const {
            return a.deadline != b.deadline ? a.deadline > b.deadline : a.sequence > b.sequence;
        }
    };
    void dropCancelledHead();  // lock held

    std::mutex mutex_;
    std::priority_queue<Entry, std::vector<Entry>, Later> heap_;
    std::uint64_t nextSequence_ = 0;
    std::function<void()> onPush_;
};

}  // namespace tamarind
