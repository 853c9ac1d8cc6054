// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exception>
#include <string>

namespace qf::app {

// A clear sentence for an exception that reached the top of a program or of a thread: the
// core's own errors as they read, the system's reason for a file that failed, and a plain
// statement for anything else. A standard library's internal wording ("basic_string:
// construction from null") is never shown.
std::string describe_failure(std::exception_ptr failure);

} // namespace qf::app
