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
#include <utility>
#include <vector>

#include "engine/options.h"
#include "engine/output_naming.h"
#include "engine/run_events.h"
#include "engine/run_log.h"
#include "engine/run_model.h"
#include "engine/services.h"

namespace qf::engine {

class ScratchFolder;
class WorkPool;

// What the shown status text is to become at one tick of the pump.
struct StatusChange {
    bool whole = false;         // `text` replaces what is shown
    bool drop_all_done = false; // first take away the "All Done" line the last run's end put on top
    std::string text;           // to put in front of what is shown; newest first, lines ending in "\n"
};

// The status text a front end shows after a change: texttoadd, with "All Done" on top once a
// run has ended, until the next run.
void apply(const StatusChange& change, std::string& shown);

// What one tick of the pump shows.
struct PumpTick {
    bool running = false;        // a run was under way at this tick
    bool ended = false;          // this tick did the end-of-run handling
    bool status_changed = false; // false: the shown text stays as it is
    StatusChange status;
    int progress = 0;            // documents finished
    int progress_max = 0;        // documents in the run
};

// The run: document table, option snapshot, flags, log and the walk over the documents. One
// object lives as long as its window (or command line) and serves every run: the log,
// ccopyright/cdocumentname and outputname carry over from run to run. It runs on the thread
// that calls processall(); RunSession gives it a worker thread.
class BatchRun {
public:
    explicit BatchRun(RunServices services);
    ~BatchRun();
    BatchRun(const BatchRun&) = delete;
    BatchRun& operator=(const BatchRun&) = delete;

    // The Start command's checks: a refusal message, or empty when the run may start.
    static std::string start_refusal(std::size_t row_count, const OptionValues& values);

    // The preparation of preprocesscheck: takes the snapshot, creates the destination folder
    // and builds filelist. processall() then walks the documents on the caller's thread.
    void prepare(const OptionValues& values, const std::vector<ListRow>& rows);
    // Never throws; whatever happens, boliao is set at its end.
    void processall() noexcept;

    // Stop: honoured before the next document starts; the document under way runs through
    // all its selected pages.
    void stop() { pleasestop_ = true; }
    // Abort: a stop that also abandons the page under way. The document under way delivers
    // nothing more, and no output is left half-written.
    void abort();
    bool aborted() const { return aborted_; }

    // Timer1_Action: the pump, on the thread that owns the object. Hands over what is new in
    // the log since its last tick, and does the end-of-run handling once the worker has finished.
    PumpTick Timer1_Action();

    // Pages prepared at once (decoded, rendered) while the run commits them in order; 1 does
    // everything on the worker thread. Output is the same whatever the number.
    void set_jobs(int jobs) { jobs_ = jobs < 1 ? 1 : jobs; }

    // Every event of the run, log lines and progress, on the worker thread as they happen.
    // Setting another waits for a call under way.
    void set_listener(RunListener listener) { log_.set_listener(std::move(listener)); }

    // Waits until the worker has finished or the time is up; true when it has finished.
    bool wait_for_worker(std::chrono::milliseconds timeout);

    bool isrunning() const { return isrunning_; }
    bool boliao() const { return boliao_; }
    int progressb() const { return progressb_; }
    // The whole log, newest first.
    std::string texttoadd() const { return log_.texttoadd(); }
    // The run's scratch folder while it works; empty otherwise.
    std::filesystem::path scratch_path() const;
    // Documents and pages of the last run that were skipped or failed.
    int failures() const { return failures_; }
    const OptionSnapshot& snapshot() const { return snapshot_; }
    const std::vector<DocumentRow>& filelist() const { return filelist_; }

private:
    struct Document;   // the document under way
    struct PageWork;   // one page under way

    void walk_documents();
    void run_document(int row);
    // Settles what the document's pages need; false, with a line, when it cannot be processed.
    bool open_document(Document& doc);
    // Tells the services which PDF comes after `row`, for a document's own PDF.
    void read_ahead_after(int row);
    // Prepares pages ahead, a bounded number at a time, and commits them in selection order.
    void walk_pages(Document& doc);
    // What is left of a document when an abort or an unexpected error ends it: nothing of its
    // output stays.
    void abandon_document(Document& doc);
    PageWork page_at(const Document& doc, int pageindex) const;
    // What naming needs of a page; outputname is the name carried from the pages before.
    NamingRequest naming_request(const Document& doc, const PageWork& page, OutputFormat format,
                                 const std::string& outputname) const;
    void run_page(Document& doc, PageWork& page);
    // outputname and outputpath of the page, the claim on its output and the open step.
    void name_page(Document& doc, const PageWork& page);
    void add_to_pdf(Document& doc, PageWork& page);
    // Decodes, renders or reads one page; touches nothing shared, so it runs on any thread.
    void prepare_page(const Document& doc, PageWork& page) const;
    void output_stage(Document& doc, PageWork& page);
    void add_to_multipage_tiff(Document& doc, PageWork& page);
    void close_document_tiff(Document& doc);
    void save_text(Document& doc);
    void pdf_page_end(Document& doc, PageWork& page);
    void document_end(Document& doc);
    // Writes a JPEG, PNG or single-page TIFF page under a temporary name; part of preparing.
    void encode_ahead(const Document& doc, PageWork& page) const;
    void write_picture_file(Document& doc, PageWork& page, bool stamp);
    void save_pdf(Document& doc, std::unique_ptr<PdfAssembler> assembler, bool secure);
    void log_pdf_notes(const Document& doc, const std::vector<std::string>& notes,
                       const std::vector<std::string>& extra, const std::string& written_name);
    // Makes the folder in which the document's next output is written before it takes its
    // name; `numbered`: that name is never to replace a file.
    void claim_output(Document& doc, bool numbered);
    void drop_claim(Document& doc);
    // Gives the file written in the claim its name: over an earlier file, or for a numbered
    // name the next free number when another program took the name meanwhile. False, with a
    // line, when it cannot.
    bool publish(Document& doc);
    // The next free numbered name for the document's output, which another program took.
    void renumber(Document& doc);
    void open_combined_tiff();
    void combined_tail();
    void merge_tail();
    // Merges and secures into a private folder beside `combinedpath`, then gives the file its
    // name; false, with a line, when it cannot.
    // A numbered name is given only if no file has it when the merged file takes it.
    bool merge_into(const std::vector<std::filesystem::path>& finished, std::filesystem::path combinedpath,
                    std::string combinedname, bool numbered);
    void tiff_tail();
    // The combined PDF's path and the name its lines give, before any numbering.
    std::pair<std::filesystem::path, std::string> combined_pdf_path() const;
    // False, with a line, when the combined file's name holds a folder.
    bool combined_name_usable();
    // The run's scratch folder: in the work folder, else (for a combined PDF run, which keeps
    // its documents' files there) hidden beside the combined file. False, with one line, when
    // a combined PDF run can have neither.
    bool make_scratch();
    void stamp(const std::filesystem::path& file);

