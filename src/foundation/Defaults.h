#pragma once
// The user's settings: a dictionary of property-list values by key, read with
// the coercions the platform's user defaults make, and observable.
//
// Abstract because the app keeps settings in a file (PlistFileDefaults), tests
// and a run that must not touch the disk keep them in memory
// (InMemoryDefaults), and a settings bridge may wrap either.
//
// Main thread only, like everything that observes it.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/PlistValue.h"

namespace tamarind {

namespace detail {
struct DefaultsObservers;
}

// Keeps one observer registered while it lives; destroying it (or cancel()) unregisters. Safe to destroy at
// any time: inside the observer's own callback, or after the Defaults it came from is gone.
class [[nodiscard]] DefaultsObservation {
public:
    DefaultsObservation() = default;
    DefaultsObservation(DefaultsObservation&& other) noexcept;
    DefaultsObservation& operator=(DefaultsObservation&& other) noexcept;
    DefaultsObservation(const DefaultsObservation&) = delete;
    DefaultsObservation& operator=(const DefaultsObservation&) = delete;
    ~DefaultsObservation() { cancel(); }

    void cancel();
    bool isActive() const;

private:
    friend class Defaults;
    DefaultsObservation(std::weak_ptr<detail::DefaultsObservers> observers, std::uint64_t id)
        : observers_(std::move(observers)), id_(id) {}

    std::weak_ptr<detail::DefaultsObservers> observers_;
    std::uint64_t id_ = 0;
};

class Defaults {
public:
    using Observer = std::function<void(const std::string& key)>;

    Defaults();
    virtual ~Defaults();
    Defaults(const Defaults&) = delete;
    Defaults& operator=(const Defaults&) = delete;

    virtual std::optional<PlistValue> object(std::string_view key) const = 0;
    virtual PlistDictionary dictionaryRepresentation() const = 0;

    // Stores or removes the value, then tells every observer with the key, also when nothing changed (an equal
    // value, or removing a key that is absent). Any key is fine, the empty one too.
    void set(std::string_view key, PlistValue value);
    void remove(std::string_view key);

    // The typed readers. Absent keys read as false, 0 and absent; a value of another type is converted as the
    // platform does, and reads as absent (or false, 0) when it can't be:
    //  - boolValue: a number is true when non-zero; a string when it is "yes" or "true" in any case, or a number
    //    other than zero ("1", " 2.5 "); everything else is false.
    //  - integer: a double truncates toward zero and is clamped to int64 (NaN is 0); a Boolean is 0 or 1; a
    //    string that is a whole number reads exactly, one with a fraction or exponent truncates.
    //  - doubleValue: numbers and Booleans as numbers, a numeric string parsed.
    //  - string: a string, or a number as text (an integer in decimal, a double in its shortest exact digits,
    //    a Boolean as "1" or "0").
    //  - stringArray: an array whose every element is a string (an empty array too).
    // data, date, array and dictionary give only a value of their own type.
    bool boolValue(std::string_view key) const;
    std::int64_t integer(std::string_view key) const;
    double doubleValue(std::string_view key) const;
    std::optional<std::string> string(std::string_view key) const;
    std::optional<Data> data(std::string_view key) const;
    std::optional<Date> date(std::string_view key) const;
    std::optional<PlistArray> array(std::string_view key) const;
    std::optional<std::vector<std::string>> stringArray(std::string_view key) const;
    std::optional<PlistDictionary> dictionary(std::string_view key) const;

    // Takes in what another program wrote since the last look, telling the observers of each key it
    // changed. Only a store that others write to has anything to take in; whether anything changed.
    virtual bool synchronize() { return false; }

    // Calls `onChange` synchronously after each set or remove, with the key, until the handle goes. From inside
    // the callback one may set or remove keys (observers hear of those at once, nested) and register or drop
    // observers: one registered there first hears of the next change, one dropped there hears nothing more.
    DefaultsObservation observe(Observer onChange);

protected:
    // The storage, which set() and remove() call before telling the observers.
    virtual void storeValue(const std::string& key, PlistValue value) = 0;
    virtual void removeValue(const std::string& key) = 0;

    // For an implementation that learns of a change made elsewhere.
    void notifyObservers(const std::string& key);

private:
    std::shared_ptr<detail::DefaultsObservers> observers_;
};

// Settings that live as long as the object: for tests, and for a run that must leave the disk alone.
class InMemoryDefaults final : public Defaults {
public:
    InMemoryDefaults() = default;
    explicit InMemoryDefaults(PlistDictionary values) : values_(std::move(values)) {}

    std::optional<PlistValue> object(std::string_view key) const override;
    PlistDictionary dictionaryRepresentation() const override { return values_; }

protected:
    void storeValue(const std::string& key, PlistValue value) override;
    void removeValue(const std::string& key) override;

private:
    PlistDictionary values_;
};

}  // namespace tamarind
