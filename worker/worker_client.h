// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

#include "worker/channel.h"
#include "worker/protocol.h"

// The main process's side of the reader workers: each untrusted document is read in a helper
// process (quirefold-worker), so that a reader that crashes, hangs or swells takes only that
// process down. A crashed, overrunning or swollen worker is killed and a fresh one started for
// the next request; the request that was under way fails with a reason for the log line.
namespace qf::worker {

struct WorkerSettings {
    std::filesystem::path program;  // the worker executable
    int workers = 1;                // job slots: at most this many requests at once
    // The longest one request may take. The worker abandons a PDF page itself at this limit
    // where the PDF reader listens; past it and a grace second, the worker is killed.
    std::chrono::milliseconds time_limit{120'000};
    std::size_t memory_limit_mb = 0; // per worker: the PDF reader's ceiling; 0 for none
    // The address-space data limit (RLIMIT_DATA) of each worker in MiB, 0 for none. It
    // stops what the PDF reader's own ceiling does not count (TIFF decoding, libraries'
    // own allocations); it has to leave room for the largest picture besides.
    std::size_t data_limit_mb = 0;
};

// The settings of a run with `workers` job slots: the worker beside the running program, two
// minutes a request (QUIREFOLD_PAGE_SECONDS, decimal seconds, when set), and the process-wide memory ceiling of the PDF reader (half the physical
// memory, 1 to 4 GiB, or QUIREFOLD_PDF_MEMORY_MB) shared among the workers. No data limit in
// a build with AddressSanitizer, which reserves terabytes of address space.
WorkerSettings default_worker_settings(int workers);

// The worker executable: QUIREFOLD_WORKER when set, else quirefold-worker in the folder of
// the running program, else (in the build tree) the one the build made.
std::filesystem::path default_worker_program();

// Why a request got no answer from its worker.
class WorkerFailure : public std::runtime_error {
public:
    enum class Cause { Crashed, TimedOut, OutOfMemory, Malformed, CouldNotStart, Aborted };
    WorkerFailure(Cause cause, const std::string& detail) : std::runtime_error(detail), cause(cause) {}
    Cause cause; // what() holds the signal or exit status, or what was malformed
};

// One running worker process and its channel. Not thread-safe: one request at a time.
class WorkerProcess {
public:
    // Starts the worker with posix_spawn (never a fork of this threaded process) with the
    // channel as its only descriptor besides /dev/null on 0 to 2, in a process group of its
    // own (a Ctrl-C at the terminal is for the main process to handle), and waits for its
    // greeting. Throws WorkerFailure (CouldNotStart).
    explicit WorkerProcess(const WorkerSettings& settings);
    // Closes the channel, which ends the worker; kills it when it has not gone within a second.
    ~WorkerProcess();
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    pid_t pid() const { return pid_; }
    // A descriptor of the worker process (pidfd) through which another thread may kill it
    // without the risk of hitting a process that has since taken its number. -1 when the
    // kernel has none to give.
    int pidfd() const { return pidfd_.get(); }

    // Sends a request and waits for its reply until `deadline`. A picture request carries
    // the worker's picture region, which the reply fills. On a failure the worker is killed
    // and reaped, and WorkerFailure is thrown; the object is then dead() and takes no more
    // requests.
    Frame call(const Frame& request, std::chrono::steady_clock::time_point deadline);
    int picture_region() const { return region_.get(); }
    bool dead() const { return pid_ <= 0; }
    // Kills the worker at once and reaps it.
    void stop();

private:
    // Kills the worker, waits for it and throws `failure`.
    [[noreturn]] void fail(const WorkerFailure& failure);
    // Waits up to `grace` for the worker to exit, kills it past that, reaps it and tells how
    // it ended.
    WorkerFailure bury(std::chrono::milliseconds grace);

