#pragma once
// The watched file descriptors of a loop, polled together. Main thread only.

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "foundation/TaskQueue.h"

namespace tamarind {

class FdWatchSet {
public:
    FdWatch add(int fd, std::function<void()> onReadable);

    // Waits up to `timeout` (negative: no limit) for a watched descriptor, or
    // `wakeFd` when it is not -1, to become readable, then calls the callbacks
    // of the readable ones. Returns whether `wakeFd` was readable.
    bool pollOnce(std::chrono::milliseconds timeout, int wakeFd = -1);

    bool isEmpty();

private:
    std::vector<std::shared_ptr<detail::FdWatchState>> watches_;
};

}  // namespace tamarind
