#include "platform/x11/DesktopEntryIndex.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "foundation/Text.h"

namespace tamarind {

namespace {

using namespace std::chrono_literals;

// A package manager writes its desktop files within a fraction of a second of each other.
constexpr Duration kQuietSpell = 300ms;

constexpr uint32_t kFolderEvents = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE |
                                   IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD;
constexpr uint32_t kParentEvents = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR | IN_MASK_ADD;

std::optional<DesktopEntry> readDesktopEntry(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream) return std::nullopt;
    DesktopEntry entry;
    entry.id = file.stem().string();
    bool isMainGroup = false;
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.front() == '[') {
            isMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!isMainGroup) continue;
        if (line.starts_with("Name=")) entry.name = line.substr(5);
        if (line.starts_with("StartupWMClass=")) entry.startupWMClass = line.substr(15);
        if (line == "NoDisplay=true" || line == "Hidden=true") entry.startupWMClass.clear();
    }
    if (entry.name.empty()) return std::nullopt;
    return entry;
}

// On the worker.
std::vector<DesktopEntry> readFolders(const std::vector<std::string>& folders) {
    std::vector<DesktopEntry> entries;
    std::set<std::string> seen;
    for (const std::string& folder : folders) {
        std::error_code error;
        for (const auto& file : std::filesystem::directory_iterator(folder, error)) {
            if (file.path().extension() != ".desktop" || !seen.insert(file.path().stem().string()).second) continue;
            if (auto entry = readDesktopEntry(file.path())) entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

}  // namespace

DesktopEntryIndex::DesktopEntryIndex(MainLoop& loop, Worker& worker, std::vector<std::string> folders)
    : loop_(loop), worker_(worker), folders_(std::move(folders)), readAgainSoon_(loop, kQuietSpell) {
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify_ < 0)
        log_.error(
            "Can't watch the application folders: %{public}s. An application installed from now on is "
            "named by its window class.",
            std::string(std::strerror(errno)));
    else
        inotifyWatch_ = loop_.watchFd(inotify_, [this] { takeEvents(); });
    readAgain();
}

DesktopEntryIndex::~DesktopEntryIndex() {
    inotifyWatch_.stop();
    if (inotify_ >= 0) ::close(inotify_);
}

std::vector<std::string> DesktopEntryIndex::defaultFolders() {
    std::vector<std::string> folders;
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    if (dataHome && *dataHome == '/') {
        folders.push_back(std::string(dataHome) + "/applications");
    } else if (home) {
        folders.push_back(std::string(home) + "/.local/share/applications");
    }
    const char* dataDirs = std::getenv("XDG_DATA_DIRS");
    std::string dirs = dataDirs && *dataDirs ? dataDirs : "/usr/local/share:/usr/share";
    for (std::string_view dir : split(dirs, ":"))
        if (!dir.empty() && dir.front() == '/') folders.push_back(std::string(dir) + "/applications");
    return folders;
}

void DesktopEntryIndex::watchFolders() {
    if (inotify_ < 0) return;
    // Adding a watch that exists returns it again, so this runs before every reading: a folder
    // made since the last one is watched from then on.
    for (const std::string& folder : folders_) {
        int watch = ::inotify_add_watch(inotify_, folder.c_str(), kFolderEvents);
        if (watch >= 0) {
            folderWatches_.insert(watch);
            continue;
        }
        if (errno == ENOENT) {
            std::filesystem::path path = std::filesystem::path(folder).lexically_normal();
            if (!path.has_filename()) path = path.parent_path();
            int parent = ::inotify_add_watch(inotify_, path.parent_path().c_str(), kParentEvents);
            if (parent >= 0) parentWatches_[parent].insert(path.filename().string());
        } else if (unwatchable_.insert(folder).second) {
            // ENOSPC is the user's limit of watches (fs.inotify.max_user_watches).
            log_.error(
                "Can't watch %{public}s: %{public}s. A desktop file added there is seen only once "
                "another folder changes.",
                folder, std::string(std::strerror(errno)));
        }
    }
}

void DesktopEntryIndex::takeEvents() {
    alignas(inotify_event) char buffer[4096];
    bool isChanged = false;
    for (ssize_t length; (length = ::read(inotify_, buffer, sizeof buffer)) > 0;) {
        for (const char* at = buffer; at < buffer + length;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(at);
            at += sizeof(inotify_event) + event.len;
            std::string_view name = event.len > 0 ? std::string_view(event.name) : std::string_view();
            if (event.mask & IN_IGNORED) {
                // The folder went: it is awaited in its parent again at the next reading.
                folderWatches_.erase(event.wd);
                parentWatches_.erase(event.wd);
                isChanged = true;
            } else if (event.mask & IN_MOVE_SELF) {
                // The watch would follow the folder to where it went.
                ::inotify_rm_watch(inotify_, event.wd);
                isChanged = true;
            } else if (event.mask & (IN_Q_OVERFLOW | IN_DELETE_SELF)) {
                isChanged = true;
            } else if (folderWatches_.contains(event.wd) && name.ends_with(".desktop")) {
                isChanged = true;
            } else if (auto awaited = parentWatches_.find(event.wd);
                       awaited != parentWatches_.end() && awaited->second.contains(std::string(name))) {
                isChanged = true;
            }
        }
    }
    if (isChanged) readAgainSoon_.call([this] { readAgain(); });
}

void DesktopEntryIndex::readAgain() {
    // Watched before the reading starts, so that a file written while it runs is told of again.
    watchFolders();
    // Jobs run in order and post in order, so the newest reading is the last taken in.
    worker_.run([this, &loop = loop_, folders = folders_, alive = lifetime_.weak()] {
        std::vector<DesktopEntry> entries = readFolders(folders);
        loop.post([this, alive, entries = std::move(entries)]() mutable {
            if (!alive.isAlive()) return;
            entries_ = std::move(entries);
            isReady_ = true;
            log_.debug("Took in %{public}ld desktop entries.", entries_.size());
        });
    });
}

}  // namespace tamarind
