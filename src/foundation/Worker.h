#pragma once
// Slow work kept off the main loop: decoding and encoding images, scanning
// folders. Jobs run one after another, in the order given, on the worker's
// thread; a job brings what it found back with MainLoop::post, and checks
// there that its owner still lives (foundation/Lifetime.h). run() may be
// called from any thread.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "foundation/MainLoop.h"

namespace tamarind {

class Worker {
public:
    virtual ~Worker() = default;
    virtual void run(Task job) = 0;
};

// A worker with one thread of its own. Jobs still queued when it is destroyed run first: they
// may carry what a user copied. Then the thread is joined.
class ThreadWorker final : public Worker {
public:
    ThreadWorker();
    ThreadWorker(const ThreadWorker&) = delete;
    ThreadWorker& operator=(const ThreadWorker&) = delete;
    ~ThreadWorker() override;

    void run(Task job) override;

private:
    void loop();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> jobs_;
    bool isStopping_ = false;
    std::thread thread_;  // last, so that it starts after the rest is made
};

}  // namespace tamarind
