// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>

#include "app/copy_ahead.h"
#include "engine/services.h"
#include "worker/worker_client.h"

namespace qf::app {

// Every page source and writer, plugged in for a run with `jobs` job slots (0: one per core,
// as a run prepares pages by default). Documents are read by reader workers, one per job slot,
// started when first needed and ended when the last copy of the services goes: pictures, text
// and the flattened copies of PDF pages for PDF output all come from them, and aborting the run
// ends the requests under way.
engine::RunServices make_run_services(const std::filesystem::path& resources, int jobs = 0);

// The PDF output of a run whose documents `readers` reads: pages are copied from a flattened
// copy a worker makes, and a document's own PDF is written by the worker that keeps its copy,
// through `ahead` when given (the next document read ahead on another worker).
engine::PdfAssemblerFactory worker_pdf_assemblers(const std::filesystem::path& resources,
                                                  std::shared_ptr<worker::WorkerPool> readers,
                                                  std::shared_ptr<CopyAhead> ahead = nullptr);

// Reading ahead with `readers`' workers: kept copies, the next on another worker.
std::shared_ptr<CopyAhead> copy_ahead(std::shared_ptr<worker::WorkerPool> readers);

} // namespace qf::app
