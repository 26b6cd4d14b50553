#pragma once
// An observable property: a value and the subscribers told of each value set.
//
// As with the platform's published properties, a subscriber is first told of
// the current value (unless it drops the first) and then of every set, equal
// or not. Delivery is posted to the main loop, in the order of the sets, so a
// subscriber never runs inside the setter. Main thread only. A subscription
// ends when its handle is destroyed; a delivery already posted for it is dropped.

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "foundation/MainLoop.h"

namespace tamarind {

class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::shared_ptr<bool> isActive) : isActive_(std::move(isActive)) {}
    Subscription(Subscription&&) noexcept = default;
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            isActive_ = std::move(other.isActive_);
        }
        return *this;
    }
    ~Subscription() { cancel(); }

    void cancel() {
        if (isActive_) *isActive_ = false;
        isActive_.reset();
    }

private:
    std::shared_ptr<bool> isActive_;
};

template <class T> class Observable {
public:
    Observable(MainLoop& loop, T initial) : loop_(loop), value_(std::move(initial)) {}
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    const T& value() const { return value_; }
    const T& operator*() const { return value_; }
    const T* operator->() const { return &value_; }

    void set(T value) {
        value_ = std::move(value);
        std::erase_if(subscribers_, [](const auto& s) { return !*s->isActive; });
        for (const auto& subscriber : subscribers_) deliver(subscriber, value_);
    }

    // Const: subscribing observes the property without changing it.
    [[nodiscard]] Subscription subscribe(std::function<void(const T&)> onValue, bool dropsFirst = false) const {
        auto subscriber = std::make_shared<Subscriber>();
        subscriber->isActive = std::make_shared<bool>(true);
        subscriber->onValue = std::move(onValue);
        subscribers_.push_back(subscriber);
        if (!dropsFirst) deliver(subscriber, value_);
        return Subscription(subscriber->isActive);
    }

private:
    struct Subscriber {
        std::shared_ptr<bool> isActive;
        std::function<void(const T&)> onValue;
    };

    void deliver(const std::shared_ptr<Subscriber>& subscriber, const T& value) const {
        loop_.post([weak = std::weak_ptr<Subscriber>(subscriber), value] {
            auto s = weak.lock();
            if (s && *s->isActive) s->onValue(value);
        });
    }

    MainLoop& loop_;
    T value_;
    mutable std::vector<std::shared_ptr<Subscriber>> subscribers_;
};

}  // namespace tamarind
