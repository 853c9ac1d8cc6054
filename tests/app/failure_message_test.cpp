// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/failure_message.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

#include "engine/error.h"

namespace qf::app {
namespace {

template <typename E>
std::exception_ptr thrown(E e)
{
    return std::make_exception_ptr(std::move(e));
}

// Whatever escapes to the top of a program, the user reads a sentence, never a library's
// internal wording.
TEST(FailureMessage, SaysWhatHappenedInPlainWords)
{
    namespace fs = std::filesystem;
    const struct { std::exception_ptr failure; const char* message; } cases[] = {
        {thrown(std::logic_error("basic_string: construction from null is not valid")),
         "an unexpected internal error occurred"},
        {thrown(std::bad_alloc()), "there is not enough memory"},
        {thrown(fs::filesystem_error("cannot make absolute path", fs::path(),
                                     std::make_error_code(std::errc::invalid_argument))),
         "a file or folder name is empty"},
        {thrown(fs::filesystem_error("cannot create directories", fs::path("/out/x"),
                                     std::make_error_code(std::errc::permission_denied))),
         "/out/x: permission denied"},
        {thrown(engine::Error(engine::ErrorKind::Output, "cannot create the work folder: No space left on device",
                              "/data/org.quirefold.extract")),
         "org.quirefold.extract: cannot create the work folder: No space left on device"},
        {thrown(42), "an unexpected internal error occurred"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(describe_failure(c.failure), c.message);
    }
}

} // namespace
} // namespace qf::app
