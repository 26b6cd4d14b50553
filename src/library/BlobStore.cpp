#include "library/BlobStore.h"

#include <unistd.h>

namespace tamarind {

namespace {

// Names come from the database; one that could leave the folder is never used.
bool isPlainFilename(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

}  // namespace

std::variant<std::string, FileError> BlobStore::write(const Data& data, const Uuid& id, std::string_view extension,
                                                      Durability durability) const {
    if (auto error = createPrivateDirectories(root_)) return *error;
    std::string filename = id.uuidString() + "." + std::string(extension);
    if (!isPlainFilename(filename)) return FileError{"not a plain file name: " + filename};
    std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
    if (auto error = writeFileAtomically(root_ / filename, bytes, durability)) return *error;
    return filename;
}

void BlobStore::remove(std::string_view filename) const {
    if (!isPlainFilename(filename)) return;
    ::unlink(url(filename).c_str());
}

std::set<std::string> BlobStore::existingFilenames() const {
    std::set<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator it(root_, error), end; !error && it != end; it.increment(error))
        names.insert(it->path().filename().string());
    if (error) return {};
    return names;
}

int BlobStore::removeOrphans(const std::set<std::string>& keeping) const {
    int orphans = 0;
    for (const std::string& name : existingFilenames()) {
        if (keeping.contains(name)) continue;
        ++orphans;
        remove(name);
    }
    return orphans;
}

}  // namespace tamarind
