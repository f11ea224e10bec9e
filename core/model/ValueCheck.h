#pragma once

#include "model/Codes.h"

#include <QString>
#include <QStringView>

#include <optional>

struct Invoice;
struct Profile;

// What a record may hold when it comes from outside the data folder (a received e-invoice, the
// record inside a PDF, a Ledra Data file, a contact card, a plugin's or a model's answer): codes
// from their lists, text of bounded length without control characters, finite numbers. Every
// import asks here before it writes anything, so that all of them accept the same.
namespace ValueCheck {

// One value that is not accepted: the field (as the caller names it to the user) and why.
struct Problem
{
    QString field;
    QString reason; // English, for the command line and logs: "\"XYZ\" is not an ISO 4217 currency code"

    QString text() const { return field + QStringLiteral(": ") + reason; }
};

// Lengths: one-line fields (names, address lines, numbers and codes) and free texts (notes,
// item descriptions). Far above what a letter or an e-invoice needs.
inline constexpr qsizetype maxLineLength = 1000;
inline constexpr qsizetype maxTextLength = 20000;
inline constexpr qsizetype maxItems = 10000;

// ISO 4217 alpha-3 and ISO 3166-1 alpha-2, from the system's iso-codes lists and the locale
// data that the pickers offer.
bool isCurrency(QStringView code);
bool isCountry(QStringView code);
// UN/ECE Recommendation 20 unit codes as e-invoices carry them: two or three letters or digits.
bool isUnitCode(QStringView code);
// VAT category codes of EN 16931 (UNTDID 5305 subset).
bool isVatCategory(QStringView code);

std::optional<Problem> currency(const QString& field, const QString& code);
// An empty country means "none" and passes.
std::optional<Problem> country(const QString& field, const QString& code);
std::optional<Problem> line(const QString& field, const QString& text);
std::optional<Problem> text(const QString& field, const QString& text);
std::optional<Problem> number(const QString& field, double value, double limit = 1e12);

// The first value of the record that is not accepted; field names are the record's keys
// ("currency", "items[2].item").
std::optional<Problem> invoice(const Invoice& invoice);
std::optional<Problem> profile(const Profile& profile);

} // namespace ValueCheck
