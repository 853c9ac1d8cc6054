// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_probe.h"

#include "engine/error.h"
#include "sources/pdf_mupdf.h"

namespace qf::sources {

PdfProbe probe_pdf(const std::filesystem::path& path, const std::string& password)
{
    try {
        MupdfDocument document(path, password);
        const int count = document.page_count();
        if (count < 1) {
            return {};
        }
        return {true, count};
    } catch (const engine::Error&) {
        return {};
    }
}

} // namespace qf::sources
