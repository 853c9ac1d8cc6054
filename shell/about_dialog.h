// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

class QWidget;

namespace qf::shell {

// Shows the about window over `window`: a fixed 300 by 259 floating window with the
// application image, the version, the credit line and the project's address. It is made once
// per window and then shown and hidden; it goes when `window` does. A click on its background
// hides it; a click on the address opens the project's site in the browser.
void show_about(QWidget* window);

} // namespace qf::shell
