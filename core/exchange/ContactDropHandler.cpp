#include "exchange/ContactDropHandler.h"

#include "exchange/ProfileExchange.h"
#include "exchange/VCard.h"
#include "l10n/CodeNames.h"
#include "model/Region.h"
#include "model/ValueCheck.h"

#include <QHash>
#include <QLocale>

using namespace Qt::Literals::StringLiterals;

namespace {

// The work-labelled property of that name, else the first; nullopt when the card has none.
std::optional<VCardProperty> preferWork(const VCard& card, const QString& name)
{
    const QList<VCardProperty> found = card.all(name);
    if (found.isEmpty())
        return std::nullopt;
    for (const VCardProperty& property : found)
        if (property.hasType(u"work"_s))
            return property;
    return found.first();
}

QString phoneText(const VCardProperty& phone)
{
    // 4.0 may give the number as a URI: "tel:+49-30-1234567".
    QString text = phone.text().trimmed();
    if (text.startsWith(u"tel:"_s, Qt::CaseInsensitive))
        text = text.mid(4);
    return text;
}

QString website(const QString& url)
{
    if (url.isEmpty() || url.startsWith(u"https://"_s, Qt::CaseInsensitive) ||
        url.startsWith(u"http://"_s, Qt::CaseInsensitive))
        return url;
    return u"https://"_s + url;
}

Contact contactFrom(const VCard& card)
{
    Contact contact;
    if (const VCardProperty* org = card.first(u"ORG"_s))
        contact.organization = org->component(0); // the rest are departments

    if (const VCardProperty* n = card.first(u"N"_s)) {
        // N is family;given;middle;prefix;suffix. Titles stay out of the recipient's name.
        QStringList parts;
        for (const qsizetype index : {1, 2, 0})
            if (const QString part = n->component(index); !part.isEmpty())
                parts.append(part);
        contact.name = parts.join(u' ');
    }
    if (contact.name.isEmpty()) {
        // Cards of companies carry the company's name as FN too; it belongs in the business
        // name only.
        const VCardProperty* fn = card.first(u"FN"_s);
        const QString formatted = fn ? fn->text().trimmed() : QString();
        if (formatted.compare(contact.organization, Qt::CaseInsensitive) != 0)
            contact.name = formatted;
    }

    if (const auto address = preferWork(card, u"ADR"_s)) {
        // ADR is post box;extended address;street;city;region;postcode;country. The extended
        // address (flat, c/o) goes below the street.
        QStringList street;
        for (const qsizetype index : {2, 1})
            if (const QString part = address->component(index); !part.isEmpty())
                street.append(part);
        contact.street = street.join(u'\n');
        contact.city = address->component(3);
        contact.state = address->component(4);
        contact.postcode = address->component(5);
        contact.country = address->component(6);
    }
    if (const auto phone = preferWork(card, u"TEL"_s))
        contact.phone = phoneText(*phone);
    if (const auto email = preferWork(card, u"EMAIL"_s))
        contact.email = email->text().trimmed();
    if (const VCardProperty* url = card.first(u"URL"_s))
        contact.website = website(url->text().trimmed());
    return contact;
}

} // namespace

std::optional<Contact> ContactDropHandler::contact(const QByteArray& vcard)
{
    const QList<Contact> found = contacts(vcard);
    if (found.isEmpty())
        return std::nullopt;
    return found.first();
}

QList<Contact> ContactDropHandler::contacts(const QByteArray& vcard)
{
    try {
        return readContacts(vcard);
    } catch (const VCardError& error) {
        qCWarning(lcExchange).noquote() << u"Error parsing vCard: "_s + error.message();
        return {};
    }
}

QList<Contact> ContactDropHandler::readContacts(const QByteArray& vcard)
{
    QList<Contact> found;
    for (const VCard& card : VCard::parse(vcard)) {
        const Contact contact = contactFrom(card);
        if (contact == Contact())
            continue;
        // A card is a stranger's file: a value the invoice would not accept refuses the card.
        const std::pair<const char*, const QString*> fields[] = {
            {"N", &contact.name},           {"ADR", &contact.street},  {"ADR", &contact.postcode},
            {"ADR", &contact.city},         {"ADR", &contact.state},   {"ADR", &contact.country},
            {"TEL", &contact.phone},        {"EMAIL", &contact.email}, {"URL", &contact.website},
            {"ORG", &contact.organization},
        };
        for (const auto& [field, value] : fields)
            if (const auto problem = ValueCheck::line(QString::fromLatin1(field), *value))
                throw VCardError(u"contact %1: %2"_s.arg(found.size() + 1).arg(problem->text()));
        found.append(contact);
    }
    return found;
}

void ContactDropHandler::fillRecipient(Invoice& invoice, const Contact& contact)
{
    invoice.name = contact.name;
    invoice.businessName = contact.organization;
    // The invoice has two address lines; a street of more lines continues on the second.
    const QStringList street = contact.street.split(u'\n', Qt::SkipEmptyParts);
    invoice.addressLineOne = street.value(0).trimmed();
    QStringList rest = street.mid(1);
    for (QString& line : rest)
        line = line.trimmed();
    invoice.addressLineTwo = rest.join(u", "_s);
    invoice.addressPostcode = contact.postcode;
    invoice.addressCity = contact.city;
    invoice.addressState = contact.state;
    if (const auto country = countryNamed(contact.country))
        invoice.addressCountry = *country;
    invoice.email = contact.email;
}

std::optional<Country> ContactDropHandler::countryNamed(const QString& text)
{
    const QString key = text.trimmed().toCaseFolded();
    if (key.isEmpty())
        return std::nullopt;
    if (key.size() == 2) {
        const Country code{key.toUpper()};
        if (Region::isSupported(code))
            return code;
    }
    // The names of the locale data and of the ISO tables, built once: English and German ones,
    // and each country's name in its own languages.
    static const QHash<QString, QString> byName = [] {
        QHash<QString, QString> names;
        auto add = [&](const QString& name, const QString& code) {
            if (!name.isEmpty())
                names.insert(name.toCaseFolded(), code);
        };
        for (const QLocale& locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory)) {
            const QString code = QLocale::territoryToCode(locale.territory());
            if (Region::isSupported(Country{code}))
                add(locale.nativeTerritoryName(), code);
        }
        for (const Country& country : Region::supportedCountries()) {
            add(QLocale::territoryToString(QLocale::codeToTerritory(country.code)), country.code);
            // German address books write "Frankreich", "Niederlande".
            add(CodeNames::countryName(country, Language::german), country.code);
            add(CodeNames::countryName(country, Language::english), country.code);
        }
        add(u"USA"_s, u"US"_s);
        add(u"UK"_s, u"GB"_s);
        return names;
    }();
    if (const auto found = byName.constFind(key); found != byName.constEnd())
        return Country{*found};
    return std::nullopt;
}
