#include "library/ModelContainer.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "foundation/Log.h"
#include "foundation/Sha256.h"
#include "foundation/Text.h"

namespace tamarind {

namespace {

// What one live row adds to the facet counts, and takes away; the three facet triggers share
// them through the placeholders that schema() fills in.
constexpr const char* kFacetAdd = R"SQL(
  INSERT INTO clip_facet_count(dimension, value, live) SELECT 'kind', new.kind, 1 WHERE new.deletedAt IS NULL
    ON CONFLICT DO UPDATE SET live = live + 1;
  INSERT INTO clip_facet_count(dimension, value, live, name, namedAt)
    SELECT 'app', new.sourceAppBundleID, 1, new.sourceAppName, CASE WHEN new.sourceAppName IS NOT NULL
      THEN new.createdAt END
    WHERE new.deletedAt IS NULL AND new.sourceAppBundleID IS NOT NULL
    ON CONFLICT DO UPDATE SET live = live + 1,
      name = CASE WHEN excluded.namedAt >= coalesce(namedAt, excluded.namedAt) THEN excluded.name ELSE name END,
      namedAt = max(coalesce(namedAt, excluded.namedAt), coalesce(excluded.namedAt, namedAt));
  INSERT INTO clip_facet_count(dimension, value, live) SELECT 'flag', 'favorite', 1
    WHERE new.deletedAt IS NULL AND new.isFavorite <> 0 ON CONFLICT DO UPDATE SET live = live + 1;
  INSERT INTO clip_facet_count(dimension, value, live) SELECT 'flag', 'pinned', 1
    WHERE new.deletedAt IS NULL AND new.isPinned <> 0 ON CONFLICT DO UPDATE SET live = live + 1;
)SQL";
constexpr const char* kFacetRemove = R"SQL(
  UPDATE clip_facet_count SET live = live - 1 WHERE old.deletedAt IS NULL AND (
    (dimension = 'kind' AND value = old.kind) OR (dimension = 'app' AND value = old.sourceAppBundleID) OR
    (dimension = 'flag' AND value = 'favorite' AND old.isFavorite <> 0) OR
    (dimension = 'flag' AND value = 'pinned' AND old.isPinned <> 0));
)SQL";

