#include "library/ClipStore.h"

#include <algorithm>

#include "foundation/ImageCodec.h"
#include "foundation/Sha256.h"
#include "foundation/Text.h"
#include "library/ClipClassifier.h"

namespace tamarind {

namespace {

Log storeLog() { return Log("library"); }

// The store files and the folders beside them; a folder that can't be made fails the open.
Result<std::unique_ptr<ModelContainer>> openFile(const std::filesystem::path& root, const char* filename,
                                                 std::chrono::milliseconds busyTimeout) {
    for (const auto& folder : {root, root / "blobs", root / "icons", root / "favicons"})
        if (auto error = createPrivateDirectories(folder)) return Failure{error->message};
    return ModelContainer::open(root / filename, busyTimeout);
}

bool isStoreFailure(const IngestResult& result) {
    return result.kind == IngestResult::Kind::rejected &&
           result.rejection.kind == CaptureRejection::Kind::storeFailure;
}

TamarindStores openWithFallBacks(const std::filesystem::path& applicationSupport, const StoreOptions& options) {
    Log log = storeLog();
    auto open = [&](const char* filename) {
        return options.inMemory ? ModelContainer::openInMemory()
                                : openFile(applicationSupport, filename, options.busyTimeout);
    };
    auto lastResort = [&](const std::string& why) {
        log.fault("Could not open the store%s: %{public}s", "", why);
        log.log("Falling back to an in-memory store: %{public}s", why);
        return TamarindStores{std::move(*ModelContainer::openInMemory()), nullptr, false, why};
    };

    if (options.syncEnabled && !options.canSync)
        log.error("Sync is switched on but this build has no iCloud entitlement; opening the store locally.");
    if (options.syncEnabled && options.canSync) {
        auto main = open(kMainStoreFilename);
        std::string why = main ? std::string() : main.error();
        if (main) {
            auto vault = open(kVaultStoreFilename);
            if (vault) {
                log.log("Opened the CloudKit-mirrored store plus the local vault.");
                return TamarindStores{std::move(*main), std::move(*vault), true};
            }
            why = vault.error();
        }
        log.fault("Could not open the store%s: %{public}s", " with CloudKit", why);
        // The mirrored main store that did open is dropped: without its vault it can't keep secrets apart.
        auto local = open(kMainStoreFilename);
        if (local) {
            log.error("Fell back to a local-only store; sync is off for this launch.");
            return TamarindStores{std::move(*local), nullptr, false};
        }
        return lastResort(local.error());
    }
    auto main = open(kMainStoreFilename);
    if (main) return TamarindStores{std::move(*main), nullptr, false};
    return lastResort(main.error());
}

}  // namespace

TamarindStores openStores(const std::filesystem::path& applicationSupport, StoreOptions options) {
    TamarindStores stores = openWithFallBacks(applicationSupport, options);
    stores.folder = applicationSupport;
    stores.options = options;
    return stores;
}

const char* libraryHealthName(LibraryHealth::Kind kind) {
    switch (kind) {
    case LibraryHealth::Kind::healthy: return "healthy";
    case LibraryHealth::Kind::waiting: return "waiting";
    case LibraryHealth::Kind::inMemory: return "inMemory";
    }
    return "healthy";
}

std::string LibraryHealth::message() const {
    switch (kind) {
    case Kind::healthy: return "";
    case Kind::waiting:
        return "Tamarind can't save to its library right now (" + reason +
               "). New copies are kept in memory and saved as soon as it can.";
    case Kind::inMemory:
        return "Tamarind couldn't open its library (" + reason +
               "). This session's clips are kept in memory only and are gone when it quits.";
    }
    return "";
}

std::string CaptureRejection::description() const {
    switch (kind) {
    case Kind::concealedPasteboardType: return "concealed type " + payload;
    case Kind::excludedApp: return "excluded app " + payload;
    case Kind::empty: return "empty";
    case Kind::storeFailure: return "store failure: " + payload;
    }
    return "empty";
}

std::string IngestResult::description() const {
    switch (kind) {
    case Kind::inserted: return "inserted";
    case Kind::deduplicated: return "deduplicated";
    case Kind::rejected: return "rejected(" + rejection.description() + ")";
    }
    return "rejected";
}

ClipStore::ClipStore(MainLoop& loop, TamarindStores stores, BlobStore blobStore, std::string originDeviceID,
                     IngestPolicy policy, Worker* imageWorker)
    : loop_(loop),
      main_(std::move(stores.main)),
      vault_(std::move(stores.vault)),
      isSyncing_(stores.isSyncing),
      blobStore_(blobStore),
      builder_(std::move(blobStore), std::move(originDeviceID)),
      policy_(policy),
      imageWorker_(imageWorker),
      folder_(std::move(stores.folder)),
      options_(stores.options),
      revision_(loop, 0),
      totalCount_(loop, 0),
      health_(loop, stores.inMemoryBecause ? LibraryHealth{LibraryHealth::Kind::inMemory, *stores.inMemoryBecause}
                                           : LibraryHealth{}) {
    attributePlaceholderOrigins(builder_.originDeviceID());
    // Where copies arrive on a loop that must stay free, the hash's provider is loaded now: the
    // first copy would otherwise wait a few milliseconds for it.
    if (imageWorker_) {
        (void)sha256Hex("");
        for (ModelContainer* container : {main_.get(), vault_.get()})
            if (container)
                for (const Clip& clip : readOr(container->clipsWithoutThumbnail(kThumbnailBackfillWindow),
                                               "Finding clips without a thumbnail", std::vector<Clip>{}))
                    makeThumbnailLater(clip.id, clip.blobFilename, {});
    }
    totalCount_.set(liveClipCount());
    fillRecentHashes();
    mainDataVersion_ = readOr(main_->dataVersion(), "Reading the store's version", 0LL);
    if (vault_) vaultDataVersion_ = readOr(vault_->dataVersion(), "Reading the store's version", 0LL);
}

ClipStore::~ClipStore() {
    lifetime_.end();
    // One whose worker part is still running is ingested without it; that blob is left to the
    // orphan sweep.
    // Once the store has refused one, the rest aren't tried: each try would wait the busy timeout.
    long long unsaved = 0;
    for (PendingIngest& pending : pendingIngests_) {
        if (pending.isPreparing) pending.prepared.reset();
        if (unsaved > 0 || isStoreFailure(ingestPending(pending))) ++unsaved;
    }
    if (unsaved > 0) log_.error("Quitting with %{public}ld copies the library could not take.", unsaved);
}

void ClipStore::attributePlaceholderOrigins(const std::string& machineID) {
    // What earlier builds stamped before the machine had an identifier: the app's and the
    // command line's placeholders.
    static const std::vector<std::string> kPlaceholders = {"LOCAL", "CLI"};
    long long changed = 0;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        changed += readOr(container->replacePlaceholderOrigins(kPlaceholders, machineID), "Attributing clips", 0LL);
        // Committed here, also when nothing changed: the mark holds the write lock until then.
        if (Status saved = container->save(); !saved)
            log_.error("Could not attribute clips to this machine: %{public}s", saved.error());
    }
    if (changed == 0) return;
    log_.log("Attributed %{public}ld existing clips to this Mac.", changed);
}

