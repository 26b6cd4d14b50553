#pragma once
// Holds a delay and one pending task: each call cancels the pending task and
// arms a new one, so the action runs once, on the main thread, when the delay
// ends with no newer call. Main thread only; destroying it cancels the task.

#include "foundation/MainLoop.h"

namespace tamarind {

class Debouncer {
public:
    Debouncer(MainLoop& loop, Duration delay) : loop_(loop), delay_(delay) {}

    void call(Task action) { pending_ = loop_.postDelayed(delay_, std::move(action)); }
    void cancel() { pending_.cancel(); }
    bool isPending() const { return pending_.isPending(); }
    Duration delay() const { return delay_; }

private:
    MainLoop& loop_;
    Duration delay_;
    TaskHandle pending_;
};

}  // namespace tamarind
