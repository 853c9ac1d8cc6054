// SPDX-License-Identifier: GPL-3.0-or-later
// What a program that ends at once removes: every temporary under way, however many.
#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine/file_ops.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::engine {
namespace {
namespace fs = std::filesystem;

TEST(Temporaries, AnAbruptEndRemovesEveryOneUnderWay)
{
    // Many pages written ahead at once and many outputs claimed: far more than a handful.
    const struct { int files; int folders; } cases[] = {{1, 0}, {0, 1}, {150, 0}, {40, 90}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.files) + " files, " + std::to_string(c.folders) + " folders");
        test::TempFolder folder;
        for (int n = 0; n < c.files; ++n) {
            sibling_temp_name(folder / ("page " + std::to_string(n) + ".JPG"));
        }
        for (int n = 0; n < c.folders; ++n) {
            const fs::path claim = sibling_temp_folder(folder / ("doc " + std::to_string(n) + ".PDF"));
            std::ofstream(claim / ("doc " + std::to_string(n) + ".PDF")) << "half a file";
        }
        remove_registered_temps();
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }
}

// A killed run's temporaries go; those of a run still under way stay, and that run is left
// alone.
TEST(Temporaries, ThoseOfAKilledProcessAreRecognisedAndOnlyThose)
{
    test::TempFolder folder;
    std::ofstream(folder / ".page.JPG.Ab12Cd") << "not ours"; // as an older build or another program names one
    int named[2];
    ASSERT_EQ(::pipe(named), 0);
    const pid_t live = ::fork();
    if (live == 0) {
        std::signal(SIGHUP, SIG_DFL); // whatever the test was started with
        const std::string name = sibling_temp_name(folder / "other.JPG").filename().string();
        (void)!::write(named[1], name.data(), name.size());
        ::pause();
    }
    char name[256] = {};
    const bool told = ::read(named[0], name, sizeof name - 1) > 0;
    const pid_t killed = ::fork();
    if (killed == 0) {
        sibling_temp_name(folder / "page.JPG");
        sibling_temp_folder(folder / (std::string(300, 'x') + ".PDF")); // still a name that fits
        ::raise(SIGKILL);
    }
    ::waitpid(killed, nullptr, 0);
    EXPECT_EQ(folder.entries().size(), 4u);
    const fs::path mine = sibling_temp_name(folder / "live.JPG"); // the first here clears the killed one's
    remove_abandoned_temps(folder.path());
    std::vector<std::string> kept{".page.JPG.Ab12Cd", name, mine.filename().string()};
    std::sort(kept.begin(), kept.end());
    EXPECT_TRUE(told);
    EXPECT_EQ(folder.entries(), kept);
    const mode_t mask = ::umask(022); // an output is made as any new file is
    ::umask(mask);
    EXPECT_EQ(static_cast<mode_t>(fs::status(mine).permissions()), 0666 & ~mask);
    ::usleep(200000); // time enough to end, had the sweep signalled it
    EXPECT_EQ(::waitpid(live, nullptr, WNOHANG), 0) << "the run under way was signalled";
    ::kill(live, SIGKILL);
    ::waitpid(live, nullptr, 0);
    ::close(named[0]);
    ::close(named[1]);
}

} // namespace
} // namespace qf::engine
