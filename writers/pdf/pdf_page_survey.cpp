// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_page_survey.h"

#include <algorithm>
#include <set>

namespace qf::writers::pdf {
namespace {

bool is_name(QPDFObjectHandle object, const char *name)
{
    return object.isNameAndEquals(name);
}

std::string base_font_name(QPDFObjectHandle font)
{
    QPDFObjectHandle base = font.getKey("/BaseFont");
    std::string name = base.isName() ? base.getName().substr(1) : std::string("(unnamed)");
    // A subset font is named "ABCDEF+Name": six capitals and a plus.
    if (name.size() > 7 && name[6] == '+' &&
        std::all_of(name.begin(), name.begin() + 6, [](char c) { return c >= 'A' && c <= 'Z'; })) {
        name.erase(0, 7);
    }
    return name;
}

QPDFObjectHandle font_descriptor(QPDFObjectHandle font)
{
    if (is_name(font.getKey("/Subtype"), "/Type0")) {
        QPDFObjectHandle descendants = font.getKey("/DescendantFonts");
        if (descendants.isArray() && descendants.getArrayNItems() > 0) {
            return descendants.getArrayItem(0).getKey("/FontDescriptor");
        }
        return QPDFObjectHandle::newNull();
    }
    return font.getKey("/FontDescriptor");
}

bool font_embedded(QPDFObjectHandle font)
{
    if (is_name(font.getKey("/Subtype"), "/Type3")) {
        return true; // glyphs are content streams of the font itself
    }
    QPDFObjectHandle descriptor = font_descriptor(font);
    return descriptor.isDictionary() && (descriptor.getKey("/FontFile").isStream() ||
                                         descriptor.getKey("/FontFile2").isStream() ||
                                         descriptor.getKey("/FontFile3").isStream());
}

// Whether the text shown in this font maps to Unicode: a ToUnicode map, a CJK collection
// whose CIDs have published Unicode tables, or a non-symbolic simple font whose glyph names
// are standard.
bool font_maps_to_unicode(QPDFObjectHandle font)
{
    if (font.getKey("/ToUnicode").isStream()) {
        return true;
    }
    QPDFObjectHandle subtype = font.getKey("/Subtype");
    if (is_name(subtype, "/Type3")) {
        return false;
    }
    if (is_name(subtype, "/Type0")) {
        QPDFObjectHandle descendants = font.getKey("/DescendantFonts");
        if (!descendants.isArray() || descendants.getArrayNItems() == 0) {
            return false;
        }
        QPDFObjectHandle ordering =
            descendants.getArrayItem(0).getKey("/CIDSystemInfo").getKey("/Ordering");
        const std::string order = ordering.isString() ? ordering.getStringValue() : std::string();
        return order == "GB1" || order == "CNS1" || order == "Japan1" || order == "Korea1";
    }
    QPDFObjectHandle flags = font_descriptor(font).getKey("/Flags");
    const bool symbolic = flags.isInteger() && (flags.getIntValue() & 4) != 0;
    return !symbolic;
}

class Surveyor;

// Notes the device colours that content operators paint in.
class ContentColours : public QPDFObjectHandle::ParserCallbacks
{
  public:
    explicit ContentColours(PageSurvey &survey) : survey_(survey) {}

    void handleObject(QPDFObjectHandle object) override
    {
        if (!object.isOperator()) {
            operands_.push_back(object);
            return;
        }
        const std::string op = object.getOperatorValue();
        if (op == "rg" || op == "RG") {
            survey_.device_rgb = true;
        } else if (op == "k" || op == "K") {
            survey_.device_cmyk = true;
        } else if (op == "g" || op == "G") {
            survey_.device_gray = true;
        } else if ((op == "cs" || op == "CS") && !operands_.empty()) {
            note_space_name(operands_.back());
        } else if (op == "ID") {
            note_inline_image();
        }
        operands_.clear();
    }
    void handleEOF() override {}

