#pragma once

#include "model/Codes.h"
#include "model/Invoice.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// A contact card reduced to what an invoice recipient needs; empty strings where the card has
// nothing.
struct Contact
{
    QString name;
    QString street;
    QString postcode;
    QString city;
    QString state;
    QString phone;
    QString email;
    QString website;
    QString organization;
    QString country; // the address's country as written on the card

    friend bool operator==(const Contact&, const Contact&) = default;
};

// Contact cards dragged from an address book (vCard data) become invoice recipients.
class ContactDropHandler
{
public:
    // The first contact of the data; nothing when it is no vCard (logged) or holds no contact.
    static std::optional<Contact> contact(const QByteArray& vcard);
    // Every contact of the data, in order; empty when it is no vCard (logged).
    static QList<Contact> contacts(const QByteArray& vcard);
    // The same without logging: throws VCardError with the reason. Cards that carry none of
    // the fields above are left out.
    static QList<Contact> readContacts(const QByteArray& vcard);

    // Sets the recipient of the invoice from the contact. The country changes only when the
    // card's country text names one ("DE", "Germany", "Deutschland").
    static void fillRecipient(Invoice& invoice, const Contact& contact);
    // The country a text names: an ISO code, its English name or its name in one of its own languages.
    static std::optional<Country> countryNamed(const QString& text);
};
