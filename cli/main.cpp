// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <exception>
#include <malloc.h>
#include <string>
#include <vector>

#include "cli/cli_options.h"
#include "cli/cli_run.h"
#include "engine/version.h"

int main(int argc, char** argv)
{
    using namespace qf::cli;
    // Page buffers are megabytes each: keep freed ones for the next page instead of handing them
    // back to the system and faulting fresh zeroed memory in for every page.
    mallopt(M_MMAP_THRESHOLD, 512 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
    try {
        const CliRequest request = parse_arguments(std::vector<std::string>(argv + 1, argv + argc));
        protect_passwords(request, argc, argv);
        if (request.help) {
            std::fputs(help_text().c_str(), stdout);
            return kExitAllWritten;
        }
        if (request.version) {
            std::printf("quirefold-cli %s\n", qf::engine::kLongVersion);
            return kExitAllWritten;
        }
        return run_conversion(request);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quirefold-cli: %s\n", e.what());
        return kExitUsage;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quirefold-cli: %s\n", e.what());
        return kExitUsage;
    }
}