// One column per record field, named as the field. The large blobs live in
// clip_media so that scans of clip never page through them; searchFolded is
// the folded searchText that the trigram index covers.
constexpr const char* kSchema = R"SQL(
CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS clip (
  pk INTEGER PRIMARY KEY,
  id TEXT NOT NULL,
  createdAt REAL NOT NULL DEFAULT 0,
  lastUsedAt REAL,
  useCount INTEGER NOT NULL DEFAULT 0,
  kind TEXT NOT NULL DEFAULT 'text',
  isFavorite INTEGER NOT NULL DEFAULT 0,
  isPinned INTEGER NOT NULL DEFAULT 0,
  isSensitive INTEGER NOT NULL DEFAULT 0,
  text TEXT,
  richTextData BLOB,
  htmlString TEXT,
  urlString TEXT,
  hexColor TEXT,
  fileBookmarks BLOB,
  blobFilename TEXT,
  sourceAppBundleID TEXT,
  sourceAppName TEXT,
  charCount INTEGER NOT NULL DEFAULT 0,
  imageWidth INTEGER NOT NULL DEFAULT 0,
  imageHeight INTEGER NOT NULL DEFAULT 0,
  byteSize INTEGER NOT NULL DEFAULT 0,
  searchText TEXT NOT NULL DEFAULT '',
  ocrText TEXT,
  boardColumn TEXT,
  sortIndex REAL NOT NULL DEFAULT 0,
  multiClipData BLOB,
  reminderDate REAL,
  reminderAppBundleID TEXT,
  reminderDelivered INTEGER NOT NULL DEFAULT 0,
  aiTitle TEXT,
  aiTitleAttemptedAt REAL,
  aiSuggestedCollectionID TEXT,
  aiCategorizedAt REAL,
  expansionTrigger TEXT,
  deletedAt REAL,
  originDeviceID TEXT,
  contentHash TEXT NOT NULL DEFAULT '',
  searchFolded TEXT NOT NULL DEFAULT ''
);
CREATE UNIQUE INDEX IF NOT EXISTS clip_id ON clip(id);
CREATE INDEX IF NOT EXISTS clip_created ON clip(createdAt);
CREATE INDEX IF NOT EXISTS clip_hash ON clip(contentHash, createdAt);
CREATE INDEX IF NOT EXISTS clip_used ON clip(useCount, createdAt);
CREATE INDEX IF NOT EXISTS clip_size ON clip(byteSize, createdAt);
CREATE INDEX IF NOT EXISTS clip_deleted ON clip(deletedAt) WHERE deletedAt IS NOT NULL;
CREATE TABLE IF NOT EXISTS clip_media (
  clipPk INTEGER PRIMARY KEY REFERENCES clip(pk) ON DELETE CASCADE,
  thumbnailData BLOB,
  fullImageData BLOB
);
CREATE TABLE IF NOT EXISTS collection (
  id TEXT PRIMARY KEY,
  name TEXT NOT NULL DEFAULT '',
  iconName TEXT NOT NULL DEFAULT 'folder',
  colorHex TEXT NOT NULL DEFAULT '#3B5BFD',
  sortIndex REAL NOT NULL DEFAULT 0,
  createdAt REAL NOT NULL DEFAULT 0,
  viewMode TEXT NOT NULL DEFAULT 'list',
  boardColumnsData BLOB
);
-- Deleting either side removes only the membership (nullify on both sides).
CREATE TABLE IF NOT EXISTS clip_collection (
  clipPk INTEGER NOT NULL REFERENCES clip(pk) ON DELETE CASCADE,
  collectionID TEXT NOT NULL REFERENCES collection(id) ON DELETE CASCADE,
  PRIMARY KEY (clipPk, collectionID)
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS clip_collection_by_collection ON clip_collection(collectionID);
CREATE TABLE IF NOT EXISTS sync_device (
  id TEXT PRIMARY KEY,
  deviceID TEXT NOT NULL DEFAULT '',
  name TEXT NOT NULL DEFAULT '',
  modelIdentifier TEXT NOT NULL DEFAULT '',
  appVersion TEXT NOT NULL DEFAULT '',
  firstSeenAt REAL NOT NULL DEFAULT 0,
  lastSeenAt REAL NOT NULL DEFAULT 0
);
-- The number of live clips, kept by triggers: counting a million rows at every save would
-- cost more than the rest of an ingest.
CREATE TABLE IF NOT EXISTS clip_stats (id INTEGER PRIMARY KEY CHECK (id = 1), live INTEGER NOT NULL);
INSERT INTO clip_stats(id, live) SELECT 1, (SELECT count(*) FROM clip WHERE deletedAt IS NULL)
  WHERE NOT EXISTS (SELECT 1 FROM clip_stats);
CREATE TRIGGER IF NOT EXISTS clip_live_insert AFTER INSERT ON clip WHEN new.deletedAt IS NULL BEGIN
  UPDATE clip_stats SET live = live + 1;
END;
CREATE TRIGGER IF NOT EXISTS clip_live_delete AFTER DELETE ON clip WHEN old.deletedAt IS NULL BEGIN
  UPDATE clip_stats SET live = live - 1;
END;
CREATE TRIGGER IF NOT EXISTS clip_live_tombstone AFTER UPDATE OF deletedAt ON clip
  WHEN (old.deletedAt IS NULL) <> (new.deletedAt IS NULL) BEGIN
  UPDATE clip_stats SET live = live + (CASE WHEN new.deletedAt IS NULL THEN 1 ELSE -1 END);
END;
-- The facets (live clips per kind, per source app, favourites, pinned), kept by triggers for
-- the same reason. Counts can fall to 0; readers skip those rows.
CREATE TABLE IF NOT EXISTS clip_facet_count (
  dimension TEXT NOT NULL, value TEXT NOT NULL, live INTEGER NOT NULL, name TEXT, namedAt REAL,
  PRIMARY KEY (dimension, value)) WITHOUT ROWID;
CREATE TRIGGER IF NOT EXISTS clip_facet_insert AFTER INSERT ON clip BEGIN
{facetAdd}END;
CREATE TRIGGER IF NOT EXISTS clip_facet_delete AFTER DELETE ON clip BEGIN
{facetRemove}END;
-- An update takes away what the old row counted and adds what the new one counts.
CREATE TRIGGER IF NOT EXISTS clip_facet_update
  AFTER UPDATE OF kind, isFavorite, isPinned, sourceAppBundleID, sourceAppName, deletedAt ON clip BEGIN
{facetRemove}{facetAdd}END;
-- The index covers the start of each clip's text: indexing a clip of a hundred megabytes whole
-- would hold the store's lock for minutes. The longer clips are few, listed by clip_long_text, and
-- a search tests them whole.
CREATE INDEX IF NOT EXISTS clip_long_text ON clip(pk) WHERE length(searchFolded) > {indexed};
CREATE VIEW IF NOT EXISTS clip_search_source AS SELECT pk, substr(searchFolded, 1, {indexed}) AS searchFolded FROM clip;
CREATE VIRTUAL TABLE IF NOT EXISTS clip_search USING {searchIndex};
CREATE TRIGGER IF NOT EXISTS clip_search_insert AFTER INSERT ON clip BEGIN
  INSERT INTO clip_search(rowid, searchFolded) VALUES (new.pk, substr(new.searchFolded, 1, {indexed}));
END;
CREATE TRIGGER IF NOT EXISTS clip_search_delete AFTER DELETE ON clip BEGIN
  INSERT INTO clip_search(clip_search, rowid, searchFolded)
    VALUES ('delete', old.pk, substr(old.searchFolded, 1, {indexed}));
END;
CREATE TRIGGER IF NOT EXISTS clip_search_update AFTER UPDATE OF searchFolded ON clip BEGIN
  INSERT INTO clip_search(clip_search, rowid, searchFolded)
    VALUES ('delete', old.pk, substr(old.searchFolded, 1, {indexed}));
  INSERT INTO clip_search(rowid, searchFolded) VALUES (new.pk, substr(new.searchFolded, 1, {indexed}));
END;
)SQL";

// The facet counts of a store written before they existed, computed once when it opens: each
// statement reads every clip, so they run only while meta lacks its mark.
constexpr const char* kFacetCountsFill = R"SQL(
INSERT INTO clip_facet_count(dimension, value, live) SELECT 'kind', kind, count(*) FROM clip
  WHERE deletedAt IS NULL GROUP BY kind;
-- An app's name is the one its most recent named clip carries (the bare columns of a max()).
INSERT INTO clip_facet_count(dimension, value, live, name, namedAt)
  SELECT 'app', sourceAppBundleID, count(*), sourceAppName,
         max(CASE WHEN sourceAppName IS NOT NULL THEN createdAt END) FROM clip
  WHERE deletedAt IS NULL AND sourceAppBundleID IS NOT NULL GROUP BY sourceAppBundleID;
INSERT INTO clip_facet_count(dimension, value, live) SELECT 'flag', 'favorite', count(*) FROM clip
  WHERE deletedAt IS NULL AND isFavorite <> 0
  GROUP BY isFavorite <> 0;
INSERT INTO clip_facet_count(dimension, value, live) SELECT 'flag', 'pinned', count(*) FROM clip
  WHERE deletedAt IS NULL AND isPinned <> 0
  GROUP BY isPinned <> 0;
INSERT INTO meta(key, value) VALUES ('facetCounts', '1');
)SQL";

// Trigrams of the folded text with their positions, so that a quoted needle is matched as a
// substring by the index alone. No column sizes: nothing ranks.
constexpr const char* kSearchIndex =
    "fts5(searchFolded, content='clip_search_source', content_rowid='pk', tokenize='trigram case_sensitive 1', "
    "columnsize=0)";

