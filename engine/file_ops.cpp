// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/file_ops.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/error.h"
#include "engine/path_registry.h"

namespace qf::engine {
namespace {

// The permissions a newly created file gets from the user's umask; mkstemp alone gives 0600.
mode_t file_mode()
{
    static const mode_t mode = [] {
        const mode_t mask = ::umask(022);
        ::umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

} // namespace

std::string storage_failure(int error)
{
    const bool storage = error == EFBIG || error == ENOSPC || error == EDQUOT || error == EIO || error == EROFS;
    return storage ? std::strerror(error) : std::string();
}

std::filesystem::path sibling_temp_name(const std::filesystem::path& target)
{
    const auto folder = target.parent_path().empty() ? std::filesystem::path(".") : target.parent_path();
    std::string pattern = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        throw Error(ErrorKind::Output, std::strerror(errno), target);
    }
    ::fchmod(fd, file_mode());
    ::close(fd);
    register_path(pattern, Removal::File);
    return pattern;
}

std::filesystem::path sibling_temp_folder(const std::filesystem::path& target)
{
    const auto folder = target.parent_path().empty() ? std::filesystem::path(".") : target.parent_path();
    std::string pattern = (folder / ("." + target.filename().string() + ".XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw Error(ErrorKind::Output, std::strerror(errno), target);
    }
    register_path(pattern, Removal::EmptyFolder);
    register_path(std::filesystem::path(pattern) / target.filename(), Removal::File);
    return pattern;
}

void discard_temp_folder(const std::filesystem::path& folder) noexcept
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    unregister_tree(folder);
}

void commit_temp(const std::filesystem::path& temp, const std::filesystem::path& target)
{
    if (::rename(temp.c_str(), target.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        discard_temp(temp);
        throw Error(ErrorKind::Output, reason, target);
    }
    unregister_path(temp);
}

bool commit_temp_if_free(const std::filesystem::path& temp, const std::filesystem::path& target)
{
    if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
        unregister_path(temp);
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
        throw Error(ErrorKind::Output, std::strerror(errno), target);
    }
    // A file system without the flag: a hard link is refused as atomically when the name is
    // taken. Failing that, only a look before the rename is left.
    if (::link(temp.c_str(), target.c_str()) == 0) {
        discard_temp(temp);
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    struct stat existing {};
    if (::lstat(target.c_str(), &existing) == 0) {
        return false;
    }
    commit_temp(temp, target);
    return true;
}

void discard_temp(const std::filesystem::path& temp) noexcept
{
    ::unlink(temp.c_str());
    unregister_path(temp);
}

void write_atomically(const std::filesystem::path& target,
                      const std::function<void(const std::filesystem::path& temp)>& write)
{
    const auto temp = sibling_temp_name(target);
    errno = 0;
    try {
        write(temp);
    } catch (const Error&) {
        const std::string storage = storage_failure(errno);
        discard_temp(temp);
        if (!storage.empty()) {
            throw Error(ErrorKind::Output, storage, target);
        }
        throw;
    } catch (const std::exception& e) {
        const std::string storage = storage_failure(errno);
        discard_temp(temp);
        throw Error(ErrorKind::Output, storage.empty() ? e.what() : storage, target);
    }
    commit_temp(temp, target);
}

void remove_registered_temps() noexcept
{
    remove_registered(Removal::File);
    remove_registered(Removal::EmptyFolder);
}

} // namespace qf::engine
