#pragma once
// A fresh folder under the test temp dir, removed with everything in it when the object goes.

#include <filesystem>
#include <string>

namespace tamarind {

class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace tamarind
