// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/startup.h"
#include "cli/cli_options.h"

namespace qf::cli {

inline constexpr int kExitAllWritten = 0;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitSomeFailed = 3;

// Admits the documents named by the request, runs the conversion and prints the log, oldest
// line first, on standard output. Returns the exit status.
int run_conversion(const CliRequest& request, const app::Startup& startup);

} // namespace qf::cli
