// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/work_folder.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

#include "engine/error.h"

namespace qf::engine {
namespace fs = std::filesystem;
namespace {

// Held locked by a run for as long as it lives, so that a scratch folder whose lock is free was
// left by a run that ended abruptly.
constexpr const char* kLockName = ".lock";

constexpr std::size_t kSlots = 8;
constexpr std::size_t kPathMax = 4096;

// The scratch folders alive in this process, where a signal handler can reach them. A slot is
// claimed by a compare-and-swap from 0 to 1, filled, then published as 2.
struct FolderSlot {
    std::atomic<int> state{0};
    char path[kPathMax];
};
std::array<FolderSlot, kSlots> g_live_folders;

void register_folder(const fs::path& folder) noexcept
{
    if (folder.native().size() >= kPathMax) {
        return;
    }
    for (auto& slot : g_live_folders) {
        int expected = 0;
        if (slot.state.compare_exchange_strong(expected, 1)) {
            std::memcpy(slot.path, folder.c_str(), folder.native().size() + 1);
            slot.state.store(2);
            return;
        }
    }
}

void unregister_folder(const fs::path& folder) noexcept
{
    for (auto& slot : g_live_folders) {
        if (slot.state.load() == 2 && folder.native() == slot.path) {
            slot.state.store(0);
            return;
        }
    }
}

struct LinuxDirent64 {
    ino64_t d_ino;
    off64_t d_off;
    unsigned short d_reclen;
    unsigned char d_type;
    char d_name[1];
};

bool is_dot_entry(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Removes `name` in the folder open as `parent`, with what it holds down to `depth` levels,
// using only calls that are safe in a signal handler.
void remove_tree_at(int parent, const char* name, int depth) noexcept
{
    const int folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) {
        ::unlinkat(parent, name, 0);
        return;
    }
    // Entries removed while the folder is read may hide others: read it again until it is empty.
    for (int pass = 0; pass < 4; ++pass) {
        bool removed_any = false;
        ::lseek(folder, 0, SEEK_SET);
        alignas(LinuxDirent64) char buffer[4096];
        for (;;) {
            const long got = ::syscall(SYS_getdents64, folder, buffer, sizeof buffer);
            if (got <= 0) {
                break;
            }
            for (long at = 0; at < got;) {
                const auto* entry = reinterpret_cast<const LinuxDirent64*>(buffer + at);
                at += entry->d_reclen;
                if (is_dot_entry(entry->d_name)) {
                    continue;
                }
                // A folder (also where the file system does not give the entry's type).
                if (::unlinkat(folder, entry->d_name, 0) != 0 && errno == EISDIR && depth > 0) {
                    remove_tree_at(folder, entry->d_name, depth - 1);
                }
                removed_any = true;
            }
        }
        if (!removed_any) {
            break;
        }
    }
    ::close(folder);
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

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
    register_folder(path_);
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

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    unregister_folder(path_);
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
    for (auto& slot : g_live_folders) {
        if (slot.state.load() == 2) {
            remove_tree_at(AT_FDCWD, slot.path, 4);
        }
    }
}

} // namespace qf::engine
