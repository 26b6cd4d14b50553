#include "foundation/Log.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace tamarind {

namespace {

struct Router {
    std::mutex mutex;
    std::vector<LogCapture*> captures;
    std::atomic<LogLevel> threshold{LogLevel::notice};
    std::shared_ptr<spdlog::logger> stderrLogger;
    bool toJournal = false;

    Router() {
        if (const char* name = std::getenv("TAMARIND_LOG_LEVEL")) {
            LogLevel level;
            if (parseLogLevel(name, level)) threshold = level;
        }
        toJournal = stderrIsJournal();
        stderrLogger = spdlog::stderr_color_mt("tamarind");
        // The journal stamps its own time; a terminal reader wants ours.
        stderrLogger->set_pattern(toJournal ? "%v" : "%Y-%m-%d %H:%M:%S.%e %v");
        stderrLogger->set_level(spdlog::level::trace);
    }

    // systemd sets JOURNAL_STREAM to "device:inode" of the stream it connected.
    static bool stderrIsJournal() {
        const char* stream = std::getenv("JOURNAL_STREAM");
        if (!stream) return false;
        unsigned long long device = 0, inode = 0;
        if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2) return false;
        struct stat status {};
        return fstat(2, &status) == 0 && status.st_dev == device && status.st_ino == inode;
    }
};

Router& router() {
    static Router instance;
    return instance;
}

spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return spdlog::level::debug;
    case LogLevel::info: return spdlog::level::info;
    case LogLevel::notice: return spdlog::level::info;
    case LogLevel::error: return spdlog::level::err;
    case LogLevel::fault: return spdlog::level::critical;
    }
    return spdlog::level::info;
}

// sd-daemon priorities: debug 7, info 6, notice 5, err 3, crit 2.
int journalPriority(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return 7;
    case LogLevel::info: return 6;
    case LogLevel::notice: return 5;
    case LogLevel::error: return 3;
    case LogLevel::fault: return 2;
    }
    return 5;
}

struct Specifier {
    bool isPrivate = false;
    bool isBool = false;
    int precision = -1;
    char conversion = 's';
};

std::string renderNumber(const LogArgument& argument, const Specifier& specifier) {
    char buffer[64];
    if (auto* i = std::get_if<std::int64_t>(&argument)) {
        if (specifier.conversion == 'x') std::snprintf(buffer, sizeof buffer, "%" PRIx64, static_cast<std::uint64_t>(*i));
        else if (specifier.conversion == 'f' || specifier.conversion == 'g')
            return renderNumber(LogArgument{static_cast<double>(*i)}, specifier);
        else std::snprintf(buffer, sizeof buffer, "%" PRId64, *i);
    } else if (auto* u = std::get_if<std::uint64_t>(&argument)) {
        if (specifier.conversion == 'x') std::snprintf(buffer, sizeof buffer, "%" PRIx64, *u);
        else if (specifier.conversion == 'f' || specifier.conversion == 'g')
            return renderNumber(LogArgument{static_cast<double>(*u)}, specifier);
        else std::snprintf(buffer, sizeof buffer, "%" PRIu64, *u);
    } else if (auto* d = std::get_if<double>(&argument)) {
        if (specifier.conversion == 'd' || specifier.conversion == 'i' || specifier.conversion == 'u')
            std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(*d));
        else if (specifier.conversion == 'f')
            std::snprintf(buffer, sizeof buffer, "%.*f", specifier.precision < 0 ? 6 : specifier.precision, *d);
        else std::snprintf(buffer, sizeof buffer, "%g", *d);
    } else {
        return "";
    }
    return buffer;
}

std::string render(const LogArgument& argument, const Specifier& specifier) {
    if (specifier.isPrivate) return "<private>";
    if (specifier.isBool) {
        bool value = std::visit(
            [](const auto& v) {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, std::string>) return !v.empty();
                else return v != T{};
            },
            argument);
        return value ? "true" : "false";
    }
    if (auto* text = std::get_if<std::string>(&argument)) return *text;
    if (auto* flag = std::get_if<bool>(&argument)) {
        if (specifier.conversion == 's' || specifier.conversion == '@') return *flag ? "true" : "false";
        return *flag ? "1" : "0";
    }
    return renderNumber(argument, specifier);
}

}  // namespace

