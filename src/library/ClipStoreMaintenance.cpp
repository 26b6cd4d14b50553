// The maintenance side of ClipStore: retention, deletes and tombstones, the
// blob sweep, the small mutations (with the vault move), collections and boards.

#include <algorithm>
#include <map>
#include <set>

#include "library/ClipStore.h"

namespace tamarind {

namespace {

constexpr double kSecondsPerDay = 86400;
// How many spared (pinned, favourite) clips one retention sweep looks past among the oldest.
constexpr long long kRetentionSpareMargin = 200;
// Neighbouring board indices closer than this have run out of room for a midpoint.
constexpr double kBoardIndexResolution = 1e-6;

bool isSpared(const Clip& clip) { return clip.isPinned || clip.isFavorite; }

// The record that carries a deletion to other machines: identity, kind, flags and dates, no content.
Clip tombstone(Clip clip, Date now) {
    clip.deletedAt = now;
    clip.text.reset();
    clip.richTextData.reset();
    clip.htmlString.reset();
    clip.urlString.reset();
    clip.hexColor.reset();
    clip.fileBookmarks.reset();
    clip.thumbnailData.reset();
    clip.fullImageData.reset();
    clip.blobFilename.reset();
    clip.ocrText.reset();
    clip.aiTitle.reset();
    clip.aiSuggestedCollectionID.reset();
    clip.multiClipData.reset();
    clip.expansionTrigger.reset();
    clip.reminderDate.reset();
    clip.reminderAppBundleID.reset();
    clip.boardColumn.reset();
    clip.searchText.clear();
    clip.contentHash.clear();
    clip.charCount = 0;
    clip.byteSize = 0;
    clip.collectionIDs.clear();
    return clip;
}

// A live clip with its media: update() rewrites the media too, so a record read without them would lose them.
Result<std::optional<Clip>> liveClip(ModelContainer& container, const Uuid& id) {
    auto clip = container.clip(id, /*includesMedia=*/true);
    if (clip && *clip && (*clip)->deletedAt) return std::optional<Clip>();
    return clip;
}

// Reads the live clip, applies `change` and writes it back; no such clip changes nothing.
template <class Change>
Status rewriteClip(ModelContainer& container, const Uuid& id, Change&& change) {
    auto clip = liveClip(container, id);
    if (!clip) return clip.failure();
    if (!*clip) return Status();
    change(**clip);
    return container.update(**clip);
}

// The live clips of a collection's board column, in board order.
Result<std::vector<Clip>> columnClips(ModelContainer& container, const Collection& collection,
                                      const std::string& column) {
    std::set<Uuid> members(collection.clipIDs.begin(), collection.clipIDs.end());
    auto clips = container.fetch(ClipFetch{.where = "boardColumn = ? AND deletedAt IS NULL",
                                           .parameters = {column},
                                           .orderBy = "sortIndex ASC, createdAt ASC"});
    if (clips) std::erase_if(*clips, [&](const Clip& clip) { return !members.contains(clip.id); });
    return clips;
}

// Runs each step in turn while they go through: the first failure is the result.
template <class Item, class Step>
Status forEach(const std::vector<Item>& items, Step&& step) {
    for (const Item& item : items)
        if (Status status = step(item); !status) return status;
    return Status();
}

}  // namespace

// --- deletes ---------------------------------------------------------------------------------------

Status ClipStore::deleteRecord(const Clip& clip, ModelContainer& container, Date now) {
    if (!vault_ || &container != main_.get()) return container.remove(clip.id);
    // Deleting a tombstone again would only push its purge further away.
    return clip.deletedAt ? Status() : container.update(tombstone(clip, now));
}

void ClipStore::forget(const std::vector<Clip>& deleted) {
    for (const Clip& clip : deleted) {
        if (clip.blobFilename) blobStore_.remove(*clip.blobFilename);
        recentHashes_.remove(clip.contentHash);
    }
}

void ClipStore::deleteClip(const Uuid& id) { deleteClips({id}); }

void ClipStore::deleteClips(const std::vector<Uuid>& ids) {
    Date now = loop_.clock().wallNow();
    std::map<ModelContainer*, std::vector<Uuid>> byStore;
    for (const Uuid& id : ids)
        if (ModelContainer* container = containerOf(id)) byStore[container].push_back(id);
    bool wrote = false;
    for (auto& [container, idsThere] : byStore) {
        std::vector<Clip> deleted;
        Status done = applyWithoutSaving(*container, [&, container = container, &idsThere = idsThere] {
            return forEach(idsThere, [&](const Uuid& id) {
                // Media are not needed: a tombstone clears them and a removal takes them along.
                auto clip = container->clip(id, /*includesMedia=*/false);
                if (!clip) return Status(clip.failure());
                if (!*clip) return Status();
                deleted.push_back(**clip);
                return deleteRecord(**clip, *container, now);
            });
        }, wrote);
        if (done) forget(deleted);
    }
    if (wrote) save();
}

void ClipStore::applyRetention(long long maximumClipCount, std::optional<long long> maximumAgeInDays, Date now) {
    struct Removal {
        Clip clip;
        ModelContainer* container;
    };
    // Without a complete list nothing is removed; the next sweep tries again.
    auto chooseRemovals = [&]() -> Result<std::vector<Removal>> {
        std::vector<Removal> removals;
        std::set<Uuid> chosen;
        if (maximumAgeInDays && *maximumAgeInDays >= 1) {
            Date cutoff = now.addingSeconds(-static_cast<double>(*maximumAgeInDays) * kSecondsPerDay);
            for (ModelContainer* container : {main_.get(), vault_.get()}) {
                if (!container) continue;
                auto old = container->fetch(ClipFetch{.where = "createdAt < ? AND deletedAt IS NULL",
                                                      .parameters = {cutoff.secondsSinceReferenceDate()},
                                                      .orderBy = "createdAt ASC"});
                if (!old) return old.failure();
                for (Clip& clip : *old) {
                    if (isSpared(clip)) continue;
                    chosen.insert(clip.id);
                    removals.push_back({std::move(clip), container});
                }
            }
        }
        long long excess = liveClipCount() - static_cast<long long>(removals.size()) - std::max(0LL, maximumClipCount);
        if (excess < 1) return removals;
        std::vector<Removal> oldest;
        for (ModelContainer* container : {main_.get(), vault_.get()}) {
            if (!container) continue;
            auto clips = container->fetch(ClipFetch{
                .where = "deletedAt IS NULL", .orderBy = "createdAt ASC", .limit = excess + kRetentionSpareMargin});
            if (!clips) return clips.failure();
            for (Clip& clip : *clips) oldest.push_back({std::move(clip), container});
        }
        std::stable_sort(oldest.begin(), oldest.end(),
                         [](const Removal& a, const Removal& b) { return a.clip.createdAt < b.clip.createdAt; });
        long long added = 0;
        for (Removal& candidate : oldest) {
            if (added >= excess) break;
            if (chosen.contains(candidate.clip.id) || isSpared(candidate.clip)) continue;
            chosen.insert(candidate.clip.id);
            removals.push_back(std::move(candidate));
            ++added;
        }
        return removals;
    };

    auto removals = readOr(chooseRemovals(), "Retention", std::vector<Removal>{});
    if (!removals.empty()) {
        long long removed = 0;
        for (ModelContainer* container : {main_.get(), vault_.get()}) {
            if (!container) continue;
            std::vector<Clip> clips;
            for (const Removal& removal : removals)
                if (removal.container == container) clips.push_back(removal.clip);
            if (clips.empty()) continue;
            bool removedAll = apply(*container, [&] {
                return forEach(clips, [&](const Clip& clip) { return deleteRecord(clip, *container, now); });
            });
            if (!removedAll) continue;
            forget(clips);
            removed += static_cast<long long>(clips.size());
        }
        log_.log("Retention removed %{public}ld clips.", removed);
    }

    if (vault_) purgeTombstones(now);
}

void ClipStore::purgeTombstones(Date now) {
    auto expired = readOr(
        main_->fetch(ClipFetch{.where = "deletedAt IS NOT NULL AND deletedAt < ?",
                               .parameters = {now.addingSeconds(-kTombstoneLifetimeSeconds).secondsSinceReferenceDate()},
                               .orderBy = "deletedAt ASC"}),
        "Purging tombstones", std::vector<Clip>{});
    if (expired.empty()) return;
    if (!apply(*main_, [&] { return forEach(expired, [&](const Clip& clip) { return main_->remove(clip.id); }); }))
        return;
    log_.log("Purged %{public}ld tombstones.", static_cast<long long>(expired.size()));
}

void ClipStore::deleteAll() {
    // Records may remain when a store fails, so their blobs and hashes stay too.
    for (ModelContainer* container : {main_.get(), vault_.get()})
        if (container && !apply(*container, [&] { return container->removeAllClips(); })) return;
    recentHashes_.clear();
    blobStore_.removeOrphans({});
    save();
    log_.log("Deleted all clips.");
}

void ClipStore::removeOrphanedBlobs() {
    std::set<std::string> keeping;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        auto clips = container->fetch(ClipFetch{.where = "blobFilename IS NOT NULL"});
        // An incomplete set would sweep away files that clips still name.
        if (!clips) {
            log_.error("removeOrphanedBlobs failed: %{public}s", clips.error());
            return;
        }
        for (const Clip& clip : *clips) keeping.insert(*clip.blobFilename);
    }
    long long removed = blobStore_.removeOrphans(keeping);
    log_.log("Removed %{public}ld orphaned blobs.", removed);
}

