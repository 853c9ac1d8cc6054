// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/folder_walk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <sys/stat.h>
#include <utility>

namespace qf::intake {
namespace {

namespace fs = std::filesystem;

struct Entry {
    std::string name;
    fs::path path;
    bool is_folder = false;
};

class Walker {
public:
    Walker(bool recurse, const std::function<bool()>& cancelled, FolderWalk& result)
        : recurse_(recurse), cancelled_(cancelled), result_(result)
    {
    }

    void walk(const fs::path& folder)
    {
        if (cancelled_ && cancelled_()) {
            return;
        }
        struct stat info {};
        if (::stat(folder.c_str(), &info) != 0) {
            report(folder, std::strerror(errno));
            return;
        }
        if (!visited_.insert({info.st_dev, info.st_ino}).second) {
            return; // reached again through a link
        }
        std::vector<Entry> entries;
        if (!read_entries(folder, entries)) {
            return;
        }
        CandidateTable files;
        for (const Entry& entry : entries) {
            if (entry.is_folder) {
                if (recurse_) {
                    walk(entry.path);
                }
            } else {
                files.push_back({entry.path.string(), entry.name});
            }
        }
        if (!files.empty()) {
            result_.tables.push_back({folder, std::move(files)});
        }
    }

private:
    // The folder's entries sorted by name; false (with a message) when it cannot be listed.
    bool read_entries(const fs::path& folder, std::vector<Entry>& entries)
    {
        std::error_code ec;
        fs::directory_iterator it(folder, ec);
        for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
            std::error_code status_ec;
            // Follows links: a link to a folder is a folder; a dangling link is listed as a file.
            const bool is_folder = it->is_directory(status_ec);
            entries.push_back({it->path().filename().string(), it->path(), is_folder});
        }
        if (ec) {
            report(folder, ec.message());
            return false;
        }
        std::sort(entries.begin(), entries.end(),
                  [](const Entry& a, const Entry& b) { return a.name < b.name; });
        return true;
    }

    void report(const fs::path& folder, std::string reason)
    {
        if (!reason.empty() && reason[0] >= 'A' && reason[0] <= 'Z') {
            reason[0] = static_cast<char>(reason[0] - 'A' + 'a');
        }
        result_.messages.push_back(folder.string() + " could not be read: " + reason);
    }

    bool recurse_;
    const std::function<bool()>& cancelled_;
    FolderWalk& result_;
    std::set<std::pair<dev_t, ino_t>> visited_;
};

} // namespace

FolderWalk loadrecursive(const fs::path& folder, bool recurse, const std::function<bool()>& cancelled)
{
    FolderWalk result;
    Walker(recurse, cancelled, result).walk(folder);
    return result;
}

} // namespace qf::intake
