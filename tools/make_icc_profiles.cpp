// SPDX-License-Identifier: GPL-3.0-or-later
// Writes "Generic RGB Profile.icc" (sRGB) and "Generic Gray Profile.icc" (D50 white, gamma
// 2.2) into the folder given as the argument. Both are ICC version 2 profiles: PDF/A-1 output
// intents must not carry a version 4 profile. The CMYK profile is built by
// make_icc_profiles.sh with ArgyllCMS.
#include <lcms2.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

// Description and copyright tags as v2 text descriptions (lcms writes 'desc' for v2 files).
bool describe(cmsHPROFILE profile, const char *description, const char *copyright)
{
    cmsMLU *desc = cmsMLUalloc(nullptr, 1);
    cmsMLU *cprt = cmsMLUalloc(nullptr, 1);
    const bool ok = desc != nullptr && cprt != nullptr &&
                    cmsMLUsetASCII(desc, "en", "US", description) &&
                    cmsMLUsetASCII(cprt, "en", "US", copyright) &&
                    cmsWriteTag(profile, cmsSigProfileDescriptionTag, desc) &&
                    cmsWriteTag(profile, cmsSigCopyrightTag, cprt);
    cmsMLUfree(desc);
    cmsMLUfree(cprt);
    return ok;
}

bool save(cmsHPROFILE profile, const char *description, const std::filesystem::path &file)
{
    if (profile == nullptr) {
        return false;
    }
    cmsSetProfileVersion(profile, 2.1);
    const bool ok = describe(profile, description, "No copyright, use freely") &&
                    cmsSaveProfileToFile(profile, file.c_str());
    cmsCloseProfile(profile);
    if (!ok) {
        std::fprintf(stderr, "cannot write %s\n", file.c_str());
    }
    return ok;
}

cmsHPROFILE make_gray()
{
    cmsToneCurve *gamma = cmsBuildGamma(nullptr, 2.2);
    cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), gamma);
    cmsFreeToneCurve(gamma);
    return profile;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const bool ok =
        save(cmsCreate_sRGBProfile(), "Generic RGB Profile", folder / "Generic RGB Profile.icc") &&
        save(make_gray(), "Generic Gray Profile", folder / "Generic Gray Profile.icc");
    return ok ? 0 : 1;
}
