// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/file_ops.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/error.h"

namespace qf::engine {
namespace {

constexpr std::size_t kSlots = 64;
constexpr std::size_t kPathMax = 4096;

// A slot is claimed by a compare-and-swap from 0 to 1, filled, then published as 2.
struct TempSlot {
    std::atomic<int> state{0};
    char path[kPathMax];
};
std::array<TempSlot, kSlots> g_slots;

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

void register_temp(const std::filesystem::path& temp) noexcept
{
    const std::string& text = temp.native();
    if (text.size() >= kPathMax) {
        return;
    }
    for (auto& slot : g_slots) {
        int expected = 0;
        if (slot.state.compare_exchange_strong(expected, 1)) {
            std::memcpy(slot.path, text.c_str(), text.size() + 1);
            slot.state.store(2);
            return;
        }
    }
}

void unregister_temp(const std::filesystem::path& temp) noexcept
{
    for (auto& slot : g_slots) {
        if (slot.state.load() == 2 && temp.native() == slot.path) {
            slot.state.store(0);
            return;
        }
    }
}

} // namespace

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
    register_temp(pattern);
    return pattern;
}

void commit_temp(const std::filesystem::path& temp, const std::filesystem::path& target)
{
    if (::rename(temp.c_str(), target.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        discard_temp(temp);
        throw Error(ErrorKind::Output, reason, target);
    }
    unregister_temp(temp);
}

void discard_temp(const std::filesystem::path& temp) noexcept
{
    ::unlink(temp.c_str());
    unregister_temp(temp);
}

void write_atomically(const std::filesystem::path& target,
                      const std::function<void(const std::filesystem::path& temp)>& write)
{
    const auto temp = sibling_temp_name(target);
    try {
        write(temp);
    } catch (const Error&) {
        discard_temp(temp);
        throw;
    } catch (const std::exception& e) {
        discard_temp(temp);
        throw Error(ErrorKind::Output, e.what(), target);
    }
    commit_temp(temp, target);
}

void remove_registered_temps() noexcept
{
    for (auto& slot : g_slots) {
        if (slot.state.load() == 2) {
            ::unlink(slot.path);
        }
    }
}

} // namespace qf::engine
