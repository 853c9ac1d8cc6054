// SPDX-License-Identifier: GPL-3.0-or-later
// Every test program's runs, and the command lines it starts, keep their scratch folders
// under a work folder of the program's own, never the user's.
#include "tests/support/temp_folder.h"

namespace {
const auto& kWorkFolder = qf::test::isolated_work_folder();
} // namespace
