#pragma once
// Large payloads (full images) as flat files in one folder, out of the
// database, so that lists never read them. A plain value naming the folder.
// Any thread; each call stands alone.

#include <filesystem>
#include <set>
#include <string>
#include <variant>

#include "foundation/Data.h"
#include "foundation/Files.h"
#include "foundation/Uuid.h"

namespace tamarind {

class BlobStore {
public:
    explicit BlobStore(std::filesystem::path root) : root_(std::move(root)) {}

    const std::filesystem::path& root() const { return root_; }

    // Writes "<UUID>.<extension>" atomically, 0600, creating the folder (0700)
    // when needed. The name, or the error that stopped the write.
    std::variant<std::string, FileError> write(const Data& data, const Uuid& id, std::string_view extension,
                                               Durability durability = Durability::now) const;
    std::filesystem::path url(std::string_view filename) const { return root_ / filename; }
    // A failure (a file already gone, a name that is not a plain file name) is not an error.
    void remove(std::string_view filename) const;
    // Empty when the folder can't be listed.
    std::set<std::string> existingFilenames() const;
    // Removes each file whose name is not kept, going on past failures; returns
    // how many names were not kept.
    int removeOrphans(const std::set<std::string>& keeping) const;

private:
    std::filesystem::path root_;
};

}  // namespace tamarind
