// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Interrupts (SIGINT, SIGTERM) and the clean-up of an abrupt end.
namespace qf::app {

struct InterruptHandling {
    // Written to standard error when a second interrupt ends the program at once.
    const char* message = "\nStopped at once.\n";
    int exit_status = 2;
    // Runs before the program ends at once, for the front end's own state (the terminal's
    // echo); must be safe in a signal handler. May be null.
    void (*before_exit)() noexcept = nullptr;
    // The interrupt that ends the program from the handler; the ones before it only count,
    // for a front end that ends in good order itself.
    int exit_at = 2;
};

// From now on the first interrupt only counts (interrupt_count() becomes 1), so that the front
// end can stop what is under way in good order; interrupted reads are restarted, so a front
// end that waits for its user polls interrupt_count(). The one numbered `exit_at` removes the files being
// written and the runs' scratch folders, runs `before_exit`, writes the message and ends the
// process. The count starts at 0. Call on one thread; the settings hold until
// release_interrupts().
void catch_interrupts(const InterruptHandling& handling);

// Gives SIGINT and SIGTERM their default effect again.
void release_interrupts();

// Interrupts received since catch_interrupts(). Any thread; safe in a signal handler.
int interrupt_count();

// Removes every file this process is writing under a temporary name and the scratch folders of
// its runs, for a program that ends at once. Safe in a signal handler; never throws.
void remove_unfinished_files() noexcept;

} // namespace qf::app