    WorkerSettings settings_;
    UniqueFd channel_;
    UniqueFd region_;
    UniqueFd pidfd_;
    pid_t pid_ = -1;
};

// Admission's view of a PDF read by a worker. `failure` holds the reason when the reader
// itself failed (crashed, overran its time); the file is then neither opened nor refused.
struct RemotePdfProbe {
    bool opened = false;
    bool password_refused = false; // the document is encrypted and the password does not open it
    int page_count = 0;
    std::string reason;            // why it did not open, in the reader's words
    std::string failure;
};

struct RemoteTiffProbe {
    bool readable = false;
    int image_count = 0;
    bool tiled = false;
    std::string failure;
};

// The reason of a request ended by abort_requests().
inline constexpr const char* kStoppedReason = "the reader was stopped";

// The workers of one program: one per job slot, started when first needed. Thread-safe: a
// request waits for a free slot. Every member that reads a document throws engine::Error
// naming the document and page, with the worker's own reason or one of "the reader stopped
// (signal N)", "the page took longer than N seconds", "the page needs more memory than the
// limit of N MB" ("the document ..." for a document request), "the reader was stopped".
class WorkerPool {
public:
    explicit WorkerPool(WorkerSettings settings);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    const WorkerSettings& settings() const { return settings_; }

    OpenedReply open(const DocumentRef& document);
    engine::PagePicture picture(const PictureCall& call);
    std::string text(const TextCall& call);
    // The page's size and turn (PageFacts), without drawing it. Throws as picture().
    PageFacts page_facts(const PageFactsCall& call);
    // Writes the PDF's pages, flattened, into a PDF of their own (CopyCall), or keeps them in
    // the worker for deliver(); on another worker than `avoid` when one is free. Throws as
    // open().
    CopiedReply copy_pages(const CopyCall& call, pid_t avoid = 0);
    // Has the worker that keeps the copy `call.token` (copied.worker) write the document's
    // PDF. Neither Stop nor abort_requests() ends it, and it may take ten times a page's time
    // limit. Empty when that worker has gone or no longer keeps the copy. Throws
    // engine::Error(Output) naming call.temp.
    std::optional<DeliveredReply> deliver(const DeliverCall& call, pid_t worker);

    // The admission probes; they never throw for the file's sake.
    RemotePdfProbe probe_pdf(const std::filesystem::path& path, const std::string& password);
    RemoteTiffProbe probe_tiff(const std::filesystem::path& path);

    // Ends every request under way at once (quitting in the middle of a page): their workers
    // are killed, and the requests fail with "the reader was stopped", as do the requests
    // still waiting for a slot. A request made after the call is not affected. Thread-safe.
    void abort_requests();

    // The process ids of the running workers, for diagnostics.
    std::vector<pid_t> worker_pids() const;

private:
    class Lease;
    class Launcher;
    struct Slot {
        std::unique_ptr<WorkerProcess> process; // used by the slot's holder only
        pid_t pid = 0;                          // guarded by mutex_
        UniqueFd pidfd;                         // guarded by mutex_: the worker's, during a request
        bool busy = false;                      // guarded by mutex_
        bool aborted = false;                   // guarded by mutex_
        bool abortable = true;                  // guarded by mutex_
    };

    // Runs one request on a free slot's worker, starting one when the slot has none, and hands
    // the reply and the worker's picture region to `take_reply` while the slot is still held:
    // a reply it cannot decode (ProtocolError) kills the worker. Throws WorkerFailure.
    void run(const Frame& request, const std::function<void(const Frame&, int region)>& take_reply);
    // How a request is run: on any worker, or on the one of process id `worker` only (false
    // is returned when it has gone); ended by abort_requests() or not; its time limit.
    struct RunRules {
        pid_t worker = 0;
        bool abortable = true;
        int limit_factor = 1;
        pid_t avoid = 0; // rather another worker than this one, when one is free
    };
    bool run(const Frame& request, const std::function<void(const Frame&, int region)>& take_reply,
             const RunRules& rules);
    std::string failure_reason(const WorkerFailure& failure, const char* subject) const;
    // `run` for a request about one page of `file`: a refusal in the reply throws the engine's
    // error, and a worker that failed throws one too (a crash counts as damage).
    void run_page(const Frame& request, const std::filesystem::path& file, int pageno,
                  const std::function<void(const Frame&, int region)>& take_reply);

    WorkerSettings settings_;
    // Starts every worker from one thread that lives as long as the pool: a worker is bound
    // to the thread that started it, and goes when that thread ends.
    std::unique_ptr<Launcher> launcher_;
    mutable std::mutex mutex_;
    std::condition_variable slot_freed_;
    std::vector<Slot> slots_;
    // Counts the calls of abort_requests(); a request waiting for a slot that sees it move
    // was aborted. Guarded by mutex_.
    std::uint64_t aborts_ = 0;
};

} // namespace qf::worker
