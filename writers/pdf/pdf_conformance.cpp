// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_conformance.h"

#include <array>
#include <fstream>
#include <iterator>
#include <set>

#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include "engine/error.h"
#include "writers/pdf/pdf_metadata.h"
#include "writers/pdf/pdf_page_survey.h"

namespace qf::writers::pdf {
namespace {

using engine::Error;
using engine::ErrorKind;

enum class Profile { Gray, Rgb, Cmyk };

struct ProfileFile
{
    const char *file;
    int components;
    const char *condition; // OutputConditionIdentifier
    const char *description;
};

// The CMYK profile is characterised from the FOGRA39 data set, so it names that condition.
const ProfileFile &profile_file(Profile profile)
{
    static const std::array<ProfileFile, 3> files = {{
        {"Generic Gray Profile.icc", 1, "Custom", "Gray, D50 white point, gamma 2.2"},
        {"Generic RGB Profile.icc", 3, "sRGB IEC61966-2.1", "sRGB IEC61966-2.1"},
        {"Generic CMYK Profile.icc", 4, "FOGRA39",
         "Coated FOGRA39 (ISO 12647-2:2004/Amd 1, paper type 1 or 2, 60/cm screen)"},
    }};
    return files[static_cast<std::size_t>(profile)];
}

int version_number(const std::string &version)
{
    const auto dot = version.find('.');
    try {
        return std::stoi(version.substr(0, dot)) * 100 +
               (dot == std::string::npos ? 0 : std::stoi(version.substr(dot + 1)));
    } catch (const std::exception &) {
        return 0;
    }
}

// Everything a conformance pass needs while it walks the pages.
class ConformancePass
{
  public:
    ConformancePass(QPDF &pdf, const ConformanceRequest &request, ConformanceResult &result)
        : pdf_(pdf), request_(request), result_(result), level_(result.level)
    {
    }

    std::vector<PageSurvey> survey_pages(std::vector<QPDFPageObjectHelper> &pages)
    {
        std::vector<PageSurvey> surveys;
        surveys.reserve(pages.size());
        for (auto &page : pages) {
            surveys.push_back(survey_page(page));
        }
        return surveys;
    }

    // The intent a new document takes: RGB when any page draws RGB, else CMYK, else Gray.
    Profile intent_for_pages(const std::vector<PageSurvey> &surveys) const
    {
        bool rgb = false;
        bool cmyk = false;
        for (const PageSurvey &survey : surveys) {
            rgb = rgb || survey.device_rgb;
            cmyk = cmyk || survey.device_cmyk;
        }
        return intent_for(rgb, cmyk);
    }

    void run()
    {
        auto pages = QPDFPageDocumentHelper(pdf_).getAllPages();
        std::vector<PageSurvey> surveys = survey_pages(pages);
        const Profile intent = intent_for_pages(surveys);
        for (std::size_t i = 0; i < pages.size(); ++i) {
            const int pageno = static_cast<int>(i) + 1;
            adjust_page(pages[i], surveys[i], intent);
            report_page(pageno, surveys[i]);
        }
        if (level_.standard == Standard::PdfA && level_.level == 'A') {
            tag_pages(pages);
        }
        add_output_intent(intent);
        identify();
    }

    // For a document put together from files of their own output intents: one output intent
    // that every page fits, chosen as for a new document, with the device colours it does not
    // describe tied to profiles of their own. Nothing else of the pages changes.
    void fit_intent()
    {
        auto pages = QPDFPageDocumentHelper(pdf_).getAllPages();
        std::vector<PageSurvey> surveys = survey_pages(pages);
        const Profile intent = intent_for_pages(surveys);
        for (std::size_t i = 0; i < pages.size(); ++i) {
            tie_device_colours(pages[i].getObjectHandle(), surveys[i], intent);
        }
        add_output_intent(intent);
    }

  private:
    Profile intent_for(bool rgb, bool cmyk) const
    {
        return level_.standard == Standard::PdfX ? Profile::Cmyk
               : rgb                             ? Profile::Rgb
               : cmyk                            ? Profile::Cmyk
                                                 : Profile::Gray;
    }

    void report(int pageno, const std::string &reason)
    {
        if (reported_.insert(reason).second) {
            result_.reasons.push_back("page " + std::to_string(pageno) + " " + reason);
        }
    }