// --- small mutations -----------------------------------------------------------------------------------

void ClipStore::setFavorite(const Uuid& id, bool value) {
    if (ModelContainer* container = containerOf(id))
        apply(*container, [&] { return rewriteClip(*container, id, [&](Clip& clip) { clip.isFavorite = value; }); });
}

void ClipStore::setPinned(const Uuid& id, bool value) {
    if (ModelContainer* container = containerOf(id))
        apply(*container, [&] { return rewriteClip(*container, id, [&](Clip& clip) { clip.isPinned = value; }); });
}

void ClipStore::markUsed(const Uuid& id, Date at) {
    ModelContainer* container = containerOf(id);
    if (!container) return;
    apply(*container, [&] {
        // A use changes three fields; updateUsage writes only those, not the media and search index.
        auto clip = container->clip(id, /*includesMedia=*/false);
        if (!clip) return Status(clip.failure());
        if (!*clip || (*clip)->deletedAt) return Status();
        (*clip)->markUsed(at);
        return container->updateUsage(**clip);
    });
}

void ClipStore::setReminder(const Uuid& id, std::optional<Date> date, std::optional<std::string> appBundleID) {
    if (ModelContainer* container = containerOf(id))
        apply(*container, [&] {
            return rewriteClip(*container, id, [&](Clip& clip) {
                clip.reminderDate = date;
                clip.reminderAppBundleID = appBundleID;
            });
        });
}