void ClipStore::setOnIconRequest(std::function<void(const std::optional<std::string>&)> onIconRequest) {
    onIconRequest_ = std::move(onIconRequest);
}

bool ClipStore::apply(ModelContainer& container, const std::function<Status()>& change) {
    bool wrote = false;
    if (!applyWithoutSaving(container, change, wrote)) return false;
    if (wrote) save();
    return true;
}

Status ClipStore::applyWithoutSaving(ModelContainer& container, const std::function<Status()>& change, bool& wrote) {
    long long before = container.totalChanges();
    Status status = container.atomically(change);
    if (!status) log_.error("Save failed: %{public}s", status.error());
    wrote = wrote || (status && container.totalChanges() != before);
    return status;
}

long long ClipStore::liveClipCount() {
    long long total = 0;
    for (ModelContainer* container : {main_.get(), vault_.get()})
        if (container) total += readOr(container->liveClipCount(), "Counting clips", 0LL);
    return total;
}

void ClipStore::fillRecentHashes() {
    // With a vault, the two stores' newest together: the window holds what fits, the newest last.
    std::vector<std::pair<Date, std::string>> recent;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        auto clips = readOr(container->recentClipHashes(static_cast<long long>(kRecentHashCapacity)),
                            "Reading recent clips", std::vector<std::pair<Date, std::string>>{});
        recent.insert(recent.end(), std::make_move_iterator(clips.begin()), std::make_move_iterator(clips.end()));
    }
    std::stable_sort(recent.begin(), recent.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [createdAt, hash] : recent) recentHashes_.record(hash);
}

