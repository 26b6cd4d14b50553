// The maintenance side of ClipStore: retention, deletes and tombstones, the
// blob sweep, the small mutations (with the vault move), collections and boards.

#include <algorithm>
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
std::optional<Clip> liveClip(ModelContainer& container, const Uuid& id) {
    auto clip = container.clip(id, /*includesMedia=*/true);
    if (!clip || clip->deletedAt) return std::nullopt;
    return clip;
}

// Reads the live clip, applies `change` and writes it back. False when there is no such clip.
template <class Change>
bool rewriteClip(ModelContainer& container, const Uuid& id, Change&& change) {
    auto clip = liveClip(container, id);
    if (!clip) return false;
    change(*clip);
    container.update(*clip);
    return true;
}

// The live clips of a collection's board column, in board order.
std::vector<Clip> columnClips(ModelContainer& container, const Collection& collection, const std::string& column) {
    std::set<Uuid> members(collection.clipIDs.begin(), collection.clipIDs.end());
    auto clips = container.fetch(ClipFetch{.where = "boardColumn = ? AND deletedAt IS NULL",
                                           .parameters = {column},
                                           .orderBy = "sortIndex ASC, createdAt ASC"});
    std::erase_if(clips, [&](const Clip& clip) { return !members.contains(clip.id); });
    return clips;
}

}  // namespace

// --- deletes ---------------------------------------------------------------------------------------

void ClipStore::deleteWithoutSaving(const Clip& clip, ModelContainer& container, Date now) {
    if (clip.blobFilename) blobStore_.remove(*clip.blobFilename);
    recentHashes_.remove(clip.contentHash);
    if (vault_ && &container == main_.get()) {
        // Deleting a tombstone again would only push its purge further away.
        if (!clip.deletedAt) container.update(tombstone(clip, now));
    } else {
        container.remove(clip.id);
    }
}

void ClipStore::deleteClip(const Uuid& id) { deleteClips({id}); }

void ClipStore::deleteClips(const std::vector<Uuid>& ids) {
    Date now = loop_.clock().wallNow();
    bool changed = false;
    for (const Uuid& id : ids) {
        ModelContainer* container = containerOf(id);
        if (!container) continue;
        try {
            // Media are not needed: a tombstone clears them and a removal takes them along.
            auto clip = container->clip(id, /*includesMedia=*/false);
            if (!clip) continue;
            deleteWithoutSaving(*clip, *container, now);
            changed = true;
        } catch (const std::exception& error) {
            log_.log("Save failed: %{public}s", error.what());
        }
    }
    if (changed) save();
}