void ClipStore::setExpansionTrigger(const Uuid& id, std::optional<std::string> trigger) {
    if (ModelContainer* container = containerOf(id))
        apply(*container,
              [&] { return rewriteClip(*container, id, [&](Clip& clip) { clip.expansionTrigger = trigger; }); });
}

void ClipStore::setSensitive(const Uuid& id, bool value) {
    ModelContainer* container = containerOf(id);
    if (!container) return;
    auto clip = readOr(liveClip(*container, id), "Marking a clip", std::optional<Clip>());
    if (!clip || clip->isSensitive == value) return;
    clip->isSensitive = value;
    ModelContainer* target = !vault_ ? container : value ? vault_.get() : main_.get();
    if (target == container) {
        apply(*container, [&] { return container->update(*clip); });
        return;
    }
    // Secrets stay out of the synced store, and the vault keeps no memberships. Written to its new
    // store first: a failure between the two leaves the clip in both, never in neither.
    clip->collectionIDs.clear();
    if (!apply(*target, [&] { return target->insert(*clip); })) return;
    if (!apply(*container, [&] { return container->remove(id); })) return;
    log_.log("Moved a clip %{public}s the local vault.", value ? "into" : "out of");
}

void ClipStore::storeSyncedImage(const Uuid& id) {
    ModelContainer* container = containerOf(id);
    if (!container) return;
    auto clip = readOr(liveClip(*container, id), "Storing a synced image", std::optional<Clip>());
    if (!clip || !clip->fullImageData || clip->blobFilename) return;
    auto written = blobStore_.write(*clip->fullImageData, clip->id, "png");
    const std::string* filename = std::get_if<std::string>(&written);
    if (!filename) return;
    clip->blobFilename = *filename;
    if (apply(*container, [&] { return container->update(*clip); })) log_.log("Wrote a synced image to local storage.");
}

