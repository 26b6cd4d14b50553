#include "foundation/Defaults.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace tamarind {

namespace detail {

struct DefaultsObservers {
    std::uint64_t nextId = 1;
    // Shared so that a callback that drops its own observation keeps running on a live function.
    std::map<std::uint64_t, std::shared_ptr<Defaults::Observer>> entries;
};

}  // namespace detail

namespace {

struct Number {
    bool isInteger = false;
    std::int64_t integer = 0;
    double real = 0;
};

std::int64_t clampToInteger(double value) {
    constexpr double limit = 9223372036854775808.0;  // 2^63, exactly
    if (std::isnan(value)) return 0;
    if (value >= limit) return std::numeric_limits<std::int64_t>::max();
    if (value < -limit) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);  // truncates toward zero
}

// A string that is a number in full, apart from surrounding whitespace: "42", " -7 ", "2.5", "1e3", "+.5".
// Words like "inf" or "nan" are not numbers here.
std::optional<Number> numberFromString(std::string_view text) {
    constexpr std::string_view space = " \t\n\r\f\v";
    std::size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return std::nullopt;
    text = text.substr(first, text.find_last_not_of(space) - first + 1);
    if (text.starts_with('+')) {
        text.remove_prefix(1);  // from_chars takes no '+'
        if (text.starts_with('-')) return std::nullopt;
    }
    std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    auto isDigit = [&](std::size_t at) { return at < digits.size() && digits[at] >= '0' && digits[at] <= '9'; };
    if (!isDigit(0) && !(digits.starts_with('.') && isDigit(1))) return std::nullopt;
    const char* end = text.data() + text.size();
    Number number;
    auto whole = std::from_chars(text.data(), end, number.integer);
    if (whole.ec == std::errc() && whole.ptr == end) {
        number.isInteger = true;
        number.real = static_cast<double>(number.integer);
        return number;
    }
    // Digits beyond int64 come here too, and are clamped by the reader. Beyond even a double is no number.
    auto real = std::from_chars(text.data(), end, number.real);
    if (real.ec != std::errc() || real.ptr != end) return std::nullopt;
    return number;
}

bool isYesOrTrue(std::string_view text) {
    auto is = [&](std::string_view word) {
        if (text.size() != word.size()) return false;
        for (std::size_t i = 0; i < word.size(); ++i)
            if ((text[i] | 0x20) != word[i]) return false;
        return true;
    };
    return is("yes") || is("true");
}

}  // namespace

// --- DefaultsObservation ------------------------------------------------------------------------------------------

DefaultsObservation::DefaultsObservation(DefaultsObservation&& other) noexcept
    : observers_(std::move(other.observers_)), id_(other.id_) {
    other.observers_.reset();
    other.id_ = 0;
}

DefaultsObservation& DefaultsObservation::operator=(DefaultsObservation&& other) noexcept {
    if (this != &other) {
        cancel();
        observers_ = std::move(other.observers_);
        id_ = other.id_;
        other.observers_.reset();
        other.id_ = 0;
    }
    return *this;
}

void DefaultsObservation::cancel() {
    if (auto observers = observers_.lock()) observers->entries.erase(id_);
    observers_.reset();
    id_ = 0;
}

bool DefaultsObservation::isActive() const {
    auto observers = observers_.lock();
    return observers && observers->entries.contains(id_);
}

// --- Defaults -----------------------------------------------------------------------------------------------------

Defaults::Defaults() : observers_(std::make_shared<detail::DefaultsObservers>()) {}

Defaults::~Defaults() = default;

void Defaults::set(std::string_view key, PlistValue value) {
    std::string name(key);
    storeValue(name, std::move(value));
    notifyObservers(name);
}

void Defaults::remove(std::string_view key) {
    std::string name(key);
    removeValue(name);
    notifyObservers(name);
}

DefaultsObservation Defaults::observe(Observer onChange) {
    std::uint64_t id = observers_->nextId++;
    observers_->entries.emplace(id, std::make_shared<Observer>(std::move(onChange)));
    return DefaultsObservation(observers_, id);
}

