#include "foundation/FdWatchSet.h"

#include <poll.h>

#include <cerrno>

namespace tamarind {

FdWatch FdWatchSet::add(int fd, std::function<void()> onReadable) {
    auto state = std::make_shared<detail::FdWatchState>();
    state->fd = fd;
    state->onReadable = std::move(onReadable);
    watches_.push_back(state);
    return FdWatch(state);
}

bool FdWatchSet::isEmpty() {
    std::erase_if(watches_, [](const auto& watch) { return !watch->isActive; });
    return watches_.empty();
}

bool FdWatchSet::pollOnce(std::chrono::milliseconds timeout, int wakeFd) {
    std::erase_if(watches_, [](const auto& watch) { return !watch->isActive; });
    // A copy: a callback may add or stop watches while we walk the list.
    auto watches = watches_;
    std::vector<pollfd> fds;
    fds.reserve(watches.size() + 1);
    for (const auto& watch : watches) fds.push_back(pollfd{watch->fd, POLLIN, 0});
    if (wakeFd >= 0) fds.push_back(pollfd{wakeFd, POLLIN, 0});
    if (fds.empty()) return false;

    int ready = ::poll(fds.data(), fds.size(), static_cast<int>(timeout.count()));
    if (ready <= 0) return false;  // a timeout, or a signal: the caller's loop comes round again
    for (std::size_t i = 0; i < watches.size(); ++i) {
        // POLLNVAL: a closed descriptor would wake us forever; the owner must stop its watch.
        if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        if (watches[i]->isActive && watches[i]->onReadable) {
            auto callback = watches[i]->onReadable;  // survives the watch stopping itself
            callback();
        }
    }
    return wakeFd >= 0 && (fds.back().revents & POLLIN);
}

}  // namespace tamarind
