#include "foundation/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tamarind {

namespace {

FileError systemError(std::string_view what, const std::filesystem::path& path, int error) {
    return FileError{std::string(what) + " " + path.string() + ": " + std::strerror(error)};
}

}  // namespace

std::optional<FileError> createPrivateDirectories(const std::filesystem::path& folder) {
    std::filesystem::path current;
    for (const auto& part : folder) {
        current /= part;
        if (::mkdir(current.c_str(), 0700) == 0 || errno == EEXIST) continue;
        return systemError("mkdir", current, errno);
    }
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) return systemError("stat", folder, errno);
    if (!S_ISDIR(status.st_mode)) return systemError("mkdir", folder, ENOTDIR);
    return std::nullopt;
}

namespace {

void syncFolderOf(const std::filesystem::path& path) {
    // A rename is only durable once the folder itself is on disk.
    std::filesystem::path parent = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    int folder = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
}

}  // namespace

std::optional<FileError> syncToDisk(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return systemError("open", path, errno);
    int synced = ::fsync(fd);
    int error = errno;
    ::close(fd);
    if (synced != 0) return systemError("fsync", path, error);
    syncFolderOf(path);
    return std::nullopt;
}

std::optional<FileError> writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                                             Durability durability) {
    std::string temporary = path.string() + ".tmp-XXXXXX";
    int fd = ::mkstemp(temporary.data());
    if (fd < 0) return systemError("create", temporary, errno);
    auto fail = [&](std::string_view what, const std::filesystem::path& subject) {
        int error = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        return systemError(what, subject, error);
    };
    if (::fchmod(fd, 0600) != 0) return fail("chmod", temporary);
    std::size_t written = 0;
    while (written < contents.size()) {
        ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            return fail("write", temporary);
        }
        written += static_cast<std::size_t>(n);
    }
    if (durability == Durability::now && ::fsync(fd) != 0) return fail("fsync", temporary);
    if (::close(fd) != 0) {
        int error = errno;
        ::unlink(temporary.c_str());
        return systemError("close", temporary, error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        int error = errno;
        ::unlink(temporary.c_str());
        return systemError("rename", path, error);
    }
    if (durability == Durability::now) syncFolderOf(path);
    return std::nullopt;
}

FileContents readWholeFile(const std::filesystem::path& path) {
    FileContents result;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        result.notFound = errno == ENOENT;
        result.error = systemError("open", path, errno);
        return result;
    }
    std::string bytes;
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            result.error = systemError("read", path, errno);
            ::close(fd);
            return result;
        }
        if (n == 0) break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    result.bytes = std::move(bytes);
    return result;
}

}  // namespace tamarind