std::optional<CaptureRejection> ClipStore::captureRejection(const PasteboardSnapshot& snapshot,
                                                            const std::set<std::string>& excludedBundleIDs) {
    for (const std::string& type : snapshot.types)
        for (std::string_view marker : kConcealedTypes)
            if (type == marker) return CaptureRejection::concealed(type);
    if (snapshot.sourceAppBundleID && excludedBundleIDs.contains(*snapshot.sourceAppBundleID))
        return CaptureRejection::excludedApp(*snapshot.sourceAppBundleID);
    if (snapshot.isEmpty()) return CaptureRejection::empty();
    return std::nullopt;
}

bool ClipStore::isOutsideLimits(const PasteboardSnapshot& snapshot, ClipKind kind, const CaptureLimits& limits) {
    bool isMeasuredInCharacters = kind != ClipKind::image && kind != ClipKind::screenshot && kind != ClipKind::file;
    if (limits.minimumCharacters > 0 && isMeasuredInCharacters &&
        (!snapshot.string ||
         static_cast<long long>(graphemeCount(trimmed(*snapshot.string))) < limits.minimumCharacters))
        return true;
    // The byte limit holds for every kind, a text that passed the minimum too.
    return limits.maximumBytes > 0 && snapshot.estimatedByteSize() > limits.maximumBytes;
}

IngestResult ClipStore::ingest(const PasteboardSnapshot& snapshot, const std::set<std::string>& excludedBundleIDs) {
    return ingest(snapshot, excludedBundleIDs, std::nullopt);
}

void ClipStore::submit(PasteboardSnapshot snapshot, std::set<std::string> excludedBundleIDs,
                       std::function<void(const IngestResult&)> then) {
    if (pendingIngests_.size() >= kMaximumWaitingCopies) {
        log_.error("Skipped capture: %{public}ld copies are already waiting for the library.",
                   static_cast<long long>(pendingIngests_.size()));
        if (then) then(IngestResult::rejected(CaptureRejection::storeFailure(health_->reason)));
        return;
    }
    PendingIngest& pending = pendingIngests_.emplace_back();
    pending.sequence = nextIngestSequence_++;
    pending.snapshot = std::make_shared<const PasteboardSnapshot>(std::move(snapshot));
    pending.excludedBundleIDs = std::move(excludedBundleIDs);
    pending.then = std::move(then);
    prepareOnWorker(pending);
    // While the store can't take copies, the retry tries it; each copy trying it too would stall
    // the loop for the busy time-out every time.
    if (!retryTimer_.isPending()) drainPendingIngests();
}

void ClipStore::prepareOnWorker(PendingIngest& pending) {
    // The gate and the limits come before the hash in the ingest: a copy they refuse isn't worth it.
    const PasteboardSnapshot& snapshot = *pending.snapshot;
    if (!imageWorker_ || !snapshot.imageData || !imagePixelSize(*snapshot.imageData)) return;
    ClipKind kind = classify(snapshot);
    if (captureRejection(snapshot, pending.excludedBundleIDs) || isOutsideLimits(snapshot, kind, captureLimits_))
        return;
    pending.isPreparing = true;
    // Hashing 4K pixels and writing them out take milliseconds each; the fsync as long as the disk
    // likes. The blob is synced before the clip is inserted, so a kill after the insert keeps both.
    imageWorker_->run([this, &loop = loop_, blobs = blobStore_, sequence = pending.sequence,
                       snapshot = pending.snapshot, kind, alive = lifetime_.weak()] {
        PreparedImage prepared{contentHash(*snapshot, kind), std::nullopt};
        auto written = blobs.write(*snapshot->imageData, Uuid::random(), snapshot->imageFileExtension.value_or("png"));
        if (auto* name = std::get_if<std::string>(&written)) prepared.blobFilename = *name;
        else Log("library").log("Blob write failed: %{public}s", std::get<FileError>(written).message);
        loop.post([this, blobs, sequence, prepared = std::move(prepared), alive] {
            // The store, gone meanwhile, ingested the copy without this blob.
            if (!alive.isAlive()) {
                if (prepared.blobFilename) blobs.remove(*prepared.blobFilename);
                return;
            }
            for (PendingIngest& pending : pendingIngests_)
                if (pending.sequence == sequence) {
                    pending.prepared = prepared;
                    pending.isPreparing = false;
                }
            drainPendingIngests();
        });
    });
}

