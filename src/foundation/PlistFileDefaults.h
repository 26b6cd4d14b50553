#pragma once
// The user's settings as an XML property-list file, $XDG_CONFIG_HOME/tamarind/defaults.plist in the app (the
// caller chooses the path). Main thread only.
//
// The file is read when the object is made. Another program (the command line) may change it
// meanwhile: before each write the file is read again if it changed on disk, so that its change
// is kept and only our key is written over it; and with watchForOutsideChanges, a change is taken
// in as it happens, and the observers are told of each key it changed.
//  - No file: the settings start empty. Not an error, nothing is logged.
//  - A file that can't be read or isn't a property-list dictionary (garbage, cut short, an array at the top, a
//    date or number that can't be read exactly): an error on the "settings" log channel names the path and the
//    reason, the file is renamed to "<name>.corrupt-<UTC time like 20261122T204912Z>" beside it (with "-2",
//    "-3", ... when that name is taken: a kept file is never replaced), and the settings start empty. Should the
//    rename fail, nothing is saved this run, so that the user's file is never overwritten.
//  - Each set() and remove() writes the whole file again, atomically, 0600, creating missing folders 0700; a
//    symlinked file stays a link and its target is written. A write that fails is logged as an error and the
//    value stays in memory, to be saved with the next change that succeeds. A value a property list can't
//    hold (see isStorableInPlist) is left out of the file, with an error naming its key.
//  - Observers are told after the file has been written (or has failed to be).
// A binary property list is read too; the file is written back as XML.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>

#include "foundation/Defaults.h"
#include "foundation/MainLoop.h"

namespace tamarind {

class PlistFileDefaults final : public Defaults {
public:
    // Gives the time that names a file kept aside; the app passes its Clock's wall time.
    using WallClock = std::function<Date()>;

    explicit PlistFileDefaults(std::filesystem::path path, WallClock wallClock = &Date::systemNow);
    ~PlistFileDefaults() override;

    std::optional<PlistValue> object(std::string_view key) const override;
    PlistDictionary dictionaryRepresentation() const override { return values_; }

    const std::filesystem::path& path() const { return path_; }
    // Where an unreadable file found at construction was moved; absent when there was none.
    const std::optional<std::filesystem::path>& keptAsidePath() const { return keptAsidePath_; }
    // False only when an unreadable file could not be moved aside, so changes are not written over it.
    bool isSaving() const { return isSaving_; }
    // Why the settings as they are in memory are not all in the file: the last save's failure, or
    // the unreadable file that is not written over. None once a save succeeds.
    const std::optional<std::string>& unsavedBecause() const { return unsavedBecause_; }

    // Takes in what another program wrote, if the file changed since it was last read or written,
    // and tells the observers of each key whose value changed. An unreadable file is left alone
    // (logged), and the values in memory stay. Whether anything changed.
    bool reloadIfChangedOnDisk();
    bool synchronize() override { return reloadIfChangedOnDisk(); }
    // Calls reloadIfChangedOnDisk() whenever the file is replaced or written, through inotify on
    // its folder; no polling. Stops when the object goes.
    void watchForOutsideChanges(MainLoop& loop);

protected:
    void storeValue(const std::string& key, PlistValue value) override;
    void removeValue(const std::string& key) override;

private:
    // What identifies the file's contents on disk without reading it.
    struct FileStamp {
        std::uint64_t inode = 0;
        std::int64_t size = -1;
        std::int64_t modifiedNanoseconds = 0;
        friend bool operator==(const FileStamp&, const FileStamp&) = default;
    };
    std::optional<FileStamp> currentStamp() const;
    void load();
    // The one place that writes, so that writes can later be batched.
    void save();
    std::optional<std::filesystem::path> moveAside(std::string& error) const;

    std::filesystem::path path_;
    WallClock wallClock_;
    PlistDictionary values_;
    std::optional<std::filesystem::path> keptAsidePath_;
    bool isSaving_ = true;
    std::optional<std::string> unsavedBecause_;
    std::optional<FileStamp> lastSeen_;  // as last read or written; none when there was no file
    int inotify_ = -1;
    FdWatch watch_;
};

}  // namespace tamarind
