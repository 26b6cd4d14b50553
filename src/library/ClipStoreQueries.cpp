// The read side of the store: pages of matching clips, counts, one clip, the
// library's facets, the disk it takes and the collections. Each store answers
// the query (ModelContainer's search); the answers of the main store and the
// vault are merged here.

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "foundation/Text.h"
#include "library/ClipStore.h"

namespace tamarind {

namespace {

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
    ClipMatch match = ClipMatch::from(query);
    if (!vault_) {
        auto clips = readOr(main_->fetchMatching(match, sort, pageSize, first), "fetchPage", std::vector<Clip>{});
        // Filtered after the page is cut: a page of a collection may hold fewer clips and still not be the last.
        keepMembers(clips, query.collectionID);
        return clips;
    }
    // A store that can't be read adds nothing to the merged page.
    std::vector<Clip> clips;
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        auto found = readOr(store->fetchMatching(match, sort, first + pageSize, 0), "fetchPage", std::vector<Clip>{});
        clips.insert(clips.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
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
    ClipMatch match = ClipMatch::from(query);
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        std::optional<ClipKey> last;
        while (true) {
            auto clips = readOr(store->fetchMatchingAfter(match, last, kBatchSize), "fetchPage", std::vector<Clip>{});
            if (clips.empty()) break;
            last = ClipKey{clips.back().createdAt.secondsSinceReferenceDate(), clips.back().id.uuidString()};
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
    // A store that can't be read counts nothing.
    long long total = 0;
    auto facet = facetOf(query);
    ClipMatch match = ClipMatch::from(query);
    for (ModelContainer* store : {main_.get(), vault_.get()}) {
        if (!store) continue;
        if (!facet) {
            total += readOr(store->countMatching(match), "count", 0LL);
            continue;
        }
        for (const auto& count : readOr(store->facetCounts(), "count", std::vector<ModelContainer::FacetCount>{}))
            if (count.dimension == facet->first && count.value == facet->second) total += count.count;
    }
    return total;
}

std::optional<Clip> ClipStore::clip(const Uuid& id) {
    for (ModelContainer* store : {main_.get(), vault_.get()})
        if (store)
            if (auto found = readOr(store->clip(id, true), "clip", std::optional<Clip>())) return found;
    return std::nullopt;
}

std::vector<Uuid> ClipStore::clipIDsWithPrefix(std::string_view prefix, int limit) {
    std::string upper;
    for (char c : prefix) {
        if (!std::isxdigit(static_cast<unsigned char>(c)) && c != '-') return {};
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    std::set<Uuid> found;
    for (ModelContainer* store : {main_.get(), vault_.get()})
        if (store)
            for (const Uuid& id : readOr(store->clipIDsWithPrefix(upper, limit), "clipIDsWithPrefix", std::vector<Uuid>{}))
                found.insert(id);
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
        // The store keeps these counts by triggers, so a million clips cost no more than ten.
        for (const auto& facet : readOr(store->facetCounts(), "facets", std::vector<ModelContainer::FacetCount>{})) {
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
    auto collections = readOr(main_->collections(), "collections", std::vector<Collection>{});
    std::stable_sort(collections.begin(), collections.end(), [](const Collection& a, const Collection& b) {
        if (a.sortIndex != b.sortIndex) return a.sortIndex < b.sortIndex;
        return a.createdAt < b.createdAt;
    });
    return collections;
}

}  // namespace tamarind
