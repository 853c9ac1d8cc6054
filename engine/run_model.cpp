// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/run_model.h"

#include "engine/text_rules.h"

namespace qf::engine {

void take_snapshot(const OptionValues& values, int list_rows, OptionSnapshot& s)
{
    using enum OptionId;
    s.mcombineall = list_rows >= 2 && values.flag(combineall);
    s.mcolordepth48 = values.flag(colordepth48);
    s.mcombinedfilename = values.text(combinedfilename);
    s.mimageformat = row_text(values, imageformat);
    s.mformat = output_format(values.row(imageformat));
    s.mshowpdf = row_text(values, showpdf);
    s.mtiffcompression = row_text(values, tiffcompression);
    s.msavein = values.text(savein);
    s.mjpgquality = values.text(jpgquality);
    s.mdotsperinch = values.text(DotsPerInch);
    s.monefileonefolder = values.flag(onefileonefolder);
    s.mzoomfactor = row_text(values, zoomfactor);
    s.mflattenpdf = values.flag(flattenpdf);
    s.mzeropad = whole_val(row_text(values, ZeroPadding));
    s.mtiffdocumentname = values.text(tiffdocumentname);
    s.mtiffcopyright = values.text(tiffcopyright);
    s.mallowannotation = values.flag(allowannotation);
    s.mallowcopy = values.flag(allowcopy);
    s.mallowprinting = values.flag(allowprint);
    s.mpdfauthorname = trim(values.text(pdfauthor));
    s.mpdffullpassword = trim(values.text(pdffullpassword));
    s.mpdfpassword = trim(values.text(pdfpassword));
    s.mpdftitle = trim(values.text(pdftitle));
    s.msubject = trim(values.text(pdfsubject));
    s.musepageranges = values.flag(usepageranges);
    if (const int code = encryption_code(values.row(encryptionlevel)); code >= 0) {
        s.enlvl = code;
    }
    s.mpdfversionnumber = conformance_code(row_text(values, pdfversionnumber));
    s.thedpi = resolution_with_floor(s.mdotsperinch);
}

OutputFormat output_format(int imageformat_row)
{
    const bool known = imageformat_row >= 0 && imageformat_row < static_cast<int>(kImageFormatRows.size());
    return known ? static_cast<OutputFormat>(imageformat_row) : OutputFormat::PdfMultipage;
}

int resolution_with_floor(const std::string& dots_per_inch)
{
    const int value = whole_val(dots_per_inch);
    return value <= 71 ? 72 : value;
}

std::vector<DocumentRow> populatelist(const std::vector<ListRow>& rows)
{
    std::vector<DocumentRow> filelist;
    filelist.reserve(rows.size());
    for (const auto& row : rows) {
        DocumentRow document;
        for (std::size_t cell = 0; cell < row.cells.size(); ++cell) {
            document[cell] = row.cells[cell];
        }
        document[column::tile_marker] = row.tag;
        filelist.push_back(std::move(document));
    }
    return filelist;
}

} // namespace qf::engine
