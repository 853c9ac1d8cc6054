// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/cli_run.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <thread>
#include <unistd.h>

#include "app/run_services.h"
#include "cli/terminal.h"
#include "engine/batch_run.h"
#include "engine/file_ops.h"
#include "engine/page_selection.h"
#include "engine/run_log.h"
#include "engine/version.h"
#include "engine/work_folder.h"
#include "intake/admission.h"
#include "intake/folder_walk.h"
#include "settings/profile_file.h"

namespace qf::cli {
namespace fs = std::filesystem;
namespace {

std::atomic<int> g_interrupts{0};

// A first Ctrl-C asks the run to stop after the document under way; a second ends the program
// at once, removing any file still being written and the run's scratch folder.
extern "C" void on_interrupt(int)
{
    if (g_interrupts.fetch_add(1) >= 1) {
        engine::remove_registered_temps();
        engine::remove_scratch_folders();
        constexpr char kMessage[] = "\nStopped at once.\n";
        (void)!::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
        ::_exit(kExitUsage);
    }
}

struct Admission {
    std::vector<engine::ListRow> rows;
    int problems = 0; // files named or found that could not be admitted
};

void print_line(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void report_dropped(const intake::AdmissionReport& report, bool quiet_about_other_files, Admission& admission)
{
    for (const auto& dropped : report.dropped) {
        if (quiet_about_other_files && !intake::has_document_extension(dropped.candidate.name)) {
            continue; // a folder's other files are simply not documents
        }
        std::fprintf(stderr, "%s\n", engine::loggable(dropped.candidate.name + " could not be opened: " + dropped.reason).c_str());
        ++admission.problems;
    }
}

Admission admit(const CliRequest& request)
{
    Admission admission;
    CliPasswordPrompt prompt(request.passwords);
    for (const auto& argument : request.paths) {
        const fs::path path = fs::absolute(fs::path(argument)).lexically_normal();
        std::error_code error;
        if (fs::is_directory(path, error)) {
            const intake::FolderWalk walk = intake::loadrecursive(path, request.recursive);
            for (const auto& message : walk.messages) {
                std::fprintf(stderr, "%s\n", engine::loggable(message).c_str());
                ++admission.problems;
            }
            for (const auto& table : walk.tables) {
                report_dropped(intake::addtolist(table.candidates, admission.rows, prompt), true, admission);
            }
            continue;
        }
        const intake::CandidateTable table{{path.string(), path.filename().string()}};
        report_dropped(intake::addtolist(table, admission.rows, prompt), false, admission);
    }
    return admission;
}

int convert(const CliRequest& request, std::vector<engine::ListRow> rows, int problems)
{
    engine::BatchRun run(app::make_run_services(app::resources_folder()));
    if (request.jobs > 0) {
        run.set_jobs(request.jobs);
    }
    ProgressBar bar;
    std::mutex output;
    run.set_log_listener([&](const engine::LogEvent& event) {
        const std::lock_guard lock(output);
        bar.clear();
        print_line(event.text);
    });
    g_interrupts = 0;
    std::signal(SIGINT, on_interrupt);
    std::signal(SIGTERM, on_interrupt);

    run.preprocesscheck(request.values, rows);
    bool stop_asked = false;
    for (;;) {
        const engine::PumpTick tick = run.Timer1_Action();
        if (g_interrupts > 0 && !stop_asked) {
            stop_asked = true;
            run.stop();
            const std::lock_guard lock(output);
            bar.clear();
            std::fputs("Stopping after the document under way (Ctrl-C again to stop at once)\n", stderr);
        }
        if (tick.ended || !tick.running) {
            break;
        }
        {
            const std::lock_guard lock(output);
            bar.draw(tick.progress, tick.progress_max);
        }
        run.wait_for_worker(std::chrono::milliseconds(100));
    }
    bar.clear();
    print_line("All Done");
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    return (run.failures() > 0 || problems > 0 || stop_asked) ? kExitSomeFailed : kExitAllWritten;
}

} // namespace

int run_conversion(const CliRequest& request)
{
    for (const auto& message : request.messages) {
        print_line(message);
    }
    if (!request.save_profile.empty()) {
        const auto outcome = settings::savetoxml(request.save_profile, request.values);
        (outcome.ok ? print_line(outcome.message) : (void)std::fprintf(stderr, "%s\n", outcome.message.c_str()));
        if (!outcome.ok) {
            return kExitUsage;
        }
        if (request.paths.empty()) {
            return kExitAllWritten;
        }
    }
    if (request.paths.empty()) {
        std::fprintf(stderr, "quirefold-cli: no documents given (see --help)\n");
        return kExitUsage;
    }
    Admission admission = admit(request);
    print_line(intake::rows_added_report(static_cast<int>(admission.rows.size())));
    if (request.pages_given) {
        for (auto& row : admission.rows) {
            row.cells[engine::column::ranges] = engine::checkrange(row.cells[engine::column::pages], request.pages);
        }
    }
    const std::string refusal = engine::BatchRun::start_refusal(admission.rows.size(), request.values);
    if (!refusal.empty()) {
        std::fprintf(stderr, "%s\n", refusal.c_str());
        return admission.problems > 0 ? kExitSomeFailed : kExitUsage;
    }
    return convert(request, std::move(admission.rows), admission.problems);
}

} // namespace qf::cli
