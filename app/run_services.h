// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "engine/services.h"

namespace qf::app {

// Every page source and writer, plugged in for a run.
engine::RunServices make_run_services(const std::filesystem::path& resources);

} // namespace qf::app
