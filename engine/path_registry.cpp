// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/path_registry.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/syscall.h>
#include <unistd.h>

namespace qf::engine {
namespace {

constexpr std::size_t kPathMax = 4096;

// A slot is claimed by a compare-and-swap from 0 to 1, filled, then published as 2. Slots come
// in blocks chained one after the other; a block, once linked, stays for the life of the
// process, so that a signal handler can walk the chain at any moment without a lock.
struct Slot {
    std::atomic<int> state{0};
    Removal removal = Removal::File;
    char path[kPathMax];
};

struct Block {
    std::array<Slot, 32> slots;
    std::atomic<Block*> next{nullptr};
};

Block g_first;

bool claim_in(Block& block, const std::string& text, Removal removal) noexcept
{
    for (auto& slot : block.slots) {
        int expected = 0;
        if (slot.state.compare_exchange_strong(expected, 1)) {
            std::memcpy(slot.path, text.c_str(), text.size() + 1);
            slot.removal = removal;
            slot.state.store(2);
            return true;
        }
    }
    return false;
}

template <typename Visit>
void for_each_published(Visit visit) noexcept
{
    for (Block* block = &g_first; block != nullptr; block = block->next.load()) {
        for (auto& slot : block->slots) {
            if (slot.state.load() == 2) {
                if (!visit(slot)) {
                    return;
                }
            }
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

void register_path(const std::filesystem::path& path, Removal removal) noexcept
{
    const std::string& text = path.native();
    if (text.size() >= kPathMax) {
        return;
    }
    Block* block = &g_first;
    while (!claim_in(*block, text, removal)) {
        Block* next = block->next.load();
        if (next == nullptr) {
            Block* fresh = new (std::nothrow) Block;
            if (fresh == nullptr) {
                return;
            }
            if (block->next.compare_exchange_strong(next, fresh)) {
                next = fresh;
            } else {
                delete fresh; // another thread linked one first: `next` names it now
            }
        }
        block = next;
    }
}

void unregister_path(const std::filesystem::path& path) noexcept
{
    for_each_published([&](Slot& slot) {
        if (path.native() == slot.path) {
            slot.state.store(0);
            return false;
        }
        return true;
    });
}

void unregister_tree(const std::filesystem::path& folder) noexcept
{
    const std::string& text = folder.native();
    for_each_published([&](Slot& slot) {
        const bool inside = std::strncmp(slot.path, text.c_str(), text.size()) == 0 &&
                            (slot.path[text.size()] == '\0' || slot.path[text.size()] == '/');
        if (inside) {
            slot.state.store(0);
        }
        return true;
    });
}

void remove_registered(Removal removal) noexcept
{
    for_each_published([&](Slot& slot) {
        if (slot.removal == removal) {
            switch (removal) {
            case Removal::File:
                ::unlink(slot.path);
                break;
            case Removal::EmptyFolder:
                ::rmdir(slot.path);
                break;
            case Removal::Tree:
                remove_tree_at(AT_FDCWD, slot.path, 4);
                break;
            }
        }
        return true;
    });
}

} // namespace qf::engine
