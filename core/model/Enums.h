#pragma once

#include <QAnyStringView>
#include <QList>
#include <QString>
#include <QStringView>

#include <array>
#include <optional>
#include <string_view>

// Every enumeration of the records is stored by its raw string and shown by a label that
// is an English key of the string tables. One traits table per enumeration keeps the cases,
// their order (also the order of pickers), raw values and labels together.

enum class Status
{
    draft,
    sent,
    paid,
    cancelled
};
enum class InvoiceType
{
    invoice,
    cancellation,
    quote
};
enum class Unit
{
    piece,
    hour,
    day,
    week,
    lumpSum
};
enum class Language
{
    english,
    german
};
enum class VATExemptionReason
{
    none,
    reverseCharge,
    smallBusiness,
    educationalServices,
    medicalServices,
    insuranceFinancial,
    residentialRental,
    // Beyond the § 4 exemptions: goods to a business in another EU country, goods leaving
    // the EU, a supply taxed at zero, and an exemption that a received e-invoice names in its
    // own words (kept in the invoice's vatExemptionNote).
    intraCommunitySupply,
    exportOutsideEU,
    zeroRated,
    otherExemption
};
enum class NumberResetFrequency
{
    year,
    never
};
// The document a profile's invoices travel as when another program asks for them (the mail
// extension): the plain PDF, the XRechnung XML, or the hybrid ZUGFeRD PDF.
enum class EInvoiceFormat
{
    pdf,
    xrechnung,
    zugferd
};

// Which rules an e-invoice is written for. XRechnung is what German public customers
// (those with a Leitweg-ID) require; EN 16931, the Factur-X/ZUGFeRD profile of that name, is
// the European norm alone, for business customers. Automatic chooses by the customer.
enum class EInvoiceProfile
{
    automatic,
    xrechnung,
    en16931
};

template <class E>
struct EnumCase
{
    E value;
    std::string_view raw;
    std::string_view label;
};

template <class E>
struct EnumTraits;

template <>
struct EnumTraits<Status>
{
    static constexpr std::string_view typeName = "Status";
    static constexpr std::array<EnumCase<Status>, 4> cases{{
        {Status::draft, "Draft", "Draft"},
        {Status::sent, "Sent", "Sent"},
        {Status::paid, "Paid", "Paid"},
        {Status::cancelled, "Cancelled", "Cancelled"},
    }};
};

template <>
struct EnumTraits<InvoiceType>
{
    static constexpr std::string_view typeName = "InvoiceType";
    static constexpr std::array<EnumCase<InvoiceType>, 3> cases{{
        {InvoiceType::invoice, "invoice", "Invoice"},
        {InvoiceType::cancellation, "cancellation", "Cancellation"},
        {InvoiceType::quote, "quote", "Quote"},
    }};
};

template <>
struct EnumTraits<Unit>
{
    static constexpr std::string_view typeName = "Unit";
    static constexpr std::array<EnumCase<Unit>, 5> cases{{
        {Unit::piece, "Piece", "Piece"},
        {Unit::hour, "Hour", "Hour"},
        {Unit::day, "Day", "Day"},
        {Unit::week, "Week", "Week"},
        {Unit::lumpSum, "Lump Sum", "Lump Sum"},
    }};
};

template <>
struct EnumTraits<Language>
{
    static constexpr std::string_view typeName = "Language";
    static constexpr std::array<EnumCase<Language>, 2> cases{{
        {Language::english, "en", "en"},
        {Language::german, "de", "de"},
    }};
};

// The character between "§" and the number is U+202F NARROW NO-BREAK SPACE.
template <>
struct EnumTraits<VATExemptionReason>
{
    static constexpr std::string_view typeName = "VATExemptionReason";
    static constexpr std::array<EnumCase<VATExemptionReason>, 11> cases{{
        {VATExemptionReason::none, "none", "None"},
        {VATExemptionReason::reverseCharge, "reverseCharge", "Reverse Charge"},
        {VATExemptionReason::smallBusiness, "smallBusiness", "Small Business (§\u202F19 UStG)"},
        {VATExemptionReason::educationalServices, "educationalServices",
         "Educational Services (§\u202F4 Nr. 21 UStG)"},
        {VATExemptionReason::medicalServices, "medicalServices", "Medical Services (§\u202F4 Nr. 14 UStG)"},
        {VATExemptionReason::insuranceFinancial, "insuranceFinancial",
         "Insurance & Financial (§\u202F4 Nr. 8 UStG)"},
        {VATExemptionReason::residentialRental, "residentialRental",
         "Residential Rental (§\u202F4 Nr. 12 UStG)"},
        {VATExemptionReason::intraCommunitySupply, "intraCommunitySupply",
         "Intra-Community Supply (§\u202F4 Nr. 1b UStG)"},
        {VATExemptionReason::exportOutsideEU, "exportOutsideEU",
         "Export Outside the EU (§\u202F4 Nr. 1a UStG)"},
        {VATExemptionReason::zeroRated, "zeroRated", "Zero-Rated Supply"},
        {VATExemptionReason::otherExemption, "otherExemption", "Other Exemption (as Noted)"},
    }};
};

