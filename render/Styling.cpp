#include "render/Styling.h"

#include "model/Region.h"
#include "util/JsonReader.h"
#include "util/JsonWriter.h"

using namespace Qt::Literals::StringLiterals;

PageFormat defaultPageFormat(const Country& region)
{
    static const QStringList letterRegions{u"US"_s, u"CA"_s, u"MX"_s, u"BZ"_s, u"GT"_s,
                                           u"SV"_s, u"HN"_s, u"NI"_s, u"CR"_s, u"PA"_s,
                                           u"PR"_s, u"CO"_s, u"VE"_s, u"CL"_s, u"PH"_s};
    return letterRegions.contains(region.code.toUpper()) ? PageFormat::usLetter : PageFormat::a4;
}

Styling Styling::makeNew(const Country& region)
{
    Styling styling;
    styling.id = QUuid::createUuid();
    styling.pageFormat = defaultPageFormat(region);
    return styling;
}

Styling Styling::makeNew()
{
    return makeNew(Region::system());
}

namespace StylingJson {

QByteArray encode(const Styling& s)
{
    JsonWriter w;
    w.beginObject();
    w.field("id"_L1, s.id);
    w.field("pageFormat"_L1, rawValue(s.pageFormat));
    w.field("marginalColumn"_L1, s.marginalColumn);
    w.field("pageHeadline"_L1, s.pageHeadline);
    w.field("addressLine"_L1, s.addressLine);
    w.field("emptyItemRows"_L1, s.emptyItemRows);
    w.field("headlineFont"_L1, s.headlineFont);
    w.field("headlineFontWeight"_L1, s.headlineFontWeight);
    w.field("headlineFontFace"_L1, s.headlineFontFace);
    w.field("primaryFont"_L1, s.primaryFont);
    w.field("primaryFontWeight"_L1, s.primaryFontWeight);
    w.field("primaryFontFace"_L1, s.primaryFontFace);
    w.field("secondaryFont"_L1, s.secondaryFont);
    w.field("secondaryFontWeight"_L1, s.secondaryFontWeight);
    w.field("secondaryFontFace"_L1, s.secondaryFontFace);
    w.field("labelFont"_L1, s.labelFont);
    w.field("labelFontWeight"_L1, s.labelFontWeight);
    w.field("labelFontFace"_L1, s.labelFontFace);
    w.field("smallCapsLabels"_L1, s.smallCapsLabels);
    w.field("primaryColor"_L1, s.primaryColor);
    w.field("accentColor"_L1, s.accentColor);
    w.key("accentColorUsage"_L1);
    w.beginArray();
    for (AccentColorUsage usage : s.accentColorUsage)
        w.value(rawValue(usage));
    w.endArray();
    w.field("backgroundPattern"_L1, rawValue(s.backgroundPattern));
    w.field("lineStyle"_L1, rawValue(s.lineStyle));
    w.field("tintRowBackground"_L1, s.tintRowBackground);
    w.field("logoSize"_L1, s.logoSize);
    w.field("recolorLogo"_L1, s.recolorLogo);
    w.field("girocode"_L1, s.girocode);
    w.endObject();
    return w.take();
}

Styling decode(const QByteArray& bytes, const Country& region)
{
    const JsonDocument document(bytes);
    const JsonFieldReader r(document, DateEncoding::referenceSeconds);
    Styling s = Styling::makeNew(region);
    r.read("id"_L1, s.id);
    r.read("pageFormat"_L1, s.pageFormat);
    r.read("marginalColumn"_L1, s.marginalColumn);
    r.read("pageHeadline"_L1, s.pageHeadline);
    r.read("addressLine"_L1, s.addressLine);
    r.read("emptyItemRows"_L1, s.emptyItemRows);
    r.read("headlineFont"_L1, s.headlineFont);
    r.read("headlineFontWeight"_L1, s.headlineFontWeight);
    r.read("headlineFontFace"_L1, s.headlineFontFace);
    r.read("primaryFont"_L1, s.primaryFont);
    r.read("primaryFontWeight"_L1, s.primaryFontWeight);
    r.read("primaryFontFace"_L1, s.primaryFontFace);
    r.read("secondaryFont"_L1, s.secondaryFont);
    r.read("secondaryFontWeight"_L1, s.secondaryFontWeight);
    r.read("secondaryFontFace"_L1, s.secondaryFontFace);
    r.read("labelFont"_L1, s.labelFont);
    r.read("labelFontWeight"_L1, s.labelFontWeight);
    r.read("labelFontFace"_L1, s.labelFontFace);
    r.read("smallCapsLabels"_L1, s.smallCapsLabels);
    r.read("primaryColor"_L1, s.primaryColor);
    r.read("accentColor"_L1, s.accentColor);
    if (const auto usages = r.raw("accentColorUsage"_L1)) {
        simdjson::dom::array array;
        if (usages->get_array().get(array) != simdjson::SUCCESS)
            r.fail("accentColorUsage"_L1,
                   u"expected an array, found %1"_s.arg(JsonFieldReader::typeName(*usages)));
        s.accentColorUsage.clear();
        for (simdjson::dom::element element : array) {
            std::string_view text;
            if (element.get_string().get(text) != simdjson::SUCCESS)
                r.fail("accentColorUsage"_L1, u"expected an array of strings"_s);
            const QString raw = QString::fromUtf8(text.data(), qsizetype(text.size()));
            const auto usage = enumFromRaw<AccentColorUsage>(raw);
            if (!usage)
                r.fail("accentColorUsage"_L1, u"unknown value \"%1\" (expected one of: %2)"_s.arg(
                                                  raw, rawValueList<AccentColorUsage>()));
            if (!s.accentColorUsage.contains(*usage))
                s.accentColorUsage.append(*usage);
        }
    }
    r.read("backgroundPattern"_L1, s.backgroundPattern);
    r.read("lineStyle"_L1, s.lineStyle);
    r.read("tintRowBackground"_L1, s.tintRowBackground);
    r.read("logoSize"_L1, s.logoSize);
    r.read("recolorLogo"_L1, s.recolorLogo);
    r.read("girocode"_L1, s.girocode);
    // The monospaced font of early versions is no longer shipped; its successor keeps the weight.
    if (s.primaryFont == u"IBM Plex Mono")
        s.primaryFont = u"iA Writer Duo"_s;
    return s;
}

Styling decode(const QByteArray& bytes)
{
    return decode(bytes, Region::system());
}

} // namespace StylingJson
