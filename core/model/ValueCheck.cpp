#include "model/ValueCheck.h"

#include "l10n/CodeNames.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "model/Region.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace ValueCheck {

namespace {

QSet<QString> isoCodes(const QString& standard, const QString& codeKey)
{
    QSet<QString> codes;
    QFile file(u"/usr/share/iso-codes/json/iso_"_s + standard + u".json"_s);
    if (file.open(QIODevice::ReadOnly))
        for (const QJsonValue& entry :
             QJsonDocument::fromJson(file.readAll()).object().value(standard).toArray())
            codes.insert(entry.toObject().value(codeKey).toString());
    codes.remove(QString());
    return codes;
}

const QSet<QString>& currencies()
{
    static const QSet<QString> codes = [] {
        QSet<QString> all = isoCodes(u"4217"_s, u"alpha_3"_s);
        for (const Currency& currency : CodeNames::currencies())
            all.insert(currency.code);
        return all;
    }();
    return codes;
}

const QSet<QString>& countries()
{
    static const QSet<QString> codes = [] {
        QSet<QString> all = isoCodes(u"3166-1"_s, u"alpha_2"_s);
        for (const Country& country : Region::supportedCountries())
            all.insert(country.code);
        return all;
    }();
    return codes;
}

// Shown in a message: short, and without what could confuse a terminal.
QString quoted(const QString& value)
{
    QString shown = value.left(40);
    for (QChar& c : shown)
        if (c.category() == QChar::Other_Control)
            c = u'?';
    return u'"' + shown + (value.size() > 40 ? u"…\""_s : u"\""_s);
}

bool hasControlCharacters(const QString& text, bool lineBreaks)
{
    for (const QChar c : text) {
        if (c == u'\t' || (lineBreaks && (c == u'\n' || c == u'\r')))
            continue;
        if (c.category() == QChar::Other_Control || c == QChar(0xFFFE) || c == QChar(0xFFFF))
            return true;
    }
    return false;
}

// Runs checks in order and keeps the first problem.
class Checks
{
public:
    void operator()(std::optional<Problem> problem)
    {
        if (!m_first && problem)
            m_first = std::move(problem);
    }
    std::optional<Problem> first() const { return m_first; }

private:
    std::optional<Problem> m_first;
};

} // namespace

bool isCurrency(QStringView code)
{
    return code.size() == 3 && currencies().contains(code.toString());
}

bool isCountry(QStringView code)
{
    return code.size() == 2 && countries().contains(code.toString());
}

