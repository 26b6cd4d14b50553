#include "foundation/PollMainLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace tamarind {

PollMainLoop::PollMainLoop() : wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    queue_.setOnPush([this] { wake(); });
}

PollMainLoop::~PollMainLoop() {
    if (wakeFd_ >= 0) ::close(wakeFd_);
}

void PollMainLoop::post(Task task) { queue_.push(clock_.now(), std::move(task)); }

TaskHandle PollMainLoop::postDelayed(Duration delay, Task task) {
    return TaskHandle(queue_.push(clock_.now() + std::max(delay, Duration::zero()), std::move(task)));
}

FdWatch PollMainLoop::watchFd(int fd, std::function<void()> onReadable) {
    return watches_.add(fd, std::move(onReadable));
}

void PollMainLoop::wake() {
    std::uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(wakeFd_, &one, sizeof one);  // a full counter is still readable
}

void PollMainLoop::quit() {
    isQuitting_ = true;
    wake();
}

void PollMainLoop::run() {
    while (!isQuitting_) {
        queue_.runDue(clock_.now());
        if (isQuitting_) break;
        std::chrono::milliseconds timeout(-1);
        if (auto next = queue_.nextDeadline()) {
            auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - clock_.now());
            timeout = std::max(wait, std::chrono::milliseconds(0));
        }
        if (watches_.pollOnce(timeout, wakeFd_)) {
            std::uint64_t count;
            [[maybe_unused]] ssize_t n = ::read(wakeFd_, &count, sizeof count);
        }
    }
    isQuitting_ = false;
}

}  // namespace tamarind
