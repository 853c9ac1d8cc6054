// SPDX-License-Identifier: GPL-3.0-or-later
// Passwords never show: not in the log, messages, standard output or error, file names,
// scratch files, stamped tags, output bytes, nor the command line other users can read.
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/output_checks.h"
#include "tests/support/process.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;

// Distinctive values, so that any appearance is a leak and not a coincidence.
const std::string kUnlock = "Qf7-unlock-Zebra";
const std::string kWrong = "Qf7-wrong-Walrus";
const std::string kOutputOpen = "Qf7-open-Heron";
const std::string kOutputMaster = "Qf7-master-Ibis";
const std::vector<std::string> kSecrets{kUnlock, kWrong, kOutputOpen, kOutputMaster};

// Every place a secret could end up after a run: the texts given, and every name and byte of
// every file under the folders given.
void expect_no_secret(const std::vector<std::string> &texts, const std::vector<fs::path> &folders)
{
    for (const auto &secret : kSecrets) {
        for (const auto &text : texts) {
            EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in:\n" << text;
        }
        for (const auto &folder : folders) {
            for (const auto &name : tree_of(folder)) {
                EXPECT_EQ(name.find(secret), std::string::npos) << secret << " names " << name;
                if (fs::is_regular_file(folder / name)) {
                    EXPECT_EQ(file_bytes(folder / name).find(secret), std::string::npos)
                        << secret << " inside " << folder / name;
                }
            }
        }
    }
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const auto &line : lines) {
        text += line + "\n";
    }
    return text;
}

class PasswordSecrecy : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
        fs::create_directories(folder / "keys");
        write_numbered_pdf(folder / "plain.pdf", 2);
        write_encrypted_copy(folder / "plain.pdf", locked, PdfEncryption::Aes256, kUnlock,
                             "owner-of-it");
        fs::remove(folder / "plain.pdf");
    }

    TempFolder folder;
    const fs::path locked = folder / "in" / "locked.pdf";
    const fs::path data_home = folder / "data";
};

TEST_F(PasswordSecrecy, UnlockPasswordsStayOutOfEverythingARunLeaves)
{
    std::ofstream(folder / "keys" / "passwords.txt") << kWrong << "\n" << kUnlock << "\n";
    const std::vector<std::vector<std::string>> ways{
        {"--password", kUnlock},
        {"--password=" + kWrong, "--password=" + kUnlock},
        {"--password-file", (folder / "keys" / "passwords.txt").string()},
    };
    for (const char *format : {"JPEG", "TIFF (Single Page)", "PDF (Multipage)", "TEXT"}) {
        for (const auto &way : ways) {
            SCOPED_TRACE(std::string(format) + " " + way.front());
            fs::remove_all(folder / "out");
            std::vector<std::string> arguments{
                "--format",    format,   "--dpi", "36",
                "--pdfauthor", "Author", "-o",    (folder / "out").string()};
            arguments.insert(arguments.end(), way.begin(), way.end());
            arguments.push_back(locked.string());
            const auto outcome = run_cli(arguments, {data_home});
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            EXPECT_FALSE(tree_of(folder / "out").empty());
            expect_no_secret({joined(outcome.out), outcome.err}, {folder / "out", data_home});
        }
    }
}

TEST_F(PasswordSecrecy, AWrongPasswordIsRefusedWithoutBeingRepeated)
{
    const struct
    {
        std::vector<std::string> given;
        const char *line;
    } cases[] = {
        {{"--password", kWrong}, "locked.pdf could not be opened: the password does not open it"},
        {{}, "locked.pdf could not be opened: could not be opened without a password"},
    };
    for (const auto &c : cases) {
        std::vector<std::string> arguments{"--format", "PNG", "-o", (folder / "out").string()};
        arguments.insert(arguments.end(), c.given.begin(), c.given.end());
        arguments.push_back(locked.string());
        const auto outcome = run_cli(arguments, {data_home});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_NE(outcome.err.find(c.line), std::string::npos) << outcome.err;
        expect_no_secret({joined(outcome.out), outcome.err}, {folder / "out", data_home});
    }
}

TEST_F(PasswordSecrecy, AProfileWithOutputPasswordsKeepsThemOutOfLogsAndFiles)
{
    make_tiff(folder / "in" / "scan.tif", {TiffPage{}, TiffPage{}});
    const fs::path profile = folder / "keys" / "secure.qfk";
    const auto saved =
        run_cli({"--format", "PDF (Multipage)", "--pdfpassword", kOutputOpen, "--pdffullpassword",
                 kOutputMaster, "--save-profile", profile.string()},
                {data_home});
    ASSERT_EQ(saved.status, 0) << saved.err;
    const auto used =
        run_cli({"--profile", profile.string(), "-o", (folder / "out").string(),
                 (folder / "in" / "scan.tif").string(), locked.string(), "--password", kUnlock},
                {data_home});
    EXPECT_EQ(used.status, 0) << used.err;
    for (const char *name : {"scan.PDF", "locked.PDF"}) {
        EXPECT_TRUE(opens_with(folder / "out" / name, kOutputOpen)) << name;
        EXPECT_FALSE(opens_with(folder / "out" / name, "")) << name;
    }
    // The profile itself keeps them encoded, never as typed.
    EXPECT_EQ(file_bytes(profile).find(kOutputOpen), std::string::npos);
    expect_no_secret({joined(saved.out), saved.err, joined(used.out), used.err},
                     {folder / "out", data_home});
}