template <>
struct EnumTraits<NumberResetFrequency>
{
    static constexpr std::string_view typeName = "NumberResetFrequency";
    static constexpr std::array<EnumCase<NumberResetFrequency>, 2> cases{{
        {NumberResetFrequency::year, "year", "Every Year"},
        {NumberResetFrequency::never, "never", "Never"},
    }};
};

template <>
struct EnumTraits<EInvoiceFormat>
{
    static constexpr std::string_view typeName = "EInvoiceFormat";
    static constexpr std::array<EnumCase<EInvoiceFormat>, 3> cases{{
        {EInvoiceFormat::pdf, "pdf", "PDF"},
        {EInvoiceFormat::xrechnung, "xrechnung", "XRechnung"},
        {EInvoiceFormat::zugferd, "zugferd", "ZUGFeRD PDF"},
    }};
};

template <>
struct EnumTraits<EInvoiceProfile>
{
    static constexpr std::string_view typeName = "EInvoiceProfile";
    static constexpr std::array<EnumCase<EInvoiceProfile>, 3> cases{{
        {EInvoiceProfile::automatic, "automatic", "Automatic"},
        {EInvoiceProfile::xrechnung, "xrechnung", "XRechnung"},
        {EInvoiceProfile::en16931, "en16931", "EN 16931"},
    }};
};

template <class E>
constexpr const EnumCase<E>& enumCase(E value)
{
    for (const auto& c : EnumTraits<E>::cases)
        if (c.value == value)
            return c;
    return EnumTraits<E>::cases.front(); // unreachable for valid values
}

template <class E>
QString rawValue(E value)
{
    const auto raw = enumCase(value).raw;
    return QString::fromUtf8(raw.data(), qsizetype(raw.size()));
}

// Exact, case-sensitive match: a stored "draft" is not a Status.
template <class E>
std::optional<E> enumFromRaw(QStringView raw)
{
    for (const auto& c : EnumTraits<E>::cases)
        if (QAnyStringView::equal(QUtf8StringView(c.raw.data(), qsizetype(c.raw.size())), raw))
            return c.value;
    return std::nullopt;
}

template <class E>
QList<E> allCases()
{
    QList<E> result;
    for (const auto& c : EnumTraits<E>::cases)
        result.append(c.value);
    return result;
}

// The raw values joined for error messages ("Draft, Sent, Paid, Cancelled").
template <class E>
QString rawValueList()
{
    QStringList values;
    for (const auto& c : EnumTraits<E>::cases)
        values.append(QString::fromUtf8(c.raw.data(), qsizetype(c.raw.size())));
    return values.join(QStringLiteral(", "));
}

// English label key of a case; translate with labelText().
template <class E>
QString labelKey(E value)
{
    const auto label = enumCase(value).label;
    return QString::fromUtf8(label.data(), qsizetype(label.size()));
}

QString labelText(Status value, std::optional<Language> language = std::nullopt);
QString labelText(EInvoiceFormat value, std::optional<Language> language = std::nullopt);
QString labelText(EInvoiceProfile value, std::optional<Language> language = std::nullopt);
QString labelText(InvoiceType value, std::optional<Language> language = std::nullopt);
QString labelText(Unit value, std::optional<Language> language = std::nullopt);
QString labelText(VATExemptionReason value, std::optional<Language> language = std::nullopt);
QString labelText(NumberResetFrequency value, std::optional<Language> language = std::nullopt);
// "English" / "German", in the given or the interface language.
QString labelText(Language value, std::optional<Language> language = std::nullopt);

// Key of the sentence that documents print for an exemption; empty for none.
QString documentNoteKey(VATExemptionReason reason);