bool isUnitCode(QStringView code)
{
    if (code.size() < 2 || code.size() > 3)
        return false;
    for (const QChar c : code)
        if (!((c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9')))
            return false;
    return true;
}

bool isVatCategory(QStringView code)
{
    static const QSet<QString> codes{u"S"_s, u"Z"_s, u"E"_s, u"AE"_s, u"K"_s, u"G"_s, u"O"_s, u"L"_s, u"M"_s};
    return codes.contains(code.toString());
}

std::optional<Problem> currency(const QString& field, const QString& code)
{
    if (isCurrency(code))
        return std::nullopt;
    return Problem{field, quoted(code) + u" is not an ISO 4217 currency code"_s};
}

std::optional<Problem> country(const QString& field, const QString& code)
{
    if (code.isEmpty() || isCountry(code))
        return std::nullopt;
    return Problem{field, quoted(code) + u" is not an ISO 3166 country code"_s};
}

std::optional<Problem> line(const QString& field, const QString& text)
{
    if (text.size() > maxLineLength)
        return Problem{field, u"longer than %1 characters"_s.arg(maxLineLength)};
    if (hasControlCharacters(text, true))
        return Problem{field, u"contains control characters"_s};
    return std::nullopt;
}

std::optional<Problem> text(const QString& field, const QString& text)
{
    if (text.size() > maxTextLength)
        return Problem{field, u"longer than %1 characters"_s.arg(maxTextLength)};
    if (hasControlCharacters(text, true))
        return Problem{field, u"contains control characters"_s};
    return std::nullopt;
}

std::optional<Problem> number(const QString& field, double value, double limit)
{
    if (!std::isfinite(value) || std::abs(value) > limit)
        return Problem{field, u"%1 is not a usable number"_s.arg(value)};
    return std::nullopt;
}

std::optional<Problem> invoice(const Invoice& i)
{
    Checks check;
    check(currency(u"currency"_s, i.currency.code));
    check(country(u"addressCountry"_s, i.addressCountry.code));
    check(country(u"senderAddressCountry"_s, i.senderAddressCountry.code));
    const std::pair<const char*, const QString*> lines[] = {
        {"name", &i.name},
        {"businessName", &i.businessName},
        {"addressLineOne", &i.addressLineOne},
        {"addressLineTwo", &i.addressLineTwo},
        {"addressPostcode", &i.addressPostcode},
        {"addressCity", &i.addressCity},
        {"addressState", &i.addressState},
        {"email", &i.email},
        {"vatNumber", &i.vatNumber},
        {"electronicAddress", &i.electronicAddress},
        {"electronicAddressScheme", &i.electronicAddressScheme},
        {"leitwegId", &i.leitwegId},
        {"numberVariable", &i.numberVariable},
        {"senderName", &i.senderName},
        {"senderBusinessName", &i.senderBusinessName},
        {"senderAddressLineOne", &i.senderAddressLineOne},
        {"senderAddressLineTwo", &i.senderAddressLineTwo},
        {"senderAddressPostcode", &i.senderAddressPostcode},
        {"senderAddressCity", &i.senderAddressCity},
        {"senderAddressState", &i.senderAddressState},
        {"senderEmail", &i.senderEmail},
        {"senderPhone", &i.senderPhone},
        {"senderWeb", &i.senderWeb},
        {"senderIban", &i.senderIban},
        {"senderBic", &i.senderBic},
        {"senderTaxNumber", &i.senderTaxNumber},
        {"senderVatNumber", &i.senderVatNumber},
    };
    for (const auto& [field, value] : lines)
        check(line(QString::fromLatin1(field), *value));
    const std::pair<const char*, const std::optional<QString>*> optionalLines[] = {
        {"numberFormat", &i.numberFormat},         {"cancellationPrefix", &i.cancellationPrefix},
        {"quotePrefix", &i.quotePrefix},           {"reference", &i.reference},
        {"vatExemptionCode", &i.vatExemptionCode},
    };
    for (const auto& [field, value] : optionalLines)
        if (*value)
            check(line(QString::fromLatin1(field), **value));
    const std::pair<const char*, const QString*> texts[] = {
        {"note", &i.note},
        {"marginalNote", &i.marginalNote},
        {"senderAdditional", &i.senderAdditional},
        {"senderAdditionalNumbers", &i.senderAdditionalNumbers},
    };
    for (const auto& [field, value] : texts)
        check(text(QString::fromLatin1(field), *value));
    if (i.vatExemptionNote)
        check(text(u"vatExemptionNote"_s, *i.vatExemptionNote));
    if (i.items.size() > maxItems)
        check(Problem{u"items"_s, u"more than %1 lines"_s.arg(maxItems)});
    for (qsizetype n = 0; n < i.items.size() && n < maxItems; ++n) {
        const InvoiceItem& item = i.items[n];
        const QString prefix = u"items[%1]."_s.arg(n);
        check(text(prefix + u"item"_s, item.item));
        check(number(prefix + u"quantity"_s, item.quantity));
        check(number(prefix + u"unitPrice"_s, item.unitPrice));
        check(number(prefix + u"vatPercentage"_s, item.vatPercentage, 100));
    }
    if (i.discountPercentage)
        check(number(u"discountPercentage"_s, *i.discountPercentage, 100));
    if (i.discountAmount)
        check(number(u"discountAmount"_s, *i.discountAmount));
    if (i.skontoPercentage)
        check(number(u"skontoPercentage"_s, *i.skontoPercentage, 100));
    if (i.daysToPay < 0 || i.daysToPay > 36500)
        check(Problem{u"daysToPay"_s, u"%1 is not a usable number of days"_s.arg(i.daysToPay)});
    return check.first();
}

std::optional<Problem> profile(const Profile& p)
{
    Checks check;
    check(currency(u"currency"_s, p.currency.code));
    check(country(u"addressCountry"_s, p.addressCountry.code));
    check(country(u"taxResidency"_s, p.taxResidency.code));
    const std::pair<const char*, const QString*> lines[] = {
        {"icon", &p.icon},
        {"name", &p.name},
        {"businessName", &p.businessName},
        {"addressLineOne", &p.addressLineOne},
        {"addressLineTwo", &p.addressLineTwo},
        {"addressPostcode", &p.addressPostcode},
        {"addressCity", &p.addressCity},
        {"addressState", &p.addressState},
        {"email", &p.email},
        {"phone", &p.phone},
        {"website", &p.website},
        {"iban", &p.iban},
        {"bic", &p.bic},
        {"taxNumber", &p.taxNumber},
        {"vatNumber", &p.vatNumber},
        {"numberFormat", &p.numberFormat},
        {"cancellationPrefix", &p.cancellationPrefix},
        {"quotePrefix", &p.quotePrefix},
    };
    if (p.profileName)
        check(line(u"profileName"_s, *p.profileName));
    for (const auto& [field, value] : lines)
        check(line(QString::fromLatin1(field), *value));
    const std::pair<const char*, const QString*> texts[] = {
        {"additional", &p.additional},
        {"additionalNumbers", &p.additionalNumbers},
        {"marginalNote", &p.marginalNote},
        {"reminderTemplate", &p.reminderTemplate},
    };
    for (const auto& [field, value] : texts)
        check(text(QString::fromLatin1(field), *value));
    return check.first();
}

} // namespace ValueCheck
