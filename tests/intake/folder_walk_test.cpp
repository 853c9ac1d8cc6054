// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/folder_walk.h"

#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/tiff_fixtures.h"

namespace qf::intake {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

// The walk's tables as "folder: name name ..." lines, folders relative to the root.
std::vector<std::string> describe(const FolderWalk& walk, const fs::path& root)
{
    std::vector<std::string> lines;
    for (const auto& table : walk.tables) {
        std::string line = fs::relative(table.folder, root).string() + ":";
        for (const auto& candidate : table.candidates) {
            line += " " + candidate.name;
            EXPECT_EQ(fs::path(candidate.path), table.folder / candidate.name);
        }
        lines.push_back(line);
    }
    return lines;
}

// root/ B.pdf a.tif b.pdf notes.txt ghost.pdf (dangling link) loop -> root, zlink -> sub1
//       .hidden/h.pdf   sub1/y.tif   sub1/deeper/x.pdf   sub2/z.PDF   empty/
void build_tree(const fs::path& root)
{
    test::write_blank_pdf(root / "B.pdf", 1);
    test::make_tiff(root / "a.tif", 1);
    test::write_blank_pdf(root / "b.pdf", 1);
    test::write_text_file(root / "notes.txt", "notes");
    test::write_blank_pdf(root / ".hidden" / "h.pdf", 1);
    test::make_tiff(root / "sub1" / "y.tif", 1);
    test::write_blank_pdf(root / "sub1" / "deeper" / "x.pdf", 1);
    test::write_blank_pdf(root / "sub2" / "z.PDF", 1);
    fs::create_directories(root / "empty");
    fs::create_symlink(root / "nowhere.pdf", root / "ghost.pdf");
    fs::create_directory_symlink(root, root / "loop");
    fs::create_directory_symlink(root / "sub1", root / "zlink");
}

// Sub-folders first, in name order, hidden ones too, links to folders already met skipped;
// without recursion only the folder itself.
TEST(FolderWalk, SubFoldersFirstInNameOrderAndLoopsEnd)
{
    TempFolder folder;
    build_tree(folder.path());
    const std::string top = ".: B.pdf a.tif b.pdf ghost.pdf notes.txt";
    const FolderWalk walk = loadrecursive(folder.path(), true);
    EXPECT_TRUE(walk.messages.empty());
    EXPECT_EQ(describe(walk, folder.path()),
              (std::vector<std::string>{".hidden: h.pdf", "sub1/deeper: x.pdf", "sub1: y.tif", "sub2: z.PDF", top}));
    EXPECT_EQ(describe(loadrecursive(folder.path(), false), folder.path()), std::vector<std::string>{top});
}

TEST(FolderWalk, UnreadableFoldersAreNamedAndTheWalkGoesOn)
{
    TempFolder folder;
    test::write_blank_pdf(folder / "a" / "one.pdf", 1);
    test::write_blank_pdf(folder / "b" / "two.pdf", 1);
    test::write_blank_pdf(folder / "c" / "three.pdf", 1);

    const FolderWalk missing = loadrecursive(folder / "no such folder", true);
    EXPECT_TRUE(missing.tables.empty());
    ASSERT_EQ(missing.messages.size(), 1u);
    EXPECT_EQ(missing.messages[0], (folder / "no such folder").string() + " could not be read: no such file or directory");

    if (::geteuid() == 0) {
        GTEST_SKIP() << "permissions do not keep the superuser out of a folder";
    }
    fs::permissions(folder / "b", fs::perms::none);
    const FolderWalk walk = loadrecursive(folder.path(), true);
    fs::permissions(folder / "b", fs::perms::owner_all);
    EXPECT_EQ(describe(walk, folder.path()), (std::vector<std::string>{"a: one.pdf", "c: three.pdf"}));
    ASSERT_EQ(walk.messages.size(), 1u);
    EXPECT_NE(walk.messages[0].find((folder / "b").string() + " could not be read: "), std::string::npos);
}

} // namespace
} // namespace qf::intake