void ClipStore::drainPendingIngests() {
    // A callback that submits again is served by this same loop.
    if (isDraining_) return;
    isDraining_ = true;
    while (!pendingIngests_.empty() && !pendingIngests_.front().isPreparing) {
        IngestResult result = ingestPending(pendingIngests_.front());
        if (isStoreFailure(result)) {
            // Kept at the head, in order: nothing behind it goes first.
            if (health_->kind != LibraryHealth::Kind::waiting) {
                log_.error("The library can't take copies now; they wait in memory: %{public}s",
                           result.rejection.payload);
                setHealth(LibraryHealth{LibraryHealth::Kind::waiting, result.rejection.payload});
            }
            retryTimer_ = loop_.postDelayed(kStoreRetryInterval, [this] { drainPendingIngests(); });
            break;
        }
        PendingIngest next = std::move(pendingIngests_.front());
        pendingIngests_.pop_front();
        if (health_->kind == LibraryHealth::Kind::waiting) {
            log_.log("The library takes copies again.");
            setHealth(LibraryHealth{});
        }
        if (next.then) next.then(result);
    }
    isDraining_ = false;
}

IngestResult ClipStore::ingestPending(const PendingIngest& pending) {
    IngestResult result = ingest(*pending.snapshot, pending.excludedBundleIDs, pending.prepared);
    if (result.kind != IngestResult::Kind::inserted && !isStoreFailure(result) && pending.prepared &&
        pending.prepared->blobFilename)
        blobStore_.remove(pending.prepared->blobFilename.value());
    return result;
}

void ClipStore::setHealth(LibraryHealth health) {
    if (health != health_.value()) health_.set(std::move(health));
}

bool ClipStore::reopenIfGone() {
    bool isGone = main_->isFileGone() || (vault_ && vault_->isFileGone());
    if (!isGone) return false;
    log_.error("The library's store file at %{public}s was removed or replaced; opening the one there now.",
               main_->file()->string());
    TamarindStores stores = openStores(folder_, options_);
    main_ = std::move(stores.main);
    vault_ = std::move(stores.vault);
    isSyncing_ = stores.isSyncing;
    if (stores.inMemoryBecause) setHealth(LibraryHealth{LibraryHealth::Kind::inMemory, *stores.inMemoryBecause});
    recentHashes_.clear();
    fillRecentHashes();
    mainDataVersion_ = readOr(main_->dataVersion(), "Reading the store's version", 0LL);
    if (vault_) vaultDataVersion_ = readOr(vault_->dataVersion(), "Reading the store's version", 0LL);
    revision_.set(revision_.value() + 1);
    totalCount_.set(liveClipCount());
    return true;
}

