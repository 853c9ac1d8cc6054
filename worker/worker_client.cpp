// SPDX-License-Identifier: GPL-3.0-or-later
#include "worker/worker_client.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <future>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "engine/error.h"
#include "engine/program_location.h"

extern char** environ;

namespace qf::worker {
namespace {

using Clock = std::chrono::steady_clock;
using engine::Error;
using engine::ErrorKind;
using Cause = WorkerFailure::Cause;

constexpr int kChannelFd = 3;
constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kGiB = std::size_t{1} << 30;
// How long a worker may take to greet, and to leave once its channel closes.
constexpr std::chrono::seconds kStartTime{10};
constexpr std::chrono::milliseconds kLeaveTime{1000};
// The worker abandons a page itself at the time limit when the reader listens; it is killed
// only when it has not answered a second later.
constexpr std::chrono::milliseconds kGrace{1000};
// The part of a worker's picture region that stays taken between pictures: a few pages at
// 300 dpi.
constexpr std::uint64_t kKeptRegionBytes = std::uint64_t{64} << 20;

// The PDF reader's process-wide ceiling as the in-process reader computes it.
std::size_t process_memory_ceiling()
{
    if (const char* text = std::getenv("QUIREFOLD_PDF_MEMORY_MB")) {
        char* end = nullptr;
        const unsigned long long mib = std::strtoull(text, &end, 10);
        if (end != text && *end == '\0' && mib > 0 && mib < (SIZE_MAX / kMiB)) {
            return static_cast<std::size_t>(mib) * kMiB;
        }
    }
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page_size = ::sysconf(_SC_PAGESIZE);
    const std::size_t physical = pages > 0 && page_size > 0
                                     ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(page_size)
                                     : 2 * kGiB;
    return std::clamp(physical / 2, kGiB, 4 * kGiB);
}

// The page time limit: QUIREFOLD_PAGE_SECONDS (decimal seconds) when set, as the in-process
// reader reads it, else two minutes.
std::chrono::milliseconds page_time_limit()
{
    if (const char* text = std::getenv("QUIREFOLD_PAGE_SECONDS")) {
        char* end = nullptr;
        const double seconds = std::strtod(text, &end);
        if (end != text && *end == '\0' && seconds > 0 && seconds < 1e7) {
            return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
        }
    }
    return std::chrono::milliseconds(120'000);
}

std::string seconds_text(std::chrono::milliseconds limit)
{
    char text[32];
    const auto printed = std::to_chars(text, text + sizeof text, limit.count() / 1000.0);
    const std::string seconds(text, printed.ptr);
    return seconds + (seconds == "1" ? " second" : " seconds");
}

std::string status_text(int status)
{
    if (WIFSIGNALED(status)) {
        return "signal " + std::to_string(WTERMSIG(status));
    }
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

// Spawn attributes and file actions, destroyed however the spawn ends.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
};

pid_t spawn_worker(const WorkerSettings& settings, int channel)
{
    SpawnSetup setup;
    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&setup.actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&setup.actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&setup.actions, channel, kChannelFd);
    // Whatever another thread opened without close-on-exec stays behind.
    posix_spawn_file_actions_addclosefrom_np(&setup.actions, kChannelFd + 1);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&setup.attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&setup.attributes, &signals);
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    posix_spawnattr_setflags(&setup.attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    const std::vector<std::string> arguments = {
        settings.program.native(),
        "--channel",     std::to_string(kChannelFd),
        "--parent",      std::to_string(::getpid()),
        "--memory-mb",   std::to_string(settings.memory_limit_mb),
        "--data-mb",     std::to_string(settings.data_limit_mb),
        "--time-ms",     std::to_string(settings.time_limit.count()),
    };
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int failed = ::posix_spawn(&pid, settings.program.c_str(), &setup.actions,
                                     &setup.attributes, argv.data(), environ);
    if (failed != 0) {
        throw WorkerFailure(Cause::CouldNotStart,
                            settings.program.filename().native() + ": " + std::strerror(failed));
    }
    return pid;
}

} // namespace

WorkerSettings default_worker_settings(int workers)
{
    WorkerSettings settings;
    settings.program = default_worker_program();
    settings.workers = std::max(1, workers);
    settings.time_limit = page_time_limit();
    // Each worker's share of the ceiling is its data limit, so the limits add up to the ceiling
    // (pictures travel through shared memory, which no data limit counts). The PDF reader keeps
    // an eighth of the share for the rest of the program (a decoded TIFF, page copies), so that
    // it meets its own ceiling first.
    const std::size_t share_mb = std::max<std::size_t>(
        process_memory_ceiling() / static_cast<std::size_t>(settings.workers) / kMiB, 64);
    settings.memory_limit_mb = share_mb - share_mb / 8;
#if defined(__SANITIZE_ADDRESS__)
    settings.data_limit_mb = 0;
#else
    settings.data_limit_mb = share_mb;
#endif
    return settings;
}

std::filesystem::path default_worker_program()
{
    if (const char* path = std::getenv("QUIREFOLD_WORKER"); path != nullptr && *path != '\0') {
        return path;
    }
    std::error_code error;
    const std::filesystem::path beside = engine::program_file().parent_path() / "quirefold-worker";
    // In the build tree the programs sit in folders of their own; an installed program only
    // ever starts the worker installed beside it.
    if (!std::filesystem::exists(beside, error) && engine::runs_from_build_tree() &&
        std::filesystem::exists(QF_BUILT_WORKER, error)) {
        return QF_BUILT_WORKER;
    }
    return beside;
}

WorkerProcess::WorkerProcess(const WorkerSettings& settings) : settings_(settings)
{
    int pair[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        throw WorkerFailure(Cause::CouldNotStart, std::string("socketpair: ") + std::strerror(errno));
    }
    channel_.reset(pair[0]);
    UniqueFd theirs(pair[1]);
    try {
        region_ = make_picture_region();
    } catch (const std::system_error& error) {
        throw WorkerFailure(Cause::CouldNotStart, error.what());
    }
    if (theirs.get() == kChannelFd) {
        // dup2 onto the same number would leave close-on-exec set.
        theirs.reset(::fcntl(kChannelFd, F_DUPFD_CLOEXEC, kChannelFd + 1));
    }
    pid_ = spawn_worker(settings_, theirs.get());
    theirs.reset();
    pidfd_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    try {
        const Frame hello = receive_frame(channel_.get(), Clock::now() + kStartTime);
        if (decode_hello(hello) != static_cast<std::uint32_t>(pid_)) {
            throw ProtocolError("greeting from another process");
        }
    } catch (const std::exception& error) {
        const WorkerFailure ended = bury(std::chrono::milliseconds(0));
        throw WorkerFailure(Cause::CouldNotStart, std::string(error.what()) + " (" + ended.what() + ")");
    }
}

WorkerProcess::~WorkerProcess()
{
    if (!dead()) {
        channel_.reset();
        bury(kLeaveTime);
    }
}

Frame WorkerProcess::call(const Frame& request, Clock::time_point deadline)
{
    if (dead()) {
        throw WorkerFailure(Cause::Crashed, "the worker is gone");
    }
    try {
        send_frame(channel_.get(), request, request.type == MessageType::Picture ? region_.get() : -1);
        return receive_frame(channel_.get(), deadline);
    } catch (const ChannelTimeout&) {
        fail(WorkerFailure(Cause::TimedOut, "no reply in time"));
    } catch (const ChannelClosed&) {
        channel_.reset();
        throw bury(kLeaveTime);
    } catch (const ProtocolError& error) {
        fail(WorkerFailure(Cause::Malformed, error.what()));
    }
}

void WorkerProcess::stop()
{
    if (!dead()) {
        channel_.reset();
        bury(std::chrono::milliseconds(0));
    }
}

void WorkerProcess::fail(const WorkerFailure& failure)
{
    stop();
    throw failure;
}

WorkerFailure WorkerProcess::bury(std::chrono::milliseconds grace)
{
    const auto give_up = Clock::now() + grace;
    bool killed = false;
    if (grace.count() <= 0) {
        ::kill(pid_, SIGKILL);
        killed = true;
    }
    int status = 0;
    rusage usage{};
    for (;;) {
        const pid_t reaped = ::wait4(pid_, &status, killed ? 0 : WNOHANG, &usage);
        if (reaped == pid_ || (reaped < 0 && errno != EINTR)) {
            break;
        }
        if (reaped == 0 && Clock::now() >= give_up) {
            ::kill(pid_, SIGKILL);
            killed = true;
        } else if (reaped == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    pid_ = -1;
    channel_.reset();
    pidfd_.reset();
    // A worker killed by a signal while its resident memory stood near its data limit ran
    // out of memory where a library did not check an allocation.
    const std::size_t peak_bytes = static_cast<std::size_t>(usage.ru_maxrss) * 1024;
    const std::size_t limit_bytes = settings_.data_limit_mb * kMiB;
    if (WIFSIGNALED(status) && limit_bytes > 0 && peak_bytes >= limit_bytes / 10 * 9) {
        return WorkerFailure(Cause::OutOfMemory, status_text(status));
    }
    return WorkerFailure(Cause::Crashed, status_text(status));
}

// Holds one slot of the pool while a request runs.
class WorkerPool::Lease {
public:
    // `worker`: the slot of that worker process only; gone() when no slot has it.
    // `avoid`: rather another slot than that worker's, when one is free.
    explicit Lease(WorkerPool& pool, pid_t worker = 0, bool abortable = true, pid_t avoid = 0) : pool_(pool)
    {
        std::unique_lock lock(pool_.mutex_);
        const std::uint64_t aborts = pool_.aborts_;
        const auto holder = [this, worker] {
            return std::find_if(pool_.slots_.begin(), pool_.slots_.end(),
                                [worker](const Slot& slot) { return slot.pid == worker; });
        };
        pool_.slot_freed_.wait(lock, [&] {
            if (pool_.aborts_ != aborts) {
                return true;
            }
            if (worker > 0) {
                const auto slot = holder();
                return slot == pool_.slots_.end() || !slot->busy;
            }
            return std::any_of(pool_.slots_.begin(), pool_.slots_.end(),
                               [](const Slot& slot) { return !slot.busy; });
        });
        if (pool_.aborts_ != aborts) {
            throw WorkerFailure(Cause::Aborted, "aborted while waiting for a slot");
        }
        auto free = pool_.slots_.end();
        if (worker > 0) {
            free = holder();
            if (free == pool_.slots_.end()) {
                return; // gone()
            }
        } else {
            // A slot whose worker is running first, so that workers are started only as needed;
            // a worker to avoid only when no other slot is free.
            free = std::find_if(pool_.slots_.begin(), pool_.slots_.end(), [avoid](const Slot& slot) {
                return !slot.busy && slot.pid > 0 && (avoid == 0 || slot.pid != avoid);
            });
            if (free == pool_.slots_.end() && avoid != 0) {
                free = std::find_if(pool_.slots_.begin(), pool_.slots_.end(),
                                    [avoid](const Slot& slot) { return !slot.busy && slot.pid != avoid; });
            }
            if (free == pool_.slots_.end()) {
                free = std::find_if(pool_.slots_.begin(), pool_.slots_.end(),
                                    [](const Slot& slot) { return !slot.busy; });
            }
        }
        free->busy = true;
        free->aborted = false;
        free->abortable = abortable;
        slot_ = &*free;
    }
    ~Lease()
    {
        if (slot_ == nullptr) {
            return;
        }
        if (aborted()) {
            slot_->process.reset(); // killed already: reaped now rather than by the next request
        }
        {
            const std::lock_guard lock(pool_.mutex_);
            slot_->busy = false;
            const bool running = slot_->process && !slot_->process->dead();
            slot_->pid = running ? slot_->process->pid() : 0;
            slot_->pidfd.reset();
        }
        // Every waiter looks: one may wait for this very worker, another for any.
        pool_.slot_freed_.notify_all();
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    Slot& slot() { return *slot_; }
    bool gone() const { return slot_ == nullptr; }

    // Lets abort_requests() reach the slot's worker while the request runs.
    void started(const WorkerProcess& process)
    {
        const std::lock_guard lock(pool_.mutex_);
        slot_->pid = process.pid();
        slot_->pidfd.reset(process.pidfd() >= 0 ? ::fcntl(process.pidfd(), F_DUPFD_CLOEXEC, 0) : -1);
        if (slot_->aborted) {
            kill_slot(*slot_);
        }
    }

    bool aborted()
    {
        const std::lock_guard lock(pool_.mutex_);
        return slot_->aborted;
    }

    static void kill_slot(const Slot& slot)
    {
        if (slot.pidfd) {
            ::syscall(SYS_pidfd_send_signal, slot.pidfd.get(), SIGKILL, nullptr, 0);
        }
    }

private:
    WorkerPool& pool_;
    Slot* slot_ = nullptr;
};

class WorkerPool::Launcher {
public:
    Launcher() : thread_([this] { serve(); }) {}
    ~Launcher()
    {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }

    // Starts a worker on the launcher's thread. Throws WorkerFailure.
    std::unique_ptr<WorkerProcess> start(const WorkerSettings& settings)
    {
        std::packaged_task<std::unique_ptr<WorkerProcess>()> task(
            [&settings] { return std::make_unique<WorkerProcess>(settings); });
        auto started = task.get_future();
        {
            const std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
        return started.get();
    }

private:
    void serve()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return;
            }
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::packaged_task<std::unique_ptr<WorkerProcess>()>> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

WorkerPool::WorkerPool(WorkerSettings settings)
    : settings_(std::move(settings)), launcher_(std::make_unique<Launcher>()),
      slots_(static_cast<std::size_t>(std::max(1, settings_.workers)))
{
}

WorkerPool::~WorkerPool() = default;

void WorkerPool::run(const Frame& request, const std::function<void(const Frame&, int region)>& take_reply)
{
    run(request, take_reply, RunRules{});
}

bool WorkerPool::run(const Frame& request, const std::function<void(const Frame&, int region)>& take_reply,
                     const RunRules& rules)
{
    Lease lease(*this, rules.worker, rules.abortable, rules.avoid);
    if (lease.gone()) {
        return false;
    }
    Slot& slot = lease.slot();
    if (rules.worker > 0 && (!slot.process || slot.process->dead() || slot.process->pid() != rules.worker)) {
        return false;
    }
    if (!slot.process || slot.process->dead()) {
        slot.process.reset();
        slot.process = launcher_->start(settings_);
    }
    lease.started(*slot.process);
    Frame reply;
    try {
        reply = slot.process->call(request, Clock::now() + settings_.time_limit * rules.limit_factor + kGrace);
    } catch (const WorkerFailure&) {
        if (lease.aborted()) {
            throw WorkerFailure(Cause::Aborted, "aborted");
        }
        throw;
    }
    bool retire = false;
    try {
        retire = reply.type == MessageType::Failed && decode_failed(reply).retire;
        take_reply(reply, slot.process->picture_region());
    } catch (const ProtocolError& error) {
        slot.process->stop();
        slot.process.reset();
        throw WorkerFailure(Cause::Malformed, error.what());
    } catch (...) {
        if (retire) {
            slot.process.reset();
        }
        throw;
    }
    if (retire) {
        slot.process.reset();
    }
    return true;
}

std::string WorkerPool::failure_reason(const WorkerFailure& failure, const char* subject) const
{
    switch (failure.cause) {
    case Cause::TimedOut:
        return std::string(subject) + " took longer than " + seconds_text(settings_.time_limit);
    case Cause::OutOfMemory:
        return std::string(subject) + " needs more memory than the limit of " +
               std::to_string(settings_.memory_limit_mb) + " MB";
    case Cause::Malformed:
        return std::string("the reader gave a malformed reply (") + failure.what() + ")";
    case Cause::CouldNotStart:
        return std::string("the reader could not start: ") + failure.what();
    case Cause::Aborted:
        return kStoppedReason;
    case Cause::Crashed:
        break;
    }
    return std::string("the reader stopped (") + failure.what() + ")";
}

namespace {

// A Failed reply becomes the error the reader reported; any other must be `expected`.
void throw_if_failed(const Frame& reply, const std::filesystem::path& file, int pageno)
{
    if (reply.type == MessageType::Failed) {
        const FailedReply failed = decode_failed(reply);
        throw Error(failed.kind, failed.reason, file, pageno);
    }
}

} // namespace

OpenedReply WorkerPool::open(const DocumentRef& document)
{
    OpenedReply opened;
    try {
        run(encode_open(document), [&](const Frame& reply, int) {
            throw_if_failed(reply, document.document.path, 0);
            opened = decode_opened(reply);
        });
    } catch (const WorkerFailure& failure) {
        throw Error(failure.cause == Cause::Crashed ? ErrorKind::Damaged : ErrorKind::Unsupported,
                    failure_reason(failure, "the document"), document.document.path);
    }
    return opened;
}

void WorkerPool::run_page(const Frame& request, const std::filesystem::path& file, int pageno,
                          const std::function<void(const Frame&, int region)>& take_reply)
{
    try {
        run(request, [&](const Frame& reply, int region) {
            throw_if_failed(reply, file, pageno);
            take_reply(reply, region);
        });
    } catch (const WorkerFailure& failure) {
        throw Error(failure.cause == Cause::Crashed ? ErrorKind::Damaged : ErrorKind::Unsupported,
                    failure_reason(failure, "the page"), file, pageno);
    }
}

engine::PagePicture WorkerPool::picture(const PictureCall& call)
{
    engine::PagePicture picture;
    run_page(encode_picture(call), call.document.document.path, call.pageno,
             [&](const Frame& reply, int region) {
                 const PictureHeader header = decode_picture_ready(reply);
                 picture.width = header.width;
                 picture.height = header.height;
                 picture.format = header.format;
                 const auto take = [&](std::uint64_t offset, std::size_t size, std::uint8_t* out) {
                     if (header.in_frame) {
                         std::memcpy(out, header.frame_bytes.data() + offset, size);
                     } else {
                         read_region(region, offset, size, out);
                     }
                 };
                 picture.pixels.resize(header.pixel_bytes);
                 take(0, picture.pixels.size(), picture.pixels.data());
                 if (header.has_compressed) {
                     auto compressed = std::make_shared<engine::CompressedImage>();
                     compressed->black_is_1 = header.black_is_1;
                     compressed->data.resize(header.compressed_bytes);
                     take(header.pixel_bytes, compressed->data.size(), compressed->data.data());
                     picture.compressed = std::move(compressed);
                 }
                 if (header.total_bytes() > kKeptRegionBytes) {
                     release_region_tail(region, kKeptRegionBytes);
                 }
             });
    return picture;
}

std::string WorkerPool::text(const TextCall& call)
{
    std::string text;
    run_page(encode_text(call), call.document.document.path, call.pageno,
             [&](const Frame& reply, int) { text = decode_text_ready(reply); });
    return text;
}

PageFacts WorkerPool::page_facts(const PageFactsCall& call)
{
    PageFacts facts;
    run_page(encode_page_facts(call), call.document.document.path, call.pageno,
             [&](const Frame& reply, int) { facts = decode_page_facts_ready(reply); });
    return facts;
}

CopiedReply WorkerPool::copy_pages(const CopyCall& call, pid_t avoid)
{
    CopiedReply copied;
    try {
        run(
            encode_copy_pages(call),
            [&](const Frame& reply, int) {
                throw_if_failed(reply, call.document.document.path, 0);
                copied = decode_pages_copied(reply);
            },
            RunRules{0, true, 1, avoid});
    } catch (const WorkerFailure& failure) {
        throw Error(failure.cause == Cause::Crashed ? ErrorKind::Damaged : ErrorKind::Unsupported,
                    failure_reason(failure, "the document"), call.document.document.path);
    }
    return copied;
}

std::optional<DeliveredReply> WorkerPool::deliver(const DeliverCall& call, pid_t worker)
{
    std::optional<DeliveredReply> delivered;
    bool kept = true;
    try {
        const bool ran = run(
            encode_deliver(call),
            [&](const Frame& reply, int) {
                if (reply.type == MessageType::Failed) {
                    const FailedReply failed = decode_failed(reply);
                    if (failed.reason == kCopyNotKept) {
                        kept = false;
                        return;
                    }
                    throw Error(ErrorKind::Output, failed.reason, call.temp);
                }
                delivered = decode_delivered(reply);
            },
            RunRules{worker, false, 10});
        if (!ran || !kept) {
            return std::nullopt;
        }
    } catch (const WorkerFailure& failure) {
        if (failure.cause == Cause::Crashed || failure.cause == Cause::OutOfMemory ||
            failure.cause == Cause::Malformed) {
            return std::nullopt; // the copy went with the worker
        }
        throw Error(ErrorKind::Output, failure_reason(failure, "the document"), call.temp);
    }
    return delivered;
}

RemotePdfProbe WorkerPool::probe_pdf(const std::filesystem::path& path, const std::string& password)
{
    RemotePdfProbe probe;
    try {
        run(encode_probe_pdf(path.native(), password), [&](const Frame& reply, int) {
            if (reply.type == MessageType::Failed) {
                probe.failure = decode_failed(reply).reason;
                return;
            }
            const PdfProbeReply probed = decode_pdf_probed(reply);
            probe.opened = probed.opened;
            probe.password_refused = probed.password_refused;
            probe.page_count = probed.page_count;
            probe.reason = probed.reason;
        });
    } catch (const WorkerFailure& failure) {
        probe = {};
        probe.failure = failure_reason(failure, "the document");
    }
    return probe;
}

RemoteTiffProbe WorkerPool::probe_tiff(const std::filesystem::path& path)
{
    RemoteTiffProbe probe;
    try {
        run(encode_probe_tiff(path.native()), [&](const Frame& reply, int) {
            if (reply.type == MessageType::Failed) {
                probe.failure = decode_failed(reply).reason;
                return;
            }
            const TiffProbeReply probed = decode_tiff_probed(reply);
            probe.readable = probed.readable;
            probe.image_count = probed.image_count;
            probe.tiled = probed.tiled;
        });
    } catch (const WorkerFailure& failure) {
        probe = {};
        probe.failure = failure_reason(failure, "the document");
    }
    return probe;
}

void WorkerPool::abort_requests()
{
    {
        const std::lock_guard lock(mutex_);
        ++aborts_;
        for (Slot& slot : slots_) {
            if (slot.busy && slot.abortable) {
                slot.aborted = true;
                Lease::kill_slot(slot);
            }
        }
    }
    slot_freed_.notify_all();
}

std::vector<pid_t> WorkerPool::worker_pids() const
{
    const std::lock_guard lock(mutex_);
    std::vector<pid_t> pids;
    for (const Slot& slot : slots_) {
        if (slot.pid > 0) {
            pids.push_back(slot.pid);
        }
    }
    return pids;
}

} // namespace qf::worker
