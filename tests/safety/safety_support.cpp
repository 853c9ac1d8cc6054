// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/safety/safety_support.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qpdf/Pl_Discard.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "tests/support/image_checks.h"

extern char **environ;

namespace qf::test {
namespace fs = std::filesystem;
namespace {

std::string read_bytes(const fs::path &file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool ends_with(const std::string &bytes, const std::string &tail)
{
    return bytes.size() >= tail.size() &&
           bytes.compare(bytes.size() - tail.size(), tail.size(), tail) == 0;
}

std::string upper_extension(const fs::path &file)
{
    std::string extension = file.extension().string();
    for (auto &c : extension) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return extension;
}

// Opens the PDF and reads every stream; empty when all is sound.
std::string pdf_problems(const fs::path &file, const std::string &password)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(file.c_str(), password.c_str());
        if (QPDFPageDocumentHelper(pdf).getAllPages().empty()) {
            return "a PDF of no page";
        }
        for (auto &object : pdf.getAllObjects()) {
            Pl_Discard discard;
            if (object.isStream() && !object.pipeStreamData(&discard, 0, qpdf_dl_generalized)) {
                return "a stream cannot be read";
            }
        }
        if (pdf.anyWarnings()) {
            return "QPDF warns: " + pdf.getWarnings().front().getMessageDetail();
        }
    } catch (const std::exception &e) {
        return e.what();
    }
    return {};
}

// Turns the child's arguments and environment into the arrays execve takes, made before fork.
struct ExecText
{
    std::vector<std::string> argv_text;
    std::vector<std::string> env_text;
    std::vector<char *> argv;
    std::vector<char *> envp;

    ExecText(const std::vector<std::string> &arguments, const fs::path &data_home)
    {
        argv_text.push_back(QF_CLI_PATH);
        argv_text.insert(argv_text.end(), arguments.begin(), arguments.end());
        for (char **entry = environ; *entry != nullptr; ++entry) {
            if (std::strncmp(*entry, "XDG_DATA_HOME=", 14) != 0) {
                env_text.emplace_back(*entry);
            }
        }
        if (!data_home.empty()) {
            env_text.push_back("XDG_DATA_HOME=" + data_home.string());
        }
        for (auto &text : argv_text) {
            argv.push_back(text.data());
        }
        argv.push_back(nullptr);
        for (auto &text : env_text) {
            envp.push_back(text.data());
        }
        envp.push_back(nullptr);
    }
};

} // namespace

FileSeal seal_of(const fs::path &file)
{
    struct stat info
    {
    };
    if (::stat(file.c_str(), &info) != 0) {
        return {};
    }
    return {read_bytes(file),
            static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
            info.st_ino};
}

std::string undecodable(const fs::path &file, const std::string &pdf_password)
{
    const std::string extension = upper_extension(file);
    try {
        if (extension == ".JPG") {
            // libjpeg only warns about a cut file, so the end marker is checked as well.
            if (!ends_with(read_bytes(file), "\xFF\xD9")) {
                return "the JPEG data has no end";
            }
            return read_jpeg(file).image.width > 0 ? "" : "a JPEG of no pixels";
        }
        if (extension == ".PNG") {
            if (!ends_with(read_bytes(file), std::string("IEND\xAE\x42\x60\x82", 8))) {
                return "the PNG has no end chunk";
            }
            return read_png(file).image.width > 0 ? "" : "a PNG of no pixels";
        }
        if (extension == ".TIF" || extension == ".TIFF") {
            const auto images = read_tiff(file);
            if (images.empty()) {
                return "a TIFF of no image";
            }
            for (const auto &image : images) {
                if (image.image.samples.empty()) {
                    return "a TIFF image without pixels";
                }
            }
            return {};
        }
        if (extension == ".PDF") {
            return pdf_problems(file, pdf_password);
        }
        if (extension == ".TXT") {
            return read_bytes(file).empty() ? "an empty text file" : "";
        }
    } catch (const std::exception &e) {
        return e.what();
    }
    return "an unexpected file";
}

int pdf_page_count(const fs::path &file, const std::string &password)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(file.c_str(), password.c_str());
        return static_cast<int>(QPDFPageDocumentHelper(pdf).getAllPages().size());
    } catch (const std::exception &) {
        return -1;
    }
}