void ClipStore::applyRetention(long long maximumClipCount, std::optional<long long> maximumAgeInDays, Date now) {
    struct Removal {
        Clip clip;
        ModelContainer* container;
    };
    std::vector<Removal> removals;
    std::set<Uuid> chosen;
    try {
        if (maximumAgeInDays && *maximumAgeInDays >= 1) {
            Date cutoff = now.addingSeconds(-static_cast<double>(*maximumAgeInDays) * kSecondsPerDay);
            for (ModelContainer* container : {main_.get(), vault_.get()}) {
                if (!container) continue;
                auto old = container->fetch(ClipFetch{.where = "createdAt < ? AND deletedAt IS NULL",
                                                      .parameters = {cutoff.secondsSinceReferenceDate()},
                                                      .orderBy = "createdAt ASC"});
                for (Clip& clip : old) {
                    if (isSpared(clip)) continue;
                    chosen.insert(clip.id);
                    removals.push_back({std::move(clip), container});
                }
            }
        }

        long long excess = liveClipCount() - static_cast<long long>(removals.size()) - std::max(0LL, maximumClipCount);
        if (excess >= 1) {
            std::vector<Removal> oldest;
            for (ModelContainer* container : {main_.get(), vault_.get()}) {
                if (!container) continue;
                auto clips = container->fetch(ClipFetch{
                    .where = "deletedAt IS NULL", .orderBy = "createdAt ASC", .limit = excess + kRetentionSpareMargin});
                for (Clip& clip : clips) oldest.push_back({std::move(clip), container});
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
        }
    } catch (const std::exception& error) {
        // Without a complete list nothing is removed; the next sweep tries again.
        log_.log("Save failed: %{public}s", error.what());
        removals.clear();
    }

    if (!removals.empty()) {
        long long removed = 0;
        for (const Removal& removal : removals) {
            try {
                deleteWithoutSaving(removal.clip, *removal.container, now);
                ++removed;
            } catch (const std::exception& error) {
                log_.log("Save failed: %{public}s", error.what());
            }
        }
        save();
        log_.log("Retention removed %{public}ld clips.", removed);
    }

    if (vault_) purgeTombstones(now);
}

void ClipStore::purgeTombstones(Date now) {
    std::vector<Clip> expired;
    try {
        expired = main_->fetch(
            ClipFetch{.where = "deletedAt IS NOT NULL AND deletedAt < ?",
                      .parameters = {now.addingSeconds(-kTombstoneLifetimeSeconds).secondsSinceReferenceDate()},
                      .orderBy = "deletedAt ASC"});
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    if (expired.empty()) return;
    long long purged = 0;
    for (const Clip& clip : expired) {
        try {
            main_->remove(clip.id);
            ++purged;
        } catch (const std::exception& error) {
            log_.log("Save failed: %{public}s", error.what());
        }
    }
    save();
    log_.log("Purged %{public}ld tombstones.", purged);
}

void ClipStore::deleteAll() {
    try {
        main_->removeAllClips();
        if (vault_) vault_->removeAllClips();
    } catch (const std::exception& error) {
        // Records may remain, so their blobs and hashes stay too.
        log_.error("deleteAll failed: %{public}s", error.what());
        return;
    }
    recentHashes_.clear();
    blobStore_.removeOrphans({});
    save();
    log_.log("Deleted all clips.");
}

void ClipStore::removeOrphanedBlobs() {
    std::set<std::string> keeping;
    try {
        for (ModelContainer* container : {main_.get(), vault_.get()}) {
            if (!container) continue;
            for (const Clip& clip : container->fetch(ClipFetch{.where = "blobFilename IS NOT NULL"}))
                keeping.insert(*clip.blobFilename);
        }
    } catch (const std::exception& error) {
        // An incomplete set would sweep away files that clips still name.
        log_.error("removeOrphanedBlobs failed: %{public}s", error.what());
        return;
    }
    long long removed = blobStore_.removeOrphans(keeping);
    log_.log("Removed %{public}ld orphaned blobs.", removed);
}

// --- small mutations -----------------------------------------------------------------------------------

namespace {

// Runs one clip change, logging a store failure the way a failed save is logged. True when a record was written.
template <class Change>
bool changeClip(ModelContainer* container, const Uuid& id, const Log& log, Change&& change) {
    if (!container) return false;
    try {
        return rewriteClip(*container, id, std::forward<Change>(change));
    } catch (const std::exception& error) {
        log.log("Save failed: %{public}s", error.what());
        return false;
    }
}

}  // namespace

void ClipStore::setFavorite(const Uuid& id, bool value) {
    if (changeClip(containerOf(id), id, log_, [&](Clip& clip) { clip.isFavorite = value; })) save();
}

void ClipStore::setPinned(const Uuid& id, bool value) {
    if (changeClip(containerOf(id), id, log_, [&](Clip& clip) { clip.isPinned = value; })) save();
}

void ClipStore::markUsed(const Uuid& id, Date at) {
    // A use changes three fields; updateUsage writes only those, not the media and search index.
    ModelContainer* container = containerOf(id);
    if (!container) return;
    try {
        auto clip = container->clip(id, /*includesMedia=*/false);
        if (!clip || clip->deletedAt) return;
        clip->markUsed(at);
        container->updateUsage(*clip);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    save();
}

void ClipStore::setReminder(const Uuid& id, std::optional<Date> date, std::optional<std::string> appBundleID) {
    bool changed = changeClip(containerOf(id), id, log_, [&](Clip& clip) {
        clip.reminderDate = date;
        clip.reminderAppBundleID = appBundleID;
    });
    if (changed) save();
}

void ClipStore::setExpansionTrigger(const Uuid& id, std::optional<std::string> trigger) {
    if (changeClip(containerOf(id), id, log_, [&](Clip& clip) { clip.expansionTrigger = trigger; })) save();
}

void ClipStore::setSensitive(const Uuid& id, bool value) {
    ModelContainer* container = containerOf(id);
    if (!container) return;
    try {
        auto clip = liveClip(*container, id);
        if (!clip || clip->isSensitive == value) return;
        clip->isSensitive = value;
        ModelContainer* target = !vault_ ? container : value ? vault_.get() : main_.get();
        if (target == container) {
            container->update(*clip);
            save();
            return;
        }
        // Secrets stay out of the synced store, and the vault keeps no memberships.
        clip->collectionIDs.clear();
        target->insert(*clip);
        container->remove(id);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    save();
    log_.log("Moved a clip %{public}s the local vault.", value ? "into" : "out of");
}

void ClipStore::storeSyncedImage(const Uuid& id) {
    ModelContainer* container = containerOf(id);
    if (!container) return;
    try {
        auto clip = liveClip(*container, id);
        if (!clip || !clip->fullImageData || clip->blobFilename) return;
        auto written = blobStore_.write(*clip->fullImageData, clip->id, "png");
        const std::string* filename = std::get_if<std::string>(&written);
        if (!filename) return;
        clip->blobFilename = *filename;
        container->update(*clip);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    save();
    log_.log("Wrote a synced image to local storage.");
}

// --- collections -----------------------------------------------------------------------------------------

Collection ClipStore::createCollection(std::string name) {
    Collection collection = Collection::make(loop_.clock().wallNow());
    collection.name = std::move(name);
    try {
        auto existing = main_->collections();
        if (!existing.empty()) {
            double last = existing.front().sortIndex;
            for (const Collection& other : existing) last = std::max(last, other.sortIndex);
            collection.sortIndex = last + kBoardIndexGap;
        }
        main_->insert(collection);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    save();
    return collection;
}

void ClipStore::renameCollection(const Uuid& id, std::string name) {
    try {
        auto collection = main_->collection(id);
        if (!collection) return;
        collection->name = std::move(name);
        main_->update(*collection);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    save();
}

void ClipStore::deleteCollection(const Uuid& id) {
    try {
        auto collection = main_->collection(id);
        if (!collection) return;
        // The store drops the memberships with the collection; the clips stay.
        main_->remove(*collection);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    save();
}

void ClipStore::reorderCollections(const std::vector<Uuid>& idsInOrder) {
    bool changed = false;
    try {
        auto collections = main_->collections();
        double index = 0;
        for (const Uuid& id : idsInOrder) {
            auto found = std::find_if(collections.begin(), collections.end(),
                                      [&](const Collection& collection) { return collection.id == id; });
            if (found == collections.end()) continue;
            found->sortIndex = index;
            index += kBoardIndexGap;
            main_->update(*found);
            changed = true;
        }
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    if (changed) save();
}

void ClipStore::addClips(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    bool changed = false;
    try {
        changed = fileIntoCollection(clipIDs, collectionID);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    if (changed) save();
}

bool ClipStore::fileIntoCollection(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    auto collection = main_->collection(collectionID);
    if (!collection) return false;
    bool changed = false;
    std::vector<std::string> columns = collection->boardColumns();
    std::optional<double> nextIndex;
    for (const Uuid& id : clipIDs) {
        // Only the main store holds memberships: a vault clip, like an unknown id, is passed over.
        auto clip = liveClip(*main_, id);
        if (!clip || std::ranges::find(clip->collectionIDs, collectionID) != clip->collectionIDs.end()) continue;
        clip->collectionIDs.push_back(collectionID);
        if (!columns.empty()) {
            if (!nextIndex) {
                auto column = columnClips(*main_, *collection, columns.front());
                nextIndex = column.empty() ? 0 : column.back().sortIndex + kBoardIndexGap;
            }
            clip->boardColumn = columns.front();
            clip->sortIndex = *nextIndex;
            *nextIndex += kBoardIndexGap;
        }
        main_->update(*clip);
        changed = true;
    }
    return changed;
}

void ClipStore::removeClips(const std::vector<Uuid>& clipIDs, const Uuid& collectionID) {
    bool changed = false;
    try {
        for (const Uuid& id : clipIDs) {
            auto clip = liveClip(*main_, id);
            if (!clip || std::erase(clip->collectionIDs, collectionID) == 0) continue;
            main_->update(*clip);
            changed = true;
        }
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    if (changed) save();
}

// --- boards ---------------------------------------------------------------------------------------------

void ClipStore::moveClips(const std::vector<Uuid>& ids, const std::string& toColumn, long long atIndex,
                          const Uuid& collectionID) {
    bool rebalanced = false;
    try {
        auto collection = main_->collection(collectionID);
        if (!collection) return;
        std::set<Uuid> members(collection->clipIDs.begin(), collection->clipIDs.end());

        std::vector<Clip> moving;
        std::set<Uuid> movingIDs;
        for (const Uuid& id : ids) {
            if (!members.contains(id) || movingIDs.contains(id)) continue;
            auto clip = liveClip(*main_, id);
            if (!clip) continue;
            movingIDs.insert(id);
            moving.push_back(std::move(*clip));
        }
        if (moving.empty()) return;

        auto others = columnClips(*main_, *collection, toColumn);
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
        std::vector<Clip*> column;
        for (std::size_t i = 0; i < position; ++i) column.push_back(&others[i]);
        for (Clip& clip : moving) column.push_back(&clip);
        for (std::size_t i = position; i < others.size(); ++i) column.push_back(&others[i]);
        for (std::size_t i = 1; i < column.size() && !rebalanced; ++i)
            rebalanced = column[i]->sortIndex - column[i - 1]->sortIndex < kBoardIndexResolution;

        if (rebalanced) {
            for (std::size_t i = 0; i < column.size(); ++i) {
                double value = static_cast<double>(i) * kBoardIndexGap;
                if (!movingIDs.contains(column[i]->id) && column[i]->sortIndex != value)
                    rewriteClip(*main_, column[i]->id, [&](Clip& stored) { stored.sortIndex = value; });
                column[i]->sortIndex = value;
            }
        }
        for (const Clip& clip : moving) main_->update(clip);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
        return;
    }
    if (rebalanced) log_.log("Rebalanced board column indices.");
    save();
}

}  // namespace tamarind
