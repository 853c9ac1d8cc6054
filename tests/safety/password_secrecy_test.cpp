// SPDX-License-Identifier: GPL-3.0-or-later
// Passwords never show: not in the log, messages, standard output or error, file names,
// scratch files, stamped tags, output bytes, the command line other users can read, nor a core
// dump.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "tests/support/process.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::test {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Distinctive values, so that any appearance is a leak and not a coincidence.
const std::string kUnlock = "Qf7-unlock-Zebra";
const std::string kWrong = "Qf7-wrong-Walrus";
const std::string kOutputOpen = "Qf7-open-Heron";
const std::string kOutputMaster = "Qf7-master-Ibis";
const std::vector<std::string> kSecrets{kUnlock, kWrong, kOutputOpen, kOutputMaster};

// Every name and byte of every file under `folders`, and `text`, are free of every secret.
void expect_no_secret(const std::string &text, const std::vector<fs::path> &folders)
{
    for (const auto &secret : kSecrets) {
        EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in:\n" << text;
        for (const auto &folder : folders) {
            for (const auto &name : tree_of(folder)) {
                EXPECT_EQ(name.find(secret), std::string::npos) << secret << " names " << name;
                EXPECT_TRUE(fs::is_directory(folder / name) || file_bytes(folder / name).find(secret) == std::string::npos)
                    << secret << " inside " << name;
            }
        }
    }
}

class PasswordSecrecy : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::create_directories(folder / "in");
        fs::create_directories(folder / "keys");
        write_numbered_pdf(folder / "plain.pdf", 2);
        write_encrypted_copy(folder / "plain.pdf", locked, PdfEncryption::Aes256, kUnlock, "owner-of-it");
        make_tiff(folder / "in" / "scan.tif", {TiffPage{}});
        std::ofstream(folder / "keys" / "passwords.txt") << kWrong << "\n" << kUnlock << "\n";
        ASSERT_EQ(run_cli({"--format", "PDF (Multipage)", "--pdfpassword", kOutputOpen, "--pdffullpassword", kOutputMaster,
                           "--save-profile", profile.string()},
                          {data_home})
                      .status,
                  0);
    }

    TempFolder folder;
    const fs::path locked = folder / "in" / "locked.pdf";
    const fs::path profile = folder / "keys" / "secure.qfk";
    const fs::path data_home = folder / "data";
};

// Unlock passwords given every way, output passwords from a profile, stamped tags, every kind
// of output, and the refusals of a wrong or missing password.
TEST_F(PasswordSecrecy, NoRunLeavesAPasswordAnywhere)
{
    const std::string scan = (folder / "in" / "scan.tif").string();
    // line: on standard error
    // locked: the outputs open only with the profile's password
    const struct { std::vector<std::string> arguments; int status; const char *line; bool locked;
                   } cases[] = {
        {{"--format", "JPEG", "--password", kUnlock}, 0, ""},
        {{"--format", "TIFF (Single Page)", "--password=" + kWrong, "--password=" + kUnlock}, 0, ""},
        {{"--format", "TEXT", "--password-file", (folder / "keys" / "passwords.txt").string()}, 0, ""},
        {{"--profile", profile.string(), "--password", kUnlock, scan}, 0, "", true},
        {{"--format", "PNG", "--password", kWrong}, 3, "locked.pdf could not be opened: the password does not open it"},
        {{"--format", "PNG"}, 3, "locked.pdf could not be opened: could not be opened without a password"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        fs::remove_all(folder / "out");
        std::vector<std::string> arguments{"--dpi", "36", "--pdfauthor", "Author", "-o", (folder / "out").string()};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        arguments.push_back(locked.string());
        const auto outcome = run_cli(arguments, {data_home});
        EXPECT_EQ(outcome.status, c.status) << outcome.err;
        EXPECT_NE(outcome.err.find(c.line), std::string::npos) << outcome.err;
        EXPECT_EQ(tree_of(folder / "out").empty(), c.status != 0);
        expect_no_secret(outcome.output + outcome.err + file_bytes(profile), {folder / "out", data_home});
        for (const char *name : {"scan.PDF", "locked.PDF"}) {
            if (c.locked) {
                EXPECT_TRUE(opens_with(folder / "out" / name, kOutputOpen)) << name;
                EXPECT_FALSE(opens_with(folder / "out" / name, "")) << name;
            }
        }
    }
}

// While a run works, its command line as other users read it holds no password; crashed, it
// leaves no core dump to hold one, where a run without a password leaves its core if the
// system keeps them.
TEST_F(PasswordSecrecy, NeitherTheProcessNorItsCrashShowsThePassword)
{
    std::vector<std::string> plain, encrypted; // runs long enough to be looked at while they work
    for (int n = 0; n < 12; ++n) {
        plain.push_back((folder / "in" / ("plain" + std::to_string(n) + ".pdf")).string());
        fs::copy_file(folder / "plain.pdf", plain.back());
        encrypted.push_back((folder / "in" / ("locked" + std::to_string(n) + ".pdf")).string());
        fs::copy_file(locked, encrypted.back());
    }
    const struct { std::vector<std::string> passwords; const std::vector<std::string> &inputs; } cases[] = {
        {{}, plain},
        // Each password given as a separate argument and as one joined by "=".
        {{"--password", kUnlock, "--pdfpassword=" + kOutputOpen, "--pdffullpassword", kOutputMaster,
          "--password=" + kWrong, "--pdffullpassword=" + kOutputMaster, "--pdfpassword", kOutputOpen}, encrypted},
    };
    bool system_keeps_cores = false;
    const auto cores = [](const fs::path &folder) { // files named "core" or "core.PID"
        return std::count_if(fs::directory_iterator(folder), {}, [](const fs::directory_entry &entry) {
            return entry.path().filename().string().starts_with("core");
        });
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.passwords));
        std::vector<std::string> arguments{"--format", "PNG", "--dpi", "100", "--jobs", "1", "-o", (folder / "out").string()};
        arguments.insert(arguments.end(), c.passwords.begin(), c.passwords.end());
        arguments.insert(arguments.end(), c.inputs.begin(), c.inputs.end());
        const fs::path crash = folder / ("crash" + std::to_string(&c - cases));
        fs::create_directories(crash);
        CliChild child(arguments, {data_home, RLIM_INFINITY, crash, true});
        ASSERT_TRUE(child.wait_for_output("is being Processed", 60s)) << child.err();
        const std::string cmdline = file_bytes("/proc/" + std::to_string(child.pid()) + "/cmdline");
        EXPECT_NE(cmdline.find("0.pdf"), std::string::npos) << cmdline; // the rest is still there
        expect_no_secret(cmdline, {});
        child.send(SIGABRT);
        EXPECT_EQ(child.finish(), 128 + SIGABRT);
        EXPECT_EQ(processes_left(data_home, 3s), std::vector<pid_t>{});
        if (c.passwords.empty()) {
            system_keeps_cores = cores(crash) > 0;
        } else if (system_keeps_cores) {
            EXPECT_EQ(cores(crash), 0) << "a run holding a password leaves no core dump";
        }
    }
}

} // namespace
} // namespace qf::test
