#pragma once
// One store file (or an in-memory store) holding the schema of the records:
// clips, collections with their members, and sync devices, at schema version
// 1.0.0. SQLite in WAL mode, so that the command line can write the same file
// while the app runs. Main thread only.
//
// The one place that runs SQL, and the one place where SQLite's errors become
// values: every call returns a Status or a Result the caller must look at, and
// nothing throws. The search's planning lives beside it (ClipSearch.cpp).
//
// Changes go into one transaction that the first change opens; save() commits
// it. A failed commit is reported and the changes stay pending, as far as
// SQLite keeps them (a full disk rolls the transaction back).

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <type_traits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Result.h"
#include "library/Clip.h"
#include "library/ClipSearch.h"

namespace SQLite {
class Database;
class Statement;
}  // namespace SQLite

namespace tamarind {

// The search index covers this many characters at the start of each clip's folded search text;
// a search tests the rest of the few longer clips whole.
inline constexpr long long kIndexedSearchCharacters = 100'000;

// What to fetch: a WHERE clause over the `clip` table (its columns by their
// record names), its parameters, an ORDER BY, and the page.
struct ClipFetch {
    std::string where = "1";
    std::vector<std::variant<std::int64_t, double, std::string>> parameters;
    std::string orderBy = "createdAt DESC";
    std::optional<long long> limit;
    long long offset = 0;
    // Thumbnails and full images live apart and are only read when asked for.
    bool includesMedia = false;
};

class ModelContainer {
public:
    using Parameters = std::vector<std::variant<std::int64_t, double, std::string>>;

    // Creates the file (0600) and the schema when they are new. A failure when the file can't be
    // opened, isn't a store, or holds another schema version; the file is left as it is. A store
    // whose schema is current is opened without writing, so another process's long write doesn't
    // hold up the open; one that needs its schema written waits up to kOpenLockWait for the lock.
    // Afterwards a statement waits up to `busyTimeout` for another process's write to end, then
    // fails: a loop that must stay free passes little and tries again later.
    static Result<std::unique_ptr<ModelContainer>> open(const std::filesystem::path& file,
                                                        std::chrono::milliseconds busyTimeout = kDefaultBusyTimeout);
    static constexpr std::chrono::milliseconds kDefaultBusyTimeout{5000};
    static constexpr std::chrono::seconds kOpenLockWait{30};
    static Result<std::unique_ptr<ModelContainer>> openInMemory();
    // What a store file holds, read without changing a byte of it (for `tamarind doctor`).
    struct Health {
        std::string schemaVersion;  // "none" when the file has no meta table
        long long liveClips = 0;
        std::string integrity;      // "ok", or what SQLite's quick check found
    };
    static Result<Health> inspect(const std::filesystem::path& file);
    ~ModelContainer();

    bool isInMemory() const { return !file_; }
    const std::optional<std::filesystem::path>& file() const { return file_; }
    // Whether the file this store opened is no longer at its path: removed (with its folder, say)
    // or replaced by another. Writes would then go to a file nobody will read again.
    bool isFileGone() const;

    // --- changes (each opens the transaction when none is open) ---
    Status insert(const Clip& clip);
    // Writes every field of the record with this id, media and collections too: a clip read
    // without its media loses it here. An unknown id does nothing.
    Status update(const Clip& clip);
    // Writes only createdAt, lastUsedAt and useCount: what a promotion or a use changes. Cheaper
    // than update(), which rewrites media, memberships and the search index.
    Status updateUsage(const Clip& clip);
    // Writes only the thumbnail, made after the clip was stored. An unknown id does nothing.
    Status updateThumbnail(const Uuid& id, const Data& thumbnail);
    // Whether a live clip has this content hash: one probe of the hash index.
    Result<bool> hasLiveClipWithHash(const std::string& hash);
    // Live image clips with a blob and no thumbnail among the `newest` clips, newest first. Only the
    // newest are looked at, so that a big library is not scanned.
    Result<std::vector<Clip>> clipsWithoutThumbnail(long long newest);
    Status remove(const Uuid& id);
    // Removes every clip, with no tombstones.
    Status removeAllClips();
    // A collection's clipIDs are written as its members (clips of this store only).
    Status insert(const Collection& collection);
    Status update(const Collection& collection);
    Status remove(const Collection& collection);
    Status insert(const SyncDevice& device);
    Status update(const SyncDevice& device);
    Status remove(const SyncDevice& device);
    // Runs `change` (several of the calls above) as one: when it fails, whatever it wrote is taken
    // back and its failure returned, so that the next save never commits half of it.
    Status atomically(const std::function<Status()>& change);

    // Runs many inserts as one change, like atomically(), building the search index once at the
    // end instead of row by row (a thirteenth of the cost), with a cache that holds the whole
    // change. For imports of whole libraries.
    Status bulkLoad(const std::function<Status()>& inserts);

