// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/option_controls_qt.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>

#include "settings/option_table.h"

namespace qf::settings {

void OptionControls::add(engine::OptionId id, QWidget* control)
{
    controls_.emplace_back(id, control);
}

QWidget* OptionControls::control(engine::OptionId id) const
{
    for (const auto& [option, control] : controls_) {
        if (option == id) {
            return control;
        }
    }
    return nullptr;
}

engine::OptionValues OptionControls::values() const
{
    engine::OptionValues values = default_values();
    for (const auto& [id, control] : controls_) {
        if (const auto* popup = qobject_cast<const QComboBox*>(control)) {
            values.set(id, popup->currentIndex());
        } else if (const auto* box = qobject_cast<const QCheckBox*>(control)) {
            values.set(id, box->isChecked());
        } else if (const auto* field = qobject_cast<const QLineEdit*>(control)) {
            values.set(id, field->text().toStdString());
        }
    }
    return values;
}

void OptionControls::show(const engine::OptionValues& values)
{
    for (const auto& [id, control] : controls_) {
        const engine::OptionValue& value = values.at(id);
        if (auto* popup = qobject_cast<QComboBox*>(control)) {
            const int row = std::get<int>(value);
            popup->setCurrentIndex(row >= 0 && row < popup->count() ? row : -1);
        } else if (auto* box = qobject_cast<QCheckBox*>(control)) {
            box->setChecked(std::get<bool>(value));
        } else if (auto* field = qobject_cast<QLineEdit*>(control)) {
            field->setText(QString::fromStdString(std::get<std::string>(value)));
        }
    }
}

} // namespace qf::settings
