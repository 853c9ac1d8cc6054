// SPDX-License-Identifier: GPL-3.0-or-later
// What a program that ends at once removes: every temporary under way, however many.
#include <fstream>
#include <gtest/gtest.h>
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

TEST(Temporaries, ThoseOfAKilledProcessAreRecognisedAndOnlyThose)
{
    test::TempFolder folder;
    std::ofstream(folder / ".page.JPG.Ab12Cd") << "not ours"; // as an older build or another program names one
    const pid_t killed = ::fork();
    if (killed == 0) {
        sibling_temp_name(folder / "page.JPG");
        sibling_temp_folder(folder / (std::string(300, 'x') + ".PDF")); // still a name that fits
        ::raise(SIGKILL);
    }
    ::waitpid(killed, nullptr, 0);
    ASSERT_EQ(folder.entries().size(), 3u);
    const fs::path mine = sibling_temp_name(folder / "live.JPG"); // the first here clears the killed one's
    remove_abandoned_temps(folder.path());
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{".page.JPG.Ab12Cd", mine.filename().string()}));
}

} // namespace
} // namespace qf::engine
