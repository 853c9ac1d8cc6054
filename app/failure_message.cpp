// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/failure_message.h"

#include <filesystem>
#include <new>
#include <system_error>

#include "engine/error.h"

namespace qf::app {
namespace {

std::string lower_first(std::string text)
{
    if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') {
        text[0] = static_cast<char>(text[0] - 'A' + 'a');
    }
    return text;
}

} // namespace

std::string describe_failure(std::exception_ptr failure)
{
    if (!failure) {
        return "an unexpected internal error occurred";
    }
    try {
        std::rethrow_exception(failure);
    } catch (const engine::Error& e) {
        return e.what();
    } catch (const std::filesystem::filesystem_error& e) {
        if (e.path1().empty()) {
            return "a file or folder name is empty";
        }
        return e.path1().string() + ": " + lower_first(e.code().message());
    } catch (const std::system_error& e) {
        return lower_first(e.code().message());
    } catch (const std::bad_alloc&) {
        return "there is not enough memory";
    } catch (...) {
        return "an unexpected internal error occurred";
    }
}

} // namespace qf::app
