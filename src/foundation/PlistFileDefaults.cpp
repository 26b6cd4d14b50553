#include "foundation/PlistFileDefaults.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "foundation/Files.h"
#include "foundation/Log.h"

namespace tamarind {

namespace {

const Log log{"settings"};

// "20261122T204912Z": the ISO 8601 time without separators, which file names take best.
std::string compactTimestamp(Date date) {
    double seconds = date.secondsSinceReferenceDate();
    std::string text = std::isfinite(seconds) ? Date::fromReferenceSeconds(std::floor(seconds)).iso8601() : "unknown";
    std::erase(text, '-');
    std::erase(text, ':');
    return text;
}

// rename() would replace a file kept by an earlier run; this never does.
int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // A file system without RENAME_NOREPLACE: check, then rename. Only a race with another writer could lose.
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0) return EEXIST;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

PlistFileDefaults::PlistFileDefaults(std::filesystem::path path, WallClock wallClock)
    : path_(std::move(path)), wallClock_(std::move(wallClock)) {
    load();
    lastSeen_ = currentStamp();
}

PlistFileDefaults::~PlistFileDefaults() {
    watch_.stop();
    if (inotify_ >= 0) ::close(inotify_);
}

std::optional<PlistFileDefaults::FileStamp> PlistFileDefaults::currentStamp() const {
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0) return std::nullopt;
    return FileStamp{static_cast<std::uint64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
                     static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec};
}

bool PlistFileDefaults::reloadIfChangedOnDisk() {
    std::optional<FileStamp> stamp = currentStamp();
    if (stamp == lastSeen_ || !isSaving_) return false;
    PlistDictionary fresh;
    if (stamp) {
        FileContents contents = readWholeFile(path_);
        PlistDecoding decoding = contents.bytes ? decodePlist(*contents.bytes) : PlistDecoding{};
        if (!decoding.dictionary) {
            // Perhaps caught half-written by a program that doesn't replace it atomically: the next
            // change of the file tries again.
            log.error("Could not read the settings another program wrote to %{public}s: %{public}s", path_.string(),
                      contents.bytes ? decoding.error : std::string("it could not be read"));
            return false;
        }
        fresh = std::move(*decoding.dictionary);
    }
    lastSeen_ = stamp;
    std::vector<std::string> changed;
    for (const auto& [key, value] : fresh)
        if (auto old = values_.find(key); old == values_.end() || !(old->second == value)) changed.push_back(key);
    for (const auto& [key, value] : values_)
        if (!fresh.contains(key)) changed.push_back(key);
    values_ = std::move(fresh);
    for (const std::string& key : changed) notifyObservers(key);
    return !changed.empty();
}

void PlistFileDefaults::watchForOutsideChanges(MainLoop& loop) {
    if (inotify_ >= 0) return;
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0) return log.error("Can't watch %{public}s for changes: %{public}s", path_.string(),
                                        std::string(std::strerror(errno)));
    // The folder, since a file replaced by rename is a new file; made first if it isn't there yet.
    std::filesystem::path folder = path_.has_parent_path() ? path_.parent_path() : std::filesystem::path(".");
    (void)createPrivateDirectories(folder);
    if (::inotify_add_watch(inotify_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE) < 0)
        return log.error("Can't watch %{public}s for changes: %{public}s", folder.string(),
                         std::string(std::strerror(errno)));
    watch_ = loop.watchFd(inotify_, [this] {
        alignas(inotify_event) char buffer[4096];
        while (::read(inotify_, buffer, sizeof buffer) > 0) {
        }
        reloadIfChangedOnDisk();
    });
}