    void report_page(int pageno, const PageSurvey &survey)
    {
        for (const auto &font : survey.unembedded_fonts) {
            report(pageno, "uses the font " + font + " which is not embedded");
        }
        if (survey.postscript) {
            report(pageno, "uses a PostScript XObject");
        }
        if (level_.standard != Standard::PdfA) {
            return;
        }
        if (level_.part == 1 && survey.transparency) {
            report(pageno, "uses transparency, which PDF/A-1 does not allow");
        }
        if (level_.part == 1 && survey.jpeg2000) {
            report(pageno, "uses JPEG 2000 images, which PDF/A-1 does not allow");
        }
        if (level_.level == 'A' || level_.level == 'U') {
            for (const auto &font : survey.fonts_without_unicode) {
                report(pageno, "uses the font " + font + " whose text has no Unicode mapping");
            }
        }
        if (level_.level == 'A' && !is_image_page(pageno)) {
            report(pageno, "has no tagged structure");
        }
    }

    bool is_image_page(int pageno) const
    {
        const auto index = static_cast<std::size_t>(pageno - 1);
        return index < request_.image_pages.size() && request_.image_pages[index];
    }

    // Changes that leave the page looking the same and remove what the standards forbid.
    void adjust_page(QPDFPageObjectHelper &page, PageSurvey &survey, Profile intent)
    {
        QPDFObjectHandle object = page.getObjectHandle();
        object.removeKey("/AA");
        if (level_.standard == Standard::PdfX && !object.getKey("/TrimBox").isArray() &&
            !object.getKey("/ArtBox").isArray()) {
            object.replaceKey("/TrimBox",
                              QPDFObjectHandle::newArray(page.getCropBox().getArrayAsVector()));
        }
        if (level_.standard == Standard::PdfA && level_.part == 1) {
            // Groups only matter with transparency, which is reported where it is used.
            object.removeKey("/Group");
            for (auto &form : survey.forms) {
                form.getDict().removeKey("/Group");
            }
        }
        if (level_.standard == Standard::PdfA) {
            // A thumbnail is an image of its own colour space that no content paints, so it
            // is neither surveyed nor given a default space; viewers draw their own.
            object.removeKey("/Thumb");
            for (auto &image : survey.images) {
                for (const char *key : {"/Interpolate", "/Alternates", "/OPI"}) {
                    image.getDict().removeKey(key);
                }
            }
            for (auto &form : survey.forms) {
                form.getDict().removeKey("/OPI");
            }
            for (auto &state : survey.ext_gstates) {
                state.removeKey("/TR");
                if (!state.getKey("/TR2").isNameAndEquals("/Default")) {
                    state.removeKey("/TR2");
                }
            }
        }
        tie_device_colours(object, survey, intent);
    }

    void tie_device_colours(QPDFObjectHandle object, PageSurvey &survey, Profile intent)
    {
        const bool needs_rgb = survey.device_rgb && intent != Profile::Rgb;
        const bool needs_cmyk = survey.device_cmyk && intent != Profile::Cmyk;
        if (needs_rgb || needs_cmyk) {
            if (!object.getKey("/Resources").isDictionary()) {
                object.replaceKey("/Resources", QPDFObjectHandle::newDictionary());
                survey.resources.push_back(object.getKey("/Resources"));
            }
            for (auto &resources : survey.resources) {
                if (needs_rgb) {
                    set_default_space(resources, "/DefaultRGB", Profile::Rgb);
                }
                if (needs_cmyk) {
                    set_default_space(resources, "/DefaultCMYK", Profile::Cmyk);
                }
            }
        }
    }

    // A device colour family that the output intent does not describe is given a profile
    // of its own, so that its colours are device independent.
    void set_default_space(QPDFObjectHandle resources, const char *key, Profile profile)
    {
        QPDFObjectHandle spaces = resources.getKey("/ColorSpace");
        if (!spaces.isDictionary()) {
            spaces = QPDFObjectHandle::newDictionary();
            resources.replaceKey("/ColorSpace", spaces);
        }
        if (!spaces.hasKey(key)) {
            spaces.replaceKey(
                key, QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{
                         QPDFObjectHandle::newName("/ICCBased"), profile_stream(profile)}));
        }
    }

