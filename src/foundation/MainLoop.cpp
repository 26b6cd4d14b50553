#include "foundation/MainLoop.h"

#include <time.h>

#include "foundation/TaskQueue.h"

namespace tamarind {

// CLOCK_BOOTTIME goes on while the machine sleeps, so that a 6-hour sweep or a 5-minute
// auto-resume counts the time asleep too; it never jumps, as the wall clock may.
MonotonicTime SystemClock::now() const {
    timespec time{};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return MonotonicTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

Date SystemClock::wallNow() const { return Date::systemNow(); }

TaskHandle& TaskHandle::operator=(TaskHandle&& other) noexcept {
    if (this != &other) {
        cancel();
        task_ = std::move(other.task_);
    }
    return *this;
}

void TaskHandle::cancel() {
    if (!task_) return;
    if (!task_->isDone) {
        task_->isDone = true;
        // Release what the task captured now, not when its deadline comes round.
        Task released = std::move(task_->function);
        task_->function = nullptr;
    }
    task_.reset();
}

bool TaskHandle::isPending() const { return task_ && !task_->isDone; }

FdWatch& FdWatch::operator=(FdWatch&& other) noexcept {
    if (this != &other) {
        stop();
        state_ = std::move(other.state_);
    }
    return *this;
}

void FdWatch::stop() {
    if (!state_) return;
    state_->isActive = false;
    state_->onReadable = nullptr;
    if (auto onStop = std::move(state_->onStop)) onStop();
    state_.reset();
}

}  // namespace tamarind
