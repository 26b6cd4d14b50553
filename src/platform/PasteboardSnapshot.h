#pragma once
// One read of the clipboard: everything later steps need, so that nothing
// after the read touches the clipboard again. A plain value, never stored.
//
// It is the clipboard interface's vocabulary: the monitor fills it, and the
// library's ingest takes it as its input.

#include <optional>
#include <string>
#include <vector>

#include "foundation/Data.h"
#include "foundation/Date.h"
#include "foundation/ImageCodec.h"

namespace tamarind {

// A file the clipboard names, by its absolute path (what text/uri-list carries, decoded).
struct FileURL {
    std::string path;

    std::string uri() const;                    // "file:///home/ann/a%20b.txt"
    std::string lastPathComponent() const;      // "a b.txt"; "/" for the root
    // From a "file://" URI (an empty or "localhost" host); absent for any other URI.
    static std::optional<FileURL> fromUri(std::string_view uri);

    friend bool operator==(const FileURL&, const FileURL&) = default;
};

struct PasteboardSnapshot {
    long long changeCount = 0;
    std::vector<std::string> types;  // MIME types and atoms in the owner's order
    std::optional<std::string> string;
    std::optional<Data> rtfData;
    std::optional<std::string> htmlString;
    std::optional<Data> imageData;                 // PNG, else TIFF (other formats arrive converted to PNG)
    std::optional<std::string> imageFileExtension;  // "png" or "tiff", by what gave imageData
    std::optional<PixelSize> imagePixelSize;        // absent when the bytes don't decode
    std::vector<FileURL> fileURLs;
    std::optional<std::string> sourceAppBundleID;
    std::optional<std::string> sourceAppName;
    Date capturedAt;

    // True unless, tested in this order: the string has text after trimming,
    // there is an image, there are files, there is RTF. HTML alone is empty.
    bool isEmpty() const;
    // Bytes of the string, RTF, HTML and image; files count nothing.
    long long estimatedByteSize() const;
};

}  // namespace tamarind
