#include "foundation/Date.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace tamarind {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// The shortest decimal digits of a fraction in [0, 1) that read back as the same double.
std::string fractionDigits(double fraction) {
    char buffer[64];
    for (int precision = 1; precision <= 40; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*f", precision, fraction);
        if (std::strtod(buffer, nullptr) == fraction) break;
    }
    std::string digits(buffer);
    return digits.substr(digits.find('.'));  // ".25"
}

bool readDigits(std::string_view text, std::size_t& at, std::size_t count, int& out) {
    if (at + count > text.size()) return false;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        char c = text[at + i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    out = value;
    at += count;
    return true;
}

bool expect(std::string_view text, std::size_t& at, char c) {
    if (at >= text.size() || text[at] != c) return false;
    ++at;
    return true;
}

}  // namespace

Date Date::fromSystemTime(std::chrono::system_clock::time_point time) {
    using namespace std::chrono;
    return fromUnixSeconds(duration<double>(time.time_since_epoch()).count());
}

Date Date::systemNow() { return fromSystemTime(std::chrono::system_clock::now()); }

std::string Date::iso8601() const {
    using namespace std::chrono;
    double whole = std::floor(seconds_);
    double fraction = seconds_ - whole;  // exact: both are doubles of the same scale
    auto unix = static_cast<std::int64_t>(whole) + static_cast<std::int64_t>(kReferenceToUnixSeconds);
    std::int64_t days = unix / kSecondsPerDay;
    std::int64_t rest = unix % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    year_month_day ymd{sys_days{std::chrono::days{days}}};
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                  static_cast<int>(rest / 3600), static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
    std::string text(buffer);
    if (fraction != 0) text += fractionDigits(fraction);
    text += 'Z';
    return text;
}

std::optional<Date> Date::parseIso8601(std::string_view text) {
    using namespace std::chrono;
    std::size_t at = 0;
    int year, month, day, hour, minute, second;
    if (!readDigits(text, at, 4, year) || !expect(text, at, '-') || !readDigits(text, at, 2, month) ||
        !expect(text, at, '-') || !readDigits(text, at, 2, day) || !expect(text, at, 'T') ||
        !readDigits(text, at, 2, hour) || !expect(text, at, ':') || !readDigits(text, at, 2, minute) ||
        !expect(text, at, ':') || !readDigits(text, at, 2, second))
        return std::nullopt;
    year_month_day ymd{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                       std::chrono::day{static_cast<unsigned>(day)}};
    if (!ymd.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;

    double fraction = 0;
    if (at < text.size() && text[at] == '.') {
        std::size_t start = at++;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
        if (at == start + 1) return std::nullopt;
        fraction = std::strtod(std::string("0").append(text.substr(start, at - start)).c_str(), nullptr);
    }
    std::int64_t offset = 0;
    if (expect(text, at, 'Z')) {
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int sign = text[at++] == '-' ? -1 : 1;
        int offsetHours, offsetMinutes;
        if (!readDigits(text, at, 2, offsetHours)) return std::nullopt;
        expect(text, at, ':');
        if (!readDigits(text, at, 2, offsetMinutes) || offsetHours > 23 || offsetMinutes > 59) return std::nullopt;
        offset = sign * (offsetHours * 3600 + offsetMinutes * 60);
    } else {
        return std::nullopt;
    }
    if (at != text.size()) return std::nullopt;

    std::int64_t unix = sys_days{ymd}.time_since_epoch().count() * kSecondsPerDay + hour * 3600 + minute * 60 +
                        second - offset;
    // Integer seconds first, then the fraction, so that iso8601() round-trips exactly.
    double whole = static_cast<double>(unix - static_cast<std::int64_t>(kReferenceToUnixSeconds));
    return Date::fromReferenceSeconds(whole + fraction);
}

}  // namespace tamarind