// --- collections -----------------------------------------------------------------------------------------

Collection ClipStore::createCollection(std::string name) {
    Collection collection = Collection::make(loop_.clock().wallNow());
    collection.name = std::move(name);
    apply(*main_, [&] {
        auto existing = main_->collections();
        if (!existing) return Status(existing.failure());
        if (!existing->empty()) {
            double last = existing->front().sortIndex;
            for (const Collection& other : *existing) last = std::max(last, other.sortIndex);
            collection.sortIndex = last + kBoardIndexGap;
        }
        return main_->insert(collection);
    });
    return collection;
}

void ClipStore::renameCollection(const Uuid& id, std::string name) {
    apply(*main_, [&] {
        auto collection = main_->collection(id);
        if (!collection) return Status(collection.failure());
        if (!*collection) return Status();
        (*collection)->name = std::move(name);
        return main_->update(**collection);
    });
}

void ClipStore::deleteCollection(const Uuid& id) {
    // The store drops the memberships with the collection; the clips stay.
    apply(*main_, [&] {
        auto collection = main_->collection(id);
        if (!collection) return Status(collection.failure());
        return *collection ? main_->remove(**collection) : Status();
    });
}

void ClipStore::reorderCollections(const std::vector<Uuid>& idsInOrder) {
    apply(*main_, [&] {
        auto collections = main_->collections();
        if (!collections) return Status(collections.failure());
        double index = 0;
        return forEach(idsInOrder, [&](const Uuid& id) {
            auto found = std::find_if(collections->begin(), collections->end(),
                                      [&](const Collection& collection) { return collection.id == id; });
            if (found == collections->end()) return Status();
            found->sortIndex = index;
            index += kBoardIndexGap;
            return main_->update(*found);
        });
    });
}

void ClipStore::addClips(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    apply(*main_, [&] { return fileIntoCollection(clipIDs, collectionID); });
}

Status ClipStore::fileIntoCollection(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    auto collection = main_->collection(collectionID);
    if (!collection) return collection.failure();
    if (!*collection) return Status();
    std::vector<std::string> columns = (*collection)->boardColumns();
    std::optional<double> nextIndex;
    return forEach(clipIDs, [&](const Uuid& id) {
        // Only the main store holds memberships: a vault clip, like an unknown id, is passed over.
        auto clip = liveClip(*main_, id);
        if (!clip) return Status(clip.failure());
        if (!*clip || std::ranges::find((*clip)->collectionIDs, collectionID) != (*clip)->collectionIDs.end())
            return Status();
        (*clip)->collectionIDs.push_back(collectionID);
        if (!columns.empty()) {
            if (!nextIndex) {
                auto column = columnClips(*main_, **collection, columns.front());
                if (!column) return Status(column.failure());
                nextIndex = column->empty() ? 0 : column->back().sortIndex + kBoardIndexGap;
            }
            (*clip)->boardColumn = columns.front();
            (*clip)->sortIndex = *nextIndex;
            *nextIndex += kBoardIndexGap;
        }
        return main_->update(**clip);
    });
}

