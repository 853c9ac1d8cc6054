// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/load_loop.h"

#include <filesystem>

#include "app/failure_message.h"
#include "intake/admission.h"
#include "intake/folder_walk.h"
#include "worker/worker_client.h"

namespace qf::app {
namespace fs = std::filesystem;
namespace {

// Admission's questions answered by a reader worker: a file that crashes the reader or holds it
// past the time limit is dropped with that reason, and the load goes on.
intake::DocumentProbes worker_probes(worker::WorkerPool& readers)
{
    intake::DocumentProbes probes;
    probes.pdf = [&readers](const fs::path& file, const std::string& password) {
        const worker::RemotePdfProbe probe = readers.probe_pdf(file, password);
        intake::PdfProbeAnswer answer;
        answer.opened = probe.opened;
        answer.page_count = probe.page_count;
        answer.needs_password = probe.password_refused;
        answer.reader_failed = !probe.failure.empty();
        answer.reason = answer.reader_failed ? probe.failure : probe.reason;
        return answer;
    };
    probes.tiff = [&readers](const fs::path& file) {
        const worker::RemoteTiffProbe probe = readers.probe_tiff(file);
        return intake::TiffProbeAnswer{probe.readable, probe.image_count, probe.tiled, probe.failure};
    };
    return probes;
}

class Loop {
public:
    Loop(const LoadRequest& request, intake::PasswordPrompt& prompt, const LoadListener& listener,
         const std::function<bool()>& cancelled, const intake::DocumentProbes& probes)
        : request_(request), prompt_(prompt), listener_(listener), cancelled_(cancelled), probes_(probes)
    {
        rules_.ask_for_unreadable_pdf = request.ask_for_unreadable_pdf;
        rules_.cancelled = cancelled;
    }

    LoadSummary run()
    {
        for (const std::string& argument : request_.paths) {
            if (is_cancelled()) {
                break;
            }
            load_path(argument);
        }
        summary_.cancelled = is_cancelled();
        summary_.report = intake::rows_added_report(summary_.rows_added);
        return summary_;
    }

private:
    bool is_cancelled() const { return cancelled_ && cancelled_(); }

    void load_path(const std::string& argument)
    {
        std::error_code error;
        const fs::path path = fs::absolute(fs::path(argument), error).lexically_normal();
        if (error || argument.empty()) {
            problem({(argument.empty() ? "\"\"" : argument) + ": no such file or folder"});
            return;
        }
        // A link to nothing is as missing as nothing; a path that cannot be looked at (a folder
        // without permission on the way) goes on to admission, which says why it cannot be read.
        if (request_.report_missing_paths && !fs::exists(path, error) && !error) {
            problem({argument + ": no such file or folder"});
            return;
        }
        if (fs::is_directory(path, error)) {
            const intake::FolderWalk walk = intake::loadrecursive(path, request_.recursive, cancelled_);
            for (const auto& message : walk.messages) {
                problem({message});
            }
            for (const auto& table : walk.tables) {
                for (const auto& candidate : table.candidates) {
                    if (is_cancelled()) {
                        return;
                    }
                    admit(candidate, true);
                }
            }
            return;
        }
        admit({path.string(), path.filename().string()}, false);
    }

    // One candidate a call, so that each row and each refusal is told as it happens; addtolist
    // keeps nothing from one candidate to the next, so the rows are those of one call a folder.
    void admit(const intake::Candidate& candidate, bool in_folder)
    {
        std::vector<engine::ListRow> rows;
        const intake::AdmissionReport report = intake::addtolist({candidate}, rows, prompt_, probes_, {}, rules_);
        for (const auto& row : rows) {
            ++summary_.rows_added;
            if (listener_.row_admitted) {
                listener_.row_admitted(row);
            }
        }
        for (const auto& dropped : report.dropped) {
            if (is_cancelled()) {
                break; // the question was answered by the cancel, not by the user
            }
            if (in_folder && !intake::has_document_extension(dropped.candidate.name)) {
                continue; // a folder's other files are simply not documents
            }
            problem({dropped.candidate.name + " could not be opened: " + dropped.reason,
                     dropped.reason == "cancelled"});
        }
        if (listener_.candidate_done) {
            listener_.candidate_done(static_cast<std::size_t>(summary_.rows_added));
        }
    }

    void problem(const LoadProblem& problem)
    {
        ++summary_.problems;
        if (listener_.problem) {
            listener_.problem(problem);
        }
    }

    const LoadRequest& request_;
    intake::PasswordPrompt& prompt_;
    const LoadListener& listener_;
    const std::function<bool()>& cancelled_;
    const intake::DocumentProbes& probes_;
    intake::AdmissionRules rules_;
    LoadSummary summary_;
};

} // namespace

LoadSummary run_load(const LoadRequest& request, intake::PasswordPrompt& prompt, const LoadListener& listener,
                     const std::function<bool()>& cancelled)
{
    try {
        // One reader worker for the load, started at its first file and ended with it.
        worker::WorkerPool readers(worker::default_worker_settings(1));
        const intake::DocumentProbes probes = worker_probes(readers);
        return Loop(request, prompt, listener, cancelled, probes).run();
    } catch (...) {
        // Admission does not throw for a file's sake; this is memory or a fault of ours.
        LoadSummary summary;
        summary.problems = 1;
        summary.cancelled = true;
        summary.report = intake::rows_added_report(0);
        if (listener.problem) {
            listener.problem({"The load stopped: " + describe_failure(std::current_exception())});
        }
        return summary;
    }
}

} // namespace qf::app