std::string_view logLevelName(LogLevel level) {
    switch (level) {
    case LogLevel::debug: return "debug";
    case LogLevel::info: return "info";
    case LogLevel::notice: return "default";
    case LogLevel::error: return "error";
    case LogLevel::fault: return "fault";
    }
    return "default";
}

bool parseLogLevel(std::string_view name, LogLevel& out) {
    for (LogLevel level : {LogLevel::debug, LogLevel::info, LogLevel::notice, LogLevel::error, LogLevel::fault}) {
        if (name == logLevelName(level)) {
            out = level;
            return true;
        }
    }
    if (name == "notice") {
        out = LogLevel::notice;
        return true;
    }
    return false;
}

std::string formatLogMessage(std::string_view format, std::span<const LogArgument> arguments) {
    std::string out;
    out.reserve(format.size() + 32);
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%' || i + 1 >= format.size()) {
            out += c;
            continue;
        }
        std::size_t at = i + 1;
        if (format[at] == '%') {
            out += '%';
            i = at;
            continue;
        }
        Specifier specifier;
        if (format[at] == '{') {
            std::size_t close = format.find('}', at);
            if (close == std::string_view::npos) {
                out += format.substr(i);
                break;
            }
            std::string_view annotations = format.substr(at + 1, close - at - 1);
            bool isPublic = false;
            while (!annotations.empty()) {
                std::size_t comma = annotations.find(',');
                std::string_view word = annotations.substr(0, comma);
                if (word == "public") isPublic = true;
                else if (word == "private") specifier.isPrivate = true;
                else if (word == "bool" || word == "BOOL") specifier.isBool = true;
                annotations = comma == std::string_view::npos ? std::string_view{} : annotations.substr(comma + 1);
            }
            if (isPublic) specifier.isPrivate = false;
            at = close + 1;
        }
        // Flags and width are read and ignored; precision matters for %f.
        while (at < format.size() && std::string_view("-+ #0123456789").find(format[at]) != std::string_view::npos)
            ++at;
        if (at < format.size() && format[at] == '.') {
            specifier.precision = 0;
            while (++at < format.size() && format[at] >= '0' && format[at] <= '9')
                specifier.precision = specifier.precision * 10 + (format[at] - '0');
        }
        while (at < format.size() && std::string_view("hlqjzt").find(format[at]) != std::string_view::npos) ++at;
        if (at >= format.size() || std::string_view("sdiufgx@c").find(format[at]) == std::string_view::npos) {
            // Not a marker we know: keep the text as written.
            out += format.substr(i, at - i);
            i = at - 1;
            continue;
        }
        specifier.conversion = format[at];
        out += next < arguments.size() ? render(arguments[next], specifier) : std::string("<missing>");
        ++next;
        i = at;
    }
    return out;
}

void Log::setStderrThreshold(LogLevel level) { router().threshold = level; }

void Log::emit(LogLevel level, std::string_view format, std::span<const LogArgument> arguments) const {
    Router& r = router();
    std::string message = formatLogMessage(format, arguments);
    {
        std::lock_guard lock(r.mutex);
        for (LogCapture* capture : r.captures) capture->append(LogRecord{channel_, level, message});
    }
    if (level < r.threshold.load()) return;
    if (r.toJournal) {
        r.stderrLogger->log(spdlogLevel(level), "<{}>[{}] {}", journalPriority(level), channel_, message);
    } else {
        r.stderrLogger->log(spdlogLevel(level), "{} [{}] {}", logLevelName(level), channel_, message);
    }
}

LogCapture::LogCapture() {
    Router& r = router();
    std::lock_guard lock(r.mutex);
    r.captures.push_back(this);
}

LogCapture::~LogCapture() {
    Router& r = router();
    std::lock_guard lock(r.mutex);
    std::erase(r.captures, this);
}

std::vector<LogRecord> LogCapture::records() const {
    std::lock_guard lock(mutex_);
    return records_;
}

std::vector<std::string> LogCapture::messages(std::string_view channel) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const LogRecord& record : records_)
        if (record.channel == channel) out.push_back(record.message);
    return out;
}

void LogCapture::clear() {
    std::lock_guard lock(mutex_);
    records_.clear();
}

void LogCapture::append(LogRecord record) {
    std::lock_guard lock(mutex_);
    records_.push_back(std::move(record));
}

}  // namespace tamarind