    // Gives the clips whose originDeviceID is one of `placeholders` this machine's id instead, once
    // per store: a mark in meta makes later calls return 0 at once. The number of clips changed.
    Result<long long> replacePlaceholderOrigins(const std::vector<std::string>& placeholders,
                                                const std::string& machineID);

    bool hasChanges() const { return isInTransaction_; }
    // Takes back every change not yet committed, so that what failed to commit can be made again
    // from the start.
    void discardChanges();
    // Rows inserted, updated or deleted on this connection since it opened, by changes that went
    // through, and by those taken back too: a change that leaves it as it was wrote nothing.
    long long totalChanges() const;
    Status save();

    // --- reads (see the uncommitted changes too) ---
    Result<std::vector<Clip>> fetch(const ClipFetch& request);
    Result<long long> count(const std::string& where = "1", const Parameters& parameters = {});
    Result<std::optional<Clip>> clip(const Uuid& id, bool includesMedia = true);
    // The creation dates and content hashes of the `limit` newest live clips, newest first;
    // nothing else is read.
    Result<std::vector<std::pair<Date, std::string>>> recentClipHashes(long long limit);
    // Clips without deletedAt, from a counter the schema keeps: no scan.
    Result<long long> liveClipCount();
    // Live clips per kind ("kind", raw string), per source app ("app", bundle id, with a name),
    // and favourites and pinned ("flag", "favorite" / "pinned"), kept by triggers; no scan.
    struct FacetCount {
        std::string dimension;
        std::string value;
        long long count = 0;
        std::optional<std::string> name;
    };
    Result<std::vector<FacetCount>> facetCounts();
    Result<std::vector<Collection>> collections();
    Result<std::optional<Collection>> collection(const Uuid& id);
    Result<std::vector<SyncDevice>> devices();
    // Rises when another connection (the command line) commits to the file.
    Result<long long> dataVersion();

    // --- search (ClipSearch.cpp) ---
    // The clips `match` selects in the sort order, `limit` of them after `offset`.
    Result<std::vector<Clip>> fetchMatching(const ClipMatch& match, ClipSortOrder sort, long long limit,
                                            long long offset);
    Result<long long> countMatching(const ClipMatch& match);
    // The next `limit` clips `match` selects after `after` (from the start without it) in the
    // order (createdAt, id), with their media; a walk whose last batch costs what its first did.
    Result<std::vector<Clip>> fetchMatchingAfter(const ClipMatch& match, const std::optional<ClipKey>& after,
                                                 long long limit);
    // Live clips whose id starts with `upperPrefix` (upper-case hex and dashes), at most `limit`, in
    // id order.
    Result<std::vector<Uuid>> clipIDsWithPrefix(const std::string& upperPrefix, int limit);

private:
    ModelContainer(std::unique_ptr<SQLite::Database> database, std::optional<std::filesystem::path> file);

    // Runs SQL work, turning what SQLite throws into a Failure.
    template <class Work>
    static auto guarded(Work&& work) -> Result<std::invoke_result_t<Work>>;
    // One attempt; `isBusy` when SQLite said the file was locked.
    static Result<std::unique_ptr<ModelContainer>> openOnce(const std::filesystem::path& file,
                                                            std::chrono::milliseconds busyTimeout, bool& isBusy);
    class Prepared;
    // The statements of every clip write, compiled once: compiling costs more than running them.
    Prepared prepared(const char* sql);
    void beginChanges();
    template <class Write> void writeWhole(Write write);
    std::vector<Clip> fetchRows(const ClipFetch& request);
    std::optional<std::int64_t> primaryKey(const Uuid& id);
    void writeMemberships(std::int64_t clipPk, const std::vector<Uuid>& collectionIDs);
    void writeMedia(std::int64_t clipPk, const Clip& clip);
    void writeCollectionMembers(const Collection& collection);
    std::vector<Collection> readCollections();
    // The search's steps (ClipSearch.cpp); they throw what SQLite throws, and guarded() catches it.
    std::vector<Clip> searchPage(const ClipMatch& match, ClipSortOrder sort, long long limit, long long offset);
    long long searchCount(const ClipMatch& match);

    std::unique_ptr<SQLite::Database> database_;
    std::optional<std::filesystem::path> file_;
    std::optional<std::pair<dev_t, ino_t>> identity_;  // the file's device and inode when it was opened
    std::unordered_map<const char*, std::unique_ptr<SQLite::Statement>> statements_;
    bool isInTransaction_ = false;
};

template <class Work>
auto ModelContainer::guarded(Work&& work) -> Result<std::invoke_result_t<Work>> {
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Work>>) {
            work();
            return Status();
        } else {
            return work();
        }
    } catch (const std::exception& error) {
        return Failure{error.what()};
    }
}

}  // namespace tamarind
