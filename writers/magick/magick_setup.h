// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Prepares the image library once for the whole process, from any thread.
void qf_magick_initialise();