std::vector<std::string> tree_of(const fs::path &folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        names.push_back(fs::relative(it->path(), folder).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> temporaries_in(const fs::path &folder)
{
    std::vector<std::string> found;
    for (const auto &name : tree_of(folder)) {
        const std::string leaf = fs::path(name).filename().string();
        if (leaf.front() == '.' || leaf.find("_exiftool_tmp") != std::string::npos) {
            found.push_back(name);
        }
    }
    return found;
}

std::vector<std::string> scratch_left(const fs::path &data_home)
{
    std::vector<std::string> left;
    const fs::path work = data_home / "org.quirefold.extract";
    std::error_code error;
    for (fs::directory_iterator it(work, error), end; !error && it != end; it.increment(error)) {
        left.push_back(it->path().filename().string());
    }
    return left;
}

std::vector<pid_t> processes_left(const fs::path &data_home, std::chrono::milliseconds grace)
{
    const std::string entry = "XDG_DATA_HOME=" + data_home.string() + '\0';
    const auto deadline = std::chrono::steady_clock::now() + grace;
    for (;;) {
        std::vector<pid_t> found;
        std::error_code error;
        for (fs::directory_iterator it("/proc", error), end; !error && it != end;
             it.increment(error)) {
            const std::string name = it->path().filename().string();
            if (name.find_first_not_of("0123456789") != std::string::npos) {
                continue;
            }
            // A zombie shows no environment: it is gone for what matters here.
            if (read_bytes(it->path() / "environ").find(entry) != std::string::npos) {
                found.push_back(static_cast<pid_t>(std::stol(name)));
            }
        }
        if (found.empty() || std::chrono::steady_clock::now() >= deadline) {
            return found;
        }
        ::usleep(50000);
    }
}

CliChild::CliChild(const std::vector<std::string> &arguments, const CliLimits &limits)
{
    ExecText text(arguments, limits.data_home);
    const std::string working = limits.working_folder.string();
    int out_pipe[2];
    int err_pipe[2];
    if (::pipe2(out_pipe, O_CLOEXEC) != 0 || ::pipe2(err_pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        // Only async-signal-safe calls between fork and exec.
        const int null_input = ::open("/dev/null", O_RDONLY);
        ::dup2(null_input, 0);
        ::dup2(out_pipe[1], 1);
        ::dup2(err_pipe[1], 2);
        ::signal(SIGXFSZ, SIG_IGN); // a write past the limit then fails with EFBIG
        ::signal(SIGINT, SIG_DFL);
        const rlimit limit{limits.file_size, limits.file_size};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        if (limits.core_dumps) {
            const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
            ::setrlimit(RLIMIT_CORE, &unlimited);
        }
        if (!working.empty() && ::chdir(working.c_str()) != 0) {
            ::_exit(126);
        }
        ::execve(text.argv[0], text.argv.data(), text.envp.data());
        ::_exit(127);
    }
    ::close(out_pipe[1]);
    ::close(err_pipe[1]);
    out_fd_ = out_pipe[0];
    err_fd_ = err_pipe[0];
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
}

CliChild::~CliChild()
{
    if (status_ < 0 && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    for (const int fd : {out_fd_, err_fd_}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool CliChild::pump(std::chrono::milliseconds timeout)
{
    std::vector<pollfd> fds;
    for (const int fd : {out_fd_, err_fd_}) {
        if (fd >= 0) {
            fds.push_back({fd, POLLIN, 0});
        }
    }
    if (fds.empty()) {
        return false;
    }
    if (::poll(fds.data(), fds.size(), static_cast<int>(timeout.count())) <= 0) {
        return true;
    }
    for (const auto &ready : fds) {
        if (ready.revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = ::read(ready.fd, buffer, sizeof buffer);
        int &fd = ready.fd == out_fd_ ? out_fd_ : err_fd_;
        std::string &sink = ready.fd == out_fd_ ? out_ : err_;
        if (got > 0) {
            sink.append(buffer, static_cast<std::size_t>(got));
        } else {
            ::close(fd);
            fd = -1;
        }
    }
    return true;
}

bool CliChild::wait_for_output(const std::string &text, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (out_.find(text) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !pump(std::min(left, std::chrono::milliseconds(50)))) {
            return out_.find(text) != std::string::npos;
        }
    }
    return true;
}

void CliChild::send(int signal_number) const
{
    ::kill(pid_, signal_number);
}

int CliChild::finish(std::chrono::seconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (pump(std::chrono::milliseconds(50)) && std::chrono::steady_clock::now() < deadline) {
    }
    if (status_ >= 0) {
        return status_;
    }
    int raw = 0;
    while (::waitpid(pid_, &raw, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid_, SIGKILL); // over its time: fail the test, not hang it
            ::waitpid(pid_, &raw, 0);
            status_ = 999;
            return status_;
        }
        ::usleep(10000);
    }
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return status_;
}

std::vector<std::string> CliChild::out_lines() const
{
    std::vector<std::string> lines;
    std::istringstream in(out_);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

CliOutcome run_cli(const std::vector<std::string> &arguments, const CliLimits &limits)
{
    CliChild child(arguments, limits);
    CliOutcome outcome;
    outcome.status = child.finish();
    outcome.out = child.out_lines();
    outcome.err = child.err();
    return outcome;
}

bool has_line(const std::vector<std::string> &lines, const std::string &line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

} // namespace qf::test