IngestResult ClipStore::ingest(const PasteboardSnapshot& given, const std::set<std::string>& excludedBundleIDs,
                               const std::optional<PreparedImage>& prepared) {
    // Image bytes whose header doesn't read are no image: the copy is what else it holds, if anything.
    std::optional<PasteboardSnapshot> withoutImage;
    if (given.imageData && !imagePixelSize(*given.imageData)) {
        log_.info("The copied image doesn't decode; it is left out.");
        withoutImage = given;
        withoutImage->imageData.reset();
        withoutImage->imageFileExtension.reset();
        withoutImage->imagePixelSize.reset();
    }
    const PasteboardSnapshot& snapshot = withoutImage ? *withoutImage : given;
    if (auto rejection = captureRejection(snapshot, excludedBundleIDs)) {
        log_.info("Skipped capture: %{public}s", rejection->description());
        return IngestResult::rejected(*rejection);
    }
    ClipKind kind = classify(snapshot);

    if (isOutsideLimits(snapshot, kind, captureLimits_)) {
        log_.debug("Skipped capture: outside the configured size limits.");
        return IngestResult::rejected(CaptureRejection::empty());
    }

    reopenIfGone();
    std::string hash = prepared ? prepared->hash : contentHash(snapshot, kind);
    // Not knowing whether the copy is a repeat, storing it could make a duplicate.
    auto uncertain = [&](const std::string& error) {
        log_.error("Skipped capture: the duplicate check failed: %{public}s", error);
        return IngestResult::rejected(CaptureRejection::storeFailure(error));
    };
    Result<bool> mayRepeat = mayBeRepeat(hash);
    if (!mayRepeat) return uncertain(mayRepeat.error());
    if (*mayRepeat) {
        std::optional<Clip> newest;
        ModelContainer* home = nullptr;
        for (ModelContainer* container : {main_.get(), vault_.get()}) {
            if (!container) continue;
            auto found = container->fetch(ClipFetch{.where = "contentHash = ? AND deletedAt IS NULL",
                                                    .parameters = {hash},
                                                    .orderBy = "createdAt DESC",
                                                    .limit = 1});
            if (!found) return uncertain(found.error());
            if (!found->empty() && (!newest || found->front().createdAt > newest->createdAt)) {
                newest = std::move(found->front());
                home = container;
            }
        }
        if (newest) {
            Uuid id = newest->id;
            promote(std::move(*newest), *home, snapshot.capturedAt);
            log_.debug("Duplicate clip promoted instead of inserted.");
            return IngestResult::deduplicated(id);
        }
    }

    RuleDecision outcome = policy_.rules ? policy_.rules->decide(snapshot, kind) : RuleDecision{};
    if (outcome.skipCapture) {
        log_.info("Skipped capture: a rule said not to store it.");
        return IngestResult::rejected(CaptureRejection::excludedApp(snapshot.sourceAppBundleID.value_or("rule")));
    }

    bool isSensitive = outcome.markSensitive;
    if (!isSensitive && captureLimits_.detectsSensitiveContent && snapshot.string)
        isSensitive = policy_.secrets && policy_.secrets->looksSecret(*snapshot.string);
    if (isSensitive && captureLimits_.skipsSensitiveContent) {
        log_.info("Skipped capture: sensitive content, and the setting says not to store it.");
        return IngestResult::rejected(CaptureRejection::empty());
    }

    bool thumbnailLater = imageWorker_ && snapshot.imageData;
    // A blob made ahead into a folder removed since is written again.
    std::optional<std::string> writtenBlob = prepared ? prepared->blobFilename : std::nullopt;
    if (writtenBlob && !std::filesystem::exists(blobStore_.url(*writtenBlob))) writtenBlob.reset();
    Clip clip = builder_.build(snapshot, kind, hash, isSensitive,
                               thumbnailLater ? ClipBuilder::Thumbnail::later : ClipBuilder::Thumbnail::now,
                               writtenBlob);
    if (outcome.markFavorite) clip.isFavorite = true;
    lastInsertMatchedRule_ = outcome.matchedAnyRule;
    Uuid id = clip.id;
    std::string rawKind = clip.kind;
    std::optional<std::string> blobFilename = clip.blobFilename;
    if (Status inserted = insert(std::move(clip), outcome.collectionIDs); !inserted)
        return IngestResult::rejected(CaptureRejection::storeFailure(inserted.error()));
    if (thumbnailLater) makeThumbnailLater(id, blobFilename, *snapshot.imageData);
    if (onIconRequest_) onIconRequest_(snapshot.sourceAppBundleID);
    log_.log("Captured %{public}s clip from %{public}s%{public}s.", rawKind,
             snapshot.sourceAppName.value_or("unknown"), isSensitive ? " (sensitive)" : "");
    return IngestResult::inserted(id);
}

std::optional<Uuid> ClipStore::insertMultiClip(const std::string& joinedText, Data payload, Date at) {
    PasteboardSnapshot snapshot;
    snapshot.string = joinedText;
    snapshot.capturedAt = at;
    Clip clip = builder_.build(snapshot, ClipKind::multiClip, contentHash(snapshot, ClipKind::multiClip), false);
    clip.multiClipData = std::move(payload);
    Uuid id = clip.id;
    if (!insert(std::move(clip), {})) return std::nullopt;
    log_.log("Captured %{public}s clip from %{public}s%{public}s.", "multiClip", "collect mode", "");
    return id;
}

Result<bool> ClipStore::mayBeRepeat(const std::string& hash) {
    if (recentHashes_.contains(hash)) return true;
    if (!findsRepeatsInWholeLibrary_) return false;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        Result<bool> has = container->hasLiveClipWithHash(hash);
        if (!has || *has) return has;
    }
    return false;
}

void ClipStore::promote(Clip clip, ModelContainer& container, Date at) {
    // A snapshot dated before the clip (an import's old line) never moves it back in time.
    clip.createdAt = std::max(clip.createdAt, at);
    clip.markUsed(std::max({clip.createdAt, clip.lastUsedAt.value_or(at), at}));
    recentHashes_.record(clip.contentHash);
    apply(container, [&] { return container.updateUsage(clip); });
}

