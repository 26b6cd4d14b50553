#pragma once
// Absolute wall-clock times, as the stored data knows them: seconds since the
// reference date 2001-01-01T00:00:00Z, held as a double so that a value read
// from JSON, SQLite or the settings file comes back bit for bit.

#include <chrono>
#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace tamarind {

class Date {
public:
    // 2001-01-01T00:00:00Z is 978,307,200 seconds after the Unix epoch.
    static constexpr double kReferenceToUnixSeconds = 978307200.0;

    constexpr Date() = default;
    static constexpr Date fromReferenceSeconds(double seconds) { return Date(seconds); }
    static constexpr Date fromUnixSeconds(double seconds) { return Date(seconds - kReferenceToUnixSeconds); }
    static Date fromSystemTime(std::chrono::system_clock::time_point time);
    // The system's wall clock. Services take their time from Clock::wallNow() instead.
    static Date systemNow();

    constexpr double secondsSinceReferenceDate() const { return seconds_; }
    constexpr double secondsSince1970() const { return seconds_ + kReferenceToUnixSeconds; }
    constexpr double secondsSince(Date other) const { return seconds_ - other.seconds_; }
    constexpr Date addingSeconds(double seconds) const { return Date(seconds_ + seconds); }

    // ISO 8601 in UTC for people and logs: "2026-11-22T20:49:12Z", with the
    // fractional seconds that are there ("...12.25Z"), none when they are zero.
    // parseIso8601 gives back the same double for every date from 2001 on, and
    // for earlier ones whenever the fraction holds no more than 53 bits.
    std::string iso8601() const;
    // Reads what iso8601() writes, and the common variants: a "Z" or "+hh:mm"
    // offset, any number of fractional digits. Absent for anything else.
    static std::optional<Date> parseIso8601(std::string_view text);

    friend constexpr auto operator<=>(Date, Date) = default;

private:
    constexpr explicit Date(double seconds) : seconds_(seconds) {}
    double seconds_ = 0;
};

}  // namespace tamarind
