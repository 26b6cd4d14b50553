#pragma once
// A main loop for a process without a toolkit (the headless daemon, the
// command line when it must wait): poll(2) on the watched descriptors and an
// eventfd that post() from another thread rings, sleeping until the next
// deadline. run() and everything but post() and quit() are main-thread only.

#include <atomic>

#include "foundation/FdWatchSet.h"
#include "foundation/MainLoop.h"
#include "foundation/TaskQueue.h"

namespace tamarind {

class PollMainLoop final : public MainLoop {
public:
    PollMainLoop();
    ~PollMainLoop() override;
    PollMainLoop(const PollMainLoop&) = delete;
    PollMainLoop& operator=(const PollMainLoop&) = delete;

    void post(Task task) override;
    [[nodiscard]] TaskHandle postDelayed(Duration delay, Task task) override;
    [[nodiscard]] FdWatch watchFd(int fd, std::function<void()> onReadable) override;
    const Clock& clock() const override { return clock_; }

    // Runs until quit(). Returns at once if quit() came first.
    void run();
    // Any thread; run() returns after the pass in progress.
    void quit();

private:
    void wake();

    SystemClock clock_;
    TaskQueue queue_;
    FdWatchSet watches_;
    int wakeFd_ = -1;
    std::atomic<bool> isQuitting_{false};
};

}  // namespace tamarind
