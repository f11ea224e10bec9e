#pragma once

#include "model/Codes.h"
#include "model/Enums.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

enum class PageFormat
{
    a4,
    usLetter
};
enum class AccentColorUsage
{
    important,
    labels,
    logo,
    headline
};
enum class BackgroundPattern
{
    none,
    dots,
    frame
};
enum class LineStyle
{
    single,
    doubleLine,
    dotted,
    dashed
};

template <>
struct EnumTraits<PageFormat>
{
    static constexpr std::string_view typeName = "PageFormat";
    static constexpr std::array<EnumCase<PageFormat>, 2> cases{{
        {PageFormat::a4, "a4", "A4"},
        {PageFormat::usLetter, "usLetter", "US Letter"},
    }};
};

template <>
struct EnumTraits<AccentColorUsage>
{
    static constexpr std::string_view typeName = "AccentColorUsage";
    static constexpr std::array<EnumCase<AccentColorUsage>, 4> cases{{
        {AccentColorUsage::important, "Most Important Info", "Most Important Info"},
        {AccentColorUsage::labels, "Labels", "Labels"},
        {AccentColorUsage::logo, "Logo", "Logo"},
        {AccentColorUsage::headline, "Headline", "Headline"},
    }};
};

template <>
struct EnumTraits<BackgroundPattern>
{
    static constexpr std::string_view typeName = "BackgroundPattern";
    static constexpr std::array<EnumCase<BackgroundPattern>, 3> cases{{
        {BackgroundPattern::none, "none", "none"},
        {BackgroundPattern::dots, "Dots", "Dots"},
        {BackgroundPattern::frame, "Frame", "Frame"},
    }};
};

template <>
struct EnumTraits<LineStyle>
{
    static constexpr std::string_view typeName = "LineStyle";
    static constexpr std::array<EnumCase<LineStyle>, 4> cases{{
        {LineStyle::single, "Single", "Single"},
        {LineStyle::doubleLine, "Double", "Double"},
        {LineStyle::dotted, "Dotted", "Dotted"},
        {LineStyle::dashed, "Dashed", "Dashed"},
    }};
};

// The visual design of every document of one profile, kept as "styling.json" in the
// profile's folder. A plain value; StylingManager owns the current one.
struct Styling
{
    QUuid id;
    PageFormat pageFormat = PageFormat::a4;
    bool marginalColumn = true;
    bool pageHeadline = true;
    bool addressLine = true;
    bool emptyItemRows = true;
    QString headlineFont = QStringLiteral("Source Serif");
    QString headlineFontWeight = QStringLiteral("400");
    std::optional<QString> headlineFontFace;
    QString primaryFont = QStringLiteral("iA Writer Duo");
    QString primaryFontWeight = QStringLiteral("400");
    std::optional<QString> primaryFontFace;
    QString secondaryFont = QStringLiteral("Source Serif");
    QString secondaryFontWeight = QStringLiteral("400");
    std::optional<QString> secondaryFontFace;
    QString labelFont = QStringLiteral("Source Serif");
    QString labelFontWeight = QStringLiteral("400");
    std::optional<QString> labelFontFace;
    bool smallCapsLabels = true;
    QString primaryColor = QStringLiteral("68977C");
    QString accentColor = QStringLiteral("FF4B14");
    QList<AccentColorUsage> accentColorUsage{AccentColorUsage::important};
    BackgroundPattern backgroundPattern = BackgroundPattern::none;
    LineStyle lineStyle = LineStyle::dotted;
    bool tintRowBackground = true;
    double logoSize = 1.4;
    bool recolorLogo = true;
    // The payment QR code (GiroCode) on invoices that can be paid by SEPA transfer.
    bool girocode = true;
    // Not stored in styling.json: found in the profile folder when the styling loads.
    std::optional<QString> logo;
    std::optional<QString> css;

    // Defaults with a new id and the page format of the system's region.
    static Styling makeNew();
    static Styling makeNew(const Country& region);

    bool uses(AccentColorUsage usage) const { return accentColorUsage.contains(usage); }

    friend bool operator==(const Styling&, const Styling&) = default;
};

namespace StylingJson {

// All 28 keys in declared order, pretty-printed.
QByteArray encode(const Styling& styling);
// Lenient: missing keys take the defaults (page format by `region`). The retired primary
// font "IBM Plex Mono" becomes "iA Writer Duo". Throws JsonDecodeError.
Styling decode(const QByteArray& bytes, const Country& region);
Styling decode(const QByteArray& bytes);

} // namespace StylingJson

// US Letter for the Americas' letter countries and the Philippines, A4 elsewhere.
PageFormat defaultPageFormat(const Country& region);