    QPDFObjectHandle profile_stream(Profile profile)
    {
        auto &stream = profiles_[static_cast<std::size_t>(profile)];
        if (stream.isInitialized() && stream.isStream()) {
            return stream;
        }
        const ProfileFile &file = profile_file(profile);
        std::ifstream in(request_.icc_folder / file.file, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!in.good() && !in.eof()) {
            bytes.clear();
        }
        if (bytes.size() < 128) {
            throw Error(ErrorKind::Output,
                        std::string("the colour profile ") + file.file + " is missing");
        }
        stream = pdf_.newStream(bytes);
        stream.getDict().replaceKey("/N", QPDFObjectHandle::newInteger(file.components));
        return stream;
    }

    void add_output_intent(Profile profile)
    {
        const ProfileFile &file = profile_file(profile);
        QPDFObjectHandle intent = QPDFObjectHandle::newDictionary();
        intent.replaceKey("/Type", QPDFObjectHandle::newName("/OutputIntent"));
        intent.replaceKey("/S", QPDFObjectHandle::newName(level_.standard == Standard::PdfX
                                                              ? "/GTS_PDFX"
                                                              : "/GTS_PDFA1"));
        intent.replaceKey("/OutputConditionIdentifier",
                          QPDFObjectHandle::newString(file.condition));
        intent.replaceKey("/RegistryName", QPDFObjectHandle::newString("http://www.color.org"));
        intent.replaceKey("/Info", QPDFObjectHandle::newString(file.description));
        intent.replaceKey("/DestOutputProfile", profile_stream(profile));
        pdf_.getRoot().replaceKey(
            "/OutputIntents", QPDFObjectHandle::newArray(
                                  std::vector<QPDFObjectHandle>{pdf_.makeIndirectObject(intent)}));
    }

    void identify()
    {
        XmpIdentification id;
        if (level_.standard == Standard::PdfA) {
            id.pdfa_part = std::to_string(level_.part);
            id.pdfa_conformance = std::string(1, level_.level);
        } else {
            id.pdfx_version = "PDF/X-4";
            QPDFObjectHandle trailer = pdf_.getTrailer();
            if (!trailer.getKey("/Info").isDictionary()) {
                trailer.replaceKey("/Info",
                                   pdf_.makeIndirectObject(QPDFObjectHandle::newDictionary()));
            }
            QPDFObjectHandle title = trailer.getKey("/Info").getKey("/Title");
            if (!title.isString() || title.getUTF8Value().empty()) {
                trailer.getKey("/Info").replaceKey(
                    "/Title", QPDFObjectHandle::newUnicodeString(request_.fallback_title));
            }
        }
        set_identification(pdf_, id);
    }

