// SPDX-License-Identifier: GPL-3.0-or-later
// The command line over a folder of hostile files and over file names a script would choke on:
// one line per event, every good page written, bounded memory and time.
#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/hostile/hostile_files.h"
#include "tests/support/image_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

extern char **environ;

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct CliRun
{
    int status = -1;
    bool timed_out = false;
    long peak_kib = 0; // the program's peak resident memory
    std::chrono::milliseconds elapsed{};
    std::vector<std::string> out; // standard output, line by line
    std::vector<std::string> err; // standard error, line by line
};

std::vector<std::string> file_lines(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Runs quirefold-cli without a terminal, with `environment` added to this process's, and kills
// it when it runs past `deadline`.
CliRun run_cli(const std::vector<std::string> &arguments, const fs::path &scratch,
               const std::vector<std::string> &environment, std::chrono::seconds deadline)
{
    std::vector<std::string> argv_text{QF_CLI_PATH};
    argv_text.insert(argv_text.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (auto &argument : argv_text) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> env_text(environment);
    for (char **entry = environ; *entry != nullptr; ++entry) {
        env_text.emplace_back(*entry);
    }
    std::vector<char *> envp;
    for (auto &entry : env_text) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    const fs::path out = scratch / "stdout.txt";
    const fs::path err = scratch / "stderr.txt";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    CliRun run;
    pid_t pid = 0;
    const auto started = Clock::now();
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        rusage usage{};
        while (wait4(pid, &status, WNOHANG, &usage) == 0) {
            if (Clock::now() - started > deadline && !run.timed_out) {
                run.timed_out = true;
                kill(pid, SIGKILL);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        run.peak_kib = usage.ru_maxrss;
    }
    run.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
    posix_spawn_file_actions_destroy(&actions);
    run.out = file_lines(out);
    run.err = file_lines(err);
    return run;
}

std::string file_text(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool has_line(const std::vector<std::string> &lines, const std::string &line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

bool has_line_starting(const std::vector<std::string> &lines, const std::string &prefix)
{
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string &line) { return line.rfind(prefix, 0) == 0; });
}

// Valid UTF-8 without control characters: what a terminal or a script reading lines can take.
bool is_clean_line(const std::string &line)
{
    for (std::size_t i = 0; i < line.size();) {
        const auto lead = static_cast<unsigned char>(line[i]);
        std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if (lead < 0x20 || lead == 0x7F || (lead >= 0x80 && lead < 0xC2) || lead > 0xF4 ||
            i + length > line.size()) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(line[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += length;
    }
    return true;
}

class HostileCli : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        fs::create_directories(in());
        environment = {"XDG_DATA_HOME=" + (folder / "data").string()};
    }
    void TearDown() override
    {
        if (HasFailure()) {
            for (const auto &line : last.out) {
                std::cerr << "  out: " << line << '\n';
            }
            for (const auto &line : last.err) {
                std::cerr << "  err: " << line << '\n';
            }
        }
    }
    CliRun cli(const std::vector<std::string> &arguments)
    {
        last = run_cli(arguments, folder.path(), environment, std::chrono::seconds(120));
        return last;
    }
    fs::path in() const { return folder / "in"; }
    fs::path out() const { return folder / "out"; }

    TempFolder folder;
    std::vector<std::string> environment;
    CliRun last;
};

TEST_F(HostileCli, AFolderOfHostileFilesIsConvertedAroundThemInBoundedMemoryAndTime)
{
    write_text_file(in() / "a-empty.pdf", "");
    write_text_file(in() / "a-empty.tif", "");
    write_text_file(in() / "b-letter.pdf", "Dear reader,\nthis is not a PDF.\n");
    write_numbered_pdf(folder / "plain.pdf", 2);
    write_encrypted_copy(folder / "plain.pdf", in() / "c-locked.pdf", PdfEncryption::Aes128, "user",
                         "owner");
    write_truncated_copy(folder / "plain.pdf", in() / "d-cut.pdf",
                         fs::file_size(folder / "plain.pdf") / 2);
    write_tiff_header_only(in() / "e-huge.tif", 200000, 200000);
    write_doubling_forms_pdf(in() / "g-doubling.pdf", 40);
    write_wide_page_pdf(in() / "h-wide.pdf", 14400.0 * 72);
    write_numbered_pdf(in() / "z-good.pdf", 2);
    make_tiff(in() / "z-scan.tif", {TiffPage{}, TiffPage{.kind = TiffKind::Bilevel}});
    environment.push_back("QUIREFOLD_PAGE_SECONDS=1");

    std::map<fs::path, std::string> sources;
    for (const auto &entry : fs::directory_iterator(in())) {
        sources[entry.path()] = file_text(entry.path());
    }

    const CliRun run = cli({"--format", "png", "--dpi", "150", "--zoomfactor", "1", "--jobs", "2",
                            "-o", out().string(), in().string()});

    ASSERT_FALSE(run.timed_out);
    EXPECT_EQ(run.status, 3);
    EXPECT_LT(run.elapsed, std::chrono::seconds(60));
    EXPECT_LT(run.peak_kib, 400 * 1024);
    // Refused when the folder is read: no document there.
    EXPECT_TRUE(has_line_starting(run.err, "a-empty.pdf could not be opened: "));
    EXPECT_TRUE(has_line_starting(run.err, "a-empty.tif could not be opened: "));
    EXPECT_TRUE(has_line_starting(run.err, "b-letter.pdf could not be opened: "));
    EXPECT_TRUE(has_line(
        run.err, "c-locked.pdf could not be opened: could not be opened without a password"));
    // Admitted, and failing in the run with the reason.
    EXPECT_TRUE(has_line(run.out, "e-huge.tif page 1 could not be converted: the image is too "
                                  "large: 200000 x 200000 pixels"));
    EXPECT_TRUE(has_line(run.out, "g-doubling.pdf page 1 could not be converted: the page took "
                                  "longer than 1 second to draw and was abandoned"));
    EXPECT_TRUE(has_line(run.out, "h-wide.pdf page 1 could not be converted: page too large to "
                                  "render: 2160000 x 1650 pixels"));
    // The good documents after them are all there.
    EXPECT_EQ(read_png(out() / "z-good Page 001.PNG").image.width, 1275);
    EXPECT_EQ(read_png(out() / "z-good Page 002.PNG").image.height, 1650);
    EXPECT_EQ(read_png(out() / "z-scan Page 001.PNG").image.width, 64);
    EXPECT_EQ(read_png(out() / "z-scan Page 002.PNG").image.width, 64);
    EXPECT_EQ(run.out.back(), "All Done");
    for (const auto &[path, bytes] : sources) {
        EXPECT_EQ(file_text(path), bytes) << path << " was changed";
    }
}

TEST_F(HostileCli, AnImageBombMeetsTheMemoryCeilingAndTheNextDocumentIsConverted)
{
    // An image that claims 60000 x 60000 pixels and holds three bytes. Drawn at 900 dots per
    // inch (300 dpi, zoom 3), MuPDF would decode it into over a gigabyte.
    write_image_bomb_pdf(in() / "bomb.pdf", 60000, 60000);
    RawPage small;
    small.media_box = "[0 0 72 36]";
    small.content = "0 0 1 rg 0 0 36 36 re f";
    write_one_page_pdf(in() / "next.pdf", small);
    environment.push_back("QUIREFOLD_PDF_MEMORY_MB=256");

    const CliRun run = cli({"--format", "png", "--dpi", "300", "-o", out().string(),
                            (in() / "bomb.pdf").string(), (in() / "next.pdf").string()});

    ASSERT_FALSE(run.timed_out);
    EXPECT_EQ(run.status, 3);
    EXPECT_TRUE(has_line(run.out, "bomb.pdf page 1 could not be converted: the page needs more "
                                  "memory than the limit of 256 MB"));
    const PngFile next = read_png(out() / "next.PNG");
    EXPECT_EQ(next.image.width, 900); // 72 pt at 900 dpi
    EXPECT_EQ(next.image.rgb_at(100, 100), (std::array<std::uint8_t, 3>{0, 0, 255}));
    // The ceiling and the bomb page's own 7650 x 9900 RGB picture (227 MB), little more.
    EXPECT_LT(run.peak_kib, 700 * 1024);
}

TEST_F(HostileCli, AwkwardNamesKeepOneLineAnEventAndTheirBytesInTheFiles)
{
    const struct
    {
        std::string name;  // as on disk
        std::string shown; // as the log shows it
    } cases[] = {
        {"with blank.pdf", "with blank.pdf"},
        {"it's \"quoted\" $HOME `x`.pdf", "it's \"quoted\" $HOME `x`.pdf"},
        {"line\nend.pdf", "line?end.pdf"},
        {"latin\xE9\xFF.pdf", "latin??.pdf"},
        {"tab\there\r.tif", "tab?here?.tif"},
        {"r\xC3\xA9sum\xC3\xA9.pdf", "r\xC3\xA9sum\xC3\xA9.pdf"},
    };
    std::vector<std::string> arguments{"--format",    "jpeg", "--dpi", "40",
                                       "--pdfauthor", "Ann",  "-o",    out().string()};
    for (const auto &c : cases) {
        if (c.name.ends_with(".tif")) {
            make_tiff(in() / c.name, {TiffPage{}});
        } else {
            write_numbered_pdf(in() / c.name, 1);
        }
        arguments.push_back((in() / c.name).string());
    }

    const CliRun run = cli(arguments);

    ASSERT_FALSE(run.timed_out);
    EXPECT_EQ(run.status, 0);
    for (const auto &line : run.out) {
        EXPECT_TRUE(is_clean_line(line)) << line;
    }
    for (const auto &c : cases) {
        SCOPED_TRACE(c.shown);
        EXPECT_TRUE(has_line(run.out, c.shown + " is being Processed"));
        const std::string stem = fs::path(c.name).stem().string();
        const fs::path jpeg = out() / (stem + ".JPG");
        ASSERT_TRUE(fs::exists(jpeg)); // the output keeps the name's bytes
        EXPECT_GT(read_jpeg(jpeg).image.width, 0);
        EXPECT_EQ(exiftool_tag(jpeg, "EXIF:Artist"), "Ann");
        EXPECT_EQ(exiftool_tag(jpeg, "EXIF:XResolution"), "40");
    }

    // Text files take the same names; a name the run cannot read is reported on one line too.
    write_text_file(in() / "broken\n\xFF.pdf", "");
    arguments[1] = "text";
    arguments.push_back((in() / "broken\n\xFF.pdf").string());
    const CliRun text_run = cli(arguments);
    ASSERT_FALSE(text_run.timed_out);
    EXPECT_EQ(text_run.status, 3);
    for (const auto &line : text_run.out) {
        EXPECT_TRUE(is_clean_line(line)) << line;
    }
    for (const auto &line : text_run.err) {
        EXPECT_TRUE(is_clean_line(line)) << line;
    }
    EXPECT_TRUE(has_line_starting(text_run.err, "broken??.pdf could not be opened: "));
    for (const auto &c : cases) {
        if (!c.name.ends_with(".tif")) {
            const fs::path text = out() / (fs::path(c.name).stem().string() + ".TXT");
            EXPECT_EQ(file_text(text), numbered_page_line(1) + "\n") << c.shown;
        }
    }
}

} // namespace
} // namespace qf::test