const std::string& schema() {
    static const std::string text = [] {
        std::string sql = kSchema;
        const std::string indexed = std::to_string(kIndexedSearchCharacters);
        for (auto [placeholder, body] : {std::pair<std::string_view, std::string_view>{"{facetAdd}", kFacetAdd},
                                         std::pair<std::string_view, std::string_view>{"{facetRemove}", kFacetRemove},
                                         std::pair<std::string_view, std::string_view>{"{searchIndex}", kSearchIndex},
                                         std::pair<std::string_view, std::string_view>{"{indexed}", indexed}})
            for (std::size_t at; (at = sql.find(placeholder)) != std::string::npos;)
                sql.replace(at, placeholder.size(), body);
        return sql;
    }();
    return text;
}

constexpr const char* kClipColumns =
    "clip.pk, id, createdAt, lastUsedAt, useCount, kind, isFavorite, isPinned, isSensitive, text, richTextData, "
    "htmlString, urlString, hexColor, fileBookmarks, blobFilename, sourceAppBundleID, sourceAppName, charCount, "
    "imageWidth, imageHeight, byteSize, searchText, ocrText, boardColumn, sortIndex, multiClipData, reminderDate, "
    "reminderAppBundleID, reminderDelivered, aiTitle, aiTitleAttemptedAt, aiSuggestedCollectionID, "
    "aiCategorizedAt, expansionTrigger, deletedAt, originDeviceID, contentHash";

constexpr const char* kClipAssignments =
    "id = ?1, createdAt = ?2, lastUsedAt = ?3, useCount = ?4, kind = ?5, isFavorite = ?6, isPinned = ?7, "
    "isSensitive = ?8, text = ?9, richTextData = ?10, htmlString = ?11, urlString = ?12, hexColor = ?13, "
    "fileBookmarks = ?14, blobFilename = ?15, sourceAppBundleID = ?16, sourceAppName = ?17, charCount = ?18, "
    "imageWidth = ?19, imageHeight = ?20, byteSize = ?21, searchText = ?22, ocrText = ?23, boardColumn = ?24, "
    "sortIndex = ?25, multiClipData = ?26, reminderDate = ?27, reminderAppBundleID = ?28, "
    "reminderDelivered = ?29, aiTitle = ?30, aiTitleAttemptedAt = ?31, aiSuggestedCollectionID = ?32, "
    "aiCategorizedAt = ?33, expansionTrigger = ?34, deletedAt = ?35, originDeviceID = ?36, contentHash = ?37, "
    "searchFolded = ?38";

constexpr const char* kClipInsert =
    "INSERT INTO clip(id, createdAt, lastUsedAt, useCount, kind, isFavorite, isPinned, isSensitive, text,"
    " richTextData, htmlString, urlString, hexColor, fileBookmarks, blobFilename, sourceAppBundleID, "
    "sourceAppName, charCount, imageWidth, imageHeight, byteSize, searchText, ocrText, boardColumn, "
    "sortIndex, multiClipData, reminderDate, reminderAppBundleID, reminderDelivered, aiTitle, "
    "aiTitleAttemptedAt, aiSuggestedCollectionID, aiCategorizedAt, expansionTrigger, deletedAt, "
    "originDeviceID, contentHash, searchFolded) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, "
    "?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22, ?23, ?24, ?25, ?26, ?27, ?28, ?29, ?30, ?31, "
    "?32, ?33, ?34, ?35, ?36, ?37, ?38)";

// Texts are bound without a copy (a clip's text may be a hundred megabytes): the value must
// outlive the statement's run, which ends before its lease does.
void bindText(SQLite::Statement& statement, int index, const std::optional<std::string>& value) {
    if (value) statement.bindNoCopy(index, *value);
    else statement.bind(index);
}

void bindData(SQLite::Statement& statement, int index, const std::optional<Data>& value) {
    if (value) statement.bind(index, value->data(), static_cast<int>(value->size()));
    else statement.bind(index);
}

void bindDate(SQLite::Statement& statement, int index, const std::optional<Date>& value) {
    if (value) statement.bind(index, value->secondsSinceReferenceDate());
    else statement.bind(index);
}

// `folded` is the folded search text, made by the caller so that it outlives the run.
void bindClip(SQLite::Statement& s, const Clip& clip, const std::string& folded) {
    s.bind(1, clip.id.uuidString());
    s.bind(2, clip.createdAt.secondsSinceReferenceDate());
    bindDate(s, 3, clip.lastUsedAt);
    s.bind(4, static_cast<std::int64_t>(clip.useCount));
    s.bind(5, clip.kind);
    s.bind(6, clip.isFavorite ? 1 : 0);
    s.bind(7, clip.isPinned ? 1 : 0);
    s.bind(8, clip.isSensitive ? 1 : 0);
    bindText(s, 9, clip.text);
    bindData(s, 10, clip.richTextData);
    bindText(s, 11, clip.htmlString);
    bindText(s, 12, clip.urlString);
    bindText(s, 13, clip.hexColor);
    bindData(s, 14, clip.fileBookmarks);
    bindText(s, 15, clip.blobFilename);
    bindText(s, 16, clip.sourceAppBundleID);
    bindText(s, 17, clip.sourceAppName);
    s.bind(18, static_cast<std::int64_t>(clip.charCount));
    s.bind(19, static_cast<std::int64_t>(clip.imageWidth));
    s.bind(20, static_cast<std::int64_t>(clip.imageHeight));
    s.bind(21, static_cast<std::int64_t>(clip.byteSize));
    s.bindNoCopy(22, clip.searchText);
    bindText(s, 23, clip.ocrText);
    bindText(s, 24, clip.boardColumn);
    s.bind(25, clip.sortIndex);
    bindData(s, 26, clip.multiClipData);
    bindDate(s, 27, clip.reminderDate);
    bindText(s, 28, clip.reminderAppBundleID);
    s.bind(29, clip.reminderDelivered ? 1 : 0);
    bindText(s, 30, clip.aiTitle);
    bindDate(s, 31, clip.aiTitleAttemptedAt);
    if (clip.aiSuggestedCollectionID) s.bind(32, clip.aiSuggestedCollectionID->uuidString());
    else s.bind(32);
    bindDate(s, 33, clip.aiCategorizedAt);
    bindText(s, 34, clip.expansionTrigger);
    bindDate(s, 35, clip.deletedAt);
    bindText(s, 36, clip.originDeviceID);
    s.bind(37, clip.contentHash);
    s.bindNoCopy(38, folded);
}

