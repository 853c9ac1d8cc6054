// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "engine/options.h"
#include "settings/option_table.h"

namespace qf::settings::fixtures {

// Every option moved off its default: popups to another row, check boxes flipped, texts with
// characters that need escaping in XML and bytes beyond ASCII.
inline engine::OptionValues all_changed()
{
    engine::OptionValues values = default_values();
    for (const OptionSpec& spec : option_table()) {
        switch (spec.kind()) {
        case OptionKind::Popup: {
            const int last = static_cast<int>(spec.rows().size()) - 1;
            values.set(spec.id, values.row(spec.id) == last ? 0 : last);
            break;
        }
        case OptionKind::Check:
            values.set(spec.id, !values.flag(spec.id));
            break;
        case OptionKind::Text:
            values.set(spec.id, std::string(spec.control) + " <&> \"q\" 'a'\tline\nbreak \xC3\xBC\xE2\x82\xAC");
            break;
        }
    }
    return values;
}

} // namespace qf::settings::fixtures
