// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/startup.h"

#include <csignal>
#include <malloc.h>
#include <system_error>

#include "engine/program_location.h"
#include "engine/work_folder.h"

namespace qf::app {
namespace fs = std::filesystem;
namespace {

// Page buffers are megabytes each: keep freed ones for the next page instead of handing them
// back to the system and faulting fresh zeroed memory in for every page.
void tune_allocator()
{
    mallopt(M_MMAP_THRESHOLD, 512 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
}

} // namespace

void ignore_file_size_signal()
{
    // Past a file size limit the write then fails with EFBIG ("File too large") and the run
    // reports it, instead of the program being killed without a word. Programs started later
    // (the page readers) inherit it.
    std::signal(SIGXFSZ, SIG_IGN);
}

fs::path resources_folder()
{
    std::error_code error;
    const fs::path installed = engine::program_file().parent_path().parent_path() / "share" / "quirefold";
    if (fs::is_directory(installed, error) || !engine::runs_from_build_tree()) {
        return installed;
    }
    return QF_SOURCE_RESOURCES;
}

Startup start_up()
{
    ignore_file_size_signal();
    tune_allocator();
    Startup startup;
    startup.work_folder = engine::work_folder();
    engine::remove_abandoned_scratch(startup.work_folder);
    startup.resources = resources_folder();
    return startup;
}

} // namespace qf::app
