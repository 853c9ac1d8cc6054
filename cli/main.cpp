// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "app/failure_message.h"
#include "app/startup.h"
#include "cli/cli_options.h"
#include "cli/cli_run.h"
#include "engine/version.h"

namespace {

// Ends the program once a run has ended: every file is written and committed and the run torn
// down. Whatever is still being freed in the background (a merge's parsed inputs) goes back to
// the system with the process rather than being taken apart first. A build that looks for
// leaks ends normally, so that its check runs.
[[noreturn]] void end_after_run(int status)
{
    std::fflush(nullptr);
#if defined(__SANITIZE_ADDRESS__)
    std::exit(status);
#else
    std::_Exit(status);
#endif
}

} // namespace

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
        end_after_run(run_conversion(request, qf::app::start_up()));
    } catch (const UsageError& e) {
        std::fprintf(stderr, "quirefold-cli: %s\n", e.what());
        return kExitUsage;
    } catch (...) {
        std::fprintf(stderr, "quirefold-cli: %s\n", qf::app::describe_failure(std::current_exception()).c_str());
        return kExitUsage;
    }
}