std::optional<std::string> columnText(SQLite::Statement& s, int index) {
    SQLite::Column column = s.getColumn(index);
    if (column.isNull()) return std::nullopt;
    return column.getString();
}

std::optional<Data> columnData(SQLite::Statement& s, int index) {
    SQLite::Column column = s.getColumn(index);
    if (column.isNull()) return std::nullopt;
    auto bytes = static_cast<const std::uint8_t*>(column.getBlob());
    return Data(bytes, bytes + column.getBytes());
}

std::optional<Date> columnDate(SQLite::Statement& s, int index) {
    SQLite::Column column = s.getColumn(index);
    if (column.isNull()) return std::nullopt;
    return Date::fromReferenceSeconds(column.getDouble());
}

// A stored id that doesn't parse (written by hand, say) reads as the nil id rather than failing the fetch.
Uuid columnUuid(SQLite::Statement& s, int index) {
    return Uuid::parse(s.getColumn(index).getString()).value_or(Uuid());
}

Clip readClip(SQLite::Statement& s) {
    Clip clip;
    clip.id = columnUuid(s, 1);
    clip.createdAt = Date::fromReferenceSeconds(s.getColumn(2).getDouble());
    clip.lastUsedAt = columnDate(s, 3);
    clip.useCount = s.getColumn(4).getInt64();
    clip.kind = s.getColumn(5).getString();
    clip.isFavorite = s.getColumn(6).getInt() != 0;
    clip.isPinned = s.getColumn(7).getInt() != 0;
    clip.isSensitive = s.getColumn(8).getInt() != 0;
    clip.text = columnText(s, 9);
    clip.richTextData = columnData(s, 10);
    clip.htmlString = columnText(s, 11);
    clip.urlString = columnText(s, 12);
    clip.hexColor = columnText(s, 13);
    clip.fileBookmarks = columnData(s, 14);
    clip.blobFilename = columnText(s, 15);
    clip.sourceAppBundleID = columnText(s, 16);
    clip.sourceAppName = columnText(s, 17);
    clip.charCount = s.getColumn(18).getInt64();
    clip.imageWidth = s.getColumn(19).getInt64();
    clip.imageHeight = s.getColumn(20).getInt64();
    clip.byteSize = s.getColumn(21).getInt64();
    clip.searchText = s.getColumn(22).getString();
    clip.ocrText = columnText(s, 23);
    clip.boardColumn = columnText(s, 24);
    clip.sortIndex = s.getColumn(25).getDouble();
    clip.multiClipData = columnData(s, 26);
    clip.reminderDate = columnDate(s, 27);
    clip.reminderAppBundleID = columnText(s, 28);
    clip.reminderDelivered = s.getColumn(29).getInt() != 0;
    clip.aiTitle = columnText(s, 30);
    clip.aiTitleAttemptedAt = columnDate(s, 31);
    if (auto suggested = columnText(s, 32)) clip.aiSuggestedCollectionID = Uuid::parse(*suggested);
    clip.aiCategorizedAt = columnDate(s, 33);
    clip.expansionTrigger = columnText(s, 34);
    clip.deletedAt = columnDate(s, 35);
    clip.originDeviceID = columnText(s, 36);
    clip.contentHash = s.getColumn(37).getString();
    return clip;
}

void bindCollection(SQLite::Statement& s, const Collection& collection) {
    s.bind(1, collection.id.uuidString());
    s.bind(2, collection.name);
    s.bind(3, collection.iconName);
    s.bind(4, collection.colorHex);
    s.bind(5, collection.sortIndex);
    s.bind(6, collection.createdAt.secondsSinceReferenceDate());
    s.bind(7, collection.viewMode);
    bindData(s, 8, collection.boardColumnsData);
}

void bindDevice(SQLite::Statement& s, const SyncDevice& device) {
    s.bind(1, device.id.uuidString());
    s.bind(2, device.deviceID);
    s.bind(3, device.name);
    s.bind(4, device.modelIdentifier);
    s.bind(5, device.appVersion);
    s.bind(6, device.firstSeenAt.secondsSinceReferenceDate());
    s.bind(7, device.lastSeenAt.secondsSinceReferenceDate());
}

void bindParameters(SQLite::Statement& statement,
                    const std::vector<std::variant<std::int64_t, double, std::string>>& parameters) {
    int index = 1;
    for (const auto& parameter : parameters) {
        std::visit([&](const auto& value) { statement.bind(index, value); }, parameter);
        ++index;
    }
}

// A search index defined otherwise (by an earlier build) is dropped with its triggers, to be made
// again and filled from the rows. True when it was.
bool dropStaleSearchIndex(SQLite::Database& database) {
    SQLite::Statement query(database, "SELECT sql FROM sqlite_master WHERE name = 'clip_search'");
    if (!query.executeStep()) return false;
    if (query.getColumn(0).getString() == std::string("CREATE VIRTUAL TABLE clip_search USING ") + kSearchIndex)
        return false;
    query.reset();
    database.exec("DROP TABLE clip_search");
    for (const char* trigger : {"clip_search_insert", "clip_search_delete", "clip_search_update"})
        database.exec(std::string("DROP TRIGGER IF EXISTS ") + trigger);
    return true;
}

void configure(SQLite::Database& database, std::chrono::milliseconds busyTimeout) {
    // First, so that no statement of this connection fails at once while another process (the
    // command line, the app) holds the write lock for a moment.
    database.setBusyTimeout(static_cast<int>(busyTimeout.count()));
    database.exec("PRAGMA foreign_keys = ON");
    database.exec("PRAGMA synchronous = NORMAL");
}

// The schema's statements, and the index definition within them: a store whose meta holds this
// digest needs none of them run again.
const std::string& schemaDigest() {
    static const std::string digest = sha256Hex(schema());
    return digest;
}

// The file's device and inode number.
std::optional<std::pair<dev_t, ino_t>> identityOf(const std::filesystem::path& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return std::nullopt;
    return std::pair(status.st_dev, status.st_ino);
}

}  // namespace