    // Level "a": each picture page becomes one Figure with alternate text, its content one
    // marked-content sequence that the structure element points to.
    void tag_pages(std::vector<QPDFPageObjectHelper> &pages)
    {
        QPDFObjectHandle root = pdf_.makeIndirectObject(QPDFObjectHandle::newDictionary());
        QPDFObjectHandle document = pdf_.makeIndirectObject(QPDFObjectHandle::newDictionary());
        QPDFObjectHandle kids = QPDFObjectHandle::newArray();
        QPDFObjectHandle nums = QPDFObjectHandle::newArray();
        int next_key = 0;
        for (std::size_t i = 0; i < pages.size(); ++i) {
            const int pageno = static_cast<int>(i) + 1;
            if (!is_image_page(pageno)) {
                continue;
            }
            QPDFObjectHandle page = pages[i].getObjectHandle();
            QPDFObjectHandle figure = QPDFObjectHandle::newDictionary();
            figure.replaceKey("/Type", QPDFObjectHandle::newName("/StructElem"));
            figure.replaceKey("/S", QPDFObjectHandle::newName("/Figure"));
            figure.replaceKey("/P", document);
            figure.replaceKey("/Pg", page);
            figure.replaceKey("/K", QPDFObjectHandle::newInteger(0));
            figure.replaceKey("/Alt", QPDFObjectHandle::newUnicodeString("Image of page " +
                                                                         std::to_string(pageno)));
            figure = pdf_.makeIndirectObject(figure);
            kids.appendItem(figure);
            nums.appendItem(QPDFObjectHandle::newInteger(next_key));
            nums.appendItem(QPDFObjectHandle::newArray(std::vector<QPDFObjectHandle>{figure}));
            page.replaceKey("/StructParents", QPDFObjectHandle::newInteger(next_key++));
            pages[i].addPageContents(pdf_.newStream("/Figure <</MCID 0>> BDC\n"), true);
            pages[i].addPageContents(pdf_.newStream("\nEMC\n"), false);
        }
        document.replaceKey("/Type", QPDFObjectHandle::newName("/StructElem"));
        document.replaceKey("/S", QPDFObjectHandle::newName("/Document"));
        document.replaceKey("/P", root);
        document.replaceKey("/K", kids);
        QPDFObjectHandle parent_tree = QPDFObjectHandle::newDictionary();
        parent_tree.replaceKey("/Nums", nums);
        root.replaceKey("/Type", QPDFObjectHandle::newName("/StructTreeRoot"));
        root.replaceKey("/K", document);
        root.replaceKey("/ParentTree", pdf_.makeIndirectObject(parent_tree));
        root.replaceKey("/ParentTreeNextKey", QPDFObjectHandle::newInteger(next_key));

        QPDFObjectHandle catalog = pdf_.getRoot();
        catalog.replaceKey("/StructTreeRoot", root);
        QPDFObjectHandle mark_info = QPDFObjectHandle::newDictionary();
        mark_info.replaceKey("/Marked", QPDFObjectHandle::newBool(true));
        catalog.replaceKey("/MarkInfo", mark_info);
        // The language of the alternate texts written above.
        catalog.replaceKey("/Lang", QPDFObjectHandle::newString("en"));
    }

    QPDF &pdf_;
    const ConformanceRequest &request_;
    ConformanceResult &result_;
    const ConformanceLevel level_;
    std::set<std::string> reported_;
    std::array<QPDFObjectHandle, 3> profiles_;
};

// Whether every resource dictionary the page's content reaches gives `key` a device
// independent colour space of `components` components.
bool defaults_everywhere(const PageSurvey &survey, const char *key, int components)
{
    if (survey.resources.empty()) {
        return false;
    }
    for (QPDFObjectHandle resources : survey.resources) {
        QPDFObjectHandle spaces = resources.getKey("/ColorSpace");
        QPDFObjectHandle space =
            spaces.isDictionary() ? spaces.getKey(key) : QPDFObjectHandle::newNull();
        if (!space.isArray() || space.getArrayNItems() < 2) {
            return false;
        }
        QPDFObjectHandle family = space.getArrayItem(0);
        QPDFObjectHandle profile = space.getArrayItem(1);
        const bool icc = family.isNameAndEquals("/ICCBased") && profile.isStream() &&
                         profile.getDict().getKey("/N").isInteger() &&
                         profile.getDict().getKey("/N").getIntValue() == components;
        const char *calibrated = components == 1   ? "/CalGray"
                                 : components == 3 ? "/CalRGB"
                                                   : nullptr;
        if (!icc && !(calibrated && family.isNameAndEquals(calibrated))) {
            return false;
        }
    }
    return true;
}

// Components of the profile of the file's output intent for `standard`; 0 when it has none.
int intent_components(QPDF &pdf, Standard standard)
{
    QPDFObjectHandle intents = pdf.getRoot().getKey("/OutputIntents");
    if (!intents.isArray()) {
        return 0;
    }
    for (auto &intent : intents.aitems()) {
        if (!intent.isDictionary() ||
            !intent.getKey("/S").isNameAndEquals(standard == Standard::PdfX ? "/GTS_PDFX"
                                                                            : "/GTS_PDFA1")) {
            continue;
        }
        QPDFObjectHandle profile = intent.getKey("/DestOutputProfile");
        QPDFObjectHandle n = profile.isStream() ? profile.getDict().getKey("/N")
                                                : QPDFObjectHandle::newNull();
        return n.isInteger() ? static_cast<int>(n.getIntValue()) : 0;
    }
    return 0;
}

} // namespace

ConformanceLevel claimed_level(QPDF &pdf, int code)
{
    ConformanceLevel level = conformance_level(code);
    if (level.standard != Standard::None) {
        return level;
    }
    const XmpIdentification id = read_identification(pdf);
    if (!id.pdfa_part.empty()) {
        level.standard = Standard::PdfA;
        level.part = id.pdfa_part[0] - '0';
        level.level = id.pdfa_conformance.empty() ? 'B' : id.pdfa_conformance[0];
    } else if (!id.pdfx_version.empty()) {
        level.standard = Standard::PdfX;
    }
    return level;
}