  private:
    void note_space_name(QPDFObjectHandle name)
    {
        if (is_name(name, "/DeviceRGB") || is_name(name, "/RGB")) {
            survey_.device_rgb = true;
        } else if (is_name(name, "/DeviceCMYK") || is_name(name, "/CMYK")) {
            survey_.device_cmyk = true;
        } else if (is_name(name, "/DeviceGray") || is_name(name, "/G")) {
            survey_.device_gray = true;
        }
    }

    // BI /W 8 /H 8 /CS /RGB ... ID: the key-value pairs arrive as operands of ID.
    void note_inline_image()
    {
        for (std::size_t i = 0; i + 1 < operands_.size(); i += 2) {
            if (is_name(operands_[i], "/CS") || is_name(operands_[i], "/ColorSpace")) {
                note_space_name(operands_[i + 1]);
            }
        }
    }

    PageSurvey &survey_;
    std::vector<QPDFObjectHandle> operands_;
};

class Surveyor
{
  public:
    explicit Surveyor(PageSurvey &survey) : survey_(survey) {}

    void content(QPDFObjectHandle stream_or_array, QPDFObjectHandle resources)
    {
        walk_resources(resources);
        ContentColours colours(survey_);
        try {
            QPDFObjectHandle::parseContentStream(stream_or_array, &colours);
        } catch (const std::exception &) {
            // What was read so far counts; a broken stream is no reason to stop.
        }
    }

  private:
    bool first_visit(QPDFObjectHandle object)
    {
        return !object.isIndirect() || visited_.insert(object.getObjGen()).second;
    }

    void colour_space(QPDFObjectHandle space)
    {
        if (space.isName()) {
            if (is_name(space, "/DeviceRGB")) {
                survey_.device_rgb = true;
            } else if (is_name(space, "/DeviceCMYK")) {
                survey_.device_cmyk = true;
            } else if (is_name(space, "/DeviceGray")) {
                survey_.device_gray = true;
            }
            return;
        }
        if (!space.isArray() || space.getArrayNItems() == 0) {
            return;
        }
        QPDFObjectHandle family = space.getArrayItem(0);
        if ((is_name(family, "/Indexed") || is_name(family, "/I") || is_name(family, "/Pattern")) &&
            space.getArrayNItems() > 1) {
            colour_space(space.getArrayItem(1));
        } else if ((is_name(family, "/Separation") || is_name(family, "/DeviceN")) &&
                   space.getArrayNItems() > 2) {
            colour_space(space.getArrayItem(2)); // the alternate space
        }
    }

    void font(QPDFObjectHandle font)
    {
        if (!font.isDictionary() || !first_visit(font)) {
            return;
        }
        if (!font_embedded(font)) {
            survey_.unembedded_fonts.push_back(base_font_name(font));
        }
        if (!font_maps_to_unicode(font)) {
            survey_.fonts_without_unicode.push_back(base_font_name(font));
        }
        if (is_name(font.getKey("/Subtype"), "/Type3")) {
            walk_resources(font.getKey("/Resources"));
        }
    }

    void ext_gstate(QPDFObjectHandle state)
    {
        if (!state.isDictionary() || !first_visit(state)) {
            return;
        }
        survey_.ext_gstates.push_back(state);
        QPDFObjectHandle mask = state.getKey("/SMask");
        if (mask.isDictionary() || mask.isStream()) {
            survey_.transparency = true;
        }
        for (const char *alpha : {"/CA", "/ca"}) {
            QPDFObjectHandle value = state.getKey(alpha);
            if (value.isNumber() && value.getNumericValue() < 1.0) {
                survey_.transparency = true;
            }
        }
        QPDFObjectHandle blend = state.getKey("/BM");
        if (blend.isArray() && blend.getArrayNItems() > 0) {
            blend = blend.getArrayItem(0);
        }
        if (blend.isName() && !is_name(blend, "/Normal") && !is_name(blend, "/Compatible")) {
            survey_.transparency = true;
        }
    }