void ClipStore::makeThumbnailLater(const Uuid& id, const std::optional<std::string>& blobFilename,
                                   const Data& image) {
    // Decoding a 4K image takes about a tenth of a second, and an fsync as long as the disk likes:
    // either would stall every surface. The worker reads the image back from its blob rather than
    // the loop copying megabytes for it. On the worker, nothing of the store is touched: it may be
    // gone before the job ends.
    std::optional<std::filesystem::path> blob;
    std::optional<Data> copy;
    if (blobFilename) blob = blobStore_.url(*blobFilename);
    else copy = image;
    imageWorker_->run([this, &loop = loop_, id, blob, copy = std::move(copy), alive = lifetime_.weak()] {
        Log log("library");
        std::optional<Data> read = copy;
        if (blob) {
            if (auto error = syncToDisk(*blob)) log.error("Blob sync failed: %{public}s", error->message);
            auto file = readWholeFile(*blob);
            if (file.bytes) read = Data(file.bytes->begin(), file.bytes->end());
        }
        if (!read) return;
        auto thumbnail = makeThumbnail(*read);
        if (!thumbnail) return;
        loop.post([this, id, thumbnail = std::move(*thumbnail), alive] {
            if (!alive.isAlive()) return;
            // The clip may have been deleted, or moved to the vault, meanwhile.
            if (ModelContainer* container = containerOf(id))
                apply(*container, [&] { return container->updateThumbnail(id, thumbnail); });
        });
    });
}

Status ClipStore::insert(Clip clip, const std::vector<Uuid>& collectionIDs) {
    ModelContainer& container = clip.isSensitive && vault_ ? *vault_ : *main_;
    bool wrote = false;
    Status inserted = applyWithoutSaving(container, [&] {
        Status status = container.insert(clip);
        // Filed as the collection's add files it (a board's first column, at its end), in the
        // insert's transaction; a sensitive clip in the vault joins no collection.
        if (&container == main_.get())
            for (auto next = collectionIDs.begin(); status && next != collectionIDs.end(); ++next)
                status = fileIntoCollection({clip.id}, *next);
        return status;
    }, wrote);
    if (!inserted) return inserted;
    // A clip is kept once it is committed; with saves deferred, once the import's save commits it.
    // One that isn't is taken back whole, so that trying the copy again can't store it twice.
    if (Status committed = commit(); !committed) {
        container.discardChanges();
        return committed;
    }
    recentHashes_.record(clip.contentHash);
    return Status();
}

Status ClipStore::setDefersSaves(bool defers) {
    defersSaves_ = defers;
    return defers ? Status() : commit();
}

void ClipStore::save() { (void)commit(); }

Status ClipStore::commit() {
    if (defersSaves_) return Status();
    Status committed;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container || !container->hasChanges()) continue;
        if (Status saved = container->save(); !saved) {
            log_.log("Save failed: %{public}s", saved.error());
            committed = saved;
        }
    }
    revision_.set(revision_.value() + 1);
    totalCount_.set(liveClipCount());
    // Our own commits move data_version too; only another process's should raise revision again.
    mainDataVersion_ = readOr(main_->dataVersion(), "Reading the store's version", mainDataVersion_);
    if (vault_) vaultDataVersion_ = readOr(vault_->dataVersion(), "Reading the store's version", vaultDataVersion_);
    return committed;
}

void ClipStore::checkForOutsideChanges() {
    if (reopenIfGone()) return;
    long long mainVersion = readOr(main_->dataVersion(), "Reading the store's version", mainDataVersion_);
    long long vaultVersion = vault_ ? readOr(vault_->dataVersion(), "Reading the store's version", vaultDataVersion_) : 0;
    if (mainVersion == mainDataVersion_ && vaultVersion == vaultDataVersion_) return;
    mainDataVersion_ = mainVersion;
    vaultDataVersion_ = vaultVersion;
    // What another process added may be a copy of what is in the window; start the window afresh.
    recentHashes_.clear();
    fillRecentHashes();
    revision_.set(revision_.value() + 1);
    totalCount_.set(liveClipCount());
}

void ClipStore::watchForOutsideChanges(Duration interval) {
    outsideChangesTimer_ = loop_.postDelayed(interval, [this, interval] {
        checkForOutsideChanges();
        watchForOutsideChanges(interval);
    });
}

ModelContainer* ClipStore::containerOf(const Uuid& id) {
    for (ModelContainer* container : {main_.get(), vault_.get()})
        if (container && readOr(container->count("id = ?", {id.uuidString()}), "Finding a clip", 0LL) > 0)
            return container;
    return nullptr;
}

}  // namespace tamarind
