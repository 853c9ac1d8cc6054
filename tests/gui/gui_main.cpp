// SPDX-License-Identifier: GPL-3.0-or-later
// The window's tests: GoogleTest cases inside one QApplication, on the offscreen platform.
#include <QApplication>
#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    // The windows made here ask no server at start; the update tests give their own address.
    ::setenv("QUIREFOLD_UPDATE_BASE_URL", "", 1);
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