std::optional<PlistValue> PlistFileDefaults::object(std::string_view key) const {
    auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

void PlistFileDefaults::storeValue(const std::string& key, PlistValue value) {
    // Another program's change since our last look is kept: only this key is written over it.
    reloadIfChangedOnDisk();
    values_.insert_or_assign(key, std::move(value));
    save();
}

void PlistFileDefaults::removeValue(const std::string& key) {
    reloadIfChangedOnDisk();
    values_.erase(key);
    save();
}

void PlistFileDefaults::load() {
    FileContents contents = readWholeFile(path_);
    if (contents.notFound) return;
    std::string reason;
    if (contents.bytes) {
        PlistDecoding decoding = decodePlist(*contents.bytes);
        if (decoding.dictionary) {
            values_ = std::move(*decoding.dictionary);
            return;
        }
        reason = decoding.error;
    } else {
        // A parent that is a file (ENOTDIR) means there is no settings file either.
        std::error_code error;
        if (std::filesystem::symlink_status(path_, error).type() == std::filesystem::file_type::not_found) return;
        reason = contents.error ? contents.error->message : "it could not be read";
    }

    std::string moveError;
    keptAsidePath_ = moveAside(moveError);
    if (keptAsidePath_) {
        log.error(
            "Could not read settings from %{public}s: %{public}s. Kept it as %{public}s and started with "
            "empty settings",
            path_.string(), reason, keptAsidePath_->string());
    } else {
        isSaving_ = false;
        log.error(
            "Could not read settings from %{public}s: %{public}s. Could not move it aside either (%{public}s), "
            "so settings changed in this run will not be saved",
            path_.string(), reason, moveError);
    }
}

std::optional<std::filesystem::path> PlistFileDefaults::moveAside(std::string& error) const {
    std::string base = path_.filename().string() + ".corrupt-" + compactTimestamp(wallClock_());
    for (int attempt = 1; attempt <= 1000; ++attempt) {
        std::filesystem::path candidate =
            path_.parent_path() / (attempt == 1 ? base : base + "-" + std::to_string(attempt));
        int failure = renameWithoutReplacing(path_, candidate);
        if (failure == 0) return candidate;
        if (failure != EEXIST) {
            error = "rename to " + candidate.string() + ": " + std::strerror(failure);
            return std::nullopt;
        }
    }
    error = "every name for it is taken";
    return std::nullopt;
}

void PlistFileDefaults::save() {
    if (!isSaving_) {
        log.debug("Not saving settings to %{public}s, which holds a file that could not be read", path_.string());
        unsavedBecause_ = path_.string() + " holds a file that could not be read, and it is left as it is";
        return;
    }
    const PlistDictionary* toWrite = &values_;
    PlistDictionary storable;
    for (const auto& [key, value] : values_) {
        if (isStorableInPlist(key, value)) continue;
        log.error(
            "Not saving \"%{public}s\" to %{public}s: a property list can't hold it (a NUL character, a date "
            "outside the years 1 to 9999, or nesting deeper than %{public}d)",
            key, path_.string(), kMaxPlistDepth);
        if (toWrite == &values_) {
            for (const auto& [name, item] : values_)
                if (isStorableInPlist(name, item)) storable.emplace(name, item);
            toWrite = &storable;
        }
    }
    std::optional<std::string> xml = encodePlistXml(*toWrite);
    if (!xml) {
        log.error("Could not save settings to %{public}s: they could not be encoded", path_.string());
        unsavedBecause_ = "they could not be encoded";
        return;
    }

    // Writing through a link keeps a dotfile manager's symlink; rename() over the link would replace it.
    std::filesystem::path target = path_;
    std::error_code linkError;
    if (std::filesystem::is_symlink(path_, linkError)) {
        std::filesystem::path resolved = std::filesystem::weakly_canonical(path_, linkError);
        if (!linkError) target = resolved;
    }
    if (target.has_parent_path()) {
        if (auto error = createPrivateDirectories(target.parent_path())) {
            log.error("Could not save settings to %{public}s: %{public}s", path_.string(), error->message);
            unsavedBecause_ = error->message;
            return;
        }
    }
    if (auto error = writeFileAtomically(target, *xml)) {
        log.error("Could not save settings to %{public}s: %{public}s", path_.string(), error->message);
        unsavedBecause_ = error->message;
        return;
    }
    lastSeen_ = currentStamp();
    unsavedBecause_.reset();
}

}  // namespace tamarind
