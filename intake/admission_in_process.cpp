// SPDX-License-Identifier: GPL-3.0-or-later
// Admission with the readers of this process. Kept apart from admission.cpp so that a program
// that admits through reader workers does not link the readers at all.
#include <new>

#include "engine/error.h"
#include "intake/admission.h"
#include "intake/tiff_probe.h"
#include "sources/pdf_mupdf.h"

namespace qf::intake {
namespace {

PdfProbeAnswer probe_pdf_here(const std::filesystem::path& file, const std::string& password)
{
    PdfProbeAnswer answer;
    try {
        sources::MupdfDocument document(file, password);
        answer.page_count = document.page_count();
        answer.opened = answer.page_count >= 1;
        if (!answer.opened) {
            answer.reason = "the document has no pages";
        }
    } catch (const engine::Error& e) {
        answer.needs_password = e.kind() == engine::ErrorKind::Password;
        answer.reason = e.reason();
    } catch (const std::bad_alloc&) {
        answer.reason = "not enough memory to read it";
    } catch (const std::exception&) {
        answer.reason = "not a readable PDF";
    }
    return answer;
}

TiffProbeAnswer probe_tiff_here(const std::filesystem::path& file)
{
    const TiffProbe probe = probe_tiff(file);
    return {probe.readable, probe.image_count, probe.tiled, {}};
}

} // namespace

DocumentProbes in_process_probes()
{
    return {probe_pdf_here, probe_tiff_here};
}

AdmissionReport addtolist(const CandidateTable& candidates, std::vector<engine::ListRow>& rows,
                          PasswordPrompt& prompt, const AdmissionProgress& progress, const AdmissionRules& rules)
{
    return addtolist(candidates, rows, prompt, in_process_probes(), progress, rules);
}

} // namespace qf::intake
