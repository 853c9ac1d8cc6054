// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/batch_run.h"

#include <system_error>

#include "engine/output_naming.h"
#include "engine/text_rules.h"
#include "engine/work_folder.h"
#include "engine/work_pool.h"

namespace qf::engine {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kAllDone = "All Done\n";

} // namespace

void apply(const StatusChange& change, std::string& shown)
{
    if (change.whole) {
        shown = change.text;
        return;
    }
    if (change.drop_all_done && shown.compare(0, kAllDone.size(), kAllDone) == 0) {
        shown.erase(0, kAllDone.size());
    }
    shown.insert(0, change.text);
}

BatchRun::BatchRun(RunServices services) : services_(std::move(services)) {}

BatchRun::~BatchRun() = default;

std::string BatchRun::start_refusal(std::size_t row_count, const OptionValues& values)
{
    if (row_count == 0) {
        return "There is Nothing to Process";
    }
    if (trim(values.text(OptionId::savein)).empty()) {
        return "Please Enter the Save In Folder Details before proceeding";
    }
    return {};
}

void BatchRun::prepare(const OptionValues& values, const std::vector<ListRow>& rows)
{
    take_snapshot(values, static_cast<int>(rows.size()), snapshot_);
    pleasestop_ = false;
    aborted_ = false;
    abort_flag_ = 0;
    progressb_ = 0;
    failures_ = 0;
    if (!saves_to_source_folder(snapshot_.msavein)) {
        std::error_code ignored; // a folder that cannot be made shows when its files are written
        fs::create_directories(fs::path(snapshot_.msavein), ignored);
    }
    filelist_ = populatelist(rows);
    llistcount_ = static_cast<int>(filelist_.size()) - 1;
    countlist_.clear();
    source_paths_.clear();
    for (const auto& row : filelist_) {
        source_paths_.push_back(fs::path(row[column::folder]) / row[column::name]);
    }
    boliao_ = false;
    totalpage_ = 0;
    pleasestop_ = false;
    isrunning_ = true;
}

void BatchRun::abort()
{
    aborted_ = true;
    pleasestop_ = true;
    abort_flag_ = 1;
    if (services_.abort_reading) {
        services_.abort_reading();
    }
}

PumpTick BatchRun::Timer1_Action()
{
    PumpTick tick;
    tick.progress_max = static_cast<int>(filelist_.size());
    if (!isrunning_) {
        return tick;
    }
    tick.running = true;
    tick.progress = progressb_;
    const bool ending = boliao_;
    const LogChanges changes = log_.changes_since(shown_version_);
    if (changes.version != shown_version_ || all_done_shown_ || ending) {
        tick.status_changed = true;
        tick.status.whole = changes.replaced;
        tick.status.drop_all_done = all_done_shown_;
        tick.status.text = changes.added;
        shown_version_ = changes.version;
        all_done_shown_ = false;
    }
    if (!ending) {
        return tick;
    }
    isrunning_ = false;
    tick.progress = tick.progress_max;
    // "All Done" is shown, not logged: the next run's log goes on below the lines before it.
    tick.status.text.insert(0, kAllDone);
    all_done_shown_ = true;
    boliao_ = false;
    filelist_.assign(1, DocumentRow{});
    // The merge removes what it merged; whatever a failed step left behind goes here.
    for (const auto& path : countlist_) {
        std::error_code ignored;
        fs::remove(path, ignored);
    }
    countlist_.clear();
    tick.ended = true;
    return tick;
}

bool BatchRun::wait_for_worker(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(finished_mutex_);
    return finished_.wait_for(lock, timeout, [this] { return boliao_.load() || !isrunning_.load(); });
}

fs::path BatchRun::scratch_path() const
{
    const std::lock_guard lock(scratch_mutex_);
    return scratch_ ? scratch_->path() : fs::path();
}

void BatchRun::stamp(const fs::path& file)
{
    if (!services_.stamper) {
        return;
    }
    if (!stamper_) {
        stamper_ = services_.stamper();
    }
    if (stamper_) {
        stamper_->updatedpinonstore(file, {snapshot_.mdotsperinch, ccopyright_, snapshot_.mpdfauthorname});
    }
}

// ---- RunSession

RunSession::RunSession(RunServices services) : run_(std::make_shared<BatchRun>(std::move(services))) {}

RunSession::~RunSession()
{
    shutdown();
}

void RunSession::start(const OptionValues& values, const std::vector<ListRow>& rows)
{
    if (run_->isrunning()) {
        return;
    }
    if (worker_.joinable()) {
        worker_.join();
    }
    run_->prepare(values, rows);
    worker_ = std::thread([run = run_] { run->processall(); });
}

void RunSession::stop()
{
    run_->stop();
}

void RunSession::abort()
{
    run_->abort();
}

void RunSession::set_listener(RunListener listener)
{
    run_->set_listener(std::move(listener));
}

PumpTick RunSession::Timer1_Action()
{
    PumpTick tick = run_->Timer1_Action();
    if (tick.ended && worker_.joinable()) {
        worker_.join();
    }
    return tick;
}

bool RunSession::shutdown(std::chrono::milliseconds wait) noexcept
{
    if (!worker_.joinable()) {
        return true;
    }
    run_->abort();
    if (run_->wait_for_worker(wait)) {
        worker_.join();
        return true;
    }
    // The page under way does not give way: the worker is left to end on its own, keeping the
    // run alive through its own reference, and tells nobody any more.
    run_->set_listener({});
    const fs::path scratch = run_->scratch_path();
    worker_.detach();
    if (!scratch.empty()) {
        std::error_code ignored;
        fs::remove_all(scratch, ignored);
    }
    return false;
}

} // namespace qf::engine
