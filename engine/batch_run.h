// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/options.h"
#include "engine/output_naming.h"
#include "engine/run_log.h"
#include "engine/run_model.h"
#include "engine/services.h"

namespace qf::engine {

class ScratchFolder;
class WorkPool;

// What one tick of the pump shows.
struct PumpTick {
    bool running = false;   // a run was under way at this tick
    bool ended = false;     // this tick did the end-of-run handling
    std::string statustext; // the log as shown, newest first; "All Done" on top after the end
    int progress = 0;       // documents finished
    int progress_max = 0;   // documents in the run
};

// The run: document table, option snapshot, flags, log and the worker that walks the
// documents. One object lives as long as its window (or command line) and serves every run:
// the log, ccopyright/cdocumentname and outputname carry over from run to run.
class BatchRun {
public:
    explicit BatchRun(RunServices services);
    ~BatchRun();
    BatchRun(const BatchRun&) = delete;
    BatchRun& operator=(const BatchRun&) = delete;

    // The Start command's checks: a refusal message, or empty when the run may start.
    static std::string start_refusal(std::size_t row_count, const OptionValues& values);

    // preprocesscheck: takes the snapshot, creates the destination folder, builds filelist and
    // starts the worker thread. Returns at once. Does nothing while a run is under way.
    void preprocesscheck(const OptionValues& values, const std::vector<ListRow>& rows);

    // The same preparation without the thread; processall() then runs on the caller's thread.
    void prepare(const OptionValues& values, const std::vector<ListRow>& rows);
    void processall();

    // Stop: honoured before the next document starts.
    void stop() { pleasestop_ = true; }

    // Timer1_Action: the pump, on the thread that owns the object. Shows the log and progress,
    // and does the end-of-run handling once the worker has finished.
    PumpTick Timer1_Action();

    // Pages prepared at once (decoded, rendered) while the run commits them in order; 1 does
    // everything on the worker thread. Output is the same whatever the number.
    void set_jobs(int jobs) { jobs_ = jobs < 1 ? 1 : jobs; }

    // Called on the worker thread for every log line as it is written.
    void set_log_listener(LogListener listener) { log_.set_listener(std::move(listener)); }

    // Waits until the worker has finished or the time is up; true when it has finished.
    bool wait_for_worker(std::chrono::milliseconds timeout);

    bool isrunning() const { return isrunning_; }
    bool boliao() const { return boliao_; }
    int progressb() const { return progressb_; }
    std::string texttoadd() const { return log_.texttoadd(); }
    // Documents and pages of the last run that were skipped or failed.
    int failures() const { return failures_; }
    const OptionSnapshot& snapshot() const { return snapshot_; }
    const std::vector<DocumentRow>& filelist() const { return filelist_; }

private:
    struct Document;   // the document under way
    struct PageWork;   // one page under way

    void run_document(int row);
    PageWork page_at(const Document& doc, int pageindex) const;
    // What naming needs of a page; outputname is the name carried from the pages before.
    NamingRequest naming_request(const Document& doc, const PageWork& page, const std::string& format,
                                 const std::string& outputname) const;
    void run_page(Document& doc, PageWork& page);
    // Decodes, renders or reads one page; touches nothing shared, so it runs on any thread.
    void prepare_page(const Document& doc, PageWork& page) const;
    void output_stage(Document& doc, PageWork& page);
    void pdf_page_end(Document& doc, PageWork& page);
    void document_end(Document& doc);
    // Writes a JPEG, PNG or single-page TIFF page under a temporary name; part of preparing.
    void encode_ahead(const Document& doc, PageWork& page) const;
    void write_picture_file(Document& doc, PageWork& page, bool stamp);
    void save_pdf(Document& doc, std::unique_ptr<PdfAssembler> assembler, bool secure);
    // Makes the folder in which the document's next output is written before it takes its
    // name; `numbered`: that name is never to replace a file.
    void claim_output(Document& doc, bool numbered);
    void drop_claim(Document& doc);
    // Gives the file written in the claim its name: over an earlier file, or for a numbered
    // name the next free number when another program took the name meanwhile. False, with a
    // line, when it cannot.
    bool publish(Document& doc);
    void open_combined_tiff();
    void combined_tail();
    void merge_tail();
    void tiff_tail();
    void stamp(const std::filesystem::path& file);
    void fail(const std::string& line);

    RunServices services_;
    RunLog log_;

    std::vector<DocumentRow> filelist_;
    std::vector<std::filesystem::path> source_paths_;
    std::vector<std::filesystem::path> countlist_;
    OptionSnapshot snapshot_;
    int llistcount_ = -1; // upper row index of filelist

    std::atomic<bool> isrunning_{false};
    std::atomic<bool> pleasestop_{false};
    std::atomic<bool> boliao_{true}; // the worker has finished; end-of-run handling is due
    std::atomic<int> progressb_{0};  // documents finished
    std::atomic<int> failures_{0};
    int totalpage_ = 0; // pages counted into the current output

    // Carried from document to document, and from run to run.
    std::string outputname_;
    std::string ccopyright_;
    std::string cdocumentname_;
    std::string theimageformat_;

    int zoom_ = 1;
    int jobs_ = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    std::unique_ptr<WorkPool> pool_; // prepares pages ahead when there is more than one job
    std::unique_ptr<MultipageTiffWriter> multitiff_;
    std::unique_ptr<Stamper> stamper_;
    std::unique_ptr<ScratchFolder> scratch_;
    std::filesystem::path combined_tiff_path_;
    std::thread worker_;
    std::mutex finished_mutex_;
    std::condition_variable finished_;
};

} // namespace qf::engine