void ClipStore::removeClips(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    apply(*main_, [&] {
        return forEach(clipIDs, [&](const Uuid& id) {
            auto clip = liveClip(*main_, id);
            if (!clip) return Status(clip.failure());
            if (!*clip || std::erase((*clip)->collectionIDs, collectionID) == 0) return Status();
            return main_->update(**clip);
        });
    });
}

// --- boards ---------------------------------------------------------------------------------------------

void ClipStore::moveClips(const std::vector<Uuid>& ids, const std::string& toColumn, long long atIndex,
                          const Uuid& collectionID) {
    bool rebalanced = false;
    bool moved = apply(*main_, [&] {
        auto collection = main_->collection(collectionID);
        if (!collection) return Status(collection.failure());
        if (!*collection) return Status();
        std::set<Uuid> members((*collection)->clipIDs.begin(), (*collection)->clipIDs.end());

        std::vector<Clip> moving;
        std::set<Uuid> movingIDs;
        for (const Uuid& id : ids) {
            if (!members.contains(id) || movingIDs.contains(id)) continue;
            auto clip = liveClip(*main_, id);
            if (!clip) return Status(clip.failure());
            if (!*clip) continue;
            movingIDs.insert(id);
            moving.push_back(std::move(**clip));
        }
        if (moving.empty()) return Status();

        auto column = columnClips(*main_, **collection, toColumn);
        if (!column) return Status(column.failure());
        std::vector<Clip>& others = *column;
        std::erase_if(others, [&](const Clip& clip) { return movingIDs.contains(clip.id); });

        auto count = static_cast<long long>(others.size());
        auto position = static_cast<std::size_t>(std::clamp(atIndex, 0LL, count));
        auto k = static_cast<double>(moving.size());
        for (std::size_t i = 0; i < moving.size(); ++i) {
            double step = static_cast<double>(i);
            double value = 0;
            if (others.empty()) {
                value = step * kBoardIndexGap;
            } else if (position == 0) {
                value = others.front().sortIndex - (k - step) * kBoardIndexGap;
            } else if (position == others.size()) {
                value = others.back().sortIndex + (step + 1) * kBoardIndexGap;
            } else {
                double low = others[position - 1].sortIndex;
                double high = others[position].sortIndex;
                value = low + (high - low) * (step + 1) / (k + 1);
            }
            moving[i].boardColumn = toColumn;
            moving[i].sortIndex = value;
        }

        // The column as it now stands, in order; the moved clips sit at the position even where values tie.
        std::vector<Clip*> ordered;
        for (std::size_t i = 0; i < position; ++i) ordered.push_back(&others[i]);
        for (Clip& clip : moving) ordered.push_back(&clip);
        for (std::size_t i = position; i < others.size(); ++i) ordered.push_back(&others[i]);
        for (std::size_t i = 1; i < ordered.size() && !rebalanced; ++i)
            rebalanced = ordered[i]->sortIndex - ordered[i - 1]->sortIndex < kBoardIndexResolution;

        if (rebalanced) {
            for (std::size_t i = 0; i < ordered.size(); ++i) {
                double value = static_cast<double>(i) * kBoardIndexGap;
                bool isStale = !movingIDs.contains(ordered[i]->id) && ordered[i]->sortIndex != value;
                ordered[i]->sortIndex = value;
                if (!isStale) continue;
                if (Status status = rewriteClip(*main_, ordered[i]->id, [&](Clip& stored) { stored.sortIndex = value; });
                    !status)
                    return status;
            }
        }
        return forEach(moving, [&](const Clip& clip) { return main_->update(clip); });
    });
    if (moved && rebalanced) log_.log("Rebalanced board column indices.");
}

}  // namespace tamarind