void fit_output_intent(QPDF &pdf, const ConformanceLevel &level,
                       const std::filesystem::path &icc_folder)
{
    if (level.standard == Standard::None) {
        return;
    }
    ConformanceRequest request;
    request.icc_folder = icc_folder;
    ConformanceResult result;
    result.level = level;
    ConformancePass(pdf, request, result).fit_intent();
}

std::vector<std::string> output_intent_misfits(QPDF &pdf, const ConformanceLevel &level)
{
    std::vector<std::string> reasons;
    if (level.standard == Standard::None) {
        return reasons;
    }
    const int components = intent_components(pdf, level.standard);
    if (components == 0) {
        return reasons;
    }
    const struct
    {
        const char *space;
        const char *key;
        int components;
        bool PageSurvey::*used;
    } families[] = {{"DeviceGray", "/DefaultGray", 1, &PageSurvey::device_gray},
                    {"DeviceRGB", "/DefaultRGB", 3, &PageSurvey::device_rgb},
                    {"DeviceCMYK", "/DefaultCMYK", 4, &PageSurvey::device_cmyk}};
    std::set<std::string> reported;
    int pageno = 0;
    for (auto &page : QPDFPageDocumentHelper(pdf).getAllPages()) {
        ++pageno;
        const PageSurvey survey = survey_page(page);
        for (const auto &family : families) {
            const bool described = family.components == 1 ? components > 0
                                                          : components == family.components;
            if (!(survey.*family.used) || described ||
                defaults_everywhere(survey, family.key, family.components)) {
                continue;
            }
            const std::string reason = std::string("uses ") + family.space +
                                       " colour, which the output intent does not describe";
            if (reported.insert(reason).second) {
                reasons.push_back("page " + std::to_string(pageno) + " " + reason);
            }
        }
    }
    return reasons;
}

ConformanceLevel conformance_level(int code)
{
    static const std::array<const char *, 9> versions = {"1.0", "1.1", "1.2", "1.3", "1.4",
                                                         "1.5", "1.6", "1.7", "2.0"};
    switch (code) {
    case 14:
        return {Standard::PdfA, "1.4", 1, 'B'};
    case 15:
        return {Standard::PdfX, "1.6", 0, 0};
    case 16:
        return {Standard::PdfA, "1.4", 1, 'A'};
    case 17:
        return {Standard::PdfA, "1.7", 2, 'A'};
    case 18:
        return {Standard::PdfA, "1.7", 2, 'B'};
    case 19:
        return {Standard::PdfA, "1.7", 2, 'U'};
    case 20:
        return {Standard::PdfA, "1.7", 3, 'A'};
    case 21:
        return {Standard::PdfA, "1.7", 3, 'B'};
    case 22:
        return {Standard::PdfA, "1.7", 3, 'U'};
    default:
        break;
    }
    const int index = code >= 0 && code <= 8 ? code : 4;
    return {Standard::None, versions[static_cast<std::size_t>(index)], 0, 0};
}

std::string higher_version(const std::string &a, const std::string &b)
{
    return version_number(b) > version_number(a) ? b : a;
}

ConformanceResult applyconformance(QPDF &pdf, const ConformanceRequest &request)
{
    ConformanceResult result;
    result.level = conformance_level(request.code);
    result.version = higher_version(result.level.version, request.minimum_version);
    if (result.level.standard != Standard::None) {
        ConformancePass(pdf, request, result).run();
    }
    return result;
}

void configure_writer(QPDFWriter &writer, const ConformanceResult &result)
{
    writer.forcePDFVersion(result.version);
    const bool pdfa1 = result.level.standard == Standard::PdfA && result.level.part == 1;
    const bool object_streams = !pdfa1 && version_number(result.version) >= 105;
    writer.setObjectStreamMode(object_streams ? qpdf_o_generate : qpdf_o_disable);
    if (result.level.standard != Standard::None) {
        writer.setNewlineBeforeEndstream(true);
    }
}

} // namespace qf::writers::pdf
