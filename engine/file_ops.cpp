// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/file_ops.h"

#include <cerrno>
#include <cstdio>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <system_error>
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

// Every temporary beside a target starts with this and its owner's process id, so that a later
// run recognises the ones a run killed outright left, and never touches a file of anyone else.
constexpr std::string_view kScratchPrefix = ".quirefold-";
constexpr std::size_t kNameMax = 255;
constexpr std::size_t kRandomPart = 7; // ".XXXXXX"

// The process id of a temporary's owner, or 0 when the name is not one of ours.
pid_t owner_of(const std::string& name)
{
    if (name.compare(0, kScratchPrefix.size(), kScratchPrefix) != 0 ||
        name.size() < kScratchPrefix.size() + 2 + kRandomPart || name[name.size() - kRandomPart] != '.') {
        return 0;
    }
    long long pid = 0;
    std::size_t at = kScratchPrefix.size();
    for (; at < name.size() && name[at] >= '0' && name[at] <= '9' && pid < 100000000; ++at) {
        pid = pid * 10 + (name[at] - '0');
    }
    if (at == kScratchPrefix.size() || at >= name.size() || name[at] != '-') {
        return 0;
    }
    return static_cast<pid_t>(pid);
}

bool is_alive(pid_t pid)
{
    return pid == ::getpid() || ::kill(pid, 0) == 0 || errno == EPERM;
}

// Once per folder and process, before the first temporary goes there.
void sweep_once(const std::filesystem::path& folder)
{
    static std::mutex mutex;
    static std::set<std::string> swept;
    {
        const std::lock_guard lock(mutex);
        if (!swept.insert(folder.lexically_normal().string()).second) {
            return;
        }
    }
    remove_abandoned_temps(folder);
}

// "folder/.quirefold-PID-NAME.XXXXXX" for mkstemp or mkdtemp; NAME is shortened (at a whole
// character) when the whole would be longer than a file name may be.
std::string temp_pattern(const std::filesystem::path& target)
{
    const auto folder = target.parent_path().empty() ? std::filesystem::path(".") : target.parent_path();
    sweep_once(folder);
    const std::string head = std::string(kScratchPrefix) + std::to_string(::getpid()) + "-";
    std::string name = target.filename().string();
    if (head.size() + name.size() + kRandomPart > kNameMax) {
        name.resize(kNameMax - head.size() - kRandomPart);
        while (!name.empty() && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80) {
            name.pop_back();
        }
        if (!name.empty() && static_cast<unsigned char>(name.back()) >= 0xC0) {
            name.pop_back();
        }
    }
    return (folder / (head + name + ".XXXXXX")).string();
}

} // namespace

void remove_abandoned_temps(const std::filesystem::path& folder) noexcept
{
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const pid_t owner = owner_of(it->path().filename().string());
        if (owner > 0 && !is_alive(owner)) {
            std::error_code ignored;
            std::filesystem::remove_all(it->path(), ignored);
        }
    }
}

std::filesystem::path hidden_scratch_folder(const std::filesystem::path& target)
{
    std::string pattern = temp_pattern(target);
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw Error(ErrorKind::Output, std::strerror(errno), target);
    }
    register_path(pattern, Removal::Tree);
    return pattern;
}

std::string storage_failure(int error)
{
    const bool storage = error == EFBIG || error == ENOSPC || error == EDQUOT || error == EIO || error == EROFS;
    return storage ? std::strerror(error) : std::string();
}

std::filesystem::path sibling_temp_name(const std::filesystem::path& target)
{
    std::string pattern = temp_pattern(target);
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
    std::string pattern = temp_pattern(target);
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
