// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/cli_run.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <variant>

#include <unistd.h>

#include "app/interrupt.h"
#include "app/loader.h"
#include "app/run_services.h"
#include "cli/terminal.h"
#include "engine/batch_run.h"
#include "engine/page_selection.h"
#include "engine/run_log.h"
#include "intake/admission.h"
#include "settings/profile_file.h"

namespace qf::cli {
namespace {

constexpr std::chrono::milliseconds kPollPeriod{100};
constexpr const char* kStoppedAtOnce = "\nStopped at once.\n";

// Ends the program after a second Ctrl-C: files still being written and the run's scratch
// folder go, the terminal echoes again.
[[noreturn]] void end_at_once()
{
    std::fflush(stdout);
    app::remove_unfinished_files();
    restore_terminal();
    std::fputs(kStoppedAtOnce, stderr);
    std::fflush(stderr);
    std::_Exit(kExitUsage);
}

// A second Ctrl-C during a run aborts the page under way and waits a little for the run to
// give way before the program ends.
[[noreturn]] void stop_at_once(engine::RunSession& run)
{
    run.shutdown(std::chrono::seconds(2));
    end_at_once();
}

struct Admission {
    std::vector<engine::ListRow> rows;
    std::string report; // "N Images added to the list"
    int problems = 0;   // files named or found that could not be admitted
    bool interrupted = false;
};

void print_line(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// A line of the run's log: at once to a terminal; into a pipe or a file in blocks, flushed at
// every poll of the run, so at most a poll period late (a write a line was a twentieth of a
// 20,000-page run). Whatever goes to standard error meanwhile flushes it first.
void print_run_line(const std::string& line)
{
    static const bool terminal = ::isatty(::fileno(stdout)) != 0;
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    if (terminal) {
        std::fflush(stdout);
    }
}

void print_problem(const std::string& line)
{
    std::fprintf(stderr, "%s\n", engine::loggable(line).c_str());
}

// Loads the paths on the loader's thread; password questions are answered here, from the
// passwords given and the terminal. A Ctrl-C ends the load.
Admission admit(const CliRequest& request)
{
    app::LoadRequest load;
    load.paths = request.paths;
    load.recursive = request.recursive;
    load.ask_for_unreadable_pdf = false; // no password typed here would make it readable
    load.report_missing_paths = true;
    app::Loader loader;
    loader.send(load);
    CliPasswordPrompt prompt(request.passwords);
    Admission admission;
    bool cancel_sent = false;
    for (;;) {
        if (app::interrupt_count() > 1) {
            end_at_once();
        }
        if (app::interrupt_count() > 0 && !cancel_sent) {
            loader.send(app::CancelLoad{});
            cancel_sent = true;
        }
        std::optional<app::LoaderEvent> event = loader.next_event(kPollPeriod);
        if (!event) {
            continue;
        }
        if (auto* admitted = std::get_if<app::RowAdmitted>(&*event)) {
            admission.rows.push_back(std::move(admitted->row));
        } else if (auto* problem = std::get_if<app::ProblemLine>(&*event)) {
            print_problem(problem->line);
        } else if (auto* question = std::get_if<app::PasswordAsked>(&*event)) {
            const intake::PromptAnswer answer = prompt.ask(question->prompt_text, question->file_name);
            loader.send(app::AnswerPassword{question->question, answer});
        } else if (auto* finished = std::get_if<app::LoadFinished>(&*event)) {
            admission.report = finished->summary.report;
            admission.problems = finished->summary.problems;
            admission.interrupted = finished->summary.cancelled;
            return admission;
        }
    }
}

// The status of a finished run: 3 when anything asked for is missing, whether it failed, was
// passed over, or was never reached because the run was stopped.
int run_status(const engine::RunSession& run, std::size_t documents, int problems)
{
    const bool all_reached = static_cast<std::size_t>(run.progressb()) >= documents;
    return (run.failures() > 0 || problems > 0 || !all_reached) ? kExitSomeFailed : kExitAllWritten;
}

int convert(const CliRequest& request, const std::filesystem::path& resources,
            const std::vector<engine::ListRow>& rows, int problems)
{
    engine::RunSession run(app::make_run_services(resources, request.jobs));
    if (request.jobs > 0) {
        run.set_jobs(request.jobs);
    }
    ProgressBar bar;
    std::mutex output;
    run.set_listener([&](const engine::RunEvent& event) {
        if (event.kind == engine::RunEventKind::PageDone) {
            const std::lock_guard lock(output);
            bar.set_pages(event.pages_done, event.pages_total);
            return;
        }
        if (event.line.empty()) {
            return;
        }
        const std::lock_guard lock(output);
        bar.clear();
        print_run_line(event.line);
    });
    run.start(request.values, rows);
    bool stop_asked = false;
    for (;;) {
        const engine::PumpTick tick = run.Timer1_Action();
        if (app::interrupt_count() > 0 && !stop_asked) {
            stop_asked = true;
            run.stop();
            const std::lock_guard lock(output);
            bar.clear();
            std::fflush(stdout);
            std::fputs("Stopping after the document under way (Ctrl-C again to stop at once)\n", stderr);
        }
        if (app::interrupt_count() > 1) {
            stop_at_once(run);
        }
        if (tick.ended || !tick.running) {
            break;
        }
        {
            const std::lock_guard lock(output);
            std::fflush(stdout);
            bar.draw(tick.progress, tick.progress_max);
        }
        run.wait_for_worker(kPollPeriod);
    }
    bar.clear();
    print_line("All Done");
    return run_status(run, rows.size(), problems);
}

int load_and_convert(const CliRequest& request, const app::Startup& startup)
{
    Admission admission = admit(request);
    if (admission.interrupted) {
        std::fputs("Stopped while loading; nothing was converted\n", stderr);
        return kExitSomeFailed;
    }
    print_line(admission.report);
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
    return convert(request, startup.resources, admission.rows, admission.problems);
}

} // namespace

int run_conversion(const CliRequest& request, const app::Startup& startup)
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
    // A first Ctrl-C stops loading, or the run after the document under way; a second ends the
    // program at once (the loops here give the run a moment to give way), and should that not
    // come, a third ends it from the handler, removing files being written and the run's
    // scratch folder.
    app::catch_interrupts({.message = kStoppedAtOnce,
                           .exit_status = kExitUsage,
                           .before_exit = restore_terminal,
                           .exit_at = 3});
    const int status = load_and_convert(request, startup);
    app::release_interrupts();
    return status;
}

} // namespace qf::cli
