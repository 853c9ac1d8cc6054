// SPDX-License-Identifier: GPL-3.0-or-later
// Settings profiles: the input is read as a .qfk file into default options. A profile that is
// refused changes nothing; one that is taken holds only rows its popups have, and writing it
// out and reading it back is stable.
#include <cstddef>
#include <cstdint>

#include "engine/options.h"
#include "fuzz/fuzz_support.h"
#include "settings/option_table.h"
#include "settings/profile_file.h"

namespace {

using namespace qf;

void check_popups(const engine::OptionValues &values)
{
    for (const settings::OptionSpec &spec : settings::option_table()) {
        if (spec.kind() == settings::OptionKind::Popup) {
            qf::fuzz::require(settings::selects_row(spec, values.row(spec.id)),
                              "every popup of a loaded profile selects a row");
        }
    }
}

// Saved and read back into defaults; throws nothing, aborts when either step fails.
engine::OptionValues round_trip(const engine::OptionValues &values)
{
    const auto saved_path = qf::fuzz::scratch_folder() / "saved.qfk";
    qf::fuzz::require(settings::savetoxml(saved_path, values).ok, "loaded settings can be saved");
    engine::OptionValues reloaded = settings::default_values();
    const bool reloaded_ok = settings::loadfromxml(saved_path, reloaded).ok;
    std::error_code ignored;
    std::filesystem::remove(saved_path, ignored);
    qf::fuzz::require(reloaded_ok, "a saved profile loads");
    return reloaded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const qf::fuzz::InputFile input(data, size, "profile.qfk");
    const engine::OptionValues defaults = settings::default_values();
    engine::OptionValues values = defaults;
    const settings::ProfileOutcome outcome = settings::loadfromxml(input.path(), values);
    qf::fuzz::require(!outcome.message.empty(), "loading says what happened");
    if (!outcome.ok) {
        qf::fuzz::require(values == defaults, "a refused profile changes nothing");
        return 0;
    }
    check_popups(values);
    const engine::OptionValues first = round_trip(values);
    qf::fuzz::require(round_trip(first) == first, "a saved profile reads back as it was saved");
    return 0;
}
