// The read side of the store: pages of matching clips, counts, one clip, the
// library's facets, the disk it takes and the collections.
//
// Substring search picks, per query and per store, the cheaper way to a page:
// walking the sort order's index and testing each row, which stops when the page
// is full (quick for a common needle, a full scan for a rare one), or reading the
// rows that the trigram index lists for the needle and sorting them (quick when
// they are few). The index keeps the trigrams' positions, so the needle quoted as
// one phrase is matched as a substring by the index alone; a capped read of its
// rows tells which way is cheaper. The result is exactly the containment test.

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <map>
#include <memory>
#include <set>

#include "foundation/Text.h"
#include "library/ClipStore.h"

namespace tamarind {

namespace {

using Parameters = std::vector<std::variant<std::int64_t, double, std::string>>;

// The trigram tokenizer indexes runs of three code points; shorter needles can't use it.
constexpr std::size_t kTrigramLength = 3;
// Each code point of a phrase adds a row list to read; a long pasted needle is narrowed enough
// by its start, and the rows found are then tested for the whole of it.
constexpr std::size_t kMaximumPhraseLength = 24;
// Bounds of the candidate count below which the index beats a walk (see indexLimit).
constexpr long long kMinimumIndexLimit = 64;
constexpr long long kMaximumIndexLimit = 20'000;
// How many times the expected number of rows a walk may read before the index takes over.
constexpr long long kScanBudgetFactor = 4;

// The part of a query that every store answers the same way.
struct Match {
    std::string where = "deletedAt IS NULL";  // everything but the text
    Parameters parameters;
    std::string needle;           // searchFold of the trimmed text; empty for no text test
    bool matchesNothing = false;  // text that folds to nothing is never contained
};

Match matchOf(const ClipQuery& query) {
    Match match;
    if (query.kind) {
        match.where += " AND kind = ?";
        match.parameters.emplace_back(std::string(rawValue(*query.kind)));
    }
    if (query.appBundleID) {
        match.where += " AND sourceAppBundleID = ?";
        match.parameters.emplace_back(*query.appBundleID);
    }
    if (query.onlyFavorites) match.where += " AND isFavorite <> 0";
    if (query.onlyPinned) match.where += " AND isPinned <> 0";
    std::string_view text = trimmed(query.text);
    if (!text.empty()) {
        match.needle = searchFold(text);
        match.matchesNothing = match.needle.empty();
    }
    return match;
}

// The rowid ends each order so that pages of equal keys neither repeat nor skip a clip; every
// order is the reverse or the walk of one index (the rowid is the last column of each).
std::string orderBy(ClipSortOrder sort) {
    switch (sort) {
    case ClipSortOrder::newest: return "createdAt DESC, clip.pk DESC";
    case ClipSortOrder::oldest: return "createdAt, clip.pk";
    case ClipSortOrder::mostUsed: return "useCount DESC, createdAt DESC, clip.pk DESC";
    case ClipSortOrder::largest: return "byteSize DESC, createdAt DESC, clip.pk DESC";
    }
    return "createdAt DESC, clip.pk DESC";
}

// The same order over records from two stores; ties keep the order they came in.
bool precedes(const Clip& a, const Clip& b, ClipSortOrder sort) {
    switch (sort) {
    case ClipSortOrder::newest: return a.createdAt > b.createdAt;
    case ClipSortOrder::oldest: return a.createdAt < b.createdAt;
    case ClipSortOrder::mostUsed:
        if (a.useCount != b.useCount) return a.useCount > b.useCount;
        return a.createdAt > b.createdAt;
    case ClipSortOrder::largest:
        if (a.byteSize != b.byteSize) return a.byteSize > b.byteSize;
        return a.createdAt > b.createdAt;
    }
    return false;
}

// The needle (or its start) as one FTS5 phrase: quoted, so that no character is query syntax.
struct Phrase {
    std::string expression;
    bool isWholeNeedle = true;
};

// None for a needle shorter than a trigram, or holding a NUL, which would end the query text.
std::optional<Phrase> phraseOf(std::string_view needle) {
    if (needle.find('\0') != std::string_view::npos) return std::nullopt;
    std::size_t codePoints = 0;
    std::size_t end = 0;
    while (end < needle.size() && codePoints < kMaximumPhraseLength) {
        decodeCodePoint(needle, end);
        ++codePoints;
    }
    if (codePoints < kTrigramLength) return std::nullopt;
    Phrase phrase{.expression = "\"", .isWholeNeedle = end == needle.size()};
    for (char c : needle.substr(0, end)) {
        if (c == '"') phrase.expression += '"';
        phrase.expression += c;
    }
    phrase.expression += '"';
    return phrase;
}

// How a store answers a needle of three characters or more.
struct SearchPlan {
    enum class Way {
        nothing,        // no row holds the phrase
        candidates,     // these rows, few enough to sort
        walkThenIndex,  // the needle looks common: walk the order, or fall back to the index
    } way = Way::nothing;
    std::vector<std::int64_t> rowIDs;
    long long indexLimit = 0;
};

// Sorting c candidates read by rowid costs about c rows; filling a page by a walk costs about
// (offset + limit) × N / c rows, the needle being in c of N clips. The two meet at
// c = sqrt((offset + limit) × N): below that the index wins.
long long indexLimit(ModelContainer& store, long long wanted) {
    auto rows = store.database().execAndGet("SELECT coalesce(max(pk), 0) FROM clip").getInt64();
    auto balance = static_cast<long long>(std::sqrt(static_cast<double>(std::max<long long>(wanted, 1)) *
                                                    static_cast<double>(std::max<std::int64_t>(rows, 1))));
    return std::clamp(balance, kMinimumIndexLimit, kMaximumIndexLimit);
}

SearchPlan planSearch(ModelContainer& store, const Phrase& phrase, long long wanted) {
    SearchPlan plan;
    plan.indexLimit = indexLimit(store, wanted);
    SQLite::Statement listed(store.database(), "SELECT rowid FROM clip_search WHERE clip_search MATCH ? LIMIT ?");
    listed.bind(1, phrase.expression);
    listed.bind(2, static_cast<std::int64_t>(plan.indexLimit));
    while (listed.executeStep()) plan.rowIDs.push_back(listed.getColumn(0).getInt64());
    if (plan.rowIDs.empty()) return plan;
    if (static_cast<long long>(plan.rowIDs.size()) < plan.indexLimit) {
        plan.way = SearchPlan::Way::candidates;
        return plan;
    }
    plan.rowIDs.clear();
    plan.way = SearchPlan::Way::walkThenIndex;
    return plan;
}

std::string rowIDList(const std::vector<std::int64_t>& rowIDs) {
    std::string list;
    for (std::int64_t rowID : rowIDs) {
        if (!list.empty()) list += ",";
        list += std::to_string(rowID);
    }
    return list;
}

// The WHERE clause and parameters narrowed to these rows, or (with none) to the phrase's rows;
// only a phrase of part of the needle leaves a test to make on each row.
std::string narrowed(const Match& match, const Phrase& phrase, const std::vector<std::int64_t>& rowIDs,
                     Parameters& parameters) {
    parameters = match.parameters;
    std::string where = match.where;
    if (!phrase.isWholeNeedle) {
        where += " AND instr(searchFolded, ?) > 0";
        parameters.emplace_back(match.needle);
    }
    if (!rowIDs.empty()) return where + " AND clip.pk IN (" + rowIDList(rowIDs) + ")";
    parameters.emplace_back(phrase.expression);
    return where + " AND clip.pk IN (SELECT rowid FROM clip_search WHERE clip_search MATCH ?)";
}

std::string withScan(const Match& match, Parameters& parameters) {
    parameters = match.parameters;
    parameters.emplace_back(match.needle);
    return match.where + " AND instr(searchFolded, ?) > 0";
}

void bind(SQLite::Statement& statement, const Parameters& parameters) {
    int index = 1;
    for (const auto& parameter : parameters)
        std::visit([&](const auto& value) { statement.bind(index++, value); }, parameter);
}

// Walks the sort order testing each row, reading at most `budget` rows. The row ids of the page,
// or nothing when the budget ran out first.
std::optional<std::vector<std::int64_t>> walk(ModelContainer& store, const Match& match, ClipSortOrder sort,
                                              long long limit, long long offset, long long budget) {
    std::string sql = "SELECT clip.pk, searchFolded FROM clip WHERE " + match.where + " ORDER BY " + orderBy(sort);
    SQLite::Statement rows(store.database(), sql);
    bind(rows, match.parameters);
    std::vector<std::int64_t> page;
    long long matched = 0;
    for (long long read = 0; read < budget; ++read) {
        if (!rows.executeStep()) return page;
        SQLite::Column folded = rows.getColumn(1);
        std::string_view text(static_cast<const char*>(folded.getBlob()), static_cast<std::size_t>(folded.getBytes()));
        if (text.find(match.needle) == std::string_view::npos) continue;
        if (matched++ < offset) continue;
        page.push_back(rows.getColumn(0).getInt64());
        if (static_cast<long long>(page.size()) == limit) return page;
    }
    return std::nullopt;
}

std::vector<Clip> fetchByRowIDs(ModelContainer& store, const std::vector<std::int64_t>& rowIDs, ClipSortOrder sort) {
    if (rowIDs.empty()) return {};
    return store.fetch(ClipFetch{.where = "clip.pk IN (" + rowIDList(rowIDs) + ")", .orderBy = orderBy(sort)});
}

// A page of candidates that must be sorted: sorting whole rows (with their collections) is what
// costs when thousands match, so the page is cut on row ids and keys, and only its rows are read.
std::vector<Clip> fetchSorted(ModelContainer& store, const std::string& where, const Parameters& parameters,
                              ClipSortOrder sort, long long limit, long long offset) {
    SQLite::Statement rows(store.database(), "SELECT clip.pk FROM clip WHERE " + where + " ORDER BY " +
                                                 orderBy(sort) + " LIMIT " + std::to_string(limit) + " OFFSET " +
                                                 std::to_string(offset));
    bind(rows, parameters);
    std::vector<std::int64_t> page;
    while (rows.executeStep()) page.push_back(rows.getColumn(0).getInt64());
    return fetchByRowIDs(store, page, sort);
}

// The matching clips of one store in the sort order, `limit` of them after `offset`. Throws what
// the store throws.
std::vector<Clip> fetchMatching(ModelContainer& store, const Match& match, ClipSortOrder sort, long long limit,
                                long long offset) {
    if (match.matchesNothing || limit <= 0) return {};
    ClipFetch request{.where = match.where, .parameters = match.parameters, .orderBy = orderBy(sort),
                      .limit = limit, .offset = offset};
    if (match.needle.empty()) return store.fetch(request);
    auto phrase = phraseOf(match.needle);
    if (!phrase) {
        request.where = withScan(match, request.parameters);
        return store.fetch(request);
    }
    SearchPlan plan = planSearch(store, *phrase, offset + limit);
    if (plan.way == SearchPlan::Way::nothing) return {};
    if (plan.way == SearchPlan::Way::walkThenIndex) {
        // The needle is common, so a walk most likely fills the page within about indexLimit
        // rows; other conditions that are rare exhaust the budget and go to the index.
        auto page = walk(store, match, sort, limit, offset, kScanBudgetFactor * plan.indexLimit);
        if (page) return fetchByRowIDs(store, *page, sort);
    }
    Parameters parameters;
    std::string where = narrowed(match, *phrase, plan.rowIDs, parameters);
    return fetchSorted(store, where, parameters, sort, limit, offset);
}

long long countMatching(ModelContainer& store, const Match& match) {
    if (match.matchesNothing) return 0;
    bool isOnlyLive = match.parameters.empty() && match.where == "deletedAt IS NULL";
    if (match.needle.empty()) {
        // The store keeps this one; counting "deletedAt IS NULL" would read every row.
        if (isOnlyLive) return store.liveClipCount();
        return store.count(match.where, match.parameters);
    }
    Parameters parameters;
    auto phrase = phraseOf(match.needle);
    if (!phrase) return store.count(withScan(match, parameters), parameters);
    if (isOnlyLive && phrase->isWholeNeedle) {
        // The index alone counts the rows holding the needle; only the tombstones among them
        // (found by their own index) are taken off.
        SQLite::Statement listed(store.database(), "SELECT count(*) FROM clip_search WHERE clip_search MATCH ?");
        listed.bind(1, phrase->expression);
        listed.executeStep();
        return listed.getColumn(0).getInt64() -
               store.count("deletedAt IS NOT NULL AND instr(searchFolded, ?) > 0", {match.needle});
    }
    // Reading the phrase's rows by rowid never costs more than reading every row.
    return store.count(narrowed(match, *phrase, {}, parameters), parameters);
}

bool isMember(const Clip& clip, const Uuid& collectionID) {
    return std::find(clip.collectionIDs.begin(), clip.collectionIDs.end(), collectionID) != clip.collectionIDs.end();
}

void keepMembers(std::vector<Clip>& clips, const std::optional<Uuid>& collectionID) {
    if (!collectionID) return;
    std::erase_if(clips, [&](const Clip& clip) { return !isMember(clip, *collectionID); });
}

// Blocks actually allocated, so that sparse files and the WAL's preallocation count as what they take.
long long allocatedBytes(const std::filesystem::path& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return 0;
    long long allocated = static_cast<long long>(status.st_blocks) * 512;
    return allocated > 0 ? allocated : static_cast<long long>(status.st_size);
}

long long folderBytes(const std::filesystem::path& folder) {
    long long total = 0;
    std::error_code error;
    std::filesystem::recursive_directory_iterator entries(
        folder, std::filesystem::directory_options::skip_permission_denied, error);
    for (; !error && entries != std::filesystem::recursive_directory_iterator(); entries.increment(error))
        total += allocatedBytes(entries->path());
    return total;
}

// The main store and its companions ("-wal", "-shm", "-journal"); the vault is not counted.
bool isMainStoreFile(const std::string& name) {
    return name == kMainStoreFilename || name.starts_with(std::string(kMainStoreFilename) + "-");
}

}  // namespace

std::vector<Clip> ClipStore::fetchPage(int page, const ClipQuery& query, ClipSortOrder sort, int pageSize) {
    if (pageSize <= 0) return {};
    long long first = static_cast<long long>(std::max(page, 0)) * pageSize;
    Match match = matchOf(query);
    if (!vault_) {
        std::vector<Clip> clips;
        try {
            clips = fetchMatching(*main_, match, sort, pageSize, first);
        } catch (const std::exception& error) {
            log_.log("fetchPage failed: %{public}s", error.what());
            return {};
        }
        // Filtered after the page is cut: a page of a collection may hold fewer clips and still not be the last.
        keepMembers(clips, query.collectionID);
        return clips;
    }
    std::vector<Clip> clips;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        try {
            auto found = fetchMatching(*store, match, sort, first + pageSize, 0);
            clips.insert(clips.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
        } catch (const std::exception&) {
            // A store that can't be read adds nothing to the merged page.
        }
    }
    std::stable_sort(clips.begin(), clips.end(), [&](const Clip& a, const Clip& b) { return precedes(a, b, sort); });
    keepMembers(clips, query.collectionID);
    if (static_cast<long long>(clips.size()) <= first) return {};
    clips.erase(clips.begin(), clips.begin() + first);
    if (static_cast<long long>(clips.size()) > pageSize) clips.resize(static_cast<std::size_t>(pageSize));
    return clips;
}

void ClipStore::forEachClip(const ClipQuery& query, const std::function<void(std::vector<Clip>&)>& batch) {
    constexpr long long kBatchSize = 500;
    Match match = matchOf(query);
    if (match.matchesNothing) return;
    Parameters parameters;
    std::string where = match.needle.empty() ? match.where : withScan(match, parameters);
    if (match.needle.empty()) parameters = match.parameters;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        // By key rather than by offset, so that the last batch costs what the first did.
        std::optional<std::pair<double, std::string>> last;
        while (true) {
            ClipFetch request{.where = where, .parameters = parameters, .orderBy = "createdAt, id", .limit = kBatchSize,
                              .includesMedia = true};
            if (last) {
                request.where += " AND (createdAt > ? OR (createdAt = ? AND id > ?))";
                request.parameters.emplace_back(last->first);
                request.parameters.emplace_back(last->first);
                request.parameters.emplace_back(last->second);
            }
            std::vector<Clip> clips;
            try {
                clips = store->fetch(request);
            } catch (const std::exception& error) {
                log_.log("fetchPage failed: %{public}s", error.what());
                break;
            }
            if (clips.empty()) break;
            last = {clips.back().createdAt.secondsSinceReferenceDate(), clips.back().id.uuidString()};
            bool isLast = static_cast<long long>(clips.size()) < kBatchSize;
            keepMembers(clips, query.collectionID);
            if (!clips.empty()) batch(clips);
            if (isLast) break;
        }
    }
}

