// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "app/failure_message.h"
#include "app/startup.h"
#include "cli/cli_options.h"
#include "cli/cli_run.h"
#include "engine/version.h"

int main(int argc, char** argv)
{
    using namespace qf::cli;
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
        return run_conversion(request, qf::app::start_up());
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quirefold-cli: %s\n", e.what());
        return kExitUsage;
    } catch (...) {
        std::fprintf(stderr, "quirefold-cli: %s\n", qf::app::describe_failure(std::current_exception()).c_str());
        return kExitUsage;
    }
}
