// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "engine/batch_run.h"
#include "engine/options.h"
#include "engine/run_model.h"
#include "tests/support/temp_folder.h"

// Runs the real engine with every real source and writer plugged in, as the programs do,
// and keeps the log lines in the order they were written.
namespace qf::test {

engine::RunServices real_services();

// The row admission makes of a file, admitted for real; throws std::runtime_error if it is not.
engine::ListRow admitted_row(const std::filesystem::path& file, const std::string& password = {});

// A row for a file, bypassing admission: for documents that admission would refuse.
engine::ListRow raw_row(const std::filesystem::path& file, int pages);

class RunHarness {
public:
    RunHarness();
    // Prepares and runs to the end on this thread, then lets the pump finish the run; throws
    // std::runtime_error when the run does not end.
    void run(const engine::OptionValues& values, const std::vector<engine::ListRow>& rows);

    engine::BatchRun batch;
    std::vector<std::string> lines; // oldest first, as they came
    engine::PumpTick last_tick;
    std::string statustext; // as the pump has shown it
};

// Options with the output folder and format set; everything else at its default.
engine::OptionValues options_for(const std::filesystem::path& folder, const std::string& format);

} // namespace qf::test
