#include "einvoice/ColorProfile.h"

#include <lcms2.h>

namespace ColorProfile {

namespace {

QByteArray makeSrgb()
{
    cmsHPROFILE profile = cmsCreate_sRGBProfile();
    if (!profile)
        return {};
    cmsSetProfileVersion(profile, 2.1);
    QByteArray bytes;
    cmsUInt32Number size = 0;
    if (cmsSaveProfileToMem(profile, nullptr, &size) && size > 0) {
        bytes.resize(qsizetype(size));
        if (!cmsSaveProfileToMem(profile, bytes.data(), &size))
            bytes.clear();
    }
    cmsCloseProfile(profile);
    return bytes;
}

} // namespace

const QByteArray& srgb()
{
    static const QByteArray bytes = makeSrgb();
    return bytes;
}

} // namespace ColorProfile
