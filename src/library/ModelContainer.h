#pragma once
// One store file (or an in-memory store) holding the schema of the records:
// clips, collections with their members, and sync devices, at schema version
// 1.0.0. SQLite in WAL mode, so that the command line can write the same file
// while the app runs. Main thread only.
//
// Changes go into one transaction that the first change opens; save() commits
// it. A failed commit is reported and the changes stay pending, as far as
// SQLite keeps them (a full disk rolls the transaction back).

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "library/Clip.h"

namespace SQLite {
class Database;
class Statement;
}  // namespace SQLite

namespace tamarind {

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
    using OpenResult = std::variant<std::unique_ptr<ModelContainer>, std::string>;

    // Creates the file (0600) and the schema when they are new. The error text when the file
    // can't be opened, isn't a store, or holds another schema version; the file is left as it is.
    static OpenResult open(const std::filesystem::path& file);
    static OpenResult openInMemory();
    ~ModelContainer();

    bool isInMemory() const { return !file_; }
    const std::optional<std::filesystem::path>& file() const { return file_; }

    // --- changes (each opens the transaction when none is open) ---
    void insert(const Clip& clip);
    // Writes every field of the record with this id, media and collections too: a clip read
    // without its media loses it here. An unknown id does nothing.
    void update(const Clip& clip);
    // Writes only createdAt, lastUsedAt and useCount: what a promotion or a use changes. Cheaper
    // than update(), which rewrites media, memberships and the search index.
    void updateUsage(const Clip& clip);
    void remove(const Uuid& id);
    // Removes every clip, with no tombstones.
    void removeAllClips();
    // A collection's clipIDs are written as its members (clips of this store only).
    void insert(const Collection& collection);
    void update(const Collection& collection);
    void remove(const Collection& collection);
    void insert(const SyncDevice& device);
    void update(const SyncDevice& device);
    void remove(const SyncDevice& device);

    // Gives the clips whose originDeviceID is one of `placeholders` this machine's id instead, once
    // per store: a mark in meta makes later calls return 0 at once. The number of clips changed.
    long long replacePlaceholderOrigins(const std::vector<std::string>& placeholders, const std::string& machineID);

    bool hasChanges() const { return isInTransaction_; }
    // Commits; the error text on failure.
    std::optional<std::string> save();

    // --- reads (see the uncommitted changes too) ---
    std::vector<Clip> fetch(const ClipFetch& request);
    long long count(const std::string& where = "1",
                    const std::vector<std::variant<std::int64_t, double, std::string>>& parameters = {});
    std::optional<Clip> clip(const Uuid& id, bool includesMedia = true);
    // Clips without deletedAt, from a counter the schema keeps: no scan.
    long long liveClipCount();
    // Live clips per kind ("kind", raw string), per source app ("app", bundle id, with a name),
    // and favourites and pinned ("flag", "favorite" / "pinned"), kept by triggers; no scan.
    struct FacetCount {
        std::string dimension;
        std::string value;
        long long count = 0;
        std::optional<std::string> name;
    };
    std::vector<FacetCount> facetCounts();
    std::vector<Collection> collections();
    std::optional<Collection> collection(const Uuid& id);
    std::vector<SyncDevice> devices();

    // Rises when another connection (the command line) commits to the file.
    long long dataVersion();

    // For queries that need their own SQL (search, facets).
    SQLite::Database& database() { return *database_; }

private:
    ModelContainer(std::unique_ptr<SQLite::Database> database, std::optional<std::filesystem::path> file);
    // One attempt; `isBusy` when SQLite said the file was locked.
    static OpenResult openOnce(const std::filesystem::path& file, bool& isBusy);
    class Prepared;
    // The statements of every clip write, compiled once: compiling costs more than running them.
    Prepared prepared(const char* sql);
    void beginChanges();
    template <class Write> void writeWhole(Write write);
    void insertWithoutSavepoint(const Clip& clip);
    std::optional<std::int64_t> primaryKey(const Uuid& id);
    void writeMemberships(std::int64_t clipPk, const std::vector<Uuid>& collectionIDs);
    void writeMedia(std::int64_t clipPk, const Clip& clip);
    void writeCollectionMembers(const Collection& collection);

    std::unique_ptr<SQLite::Database> database_;
    std::optional<std::filesystem::path> file_;
    std::unordered_map<const char*, std::unique_ptr<SQLite::Statement>> statements_;
    bool isInTransaction_ = false;
};

}  // namespace tamarind
