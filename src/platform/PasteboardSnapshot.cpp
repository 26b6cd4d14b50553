#include "platform/PasteboardSnapshot.h"

#include "foundation/Text.h"
#include "foundation/Url.h"

namespace tamarind {

std::string FileURL::uri() const { return "file://" + percentEncodePath(path); }

std::string FileURL::lastPathComponent() const {
    std::string_view view = path;
    while (view.size() > 1 && view.back() == '/') view.remove_suffix(1);
    if (view == "/") return "/";
    auto slash = view.rfind('/');
    return std::string(slash == std::string_view::npos ? view : view.substr(slash + 1));
}

std::optional<FileURL> FileURL::fromUri(std::string_view uri) {
    auto components = parseUrlComponents(uri);
    if (!components || components->scheme != "file" || !components->host) return std::nullopt;
    if (!components->host->empty() && *components->host != "localhost") return std::nullopt;
    if (components->path.empty() || components->path[0] != '/') return std::nullopt;
    return FileURL{components->path};
}

bool PasteboardSnapshot::isEmpty() const {
    if (string && !trimmed(*string).empty()) return false;
    if (imageData) return false;
    if (!fileURLs.empty()) return false;
    if (rtfData) return false;
    return true;
}

long long PasteboardSnapshot::estimatedByteSize() const {
    long long size = 0;
    if (string) size += static_cast<long long>(string->size());
    if (rtfData) size += static_cast<long long>(rtfData->size());
    if (htmlString) size += static_cast<long long>(htmlString->size());
    if (imageData) size += static_cast<long long>(imageData->size());
    return size;
}

}  // namespace tamarind
