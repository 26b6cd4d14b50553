#pragma once
// The content hashes seen most recently, distinct, oldest first: the set
// lookup that makes copying the same thing again cheap. A plain value.

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_set>

namespace tamarind {

class RecentHashWindow {
public:
    explicit RecentHashWindow(std::size_t capacity) : capacity_(capacity) {}

    // Appends the hash, moving it to the end if present; drops the oldest past
    // the capacity. An empty hash is ignored.
    void record(const std::string& hash);
    void remove(const std::string& hash);
    bool contains(const std::string& hash) const { return members_.contains(hash); }
    void clear();

    std::size_t capacity() const { return capacity_; }
    std::size_t size() const { return order_.size(); }
    const std::deque<std::string>& order() const { return order_; }

private:
    std::size_t capacity_;
    std::deque<std::string> order_;
    std::unordered_set<std::string> members_;
};

}  // namespace tamarind
