#pragma once

// Places, streets, countries, people and businesses: what single lines of an address or a
// signature are.

#include "extraction/offline/Text.h"

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <optional>

namespace OfflineExtraction {

// The country a line names on its own ("Deutschland", "GERMANY", "CH"), else empty.
QString countryOf(QString text);

struct Place
{
    QString postcode;
    QString city;
    QString state;
    QString countryCode;
    bool postcodeOnly = false; // a British postcode on its own line below the town
};

const QString& cityPattern();

std::optional<Place> placeOf(QString text);

bool isLineTwo(const QString& text);

bool isStreet(const QString& text);

// An office held before a name: "Inhaberin Sara Yıldız", "i. A. Sabine Krüger".
const Re& officePattern();

// A person's name as written, without the salutation ("Frau Dr. Anna Berger" → "Dr. Anna
// Berger"), when the line is nothing but one.
std::optional<QString> personName(QString text);

bool hasLegalForm(const QString& text);

// Names of businesses without a legal form ("Nordlicht Werbeagentur", "Studio Kranich").
bool soundsLikeBusiness(const QString& text);

// Job titles, departments and bare salutations: lines of an address block that name neither
// the person nor the business.
bool isRoleLine(const QString& text);

// Phone, fax, web and mail lines of a signature.
bool isContactLine(const QString& text);

// The sign-off of a letter or an e-mail; the person who signs below it wrote the text.
bool isClosing(const QString& text);

QStringList emailsIn(const QString& text);

} // namespace OfflineExtraction
