// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/cli_services.h"

#include <system_error>
#include <unistd.h>

#include "sources/pdf_source.h"
#include "sources/tiff_source.h"

namespace qf::cli {
namespace fs = std::filesystem;

fs::path resources_folder()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        const fs::path installed = program.parent_path().parent_path() / "share" / "quirefold";
        if (fs::is_directory(installed, error)) {
            return installed;
        }
    }
    return QF_SOURCE_RESOURCES;
}

engine::RunServices make_run_services(const fs::path&)
{
    engine::RunServices services;
    services.open_tiff = sources::open_tiff_source;
    services.open_pdf = sources::open_pdf_source;
    return services;
}

} // namespace qf::cli
