#include "library/ClipStore.h"

#include <algorithm>

#include "foundation/Text.h"
#include "library/ClipClassifier.h"

namespace tamarind {

namespace {

Log storeLog() { return Log("library"); }

// The store files and the folders beside them; a folder that can't be made fails the open.
ModelContainer::OpenResult openFile(const std::filesystem::path& root, const char* filename) {
    for (const auto& folder : {root, root / "blobs", root / "icons", root / "favicons"})
        if (auto error = createPrivateDirectories(folder)) return error->message;
    return ModelContainer::open(root / filename);
}

std::unique_ptr<ModelContainer>* opened(ModelContainer::OpenResult& result) {
    return std::get_if<std::unique_ptr<ModelContainer>>(&result);
}

std::string errorOf(const ModelContainer::OpenResult& result) {
    const std::string* error = std::get_if<std::string>(&result);
    return error ? *error : std::string();
}

}  // namespace

TamarindStores openStores(const std::filesystem::path& applicationSupport, bool syncEnabled, bool inMemory,
                          bool canSync) {
    Log log = storeLog();
    auto makeMain = [&] { return inMemory ? ModelContainer::openInMemory() : openFile(applicationSupport, kMainStoreFilename); };
    auto makeVault = [&] {
        return inMemory ? ModelContainer::openInMemory() : openFile(applicationSupport, kVaultStoreFilename);
    };
    auto lastResort = [&](const std::string& why) {
        log.fault("Could not open the store%s: %{public}s", "", why);
        log.log("Falling back to an in-memory store: %{public}s", why);
        auto memory = ModelContainer::openInMemory();
        return TamarindStores{std::move(*opened(memory)), nullptr, false};
    };

    if (syncEnabled && !canSync)
        log.error("Sync is switched on but this build has no iCloud entitlement; opening the store locally.");
    if (syncEnabled && canSync) {
        auto main = makeMain();
        std::string why = errorOf(main);
        if (opened(main)) {
            auto vault = makeVault();
            if (opened(vault)) {
                log.log("Opened the CloudKit-mirrored store plus the local vault.");
                return TamarindStores{std::move(*opened(main)), std::move(*opened(vault)), true};
            }
            why = errorOf(vault);
        }
        log.fault("Could not open the store%s: %{public}s", " with CloudKit", why);
        // The mirrored main store that did open is dropped: without its vault it can't keep secrets apart.
        auto local = makeMain();
        if (opened(local)) {
            log.error("Fell back to a local-only store; sync is off for this launch.");
            return TamarindStores{std::move(*opened(local)), nullptr, false};
        }
        return lastResort(errorOf(local));
    }
    auto main = makeMain();
    if (opened(main)) return TamarindStores{std::move(*opened(main)), nullptr, false};
    return lastResort(errorOf(main));
}

std::string CaptureRejection::description() const {
    switch (kind) {
    case Kind::concealedPasteboardType: return "concealed type " + payload;
    case Kind::excludedApp: return "excluded app " + payload;
    case Kind::empty: return "empty";
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

bool ClipQuery::isEmpty() const {
    return text.empty() && !kind && !appBundleID && !collectionID && !onlyFavorites && !onlyPinned;
}

ClipStore::ClipStore(MainLoop& loop, TamarindStores stores, BlobStore blobStore, std::string originDeviceID,
                     IngestPolicy policy)
    : loop_(loop),
      main_(std::move(stores.main)),
      vault_(std::move(stores.vault)),
      isSyncing_(stores.isSyncing),
      blobStore_(blobStore),
      builder_(std::move(blobStore), std::move(originDeviceID)),
      policy_(policy),
      revision_(loop, 0),
      totalCount_(loop, 0) {
    attributePlaceholderOrigins(builder_.originDeviceID());
    totalCount_.set(liveClipCount());
    fillRecentHashes();
    mainDataVersion_ = main_->dataVersion();
    if (vault_) vaultDataVersion_ = vault_->dataVersion();
}

void ClipStore::attributePlaceholderOrigins(const std::string& machineID) {
    // What earlier builds stamped before the machine had an identifier: the app's and the
    // command line's placeholders.
    static const std::vector<std::string> kPlaceholders = {"LOCAL", "CLI"};
    long long changed = 0;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        try {
            changed += container->replacePlaceholderOrigins(kPlaceholders, machineID);
            // Committed here, also when nothing changed: the mark holds the write lock until then.
            if (auto error = container->save()) log_.error("Could not attribute clips to this machine: %{public}s", *error);
        } catch (const std::exception& error) {
            log_.error("Could not attribute clips to this machine: %{public}s", error.what());
        }
    }
    if (changed == 0) return;
    log_.log("Attributed %{public}ld existing clips to this Mac.", changed);
}

void ClipStore::setOnIconRequest(std::function<void(const std::optional<std::string>&)> onIconRequest) {
    onIconRequest_ = std::move(onIconRequest);
}

long long ClipStore::liveClipCount() {
    long long total = 0;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        try {
            total += container->liveClipCount();
        } catch (const std::exception&) {
            // A store that can't be counted adds nothing; the failure shows at its next save.
        }
    }
    return total;
}

void ClipStore::fillRecentHashes() {
    std::vector<Clip> recent;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        try {
            auto clips = container->fetch(
                ClipFetch{.where = "deletedAt IS NULL",
                          .orderBy = "createdAt DESC",
                          .limit = static_cast<long long>(kRecentHashCapacity)});
            recent.insert(recent.end(), clips.begin(), clips.end());
        } catch (const std::exception&) {
        }
    }
    std::stable_sort(recent.begin(), recent.end(),
                     [](const Clip& a, const Clip& b) { return a.createdAt < b.createdAt; });
    for (const Clip& clip : recent) recentHashes_.record(clip.contentHash);
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
    if (auto rejection = captureRejection(snapshot, excludedBundleIDs)) {
        log_.info("Skipped capture: %{public}s", rejection->description());
        return IngestResult::rejected(*rejection);
    }
    ClipKind kind = classify(snapshot);

