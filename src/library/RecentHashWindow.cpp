#include "library/RecentHashWindow.h"

#include <algorithm>

namespace tamarind {

void RecentHashWindow::record(const std::string& hash) {
    if (hash.empty()) return;
    if (members_.contains(hash)) std::erase(order_, hash);
    order_.push_back(hash);
    members_.insert(hash);
    while (order_.size() > capacity_) {
        members_.erase(order_.front());
        order_.pop_front();
    }
}

void RecentHashWindow::remove(const std::string& hash) {
    if (members_.erase(hash)) std::erase(order_, hash);
}

void RecentHashWindow::clear() {
    order_.clear();
    members_.clear();
}

}  // namespace tamarind
