#pragma once
// A value or the reason there is none, for calls whose failure the caller must
// look at: a Result can't be dropped unread ([[nodiscard]]), and reaching
// for the value of a failure is a programming error (it throws
// std::bad_variant_access). Status is the Result of a call with no value.
// Plain values; any thread.

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace tamarind {

struct Failure {
    std::string message;
};

template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T& operator*() & { return std::get<0>(state_); }
    const T& operator*() const& { return std::get<0>(state_); }
    T&& operator*() && { return std::get<0>(std::move(state_)); }
    T* operator->() { return &std::get<0>(state_); }
    const T* operator->() const { return &std::get<0>(state_); }

    const Failure& failure() const { return std::get<1>(state_); }
    const std::string& error() const { return failure().message; }

private:
    std::variant<T, Failure> state_;
};

template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Failure failure) : failure_(std::move(failure)) {}

    bool ok() const { return !failure_; }
    explicit operator bool() const { return ok(); }
    const Failure& failure() const { return *failure_; }
    const std::string& error() const { return failure_->message; }

private:
    std::optional<Failure> failure_;
};

using Status = Result<void>;

}  // namespace tamarind