    // The log: each line goes out with its event.
    RunEvent about(RunEventKind kind, const Document* doc, int page = 0) const;
    void say(RunEvent event, std::string line);
    void fail(RunEvent event, const std::string& reason, std::string line);
    void fail_open(const Document& doc, const std::string& reason);
    void fail_page(const Document& doc, int pageno, const std::string& reason);
    // "OUTPUTNAME could not be saved: REASON" for the document's output (or the run's).
    void fail_save(const Document* doc, const std::string& name, const std::string& reason);

    RunServices services_;
    RunLog log_;

    std::vector<DocumentRow> filelist_;
    std::vector<std::filesystem::path> source_paths_;
    std::vector<std::filesystem::path> countlist_;
    OptionSnapshot snapshot_;
    int llistcount_ = -1; // upper row index of filelist

    std::atomic<bool> isrunning_{false};
    std::atomic<bool> pleasestop_{false};
    std::atomic<bool> aborted_{false};
    std::atomic<int> abort_flag_{0}; // handed to the page sources: 1 abandons the page
    std::atomic<bool> boliao_{true}; // the worker has finished; end-of-run handling is due
    std::atomic<int> progressb_{0};  // documents finished
    std::atomic<int> failures_{0};
    int totalpage_ = 0; // pages counted into the current output
    bool part_written_ = false; // a combined run's first part has been written

    // Carried from document to document, and from run to run.
    std::string outputname_;
    std::string ccopyright_;
    std::string cdocumentname_;
    OutputFormat theimageformat_ = OutputFormat::PdfMultipage; // the last page's copy of mformat

    int zoom_ = 1;
    int jobs_ = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    std::unique_ptr<WorkPool> pool_; // prepares pages ahead when there is more than one job
    std::unique_ptr<MultipageTiffWriter> multitiff_;
    std::unique_ptr<Stamper> stamper_;
    std::unique_ptr<ScratchFolder> scratch_;
    std::filesystem::path combined_tiff_path_;
    std::uint64_t shown_version_ = 0; // the log's version at the pump's last tick
    bool all_done_shown_ = false;     // the last run's end put "All Done" on top
    mutable std::mutex scratch_mutex_;
    std::mutex finished_mutex_;
    std::condition_variable finished_;
};

// A run as commands and events: commands go in (start, stop, abort, shutdown), events come out
// through one listener, and the pump reads the status. The run works on a thread of its own.
// Callers see nothing of where the run works, so it can move into another process.
class RunSession {
public:
    explicit RunSession(RunServices services);
    ~RunSession(); // shutdown() with the default wait
    RunSession(const RunSession&) = delete;
    RunSession& operator=(const RunSession&) = delete;

    // preprocesscheck: takes the snapshot, builds filelist and starts the worker. Returns at
    // once. Does nothing while a run is under way.
    void start(const OptionValues& values, const std::vector<ListRow>& rows);
    // The Stop command, however often: the run ends before the next document.
    void stop();
    // Quitting: the run ends before the next page, the page under way is abandoned and its
    // document delivers nothing more.
    void abort();
    // Aborts a run under way and waits for it at most `wait`. A worker still busy after that is
    // left to finish on its own, its scratch folder removed and its events no longer delivered;
    // until it ends, temporaries of its own may stand beside the outputs, so a program that
    // exits then removes them with remove_registered_temps(). Returns true when the worker had
    // finished. Never throws.
    bool shutdown(std::chrono::milliseconds wait = std::chrono::seconds(5)) noexcept;

    // Every event of the run, on a thread of the run's, never the caller's. Once this returns,
    // a listener it replaced is not called again.
    void set_listener(RunListener listener);
    void set_jobs(int jobs) { run_->set_jobs(jobs); }

    // The pump, on the caller's thread.
    PumpTick Timer1_Action();
    bool wait_for_worker(std::chrono::milliseconds timeout) { return run_->wait_for_worker(timeout); }

    bool isrunning() const { return run_->isrunning(); }
    int progressb() const { return run_->progressb(); }
    int failures() const { return run_->failures(); }
    std::string texttoadd() const { return run_->texttoadd(); }

private:
    std::shared_ptr<BatchRun> run_; // shared with the worker, which may outlive a shutdown
    std::thread worker_;
};

} // namespace qf::engine
