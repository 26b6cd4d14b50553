#include "foundation/Worker.h"

namespace tamarind {

ThreadWorker::ThreadWorker() : thread_([this] { loop(); }) {}

ThreadWorker::~ThreadWorker() {
    {
        std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void ThreadWorker::run(Task job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void ThreadWorker::loop() {
    for (;;) {
        Task job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return isStopping_ || !jobs_.empty(); });
            if (jobs_.empty()) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

}  // namespace tamarind
