#pragma once
// Lets a callback know whether the object that handed it out still lives. The
// owner holds a Lifetime and ends it first thing in its destructor (or holds
// it as its last member); callbacks capture weak() and ask isAlive() before
// they touch the owner. Main thread only: the answer is only good on the
// thread that destroys the owner.

#include <memory>

namespace tamarind {

class Lifetime {
public:
    class Weak {
    public:
        bool isAlive() const {
            auto flag = flag_.lock();
            return flag && *flag;
        }

    private:
        friend class Lifetime;
        std::weak_ptr<bool> flag_;
    };

    Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
    ~Lifetime() { end(); }

    // Callbacks that run during the rest of the owner's destructor see it gone.
    void end() { *flag_ = false; }
    Weak weak() const {
        Weak weak;
        weak.flag_ = flag_;
        return weak;
    }

private:
    std::shared_ptr<bool> flag_ = std::make_shared<bool>(true);
};

}  // namespace tamarind
