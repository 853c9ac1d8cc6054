// SPDX-License-Identifier: GPL-3.0-or-later
// The core stays free of the window toolkit: only shell/ and files whose names say so may
// include Qt headers.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {
namespace fs = std::filesystem;

bool may_use_qt(const fs::path& relative)
{
    static const std::regex kQtFile(R"(.*_(view|dialog|widget|pane|tab|qt)\.(h|cpp)$)");
    return *relative.begin() == "shell" || std::regex_match(relative.filename().string(), kQtFile);
}

TEST(Layout, OnlyWindowFilesIncludeQt)
{
    const fs::path root = QF_SOURCE_DIR;
    static const std::regex kQtInclude(R"(^\s*#\s*include\s*<Q[A-Za-z]*(/[^>]*)?>)");
    std::vector<std::string> offenders;
    for (const char* folder : {"engine", "sources", "writers", "intake", "settings", "preview", "app", "worker", "cli"}) {
        if (!fs::exists(root / folder)) {
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            const auto extension = entry.path().extension();
            if (!entry.is_regular_file() || (extension != ".h" && extension != ".cpp")) {
                continue;
            }
            const fs::path relative = fs::relative(entry.path(), root);
            if (may_use_qt(relative)) {
                continue;
            }
            std::ifstream file(entry.path());
            std::string line;
            while (std::getline(file, line)) {
                // QPDF's headers begin with "QPDF" but live under qpdf/, so they never match <Q...>.
                if (std::regex_search(line, kQtInclude)) {
                    offenders.push_back(relative.string() + ": " + line);
                }
            }
        }
    }
    EXPECT_TRUE(offenders.empty()) << "Qt outside the window's files:\n" << ::testing::PrintToString(offenders);
}

} // namespace
