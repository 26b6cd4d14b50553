#pragma once
// The pattern of every class that holds settings. Each setting is a StoredProperty: an
// observable value read from its key at construction and written back at each change. The class
// derives from Preferences, which follows the Defaults: whatever changes a key (this process, the
// command line, another window), the property of that key reads it again at once and tells its
// subscribers when its value changed. A class never observes the Defaults itself, so none can
// forget to follow changes made elsewhere.
//
// A read-modify-write (adding a rule to the list) goes through modify(), which first takes in what
// another program wrote since the last look: an in-app write never overwrites an outside edit it
// has not read. Reading never writes: a stored value that doesn't decode reads as the fallback and
// stays stored as it is. Writing over such a value of a structured setting (a list of rules, a
// shortcut) first keeps it aside: keepUnreadableValueAside().
//
// Main thread only.

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "foundation/Defaults.h"
#include "foundation/Observable.h"

namespace tamarind {

// How one setting's value is read from its key and written to it.
template <class T> struct SettingCodec {
    std::function<T(const Defaults&, const std::string& key)> read;
    std::function<void(Defaults&, const std::string& key, const T& value)> write;
};

class Preferences;

class StoredPropertyBase {
public:
    const std::string& key() const { return key_; }

protected:
    explicit StoredPropertyBase(std::string key) : key_(std::move(key)) {}
    ~StoredPropertyBase() = default;

private:
    friend class Preferences;
    // Reads the key again; tells the subscribers only when the value differs.
    virtual void reload() = 0;

    std::string key_;
};

class Preferences {
public:
    Preferences(const Preferences&) = delete;
    Preferences& operator=(const Preferences&) = delete;

    // Takes in what another program wrote since the last look; the properties of the keys it
    // changed update at once. A stat of the settings file when nothing changed.
    void synchronize() { defaults_.synchronize(); }

protected:
    Preferences(Defaults& defaults, MainLoop& loop);
    virtual ~Preferences() = default;

    Defaults& defaults() const { return defaults_; }
    MainLoop& loop() const { return loop_; }

    // A key that no property holds changed: for a family of keys under one prefix, which a class
    // reads itself.
    virtual void keyDidChange(const std::string& /*key*/) {}

private:
    template <class T> friend class StoredProperty;
    void keyChanged(const std::string& key);

    Defaults& defaults_;
    MainLoop& loop_;
    std::vector<StoredPropertyBase*> properties_;
    DefaultsObservation observation_;
};

template <class T> class StoredProperty final : public Observable<T>, private StoredPropertyBase {
public:
    StoredProperty(Preferences& owner, std::string key, SettingCodec<T> codec)
        : Observable<T>(owner.loop(), codec.read(owner.defaults(), key)),
          StoredPropertyBase(std::move(key)),
          owner_(owner),
          codec_(std::move(codec)) {
        owner_.properties_.push_back(this);
    }

    using StoredPropertyBase::key;

    // Publishes the value, then writes it under the key. Should the stored form read back as
    // something else (a value the reader corrects), the subscribers hear of that too.
    void set(T value) {
        Observable<T>::set(std::move(value));
        codec_.write(owner_.defaults(), key(), this->value());
    }

    // Takes in outside changes, then changes the current value in place and stores it, unless
    // `change` answers false (nothing to change).
    template <class Change> void modify(Change&& change) {
        owner_.synchronize();
        T value = this->value();
        if (std::forward<Change>(change)(value)) set(std::move(value));
    }

private:
    void reload() override {
        T stored = codec_.read(owner_.defaults(), key());
        if (!(stored == this->value())) Observable<T>::set(std::move(stored));
    }

    Preferences& owner_;
    SettingCodec<T> codec_;
};

// Before a structured setting is written over: a stored value `isReadable` refuses is copied to
// "<key>.unreadable" (else "<key>.unreadable-2", -3...: an earlier one is never replaced) and
// the copy is logged, so that the user's old value can still be recovered by hand.
void keepUnreadableValueAside(Defaults& defaults, const std::string& key,
                              const std::function<bool(const PlistValue&)>& isReadable);

// The codecs of plain values. A missing key reads as the fallback; so does a value of a type that
// can't be converted (an array where a Boolean belongs), with a log line.
SettingCodec<bool> boolSetting(bool fallback = false);
// `adjust` corrects what was read (a count below 1 meaning the default, say).
SettingCodec<long long> integerSetting(long long fallback = 0, std::function<long long(long long)> adjust = {});
SettingCodec<double> doubleSetting(double fallback = 0, std::function<double(double)> adjust = {});
SettingCodec<std::string> stringSetting(std::string fallback = "");

// An enumeration stored by its raw string; a missing or unknown string reads as `fromRaw` says.
template <class Enum>
SettingCodec<Enum> enumSetting(Enum (*fromRaw)(std::string_view), std::string_view (*toRaw)(std::type_identity_t<Enum>)) {
    return {[fromRaw](const Defaults& defaults, const std::string& key) {
                return fromRaw(defaults.string(key).value_or(""));
            },
            [toRaw](Defaults& defaults, const std::string& key, const Enum& value) {
                defaults.set(key, std::string(toRaw(value)));
            }};
}

}  // namespace tamarind
