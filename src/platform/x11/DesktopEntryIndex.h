#pragma once
// The applications the desktop files of the XDG application folders describe, by which the
// workspace names a window's application. Reading hundreds of files would stall the loop, so
// they are read on a worker, from construction on, and the list taken in on the loop when it
// comes back. inotify on the folders (watched through the loop, no thread of its own) tells of a
// desktop file added, rewritten, renamed or removed; after a short quiet spell, since a package
// manager writes many at once, every folder is read again and the new list replaces the old.
//
// A folder that doesn't exist yet is awaited in its parent (~/.local/share/applications appears
// with the first application a user installs) and watched once it is made; one whose parent is
// missing too is only read, at start and when another folder changes. Subfolders are not read.
// It is not an error for a folder to be missing or unreadable: it adds no entries.
//
// Main thread only. The worker sees a copy of the folder list and nothing else; the loop and the
// worker must outlive the index's jobs (the worker's thread is joined before the loop goes).

#include <map>
#include <set>
#include <string>
#include <vector>

#include "foundation/Debouncer.h"
#include "foundation/Lifetime.h"
#include "foundation/Log.h"
#include "foundation/MainLoop.h"
#include "foundation/Worker.h"

namespace tamarind {

// What a desktop file says of an application.
struct DesktopEntry {
    std::string id;    // "org.gnome.TextEditor" for org.gnome.TextEditor.desktop
    std::string name;  // its Name
    std::string startupWMClass;
};

class DesktopEntryIndex {
public:
    // `folders`: most important first; a file in an earlier folder hides a later one's of the
    // same id. The first reading starts on `worker` at once.
    DesktopEntryIndex(MainLoop& loop, Worker& worker, std::vector<std::string> folders);
    ~DesktopEntryIndex();
    DesktopEntryIndex(const DesktopEntryIndex&) = delete;
    DesktopEntryIndex& operator=(const DesktopEntryIndex&) = delete;

    // False until the first reading has come back; until then entries() is empty.
    bool isReady() const { return isReady_; }
    // In no particular order.
    const std::vector<DesktopEntry>& entries() const { return entries_; }

    // $XDG_DATA_HOME/applications (else ~/.local/share/applications), then each of
    // $XDG_DATA_DIRS (else /usr/local/share, /usr/share) with /applications.
    static std::vector<std::string> defaultFolders();

private:
    void watchFolders();
    void takeEvents();
    void readAgain();

    MainLoop& loop_;
    Worker& worker_;
    std::vector<std::string> folders_;
    std::vector<DesktopEntry> entries_;
    bool isReady_ = false;
    int inotify_ = -1;
    FdWatch inotifyWatch_;
    std::set<int> folderWatches_;
    // A missing folder's parent, and the names awaited in it.
    std::map<int, std::set<std::string>> parentWatches_;
    std::set<std::string> unwatchable_;  // told once in the log
    Debouncer readAgainSoon_;
    Log log_{"capture"};
    Lifetime lifetime_;
};

}  // namespace tamarind
