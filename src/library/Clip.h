#pragma once
// The persisted records: a Clip is one item of history, a Collection a user
// folder of clips (which can show as a board), a SyncDevice a machine that
// takes part in sync. Plain values; every rule that changes them lives in the
// builder and the store. The same schema (version 1.0.0) serves the main store
// and the vault.

#include <optional>
#include <string>
#include <vector>

#include "foundation/Data.h"
#include "foundation/Date.h"
#include "foundation/Uuid.h"
#include "library/ClipKind.h"

namespace tamarind {

inline constexpr const char* kSchemaVersion = "1.0.0";

struct Clip {
    Uuid id;
    Date createdAt;
    std::optional<Date> lastUsedAt;
    long long useCount = 0;
    std::string kind = "text";  // raw string of ClipKind, kept as stored
    bool isFavorite = false;
    bool isPinned = false;
    bool isSensitive = false;
    std::optional<std::string> text;
    std::optional<Data> richTextData;
    std::optional<std::string> htmlString;
    std::optional<std::string> urlString;
    std::optional<std::string> hexColor;       // "#" and six upper-case digits
    std::optional<Data> fileBookmarks;         // JSON array of base64 bookmark blobs (FileBookmark.h)
    std::optional<Data> thumbnailData;         // PNG, at most 512 pixels on the long side
    std::optional<std::string> blobFilename;   // "<UUID>.<extension>" in the blob store
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> sourceAppName;
    long long charCount = 0;
    long long imageWidth = 0;
    long long imageHeight = 0;
    long long byteSize = 0;
    std::string searchText;
    std::optional<std::string> ocrText;
    std::vector<Uuid> collectionIDs;           // the many-to-many relationship, by identity
    std::optional<std::string> boardColumn;
    double sortIndex = 0;
    std::optional<Data> multiClipData;         // JSON of MultiClipPayload
    std::optional<Date> reminderDate;
    std::optional<std::string> reminderAppBundleID;
    bool reminderDelivered = false;
    std::optional<std::string> aiTitle;
    std::optional<Date> aiTitleAttemptedAt;
    std::optional<Uuid> aiSuggestedCollectionID;
    std::optional<Date> aiCategorizedAt;
    std::optional<std::string> expansionTrigger;
    std::optional<Date> deletedAt;             // a tombstone kept for sync
    std::optional<std::string> originDeviceID;
    std::optional<Data> fullImageData;
    std::string contentHash;

    // A new clip: a fresh id, created now. (A default-constructed Clip has the
    // nil id, for the store to fill from a row.)
    static Clip make(Date now);

    ClipKind clipKind() const { return clipKindOrText(kind); }
    void markUsed(Date at);
    // The non-empty of text, ocrText and sourceAppName, then the file names,
    // joined by one blank, lower-cased.
    void rebuildSearchText(const std::vector<std::string>& fileNames);
    std::string displayTitle() const;

    friend bool operator==(const Clip&, const Clip&) = default;
};

enum class CollectionViewMode { list, card, board };

std::string_view rawValue(CollectionViewMode mode);
// Unknown strings read as `list`.
CollectionViewMode collectionViewModeOrList(std::string_view raw);

struct Collection {
    Uuid id;
    std::string name;
    std::string iconName = "folder";
    std::string colorHex = "#3B5BFD";
    double sortIndex = 0;
    Date createdAt;
    std::string viewMode = "list";
    std::optional<Data> boardColumnsData;  // JSON array of column names, in order
    std::vector<Uuid> clipIDs;

    static Collection make(Date now);

    CollectionViewMode viewModeValue() const { return collectionViewModeOrList(viewMode); }
    // Decoded from boardColumnsData; empty when absent or undecodable.
    std::vector<std::string> boardColumns() const;
    void setBoardColumns(const std::vector<std::string>& columns);

    friend bool operator==(const Collection&, const Collection&) = default;
};

struct SyncDevice {
    Uuid id;
    std::string deviceID;
    std::string name;
    std::string modelIdentifier;
    std::string appVersion;
    Date firstSeenAt;
    Date lastSeenAt;

    static SyncDevice make(Date now);

    friend bool operator==(const SyncDevice&, const SyncDevice&) = default;
};

}  // namespace tamarind
