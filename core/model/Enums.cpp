#include "model/Enums.h"

#include "l10n/Strings.h"

namespace {

template <class E>
QString translateLabel(E value, std::optional<Language> language)
{
    const QString key = labelKey(value);
    return language ? Strings::text(key, *language) : Strings::ui(key);
}

} // namespace

QString labelText(Status value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(InvoiceType value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(Unit value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(VATExemptionReason value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(EInvoiceFormat value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(EInvoiceProfile value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(NumberResetFrequency value, std::optional<Language> language)
{
    return translateLabel(value, language);
}

QString labelText(Language value, std::optional<Language> language)
{
    const QString key = value == Language::german ? QStringLiteral("German") : QStringLiteral("English");
    return language ? Strings::text(key, *language) : Strings::ui(key);
}

QString documentNoteKey(VATExemptionReason reason)
{
    switch (reason) {
    case VATExemptionReason::none:
        return {};
    case VATExemptionReason::reverseCharge:
        return QStringLiteral("VAT Reverse Charge");
    case VATExemptionReason::smallBusiness:
        return QStringLiteral("VAT Exemption Small Business");
    case VATExemptionReason::educationalServices:
        return QStringLiteral("VAT Exemption Educational Services");
    case VATExemptionReason::medicalServices:
        return QStringLiteral("VAT Exemption Medical Services");
    case VATExemptionReason::insuranceFinancial:
        return QStringLiteral("VAT Exemption Insurance Financial");
    case VATExemptionReason::residentialRental:
        return QStringLiteral("VAT Exemption Residential Rental");
    case VATExemptionReason::intraCommunitySupply:
        return QStringLiteral("VAT Exemption Intra-Community Supply");
    case VATExemptionReason::exportOutsideEU:
        return QStringLiteral("VAT Exemption Export");
    case VATExemptionReason::zeroRated:
    case VATExemptionReason::otherExemption:
        return {}; // zero-rated documents state no reason; other exemptions carry their own text
    }
    return {};
}