    void image(QPDFObjectHandle image)
    {
        survey_.images.push_back(image);
        QPDFObjectHandle dict = image.getDict();
        if (!dict.getKey("/ImageMask").isBool() || !dict.getKey("/ImageMask").getBoolValue()) {
            colour_space(dict.getKey("/ColorSpace"));
        }
        if (dict.getKey("/SMask").isStream() || (dict.getKey("/SMaskInData").isInteger() &&
                                                 dict.getKey("/SMaskInData").getIntValue() != 0)) {
            survey_.transparency = true;
        }
        QPDFObjectHandle filter = dict.getKey("/Filter");
        const auto filters =
            filter.isArray() ? filter.getArrayAsVector() : std::vector<QPDFObjectHandle>{filter};
        for (auto &f : filters) {
            if (is_name(f, "/JPXDecode")) {
                survey_.jpeg2000 = true;
            }
        }
    }

    void xobject(QPDFObjectHandle xobject, QPDFObjectHandle inherited)
    {
        if (!xobject.isStream() || !first_visit(xobject)) {
            return;
        }
        QPDFObjectHandle subtype = xobject.getDict().getKey("/Subtype");
        if (is_name(subtype, "/Image")) {
            image(xobject);
        } else if (is_name(subtype, "/PS")) {
            survey_.postscript = true;
        } else if (is_name(subtype, "/Form")) {
            survey_.forms.push_back(xobject);
            QPDFObjectHandle own = xobject.getDict().getKey("/Resources");
            content(xobject, own.isDictionary() ? own : inherited);
        }
    }

    void pattern(QPDFObjectHandle pattern, QPDFObjectHandle inherited)
    {
        if (!first_visit(pattern)) {
            return;
        }
        if (pattern.isStream()) { // tiling pattern: a content stream of its own
            QPDFObjectHandle own = pattern.getDict().getKey("/Resources");
            content(pattern, own.isDictionary() ? own : inherited);
        } else if (pattern.isDictionary()) {
            colour_space(pattern.getKey("/Shading").getKey("/ColorSpace"));
            ext_gstate(pattern.getKey("/ExtGState"));
        }
    }

    template <typename Each> void each_entry(QPDFObjectHandle dict, Each each)
    {
        if (dict.isDictionary()) {
            for (auto &[key, value] : dict.ditems()) {
                each(value);
            }
        }
    }

    void walk_resources(QPDFObjectHandle resources)
    {
        if (!resources.isDictionary() || !first_visit(resources)) {
            return;
        }
        survey_.resources.push_back(resources);
        each_entry(resources.getKey("/Font"), [&](QPDFObjectHandle f) { font(f); });
        each_entry(resources.getKey("/ExtGState"), [&](QPDFObjectHandle s) { ext_gstate(s); });
        each_entry(resources.getKey("/ColorSpace"), [&](QPDFObjectHandle s) { colour_space(s); });
        each_entry(resources.getKey("/Shading"), [&](QPDFObjectHandle s) {
            colour_space(s.isStream() ? s.getDict().getKey("/ColorSpace")
                                      : s.getKey("/ColorSpace"));
        });
        each_entry(resources.getKey("/Pattern"),
                   [&](QPDFObjectHandle p) { pattern(p, resources); });
        each_entry(resources.getKey("/XObject"),
                   [&](QPDFObjectHandle x) { xobject(x, resources); });
    }

    PageSurvey &survey_;
    std::set<QPDFObjGen> visited_;
};

} // namespace

PageSurvey survey_page(QPDFPageObjectHelper page)
{
    PageSurvey survey;
    Surveyor surveyor(survey);
    QPDFObjectHandle object = page.getObjectHandle();
    QPDFObjectHandle contents = object.getKey("/Contents");
    QPDFObjectHandle resources = page.getAttribute("/Resources", false);
    if (contents.isStream() || contents.isArray()) {
        surveyor.content(contents, resources);
    } else {
        surveyor.content(QPDFObjectHandle::newArray(), resources);
    }
    QPDFObjectHandle group = object.getKey("/Group");
    if (group.isDictionary() && is_name(group.getKey("/CS"), "/DeviceRGB")) {
        survey.device_rgb = true;
    }
    return survey;
}

} // namespace qf::writers::pdf
