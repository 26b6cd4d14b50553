#pragma once
// One log channel per area of the program ("capture", "library", "paste", ...).
//
// Messages are written with the system log's format markers (`%{public}s`,
// `%{public}ld`, `%{bool,public}d`, plain `%s`/`%d`) and rendered as plain
// values; `%{private}s` renders "<private>", so a secret never reaches a line.
// Lines go to stderr, which a user service hands to the journal (with the
// journal's priority prefix when stderr is the journal). Tests install a
// LogCapture to assert lines exactly.
//
// Logging is the one process-wide service, as the system log it stands for:
// a Log is a cheap value naming its channel. Any thread may log.

#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace tamarind {

// `notice` is the system log's "default" level, the one the plain log call uses.
enum class LogLevel { debug, info, notice, error, fault };

std::string_view logLevelName(LogLevel level);  // "debug", "info", "default", "error", "fault"
// Accepts the names above and "notice"; absent otherwise.
bool parseLogLevel(std::string_view name, LogLevel& out);

using LogArgument = std::variant<std::int64_t, std::uint64_t, double, bool, std::string>;

// Renders a format with the markers described above. A marker without an
// argument renders "<missing>"; a format is never able to crash the process.
std::string formatLogMessage(std::string_view format, std::span<const LogArgument> arguments);

struct LogRecord {
    std::string channel;
    LogLevel level;
    std::string message;

    friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

class Log {
public:
    explicit Log(std::string channel) : channel_(std::move(channel)) {}

    const std::string& channel() const { return channel_; }

    template <class... Args> void debug(std::string_view format, const Args&... args) const {
        write(LogLevel::debug, format, args...);
    }
    template <class... Args> void info(std::string_view format, const Args&... args) const {
        write(LogLevel::info, format, args...);
    }
    // The default level.
    template <class... Args> void log(std::string_view format, const Args&... args) const {
        write(LogLevel::notice, format, args...);
    }
    template <class... Args> void error(std::string_view format, const Args&... args) const {
        write(LogLevel::error, format, args...);
    }
    template <class... Args> void fault(std::string_view format, const Args&... args) const {
        write(LogLevel::fault, format, args...);
    }

    template <class... Args> void write(LogLevel level, std::string_view format, const Args&... args) const {
        const LogArgument arguments[] = {toArgument(args)..., LogArgument{std::int64_t{0}}};
        emit(level, format, std::span<const LogArgument>(arguments, sizeof...(Args)));
    }

    // Lines below this level are not written to stderr (captures see every line).
    // Starts at `notice`, or at $TAMARIND_LOG_LEVEL when that names a level.
    static void setStderrThreshold(LogLevel level);

private:
    template <class T> static LogArgument toArgument(const T& value) {
        if constexpr (std::is_same_v<T, bool>) {
            return value;
        } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
            return static_cast<std::int64_t>(value);
        } else if constexpr (std::is_integral_v<T>) {
            return static_cast<std::uint64_t>(value);
        } else if constexpr (std::is_floating_point_v<T>) {
            return static_cast<double>(value);
        } else {
            return std::string(std::string_view(value));
        }
    }

    void emit(LogLevel level, std::string_view format, std::span<const LogArgument> arguments) const;

    std::string channel_;
};

// Records every line written while it lives, on any channel and at any level.
// Captures nest; each sees the lines written during its own life.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    // The messages of one channel, in order.
    std::vector<std::string> messages(std::string_view channel) const;
    void clear();

    void append(LogRecord record);

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

}  // namespace tamarind