ModelContainer::ModelContainer(std::unique_ptr<SQLite::Database> database, std::optional<std::filesystem::path> file)
    : database_(std::move(database)), file_(std::move(file)) {
    if (file_) identity_ = identityOf(*file_);
}

bool ModelContainer::isFileGone() const { return identity_ && identityOf(*file_) != identity_; }

ModelContainer::~ModelContainer() = default;

Result<std::unique_ptr<ModelContainer>> ModelContainer::open(const std::filesystem::path& file,
                                                             std::chrono::milliseconds busyTimeout) {
    // A locked file is waited out rather than taken for a broken one: another process writing the
    // schema, or several making a new file at once, where SQLite answers "database is locked"
    // without consulting the busy timeout (switching the journal to WAL, setting up its index).
    auto deadline = std::chrono::steady_clock::now() + kOpenLockWait;
    bool hasSaidSo = false;
    for (;;) {
        bool isBusy = false;
        auto result = openOnce(file, busyTimeout, isBusy);
        if (!isBusy || std::chrono::steady_clock::now() > deadline) return result;
        if (!std::exchange(hasSaidSo, true))
            Log("library").log("The store %{public}s is locked by another program; waiting for it.", file.string());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

Result<std::unique_ptr<ModelContainer>> ModelContainer::openOnce(const std::filesystem::path& file,
                                                                 std::chrono::milliseconds busyTimeout, bool& isBusy) {
    try {
        // Create the file ourselves so that it is user-only from the first byte.
        int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) return Failure{std::string("open ") + file.string() + ": " + std::strerror(errno)};
        ::close(fd);
        auto database = std::make_unique<SQLite::Database>(file, SQLite::OPEN_READWRITE);
        configure(*database, busyTimeout);
        // A file that is not a database fails here, before anything is written to it.
        database->exec("SELECT count(*) FROM sqlite_master");
        auto storedVersion = [&]() -> std::optional<std::string> {
            if (!database->tableExists("meta")) return std::nullopt;
            SQLite::Statement query(*database, "SELECT value FROM meta WHERE key = 'schemaVersion'");
            if (!query.executeStep()) return std::nullopt;
            return query.getColumn(0).getString();
        }();
        if (storedVersion && *storedVersion != kSchemaVersion)
            return Failure{"unsupported schema version " + *storedVersion + " in " + file.string()};
        bool isNew = !storedVersion;
        // Tables but no meta: not ours. (Another process making this new file's schema commits
        // meta with the rest.)
        if (isNew && database->execAndGet("SELECT count(*) FROM sqlite_master").getInt() > 0 &&
            !database->tableExists("meta"))
            return Failure{file.string() + " is a database of another program"};
        // A current store is opened by reads alone: in WAL they never wait for a writer.
        auto metaHas = [&](const char* key, const std::string& value) {
            SQLite::Statement query(*database, "SELECT 1 FROM meta WHERE key = ? AND value = ?");
            query.bind(1, key);
            query.bind(2, value);
            return query.executeStep();
        };
        if (!isNew && metaHas("schemaDigest", schemaDigest()) && metaHas("facetCounts", "1") &&
            database->execAndGet("PRAGMA journal_mode").getString() == "wal")
            return std::unique_ptr<ModelContainer>(new ModelContainer(std::move(database), file));
        std::string mode = database->execAndGet("PRAGMA journal_mode = WAL").getString();
        if (mode != "wal") return Failure{"could not switch " + file.string() + " to WAL (" + mode + ")"};
        // The schema's statements are idempotent: a store of this version made before a
        // table was added gets it here. Immediate, since they write: a read transaction raised to
        // a write one fails at once instead of waiting for another process's write to end.
        SQLite::Transaction transaction(*database, SQLite::TransactionBehavior::IMMEDIATE);
        // Another process may have made the new file's schema while this one waited.
        if (isNew && database->tableExists("meta")) isNew = false;
        bool isSearchIndexStale = dropStaleSearchIndex(*database);
        database->exec(schema());
        if (isSearchIndexStale) database->exec("INSERT INTO clip_search(clip_search) VALUES ('rebuild')");
        if (database->execAndGet("SELECT count(*) FROM meta WHERE key = 'facetCounts'").getInt() == 0)
            database->exec(kFacetCountsFill);
        if (isNew)
            database->exec(std::string("INSERT INTO meta(key, value) VALUES ('schemaVersion', '") + kSchemaVersion +
                           "')");
        database->exec("INSERT OR REPLACE INTO meta(key, value) VALUES ('schemaDigest', '" + schemaDigest() + "')");
        transaction.commit();
        for (const char* companion : {"-wal", "-shm"}) ::chmod((file.string() + companion).c_str(), 0600);
        return std::unique_ptr<ModelContainer>(new ModelContainer(std::move(database), file));
    } catch (const SQLite::Exception& error) {
        isBusy = (error.getErrorCode() & 0xff) == SQLITE_BUSY;
        return Failure{error.what()};
    } catch (const std::exception& error) {
        return Failure{error.what()};
    }
}

Result<std::unique_ptr<ModelContainer>> ModelContainer::openInMemory() {
    try {
        auto database = std::make_unique<SQLite::Database>(":memory:", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        configure(*database, kDefaultBusyTimeout);
        database->exec(schema());
        database->exec(kFacetCountsFill);
        database->exec(std::string("INSERT INTO meta(key, value) VALUES ('schemaVersion', '") + kSchemaVersion + "')");
        return std::unique_ptr<ModelContainer>(new ModelContainer(std::move(database), std::nullopt));
    } catch (const std::exception& error) {
        return Failure{error.what()};
    }
}

Result<ModelContainer::Health> ModelContainer::inspect(const std::filesystem::path& file) {
    return guarded([&] {
        SQLite::Database database(file, SQLite::OPEN_READONLY);
        Health health;
        health.integrity = database.execAndGet("PRAGMA quick_check").getString();
        bool hasMeta = database.tableExists("meta");
        health.schemaVersion =
            hasMeta ? database.execAndGet("SELECT value FROM meta WHERE key = 'schemaVersion'").getString() : "none";
        if (database.tableExists("clip"))
            health.liveClips = database.execAndGet("SELECT count(*) FROM clip WHERE deletedAt IS NULL").getInt64();
        return health;
    });
}

void ModelContainer::beginChanges() {
    if (isInTransaction_) return;
    database_->exec("BEGIN IMMEDIATE");
    isInTransaction_ = true;
}

void ModelContainer::discardChanges() {
    if (!isInTransaction_) return;
    // A rollback fails only where there is nothing left to take back.
    (void)guarded([&] { database_->exec("ROLLBACK"); });
    isInTransaction_ = false;
}

long long ModelContainer::totalChanges() const { return sqlite3_total_changes64(database_->getHandle()); }

Status ModelContainer::save() {
    if (!isInTransaction_) return Status();
    Status committed = guarded([&] { database_->exec("COMMIT"); });
    // SQLite rolls back by itself on some errors (a full disk); then nothing is pending any more.
    if (committed || sqlite3_get_autocommit(database_->getHandle())) isInTransaction_ = false;
    return committed;
}

// A kept statement, reset and cleared when the lease ends so that no read stays open.
class ModelContainer::Prepared {
public:
    explicit Prepared(SQLite::Statement& statement) : statement_(statement) {}
    Prepared(const Prepared&) = delete;
    Prepared& operator=(const Prepared&) = delete;
    ~Prepared() {
        try {
            statement_.reset();
        } catch (const std::exception&) {
            // The failed step already threw to the caller; reset() only reports it again.
        }
        statement_.clearBindings();
    }
    SQLite::Statement& operator*() { return statement_; }
    SQLite::Statement* operator->() { return &statement_; }

private:
    SQLite::Statement& statement_;
};

ModelContainer::Prepared ModelContainer::prepared(const char* sql) {
    auto& slot = statements_[sql];
    if (!slot) slot = std::make_unique<SQLite::Statement>(*database_, sql);
    return Prepared(*slot);
}

void ModelContainer::writeMemberships(std::int64_t clipPk, const std::vector<Uuid>& collectionIDs) {
    auto clear = prepared("DELETE FROM clip_collection WHERE clipPk = ?");
    clear->bind(1, clipPk);
    clear->exec();
    if (collectionIDs.empty()) return;
    // An id with no collection is passed over.
    auto add = prepared("INSERT OR IGNORE INTO clip_collection(clipPk, collectionID) "
                        "SELECT ?1, id FROM collection WHERE id = ?2");
    for (const Uuid& id : collectionIDs) {
        add->bind(1, clipPk);
        add->bind(2, id.uuidString());
        add->exec();
        add->reset();
    }
}

void ModelContainer::writeMedia(std::int64_t clipPk, const Clip& clip) {
    auto media = prepared("INSERT INTO clip_media(clipPk, thumbnailData, fullImageData) VALUES (?1, ?2, ?3) "
                          "ON CONFLICT(clipPk) DO UPDATE SET thumbnailData = ?2, fullImageData = ?3");
    media->bind(1, clipPk);
    bindData(*media, 2, clip.thumbnailData);
    bindData(*media, 3, clip.fullImageData);
    media->exec();
}

std::optional<std::int64_t> ModelContainer::primaryKey(const Uuid& id) {
    auto query = prepared("SELECT pk FROM clip WHERE id = ?");
    query->bind(1, id.uuidString());
    if (!query->executeStep()) return std::nullopt;
    return query->getColumn(0).getInt64();
}

// A clip is written in several statements; one that fails takes back the others, so that the
// next save never commits half a clip.
template <class Write> void ModelContainer::writeWhole(Write write) {
    beginChanges();
    database_->exec("SAVEPOINT record");
    try {
        write();
    } catch (...) {
        // A full disk or an interrupt may have ended the whole transaction already.
        if (sqlite3_get_autocommit(database_->getHandle())) {
            isInTransaction_ = false;
            throw;
        }
        database_->exec("ROLLBACK TO record");
        database_->exec("RELEASE record");
        throw;
    }
    database_->exec("RELEASE record");
}

Status ModelContainer::insert(const Clip& clip) {
    return guarded([&] {
        writeWhole([&] {
            const std::string folded = searchFold(clip.searchText);
            auto statement = prepared(kClipInsert);
            bindClip(*statement, clip, folded);
            statement->exec();
            std::int64_t pk = database_->getLastInsertRowid();
            writeMedia(pk, clip);
            writeMemberships(pk, clip.collectionIDs);
        });
    });
}

Status ModelContainer::update(const Clip& clip) {
    return guarded([&] {
        auto pk = primaryKey(clip.id);
        if (!pk) return;
        writeWhole([&] {
            static const std::string sql = std::string("UPDATE clip SET ") + kClipAssignments + " WHERE pk = ?39";
            const std::string folded = searchFold(clip.searchText);
            auto fill = prepared(sql.c_str());
            bindClip(*fill, clip, folded);
            fill->bind(39, *pk);
            fill->exec();
            writeMedia(*pk, clip);
            writeMemberships(*pk, clip.collectionIDs);
        });
    });
}

Status ModelContainer::updateUsage(const Clip& clip) {
    return guarded([&] {
        beginChanges();
        auto statement = prepared("UPDATE clip SET createdAt = ?2, lastUsedAt = ?3, useCount = ?4 WHERE id = ?1");
        statement->bind(1, clip.id.uuidString());
        statement->bind(2, clip.createdAt.secondsSinceReferenceDate());
        bindDate(*statement, 3, clip.lastUsedAt);
        statement->bind(4, static_cast<std::int64_t>(clip.useCount));
        statement->exec();
    });
}

Status ModelContainer::remove(const Uuid& id) {
    return guarded([&] {
        beginChanges();
        auto statement = prepared("DELETE FROM clip WHERE id = ?");
        statement->bind(1, id.uuidString());
        statement->exec();
    });
}

Status ModelContainer::removeAllClips() {
    return guarded([&] {
        beginChanges();
        database_->exec("DELETE FROM clip_collection; DELETE FROM clip_media; DELETE FROM clip;");
    });
}

Status ModelContainer::insert(const Collection& collection) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_,
                                    "INSERT INTO collection(id, name, iconName, colorHex, sortIndex, createdAt, viewMode, "
                                    "boardColumnsData) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
        bindCollection(statement, collection);
        statement.exec();
        writeCollectionMembers(collection);
    });
}

