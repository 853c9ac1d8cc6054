// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_page_survey.h"

#include <algorithm>
#include <set>

namespace qf::writers::pdf {
namespace {

// `object`'s entry `key` (a stream's, in its dictionary), or null when `object` has none.
// Asked of a null or of another type, QPDF reports a type error, which it throws when the
// object belongs to no document (a font written inside the resources of a copied page).
QPDFObjectHandle entry(QPDFObjectHandle object, const char *key)
{
    if (object.isStream()) {
        return object.getDict().getKey(key);
    }
    return object.isDictionary() ? object.getKey(key) : QPDFObjectHandle::newNull();
}

bool is_name(QPDFObjectHandle object, const char *name)
{
    return object.isNameAndEquals(name);
}

std::string base_font_name(QPDFObjectHandle font)
{
    QPDFObjectHandle base = entry(font, "/BaseFont");
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
    if (is_name(entry(font, "/Subtype"), "/Type0")) {
        QPDFObjectHandle descendants = entry(font, "/DescendantFonts");
        if (descendants.isArray() && descendants.getArrayNItems() > 0) {
            return entry(descendants.getArrayItem(0), "/FontDescriptor");
        }
        return QPDFObjectHandle::newNull();
    }
    return entry(font, "/FontDescriptor");
}

bool font_embedded(QPDFObjectHandle font)
{
    if (is_name(entry(font, "/Subtype"), "/Type3")) {
        return true; // glyphs are content streams of the font itself
    }
    QPDFObjectHandle descriptor = font_descriptor(font);
    return descriptor.isDictionary() && (entry(descriptor, "/FontFile").isStream() ||
                                         entry(descriptor, "/FontFile2").isStream() ||
                                         entry(descriptor, "/FontFile3").isStream());
}

// Whether the text shown in this font maps to Unicode: a ToUnicode map, a CJK collection
// whose CIDs have published Unicode tables, or a non-symbolic simple font whose glyph names
// are standard.
bool font_maps_to_unicode(QPDFObjectHandle font)
{
    if (entry(font, "/ToUnicode").isStream()) {
        return true;
    }
    QPDFObjectHandle subtype = entry(font, "/Subtype");
    if (is_name(subtype, "/Type3")) {
        return false;
    }
    if (is_name(subtype, "/Type0")) {
        QPDFObjectHandle descendants = entry(font, "/DescendantFonts");
        if (!descendants.isArray() || descendants.getArrayNItems() == 0) {
            return false;
        }
        QPDFObjectHandle ordering =
            entry(entry(descendants.getArrayItem(0), "/CIDSystemInfo"), "/Ordering");
        const std::string order = ordering.isString() ? ordering.getStringValue() : std::string();
        return order == "GB1" || order == "CNS1" || order == "Japan1" || order == "Korea1";
    }
    QPDFObjectHandle flags = entry(font_descriptor(font), "/Flags");
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
        if (is_name(entry(font, "/Subtype"), "/Type3")) {
            walk_resources(entry(font, "/Resources"));
        }
    }

    void ext_gstate(QPDFObjectHandle state)
    {
        if (!state.isDictionary() || !first_visit(state)) {
            return;
        }
        survey_.ext_gstates.push_back(state);
        QPDFObjectHandle mask = entry(state, "/SMask");
        if (mask.isDictionary() || mask.isStream()) {
            survey_.transparency = true;
        }
        for (const char *alpha : {"/CA", "/ca"}) {
            QPDFObjectHandle value = entry(state, alpha);
            if (value.isNumber() && value.getNumericValue() < 1.0) {
                survey_.transparency = true;
            }
        }
        QPDFObjectHandle blend = entry(state, "/BM");
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
        if (!entry(dict, "/ImageMask").isBool() || !entry(dict, "/ImageMask").getBoolValue()) {
            colour_space(entry(dict, "/ColorSpace"));
        }
        if (entry(dict, "/SMask").isStream() || (entry(dict, "/SMaskInData").isInteger() &&
                                                 entry(dict, "/SMaskInData").getIntValue() != 0)) {
            survey_.transparency = true;
        }
        QPDFObjectHandle filter = entry(dict, "/Filter");
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
        QPDFObjectHandle subtype = entry(xobject.getDict(), "/Subtype");
        if (is_name(subtype, "/Image")) {
            image(xobject);
        } else if (is_name(subtype, "/PS")) {
            survey_.postscript = true;
        } else if (is_name(subtype, "/Form")) {
            survey_.forms.push_back(xobject);
            QPDFObjectHandle own = entry(xobject.getDict(), "/Resources");
            content(xobject, own.isDictionary() ? own : inherited);
        }
    }

    void pattern(QPDFObjectHandle pattern, QPDFObjectHandle inherited)
    {
        if (!first_visit(pattern)) {
            return;
        }
        if (pattern.isStream()) { // tiling pattern: a content stream of its own
            QPDFObjectHandle own = entry(pattern.getDict(), "/Resources");
            content(pattern, own.isDictionary() ? own : inherited);
        } else if (pattern.isDictionary()) {
            colour_space(entry(entry(pattern, "/Shading"), "/ColorSpace"));
            ext_gstate(entry(pattern, "/ExtGState"));
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
        each_entry(entry(resources, "/Font"), [&](QPDFObjectHandle f) { font(f); });
        each_entry(entry(resources, "/ExtGState"), [&](QPDFObjectHandle s) { ext_gstate(s); });
        each_entry(entry(resources, "/ColorSpace"), [&](QPDFObjectHandle s) { colour_space(s); });
        each_entry(entry(resources, "/Shading"), [&](QPDFObjectHandle s) {
            colour_space(s.isStream() ? entry(s.getDict(), "/ColorSpace")
                                      : entry(s, "/ColorSpace"));
        });
        each_entry(entry(resources, "/Pattern"),
                   [&](QPDFObjectHandle p) { pattern(p, resources); });
        each_entry(entry(resources, "/XObject"),
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
    QPDFObjectHandle contents = entry(object, "/Contents");
    QPDFObjectHandle resources = page.getAttribute("/Resources", false);
    if (contents.isStream() || contents.isArray()) {
        surveyor.content(contents, resources);
    } else {
        surveyor.content(QPDFObjectHandle::newArray(), resources);
    }
    QPDFObjectHandle group = entry(object, "/Group");
    if (group.isDictionary() && is_name(entry(group, "/CS"), "/DeviceRGB")) {
        survey.device_rgb = true;
    }
    return survey;
}

} // namespace qf::writers::pdf