void Defaults::notifyObservers(const std::string& key) {
    // The registry may change under the calls, and even lose its Defaults; what was registered when the change
    // happened and is still registered when its turn comes is told.
    std::shared_ptr<detail::DefaultsObservers> observers = observers_;
    std::vector<std::uint64_t> ids;
    ids.reserve(observers->entries.size());
    for (const auto& entry : observers->entries) ids.push_back(entry.first);
    for (std::uint64_t id : ids) {
        auto found = observers->entries.find(id);
        if (found == observers->entries.end()) continue;
        std::shared_ptr<Observer> observer = found->second;
        (*observer)(key);
    }
}

bool Defaults::boolValue(std::string_view key) const {
    auto value = object(key);
    if (!value) return false;
    if (auto flag = value->asBool()) return *flag;
    if (auto number = value->asInteger()) return *number != 0;
    if (auto number = value->asDouble()) return *number != 0;
    if (auto text = value->asString()) {
        if (isYesOrTrue(*text)) return true;
        auto number = numberFromString(*text);
        return number && number->real != 0;
    }
    return false;
}

std::int64_t Defaults::integer(std::string_view key) const {
    auto value = object(key);
    if (!value) return 0;
    if (auto flag = value->asBool()) return *flag ? 1 : 0;
    if (auto number = value->asInteger()) return *number;
    if (auto number = value->asDouble()) return clampToInteger(*number);
    if (auto text = value->asString()) {
        auto number = numberFromString(*text);
        if (!number) return 0;
        return number->isInteger ? number->integer : clampToInteger(number->real);
    }
    return 0;
}

double Defaults::doubleValue(std::string_view key) const {
    auto value = object(key);
    if (!value) return 0;
    if (auto flag = value->asBool()) return *flag ? 1 : 0;
    if (auto number = value->asInteger()) return static_cast<double>(*number);
    if (auto number = value->asDouble()) return *number;
    if (auto text = value->asString()) {
        auto number = numberFromString(*text);
        return number ? number->real : 0;
    }
    return 0;
}

std::optional<std::string> Defaults::string(std::string_view key) const {
    auto value = object(key);
    if (!value) return std::nullopt;
    if (auto text = value->asString()) return *text;
    if (auto flag = value->asBool()) return *flag ? "1" : "0";
    if (auto number = value->asInteger()) return std::to_string(*number);
    if (auto number = value->asDouble()) {
        char buffer[64];
        auto result = std::to_chars(buffer, buffer + sizeof buffer, *number);
        return std::string(buffer, result.ptr);
    }
    return std::nullopt;
}

std::optional<Data> Defaults::data(std::string_view key) const {
    auto value = object(key);
    if (const Data* bytes = value ? value->asData() : nullptr) return *bytes;
    return std::nullopt;
}

std::optional<Date> Defaults::date(std::string_view key) const {
    auto value = object(key);
    if (const Date* date = value ? value->asDate() : nullptr) return *date;
    return std::nullopt;
}

std::optional<PlistArray> Defaults::array(std::string_view key) const {
    auto value = object(key);
    if (const PlistArray* array = value ? value->asArray() : nullptr) return *array;
    return std::nullopt;
}

std::optional<std::vector<std::string>> Defaults::stringArray(std::string_view key) const {
    auto value = object(key);
    const PlistArray* array = value ? value->asArray() : nullptr;
    if (!array) return std::nullopt;
    std::vector<std::string> strings;
    strings.reserve(array->size());
    for (const PlistValue& item : *array) {
        const std::string* text = item.asString();
        if (!text) return std::nullopt;
        strings.push_back(*text);
    }
    return strings;
}

std::optional<PlistDictionary> Defaults::dictionary(std::string_view key) const {
    auto value = object(key);
    if (const PlistDictionary* dictionary = value ? value->asDictionary() : nullptr) return *dictionary;
    return std::nullopt;
}

// --- InMemoryDefaults ---------------------------------------------------------------------------------------------

std::optional<PlistValue> InMemoryDefaults::object(std::string_view key) const {
    auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

void InMemoryDefaults::storeValue(const std::string& key, PlistValue value) {
    values_.insert_or_assign(key, std::move(value));
}

void InMemoryDefaults::removeValue(const std::string& key) { values_.erase(key); }

}  // namespace tamarind