Status ModelContainer::update(const Collection& collection) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_,
                                    "UPDATE collection SET name = ?2, iconName = ?3, colorHex = ?4, sortIndex = ?5, "
                                    "createdAt = ?6, viewMode = ?7, boardColumnsData = ?8 WHERE id = ?1");
        bindCollection(statement, collection);
        statement.exec();
        writeCollectionMembers(collection);
    });
}

Status ModelContainer::remove(const Collection& collection) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_, "DELETE FROM collection WHERE id = ?");
        statement.bind(1, collection.id.uuidString());
        statement.exec();
    });
}

void ModelContainer::writeCollectionMembers(const Collection& collection) {
    SQLite::Statement clear(*database_, "DELETE FROM clip_collection WHERE collectionID = ?");
    clear.bind(1, collection.id.uuidString());
    clear.exec();
    SQLite::Statement add(*database_,
                          "INSERT OR IGNORE INTO clip_collection(clipPk, collectionID) "
                          "SELECT pk, ?2 FROM clip WHERE id = ?1");
    for (const Uuid& clipID : collection.clipIDs) {
        add.bind(1, clipID.uuidString());
        add.bind(2, collection.id.uuidString());
        add.exec();
        add.reset();
    }
}

Status ModelContainer::insert(const SyncDevice& device) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_,
                                    "INSERT INTO sync_device(id, deviceID, name, modelIdentifier, appVersion, firstSeenAt, "
                                    "lastSeenAt) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
        bindDevice(statement, device);
        statement.exec();
    });
}

