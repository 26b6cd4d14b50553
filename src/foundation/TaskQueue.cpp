#include "foundation/TaskQueue.h"

namespace tamarind {

std::shared_ptr<detail::PendingTask> TaskQueue::push(MonotonicTime deadline, Task task) {
    auto pending = std::make_shared<detail::PendingTask>();
    pending->function = std::move(task);
    {
        std::lock_guard lock(mutex_);
        heap_.push(Entry{deadline, nextSequence_++, pending});
    }
    if (onPush_) onPush_();
    return pending;
}

void TaskQueue::dropCancelledHead() {
    while (!heap_.empty() && heap_.top().task->isDone) heap_.pop();
}

std::size_t TaskQueue::runDue(MonotonicTime now) {
    std::uint64_t limit;
    {
        std::lock_guard lock(mutex_);
        limit = nextSequence_;
    }
    std::size_t ran = 0;
    for (;;) {
        std::shared_ptr<detail::PendingTask> task;
        {
            std::lock_guard lock(mutex_);
            dropCancelledHead();
            // Deadlines never precede the time they were posted at, so a task
            // posted during this pass sorts after every task that was already due.
            if (heap_.empty() || heap_.top().deadline > now || heap_.top().sequence >= limit) break;
            task = heap_.top().task;
            heap_.pop();
        }
        // An earlier task of this pass may have cancelled this one.
        if (task->isDone) continue;
        Task function = std::move(task->function);
        task->function = nullptr;
        task->isDone = true;
        function();
        ++ran;
    }
    return ran;
}

std::optional<MonotonicTime> TaskQueue::nextDeadline() {
    std::lock_guard lock(mutex_);
    dropCancelledHead();
    if (heap_.empty()) return std::nullopt;
    return heap_.top().deadline;
}

bool TaskQueue::isEmpty() {
    std::lock_guard lock(mutex_);
    dropCancelledHead();
    return heap_.empty();
}

}  // namespace tamarind
