// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli/cli_options.h"
#include "cli/cli_run.h"
#include "engine/version.h"

int main(int argc, char** argv)
{
    using namespace qf::cli;
    try {
        const CliRequest request = parse_arguments(std::vector<std::string>(argv + 1, argv + argc));
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
