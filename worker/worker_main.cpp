// SPDX-License-Identifier: GPL-3.0-or-later
// quirefold-worker: reads untrusted documents for the main process, one request at a time,
// over the channel it is given. It lives no longer than its parent or its channel.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "sources/pdf_source.h"
#include "worker/channel.h"
#include "worker/reader_service.h"

namespace {

struct WorkerArguments {
    int channel = -1;
    pid_t parent = 0;
    unsigned long long memory_mb = 0; // the PDF reader's ceiling; 0 keeps its default
    unsigned long long data_mb = 0;   // RLIMIT_DATA; 0 for none
    long long time_ms = 0;            // the page time limit; 0 keeps the default
};

bool parse_number(const char* text, unsigned long long& value)
{
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text, &end, 10);
    return end != text && *end == '\0' && errno == 0;
}

bool parse_arguments(int argc, char** argv, WorkerArguments& arguments)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        unsigned long long value = 0;
        if (!parse_number(argv[i + 1], value)) {
            return false;
        }
        if (name == "--channel") {
            arguments.channel = static_cast<int>(value);
        } else if (name == "--parent") {
            arguments.parent = static_cast<pid_t>(value);
        } else if (name == "--memory-mb") {
            arguments.memory_mb = value;
        } else if (name == "--data-mb") {
            arguments.data_mb = value;
        } else if (name == "--time-ms") {
            arguments.time_ms = static_cast<long long>(value);
        } else {
            return false;
        }
    }
    return argc % 2 == 1 && arguments.channel >= 0 && arguments.parent > 0;
}

// The worker goes with its parent, and is the first the kernel takes when memory runs out.
bool bind_to_parent(pid_t parent)
{
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) {
        return false;
    }
    // The parent may have died before the request took effect.
    if (::getppid() != parent) {
        return false;
    }
    const int adjust = ::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
    if (adjust >= 0) {
        const bool written = ::write(adjust, "500", 3) == 3;
        ::close(adjust);
        return written;
    }
    return true;
}

bool apply_limits(const WorkerArguments& arguments)
{
    // A reader that crashes leaves no core file in the user's folder, nor the passwords of its
    // requests in one.
    const rlimit no_core{0, 0};
    if (::setrlimit(RLIMIT_CORE, &no_core) != 0) {
        return false;
    }
    // No data limit under AddressSanitizer: its shadow memory, reserved at start, already counts
    // far past any limit, so its next mapping would fail and end the worker before it greets.
#if !defined(__SANITIZE_ADDRESS__)
    if (arguments.data_mb > 0) {
        const rlim_t bytes = static_cast<rlim_t>(arguments.data_mb) << 20;
        const rlimit limit{bytes, bytes};
        if (::setrlimit(RLIMIT_DATA, &limit) != 0) {
            return false;
        }
    }
#endif
    // Read once by the PDF reader, on its first document.
    if (arguments.memory_mb > 0 &&
        ::setenv("QUIREFOLD_PDF_MEMORY_MB", std::to_string(arguments.memory_mb).c_str(), 1) != 0) {
        return false;
    }
    if (arguments.time_ms > 0) {
        qf::sources::set_page_time_limit(std::chrono::milliseconds(arguments.time_ms));
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    WorkerArguments arguments;
    if (!parse_arguments(argc, argv, arguments)) {
        return 2;
    }
    if (!bind_to_parent(arguments.parent)) {
        return 3;
    }
    // The channel is the only descriptor a worker needs beside 0 to 2.
    ::close_range(static_cast<unsigned>(arguments.channel) + 1, ~0u, 0);
    std::signal(SIGPIPE, SIG_IGN);
    // A write past a file size limit fails with EFBIG, which is reported, rather than killing.
    std::signal(SIGXFSZ, SIG_IGN);
    if (!apply_limits(arguments)) {
        return 4;
    }
    // The worker ends without freeing what it holds (open documents, kept copies): the
    // process takes it all, and the front end, which waits for the worker to end, waits less.
    try {
        qf::worker::send_frame(arguments.channel, qf::worker::encode_hello(static_cast<std::uint32_t>(::getpid())));
        auto* service = new qf::worker::ReaderService(arguments.memory_mb);
        std::_Exit(service->serve(arguments.channel) ? 0 : 5);
    } catch (const qf::worker::ChannelClosed&) {
        std::_Exit(0);
    }
}