// The collection filter is not applied: a store count has no membership test.
namespace {

// A query with no text and one filter is answered by the store's facet counts.
std::optional<std::pair<std::string, std::string>> facetOf(const ClipQuery& query) {
    if (!trimmed(query.text).empty() || query.collectionID) return std::nullopt;
    int filters = (query.kind ? 1 : 0) + (query.appBundleID ? 1 : 0) + (query.onlyFavorites ? 1 : 0) +
                  (query.onlyPinned ? 1 : 0);
    if (filters != 1) return std::nullopt;
    if (query.kind) return std::pair<std::string, std::string>("kind", std::string(rawValue(*query.kind)));
    if (query.appBundleID) return std::pair<std::string, std::string>("app", *query.appBundleID);
    return std::pair<std::string, std::string>("flag", query.onlyFavorites ? "favorite" : "pinned");
}

}  // namespace

long long ClipStore::count(const ClipQuery& query) {
    if (auto facet = facetOf(query)) {
        long long total = 0;
        for (ModelContainer* store : {main_.get(), vault_.get()}) {
            if (!store) continue;
            try {
                for (const ModelContainer::FacetCount& count : store->facetCounts())
                    if (count.dimension == facet->first && count.value == facet->second) total += count.count;
            } catch (const std::exception&) {
            }
        }
        return total;
    }
    Match match = matchOf(query);
    long long total = 0;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        try {
            total += countMatching(*store, match);
        } catch (const std::exception&) {
            // A store that can't be read counts nothing.
        }
    }
    return total;
}