Status ModelContainer::update(const SyncDevice& device) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_,
                                    "UPDATE sync_device SET deviceID = ?2, name = ?3, modelIdentifier = ?4, "
                                    "appVersion = ?5, firstSeenAt = ?6, lastSeenAt = ?7 WHERE id = ?1");
        bindDevice(statement, device);
        statement.exec();
    });
}

Status ModelContainer::remove(const SyncDevice& device) {
    return guarded([&] {
        beginChanges();
        SQLite::Statement statement(*database_, "DELETE FROM sync_device WHERE id = ?");
        statement.bind(1, device.id.uuidString());
        statement.exec();
    });
}

Result<std::vector<Clip>> ModelContainer::fetch(const ClipFetch& request) {
    return guarded([&] { return fetchRows(request); });
}

std::vector<Clip> ModelContainer::fetchRows(const ClipFetch& request) {
    std::string sql = std::string("SELECT ") + kClipColumns +
                      ", (SELECT group_concat(collectionID) FROM clip_collection WHERE clipPk = clip.pk)";
    if (request.includesMedia) sql += ", clip_media.thumbnailData, clip_media.fullImageData";
    sql += " FROM clip";
    if (request.includesMedia) sql += " LEFT JOIN clip_media ON clip_media.clipPk = clip.pk";
    sql += " WHERE " + request.where + " ORDER BY " + request.orderBy;
    if (request.limit) sql += " LIMIT " + std::to_string(*request.limit) + " OFFSET " + std::to_string(request.offset);
    SQLite::Statement query(*database_, sql);
    bindParameters(query, request.parameters);
    std::vector<Clip> clips;
    while (query.executeStep()) {
        Clip clip = readClip(query);
        if (auto members = columnText(query, 38)) {
            for (std::string_view id : split(*members, ","))
                if (auto parsed = Uuid::parse(id)) clip.collectionIDs.push_back(*parsed);
        }
        if (request.includesMedia) {
            clip.thumbnailData = columnData(query, 39);
            clip.fullImageData = columnData(query, 40);
        }
        clips.push_back(std::move(clip));
    }
    return clips;
}

Result<long long> ModelContainer::replacePlaceholderOrigins(const std::vector<std::string>& placeholders,
                                                            const std::string& machineID) {
    return guarded([&]() -> long long {
        if (database_->execAndGet("SELECT count(*) FROM meta WHERE key = 'originPlaceholdersReplaced'").getInt() > 0)
            return 0;
        beginChanges();
        std::string marks;
        for (std::size_t i = 0; i < placeholders.size(); ++i) marks += i == 0 ? "?" : ", ?";
        SQLite::Statement update(*database_, "UPDATE clip SET originDeviceID = ? WHERE originDeviceID IN (" + marks + ")");
        update.bind(1, machineID);
        for (std::size_t i = 0; i < placeholders.size(); ++i) update.bind(static_cast<int>(i) + 2, placeholders[i]);
        long long changed = update.exec();
        database_->exec("INSERT INTO meta(key, value) VALUES ('originPlaceholdersReplaced', '1')");
        return changed;
    });
}

Result<long long> ModelContainer::count(const std::string& where, const Parameters& parameters) {
    return guarded([&]() -> long long {
        SQLite::Statement query(*database_, "SELECT count(*) FROM clip WHERE " + where);
        bindParameters(query, parameters);
        query.executeStep();
        return query.getColumn(0).getInt64();
    });
}

Result<std::optional<Clip>> ModelContainer::clip(const Uuid& id, bool includesMedia) {
    return guarded([&]() -> std::optional<Clip> {
        auto clips = fetchRows(ClipFetch{"id = ?", {id.uuidString()}, "pk", 1, 0, includesMedia});
        if (clips.empty()) return std::nullopt;
        return std::move(clips.front());
    });
}

Result<std::vector<Collection>> ModelContainer::collections() {
    return guarded([&] { return readCollections(); });
}

