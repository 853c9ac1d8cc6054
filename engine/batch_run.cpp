// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/batch_run.h"

#include <system_error>

#include "engine/output_naming.h"
#include "engine/text_rules.h"
#include "engine/work_folder.h"
#include "engine/work_pool.h"

namespace qf::engine {
namespace fs = std::filesystem;

BatchRun::BatchRun(RunServices services) : services_(std::move(services)) {}

BatchRun::~BatchRun()
{
    pleasestop_ = true;
    if (worker_.joinable()) {
        worker_.join();
    }
}

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

void BatchRun::preprocesscheck(const OptionValues& values, const std::vector<ListRow>& rows)
{
    if (isrunning_) {
        return;
    }
    if (worker_.joinable()) {
        worker_.join();
    }
    prepare(values, rows);
    worker_ = std::thread([this] { processall(); });
}

PumpTick BatchRun::Timer1_Action()
{
    PumpTick tick;
    tick.progress_max = static_cast<int>(filelist_.size());
    if (!isrunning_) {
        return tick;
    }
    tick.running = true;
    tick.statustext = log_.texttoadd();
    tick.progress = progressb_;
    if (!boliao_) {
        return tick;
    }
    if (worker_.joinable()) {
        worker_.join();
    }
    isrunning_ = false;
    tick.progress = tick.progress_max;
    tick.statustext = "All Done\n" + tick.statustext;
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
    return finished_.wait_for(lock, timeout, [this] { return boliao_.load(); });
}

void BatchRun::fail(const std::string& line)
{
    ++failures_;
    log_.line(line);
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

} // namespace qf::engine
