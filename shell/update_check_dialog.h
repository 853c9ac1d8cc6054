// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/update_check.h"

class QWidget;

// The window's update check. The request runs on a thread of its own with a bounded wait, so
// the window is never delayed; the answer is shown on the GUI thread, in a window-modal message
// box over `window`, as plain text. Closing `window` calls off a check still under way.
namespace qf::shell {

// At start: only an offer of a newer version is shown; no answer and up to date stay silent.
void check_for_updates_at_startup(QWidget* window);

// From the menu: every outcome is shown. A check already under way for `window` is not
// repeated; its answer is shown in full instead.
void check_for_updates_from_menu(QWidget* window);

// Both of the above, asking `endpoint` rather than the configured server.
void check_for_updates(QWidget* window, bool announce, const app::UpdateEndpoint& endpoint);

} // namespace qf::shell
