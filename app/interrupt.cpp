// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/interrupt.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <unistd.h>

#include "engine/file_ops.h"
#include "engine/work_folder.h"

namespace qf::app {
namespace {

std::atomic<int> g_interrupts{0};
InterruptHandling g_handling;

extern "C" void on_interrupt(int)
{
    if (g_interrupts.fetch_add(1) + 1 >= g_handling.exit_at) {
        remove_unfinished_files();
        if (g_handling.before_exit != nullptr) {
            g_handling.before_exit();
        }
        if (g_handling.message != nullptr) {
            (void)!::write(STDERR_FILENO, g_handling.message, std::strlen(g_handling.message));
        }
        ::_exit(g_handling.exit_status);
    }
}

void set_action(void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // Reads of worker threads (a stamping tool's answers) go on; a front end waiting for its
    // user polls interrupt_count().
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace

void catch_interrupts(const InterruptHandling& handling)
{
    set_action(SIG_DFL);
    g_handling = handling;
    g_interrupts = 0;
    set_action(on_interrupt);
}

void release_interrupts()
{
    set_action(SIG_DFL);
}

int interrupt_count()
{
    return g_interrupts.load();
}

void remove_unfinished_files() noexcept
{
    engine::remove_registered_temps();
    engine::remove_scratch_folders();
}

} // namespace qf::app
