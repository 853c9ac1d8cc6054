// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/work_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/path_registry.h"

namespace qf::engine {
namespace fs = std::filesystem;
namespace {

// Held locked by a run for as long as it lives, so that a scratch folder whose lock is free was
// left by a run that ended abruptly.
constexpr const char* kLockName = ".lock";

} // namespace

fs::path work_folder()
{
    fs::path data_home;
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && xdg[0] == '/') {
        data_home = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') {
        data_home = fs::path(home) / ".local" / "share";
    } else {
        data_home = fs::temp_directory_path();
    }
    const fs::path folder = data_home / "org.quirefold.extract";
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw Error(ErrorKind::Output, "cannot create the work folder: " + error.message(), folder);
    }
    return folder;
}

ScratchFolder::ScratchFolder()
{
    const fs::path work = work_folder();
    remove_abandoned_scratch(work);
    std::string pattern = (work / "run-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw Error(ErrorKind::Output, std::string("cannot create a scratch folder: ") + std::strerror(errno));
    }
    path_ = pattern;
    register_path(path_, Removal::Tree);
    // The lock is taken before it gets its name, so no other run ever finds it free while this
    // run lives. Kept from programs this one starts (O_CLOEXEC), which could outlive it.
    const fs::path unnamed = path_ / ".lock.new";
    lock_fd_ = ::open(unnamed.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const fs::path named = path_ / kLockName;
    if (lock_fd_ >= 0 &&
        (::flock(lock_fd_, LOCK_EX | LOCK_NB) != 0 || ::rename(unnamed.c_str(), named.c_str()) != 0)) {
        ::close(lock_fd_);
        lock_fd_ = -1;
    }
}

ScratchFolder::ScratchFolder(const fs::path& target) : path_(hidden_scratch_folder(target)) {}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    unregister_path(path_);
    if (lock_fd_ >= 0) {
        ::close(lock_fd_);
    }
}

void remove_abandoned_scratch(const fs::path& work) noexcept
{
    std::error_code error;
    for (fs::directory_iterator it(work, error), end; !error && it != end; it.increment(error)) {
        if (it->path().filename().string().rfind("run-", 0) != 0) {
            continue;
        }
        const int lock = ::open((it->path() / kLockName).c_str(), O_RDONLY | O_CLOEXEC);
        if (lock < 0) {
            continue; // being set up, or not a run's: left alone
        }
        if (::flock(lock, LOCK_EX | LOCK_NB) == 0) {
            std::error_code ignored;
            fs::remove_all(it->path(), ignored);
        }
        ::close(lock);
    }
}

void remove_scratch_folders() noexcept
{
    remove_registered(Removal::Tree);
}

} // namespace qf::engine