std::optional<Clip> ClipStore::clip(const Uuid& id) {
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        try {
            if (auto found = store->clip(id, true)) return found;
        } catch (const std::exception&) {
        }
    }
    return std::nullopt;
}

std::vector<Uuid> ClipStore::clipIDsWithPrefix(std::string_view prefix, int limit) {
    std::string upper;
    for (char c : prefix) {
        if (!std::isxdigit(static_cast<unsigned char>(c)) && c != '-') return {};
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    std::set<Uuid> found;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        try {
            // A range on the id index: ids are upper-case text, and '~' sorts after every digit.
            SQLite::Statement query(store->database(),
                                    "SELECT id FROM clip WHERE id >= ?1 AND id < ?1 || '~' AND deletedAt IS NULL "
                                    "ORDER BY id LIMIT ?2");
            query.bind(1, upper);
            query.bind(2, limit);
            while (query.executeStep())
                if (auto id = Uuid::parse(query.getColumn(0).getString())) found.insert(*id);
        } catch (const std::exception&) {
        }
    }
    std::vector<Uuid> ids(found.begin(), found.end());
    if (static_cast<int>(ids.size()) > limit) ids.resize(static_cast<std::size_t>(limit));
    return ids;
}

LibraryFacets ClipStore::facets() {
    LibraryFacets facets;
    facets.total = liveClipCount();
    std::map<std::string, SourceAppFacet> apps;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        try {
            // The store keeps these counts by triggers, so a million clips cost no more than ten.
            for (const ModelContainer::FacetCount& facet : store->facetCounts()) {
                if (facet.dimension == "kind") {
                    facets.kindCounts[clipKindOrText(facet.value)] += facet.count;
                } else if (facet.dimension == "app") {
                    SourceAppFacet& app = apps[facet.value];
                    app.bundleID = facet.value;
                    app.count += facet.count;
                    if (app.name.empty() && facet.name) app.name = *facet.name;
                } else if (facet.value == "favorite") {
                    facets.favorites += facet.count;
                } else if (facet.value == "pinned") {
                    facets.pinned += facet.count;
                }
            }
        } catch (const std::exception& error) {
            log_.log("facets failed: %{public}s", error.what());
        }
    }
    for (auto& [bundleID, app] : apps) facets.apps.push_back(std::move(app));
    std::sort(facets.apps.begin(), facets.apps.end(), [](const SourceAppFacet& a, const SourceAppFacet& b) {
        if (a.count != b.count) return a.count > b.count;
        return a.bundleID < b.bundleID;
    });
    return facets;
}

StorageUsage ClipStore::storageUsage(const std::filesystem::path& applicationSupport) {
    StorageUsage usage;
    std::error_code error;
    for (std::filesystem::directory_iterator entries(applicationSupport, error);
         !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        if (isMainStoreFile(entries->path().filename().string())) usage.databaseBytes += allocatedBytes(entries->path());
    }
    usage.blobBytes = folderBytes(applicationSupport / "blobs");
    usage.cacheBytes = folderBytes(applicationSupport / "icons") + folderBytes(applicationSupport / "favicons");
    return usage;
}

std::vector<Collection> ClipStore::collections() {
    std::vector<Collection> collections;
    try {
        collections = main_->collections();
    } catch (const std::exception& error) {
        log_.log("collections failed: %{public}s", error.what());
        return {};
    }
    std::stable_sort(collections.begin(), collections.end(), [](const Collection& a, const Collection& b) {
        if (a.sortIndex != b.sortIndex) return a.sortIndex < b.sortIndex;
        return a.createdAt < b.createdAt;
    });
    return collections;
}

}  // namespace tamarind
