#pragma once
// A worker that keeps its jobs until the test runs them, on the test's own
// thread, so that a test decides when slow work finishes.

#include <deque>

#include "foundation/Worker.h"

namespace tamarind {

class ManualWorker final : public Worker {
public:
    void run(Task job) override { jobs_.push_back(std::move(job)); }
    std::size_t pending() const { return jobs_.size(); }
    // Runs the queued jobs, and those they queue; how many ran.
    std::size_t runAll() {
        std::size_t ran = 0;
        while (!jobs_.empty()) {
            Task job = std::move(jobs_.front());
            jobs_.pop_front();
            job();
            ++ran;
        }
        return ran;
    }

private:
    std::deque<Task> jobs_;
};

}  // namespace tamarind
