// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <utility>
#include <vector>

#include "engine/options.h"

class QWidget;

namespace qf::settings {

// The controls that hold the options, wherever in the window they stand. Each option's control
// is made for its kind: a QComboBox for a popup (the value is the selected row, -1 when none),
// a QCheckBox for a check box and a QLineEdit for a text. The controls are the live store of
// the options; preferences and profiles read and write them through values() and show().
class OptionControls {
public:
    // Registers the control of an option. The control must outlive this object's use.
    void add(engine::OptionId id, QWidget* control);

    // What the controls hold; an option without a control keeps its default.
    engine::OptionValues values() const;
    // Puts the values into the controls. A popup row that is not one of the control's rows
    // leaves the control without a selected row.
    void show(const engine::OptionValues& values);

    // The control of an option; nullptr when none was registered.
    QWidget* control(engine::OptionId id) const;

private:
    std::vector<std::pair<engine::OptionId, QWidget*>> controls_;
};

} // namespace qf::settings