std::vector<Collection> ModelContainer::readCollections() {
    std::vector<Collection> result;
    SQLite::Statement query(*database_,
                            "SELECT id, name, iconName, colorHex, sortIndex, createdAt, viewMode, boardColumnsData, "
                            "(SELECT group_concat(clip.id) FROM clip_collection JOIN clip ON clip.pk = clipPk "
                            "WHERE collectionID = collection.id) FROM collection ORDER BY sortIndex, createdAt");
    while (query.executeStep()) {
        Collection collection;
        collection.id = columnUuid(query, 0);
        collection.name = query.getColumn(1).getString();
        collection.iconName = query.getColumn(2).getString();
        collection.colorHex = query.getColumn(3).getString();
        collection.sortIndex = query.getColumn(4).getDouble();
        collection.createdAt = Date::fromReferenceSeconds(query.getColumn(5).getDouble());
        collection.viewMode = query.getColumn(6).getString();
        collection.boardColumnsData = columnData(query, 7);
        if (auto members = columnText(query, 8)) {
            for (std::string_view id : split(*members, ","))
                if (auto parsed = Uuid::parse(id)) collection.clipIDs.push_back(*parsed);
        }
        result.push_back(std::move(collection));
    }
    return result;
}

Result<std::optional<Collection>> ModelContainer::collection(const Uuid& id) {
    return guarded([&]() -> std::optional<Collection> {
        for (Collection& collection : readCollections())
            if (collection.id == id) return std::move(collection);
        return std::nullopt;
    });
}

Result<std::vector<SyncDevice>> ModelContainer::devices() {
    return guarded([&] {
        std::vector<SyncDevice> result;
        SQLite::Statement query(*database_,
                                "SELECT id, deviceID, name, modelIdentifier, appVersion, firstSeenAt, lastSeenAt "
                                "FROM sync_device ORDER BY lastSeenAt DESC");
        while (query.executeStep()) {
            SyncDevice device;
            device.id = columnUuid(query, 0);
            device.deviceID = query.getColumn(1).getString();
            device.name = query.getColumn(2).getString();
            device.modelIdentifier = query.getColumn(3).getString();
            device.appVersion = query.getColumn(4).getString();
            device.firstSeenAt = Date::fromReferenceSeconds(query.getColumn(5).getDouble());
            device.lastSeenAt = Date::fromReferenceSeconds(query.getColumn(6).getDouble());
            result.push_back(std::move(device));
        }
        return result;
    });
}

Result<std::vector<ModelContainer::FacetCount>> ModelContainer::facetCounts() {
    return guarded([&] {
        std::vector<FacetCount> counts;
        SQLite::Statement query(*database_,
                                "SELECT dimension, value, live, name FROM clip_facet_count WHERE live > 0");
        while (query.executeStep())
            counts.push_back(FacetCount{query.getColumn(0).getString(), query.getColumn(1).getString(),
                                        query.getColumn(2).getInt64(), columnText(query, 3)});
        return counts;
    });
}

Result<long long> ModelContainer::liveClipCount() {
    return guarded([&]() -> long long { return database_->execAndGet("SELECT live FROM clip_stats WHERE id = 1").getInt64(); });
}

Result<long long> ModelContainer::dataVersion() {
    return guarded([&]() -> long long { return database_->execAndGet("PRAGMA data_version").getInt64(); });
}

Result<std::vector<std::pair<Date, std::string>>> ModelContainer::recentClipHashes(long long limit) {
    return guarded([&] {
        auto query = prepared(
            "SELECT createdAt, contentHash FROM clip WHERE deletedAt IS NULL ORDER BY createdAt DESC LIMIT ?");
        query->bind(1, static_cast<std::int64_t>(limit));
        std::vector<std::pair<Date, std::string>> clips;
        while (query->executeStep())
            clips.emplace_back(Date::fromReferenceSeconds(query->getColumn(0).getDouble()),
                               query->getColumn(1).getString());
        return clips;
    });
}

Result<bool> ModelContainer::hasLiveClipWithHash(const std::string& hash) {
    return guarded([&] {
        auto query = prepared("SELECT 1 FROM clip WHERE contentHash = ? AND deletedAt IS NULL LIMIT 1");
        query->bind(1, hash);
        return query->executeStep();
    });
}

Result<std::vector<Clip>> ModelContainer::clipsWithoutThumbnail(long long newest) {
    return fetch(ClipFetch{
        .where = "pk IN (SELECT pk FROM clip ORDER BY createdAt DESC LIMIT " + std::to_string(newest) +
                 ") AND deletedAt IS NULL AND blobFilename IS NOT NULL AND kind IN ('image', 'screenshot') AND "
                 "NOT EXISTS (SELECT 1 FROM clip_media WHERE clipPk = clip.pk AND thumbnailData IS NOT NULL)"});
}

Status ModelContainer::updateThumbnail(const Uuid& id, const Data& thumbnail) {
    return guarded([&] {
        auto pk = primaryKey(id);
        if (!pk) return;
        beginChanges();
        auto media = prepared("INSERT INTO clip_media(clipPk, thumbnailData) VALUES (?1, ?2) "
                              "ON CONFLICT(clipPk) DO UPDATE SET thumbnailData = ?2");
        media->bind(1, *pk);
        bindData(*media, 2, thumbnail);
        media->exec();
    });
}

Status ModelContainer::bulkLoad(const std::function<Status()>& inserts) {
    Status status;
    Status wrote = guarded([&] {
        database_->exec("PRAGMA cache_size = -1000000");
        std::string trigger =
            database_->execAndGet("SELECT sql FROM sqlite_master WHERE type = 'trigger' AND name = 'clip_search_insert'")
                .getString();
        writeWhole([&] {
            // In the change, so that a failure takes back the dropped trigger with the rest.
            database_->exec("DROP TRIGGER clip_search_insert");
            status = inserts();
            if (!status) throw std::runtime_error(status.error());
            database_->exec("INSERT INTO clip_search(clip_search) VALUES ('rebuild')");
            database_->exec(trigger);
        });
        database_->exec("PRAGMA cache_size = -2000");
    });
    return status ? wrote : status;
}

Status ModelContainer::atomically(const std::function<Status()>& change) {
    Status status;
    Status wrote = guarded([&] {
        writeWhole([&] {
            status = change();
            // Thrown so that writeWhole takes back what the change wrote; guarded() catches it.
            if (!status) throw std::runtime_error(status.error());
        });
    });
    // SQLite gives up the whole transaction by itself on some failures (a full disk): what was
    // pending is gone, and the next change must open a transaction again.
    if (!(status && wrote) && sqlite3_get_autocommit(database_->getHandle())) isInTransaction_ = false;
    return status ? wrote : status;
}

}  // namespace tamarind
