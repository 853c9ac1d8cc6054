// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/run_services.h"

#include "sources/pdf_source.h"
#include "sources/tiff_source.h"
#include "writers/deep_colour.h"
#include "writers/exif_stamper.h"
#include "writers/jpeg_writer.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/pdf/security_pass.h"
#include "writers/png_writer.h"
#include "writers/text_writer.h"
#include "writers/tiff_writer.h"

namespace qf::app {
namespace fs = std::filesystem;

engine::RunServices make_run_services(const fs::path& resources)
{
    engine::RunServices services;
    services.open_tiff = sources::open_tiff_source;
    services.open_pdf = sources::open_pdf_source;
    services.write_jpeg = writers::write_jpeg;
    services.write_png = writers::write_png;
    services.write_tiff_single = writers::write_tiff_single;
    services.write_text = writers::write_text;
    services.multipage_tiff = [] { return std::make_unique<writers::MultipageTiff>(); };
    services.pdf_assembler = writers::pdf::pdf_assembler_factory(resources);
    services.encryptpdfnow = writers::pdf::encryptpdfnow;
    services.merge_pdfs = writers::pdf::merge_pdfs;
    services.stamper = [] { return writers::make_exif_stamper(); };
    services.writergb48 = writers::writergb48;
    return services;
}

} // namespace qf::app