// Copies of `document` enough for a run long enough to be looked at while it works.
std::vector<std::string> many_copies(const fs::path &document, const fs::path &folder)
{
    fs::create_directories(folder);
    std::vector<std::string> inputs;
    for (int n = 0; n < 12; ++n) {
        const fs::path copy = folder / (document.stem().string() + std::to_string(n) + ".pdf");
        fs::copy_file(document, copy, fs::copy_options::overwrite_existing);
        inputs.push_back(copy.string());
    }
    return inputs;
}

TEST_F(PasswordSecrecy, OtherUsersCannotReadThePasswordFromTheCommandLine)
{
    const auto inputs = many_copies(locked, folder / "many");
    const std::vector<std::vector<std::string>> ways{
        {"--password", kUnlock, "--pdfpassword", kOutputOpen, "--pdffullpassword", kOutputMaster},
        {"--password=" + kUnlock, "--pdfpassword=" + kOutputOpen,
         "--pdffullpassword=" + kOutputMaster},
    };
    for (const auto &way : ways) {
        SCOPED_TRACE(way.front());
        fs::remove_all(folder / "out");
        std::vector<std::string> arguments{"--format", "PNG", "--dpi", "100",
                                           "--jobs",   "1",   "-o",    (folder / "out").string()};
        arguments.insert(arguments.end(), way.begin(), way.end());
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        CliChild child(arguments, {data_home});
        ASSERT_TRUE(child.wait_for_output("is being Processed", std::chrono::seconds(60)))
            << child.err();
        const std::string cmdline = file_bytes("/proc/" + std::to_string(child.pid()) + "/cmdline");
        // The rest of the command line is still there for whoever looks at the process.
        EXPECT_NE(cmdline.find("locked0.pdf"), std::string::npos);
        for (const auto &secret : kSecrets) {
            EXPECT_EQ(cmdline.find(secret), std::string::npos) << cmdline;
        }
        child.send(SIGINT);
        EXPECT_EQ(child.finish(), 3) << child.err();
    }
}

// Files named like core dumps ("core", "core.PID") in `folder`.
std::vector<fs::path> core_files(const fs::path &folder)
{
    std::vector<fs::path> cores;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().rfind("core", 0) == 0) {
            cores.push_back(entry.path());
        }
    }
    return cores;
}

// The run ends in a crash (SIGABRT) while it works; returns the folder it crashed in.
fs::path crash_a_run(const std::vector<std::string> &arguments, const fs::path &crash_folder,
                     const fs::path &data_home)
{
    fs::create_directories(crash_folder);
    CliChild child(arguments, {data_home, RLIM_INFINITY, crash_folder, true});
    EXPECT_TRUE(child.wait_for_output("is being Processed", std::chrono::seconds(60)))
        << child.err();
    child.send(SIGABRT);
    EXPECT_EQ(child.finish(), 128 + SIGABRT);
    EXPECT_EQ(processes_left(data_home, std::chrono::seconds(3)), std::vector<pid_t>{});
    return crash_folder;
}

TEST_F(PasswordSecrecy, ACrashLeavesNoCoreDumpHoldingThePassword)
{
    const std::string pattern = file_bytes("/proc/sys/kernel/core_pattern");
    if (pattern.rfind("core", 0) != 0) {
        GTEST_SKIP() << "core dumps go elsewhere here: " << pattern;
    }
    write_numbered_pdf(folder / "open.pdf", 2);
    const std::vector<std::string> options{"--format", "PNG", "--dpi", "100",
                                           "--jobs",   "1",   "-o",    (folder / "out").string()};
    // Without a password a crash leaves its core, as the system is set up to keep it.
    auto plain = options;
    for (const auto &input : many_copies(folder / "open.pdf", folder / "plain")) {
        plain.push_back(input);
    }
    if (core_files(crash_a_run(plain, folder / "crash-plain", data_home)).empty()) {
        GTEST_SKIP() << "this system keeps no core dump";
    }
    auto with_password = options;
    with_password.insert(with_password.end(), {"--password", kUnlock});
    for (const auto &input : many_copies(locked, folder / "many")) {
        with_password.push_back(input);
    }
    const auto cores = core_files(crash_a_run(with_password, folder / "crash-locked", data_home));
    for (const auto &core : cores) {
        EXPECT_EQ(file_bytes(core).find(kUnlock), std::string::npos) << core;
    }
    EXPECT_EQ(cores, std::vector<fs::path>{}) << "a run holding a password leaves no core dump";
}

} // namespace
} // namespace qf::test