    if (isOutsideLimits(snapshot, kind, captureLimits_)) {
        log_.debug("Skipped capture: outside the configured size limits.");
        return IngestResult::rejected(CaptureRejection::empty());
    }

    std::string hash = contentHash(snapshot, kind);
    if (recentHashes_.contains(hash)) {
        std::optional<Clip> newest;
        ModelContainer* home = nullptr;
        for (ModelContainer* container : {main_.get(), vault_.get()}) {
            if (!container) continue;
            try {
                auto found = container->fetch(
                    ClipFetch{.where = "contentHash = ? AND deletedAt IS NULL",
                              .parameters = {hash},
                              .orderBy = "createdAt DESC",
                              .limit = 1});
                if (!found.empty() && (!newest || found.front().createdAt > newest->createdAt)) {
                    newest = std::move(found.front());
                    home = container;
                }
            } catch (const std::exception&) {
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

    Clip clip = builder_.build(snapshot, kind, isSensitive);
    if (outcome.markFavorite) clip.isFavorite = true;
    lastInsertMatchedRule_ = outcome.matchedAnyRule;
    Uuid id = clip.id;
    std::string rawKind = clip.kind;
    insert(std::move(clip), outcome.collectionIDs);
    if (onIconRequest_) onIconRequest_(snapshot.sourceAppBundleID);
    log_.log("Captured %{public}s clip from %{public}s%{public}s.", rawKind,
             snapshot.sourceAppName.value_or("unknown"), isSensitive ? " (sensitive)" : "");
    return IngestResult::inserted(id);
}

Uuid ClipStore::insertMultiClip(const std::string& joinedText, Data payload, Date at) {
    PasteboardSnapshot snapshot;
    snapshot.string = joinedText;
    snapshot.capturedAt = at;
    Clip clip = builder_.build(snapshot, ClipKind::multiClip, false);
    clip.multiClipData = std::move(payload);
    Uuid id = clip.id;
    insert(std::move(clip), {});
    log_.log("Captured %{public}s clip from %{public}s%{public}s.", "multiClip", "collect mode", "");
    return id;
}

void ClipStore::promote(Clip clip, ModelContainer& container, Date at) {
    // A snapshot dated before the clip (an import's old line) never moves it back in time.
    clip.createdAt = std::max(clip.createdAt, at);
    clip.markUsed(std::max({clip.createdAt, clip.lastUsedAt.value_or(at), at}));
    recentHashes_.record(clip.contentHash);
    try {
        container.updateUsage(clip);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    save();
}

void ClipStore::insert(Clip clip, const std::vector<Uuid>& collectionIDs) {
    ModelContainer& container = clip.isSensitive && vault_ ? *vault_ : *main_;
    recentHashes_.record(clip.contentHash);
    try {
        container.insert(clip);
        // Filed as the collection's add files it (a board's first column, at its end), in the
        // insert's transaction; a sensitive clip in the vault joins no collection.
        if (&container == main_.get())
            for (const Uuid& collectionID : collectionIDs) fileIntoCollection({clip.id}, collectionID);
    } catch (const std::exception& error) {
        log_.log("Save failed: %{public}s", error.what());
    }
    save();
}

void ClipStore::setDefersSaves(bool defers) {
    defersSaves_ = defers;
    if (!defers) save();
}

void ClipStore::save() {
    if (defersSaves_) return;
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container || !container->hasChanges()) continue;
        if (auto error = container->save()) log_.log("Save failed: %{public}s", *error);
    }
    revision_.set(revision_.value() + 1);
    totalCount_.set(liveClipCount());
    // Our own commits move data_version too; only another process's should raise revision again.
    try {
        mainDataVersion_ = main_->dataVersion();
        if (vault_) vaultDataVersion_ = vault_->dataVersion();
    } catch (const std::exception&) {
    }
}

void ClipStore::checkForOutsideChanges() {
    try {
        long long mainVersion = main_->dataVersion();
        long long vaultVersion = vault_ ? vault_->dataVersion() : 0;
        if (mainVersion == mainDataVersion_ && vaultVersion == vaultDataVersion_) return;
        mainDataVersion_ = mainVersion;
        vaultDataVersion_ = vaultVersion;
    } catch (const std::exception&) {
        return;
    }
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
    for (ModelContainer* container : {main_.get(), vault_.get()}) {
        if (!container) continue;
        try {
            if (container->count("id = ?", {id.uuidString()}) > 0) return container;
        } catch (const std::exception&) {
        }
    }
    return nullptr;
}

}  // namespace tamarind
