// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/magick/magick_module.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include <dlfcn.h>

#include "engine/program_location.h"

namespace qf::writers {
namespace {

std::vector<std::filesystem::path> module_candidates()
{
    std::vector<std::filesystem::path> candidates;
    const auto program = engine::program_file();
    if (!program.empty()) {
        candidates.push_back(program.parent_path().parent_path() / "lib" / "quirefold" / "qf_magick.so");
    }
#ifdef QF_MAGICK_MODULE
    if (engine::runs_from_build_tree()) {
        candidates.emplace_back(QF_MAGICK_MODULE);
    }
#endif
    return candidates;
}

template <typename Function>
void find_symbol(void* handle, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(::dlsym(handle, name));
}

MagickModule load_module()
{
    MagickModule loaded;
    loaded.problem = "the image module was not found";
    for (const auto& candidate : module_candidates()) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(candidate, error)) {
            continue;
        }
        // Never unloaded: its image library cannot be unloaded cleanly.
        void* handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            const char* reason = ::dlerror();
            loaded.problem = std::string("the image module could not be loaded: ") +
                             (reason != nullptr ? reason : "unknown reason");
            continue;
        }
        find_symbol(handle, "qf_deep_tiff", loaded.deep_tiff);
        find_symbol(handle, "qf_magick_read_tiff", loaded.read_tiff);
        find_symbol(handle, "qf_deep_tiff_free", loaded.release);
        if (loaded.deep_tiff != nullptr && loaded.read_tiff != nullptr && loaded.release != nullptr) {
            loaded.problem.clear();
            return loaded;
        }
        loaded = MagickModule{};
        loaded.problem = "the image module is incomplete";
    }
    return loaded;
}

} // namespace

const MagickModule& magick_module()
{
    static const MagickModule module = load_module();
    return module;
}

} // namespace qf::writers
