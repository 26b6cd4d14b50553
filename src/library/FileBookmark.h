#pragma once
// What a file clip keeps of each file so that paste can find it again.
//
// The clip's `fileBookmarks` is a JSON array with one base64 string per file;
// each decodes to a bookmark blob, itself JSON:
//   {"version":1,"path":"/home/ann/report.pdf","uri":"file:///home/ann/report.pdf"}
// (docs/file-bookmarks.md). Readers ignore keys they don't know, so a later
// version may add some.

#include <optional>
#include <string>
#include <vector>

#include "foundation/Data.h"
#include "platform/PasteboardSnapshot.h"

namespace tamarind {

struct FileBookmark {
    std::string path;
    std::string uri;

    static FileBookmark from(const FileURL& file);
    Data blob() const;
    // Absent when the blob is not a bookmark (or lacks an absolute path).
    static std::optional<FileBookmark> fromBlob(const Data& blob);
    FileURL fileURL() const { return FileURL{path}; }
};

// The `fileBookmarks` value for these files.
Data encodeFileBookmarks(const std::vector<FileURL>& files);
// The blobs of a `fileBookmarks` value; empty when it is not a JSON array of
// base64 strings.
std::vector<Data> decodeFileBookmarkBlobs(const Data& fileBookmarks);
// The files that still decode, in order; a blob that doesn't is passed over.
std::vector<FileURL> decodeFileBookmarks(const Data& fileBookmarks);

}  // namespace tamarind
