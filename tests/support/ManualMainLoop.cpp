#include "support/ManualMainLoop.h"

#include <algorithm>

namespace tamarind {

void ManualClock::advance(Duration by) {
    now_ += by;
    wall_ = wall_.addingSeconds(std::chrono::duration<double>(by).count());
}

ManualMainLoop::ManualMainLoop(Date wallStart) : clock_(wallStart) {}

void ManualMainLoop::post(Task task) { queue_.push(clock_.now(), std::move(task)); }

TaskHandle ManualMainLoop::postDelayed(Duration delay, Task task) {
    return TaskHandle(queue_.push(clock_.now() + std::max(delay, Duration::zero()), std::move(task)));
}

FdWatch ManualMainLoop::watchFd(int fd, std::function<void()> onReadable) {
    return watches_.add(fd, std::move(onReadable));
}

std::size_t ManualMainLoop::runPass() {
    if (!watches_.isEmpty()) watches_.pollOnce(std::chrono::milliseconds(0));
    return queue_.runDue(clock_.now());
}

std::size_t ManualMainLoop::runUntilIdle() {
    std::size_t total = 0;
    while (std::size_t ran = runPass()) total += ran;
    return total;
}

std::size_t ManualMainLoop::advanceBy(Duration by) {
    MonotonicTime target = clock_.now() + by;
    std::size_t total = runUntilIdle();
    for (;;) {
        auto next = queue_.nextDeadline();
        if (!next || *next > target) break;
        if (*next > clock_.now()) clock_.advance(*next - clock_.now());
        total += runUntilIdle();
    }
    clock_.advance(target - clock_.now());
    return total + runUntilIdle();
}

}  // namespace tamarind
