#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QDate>
#include <QList>
#include <QString>

#include <optional>
#include <variant>

// Number formats: literal text with chips in braces, e.g. "RE-{YYYY}-{NNN}".

enum class NumberFormatChipKind { number, date, variable };

struct NumberFormatChip
{
    NumberFormatChipKind kind = NumberFormatChipKind::number;
    int length = 3;    // number: digits, 1...5
    QString pattern;   // date: letters Y, M, D

    static NumberFormatChip number(int length) { return {NumberFormatChipKind::number, length, {}}; }
    static NumberFormatChip date(const QString& pattern) { return {NumberFormatChipKind::date, 0, pattern}; }
    static NumberFormatChip variable() { return {NumberFormatChipKind::variable, 0, {}}; }

    // The token written between the braces: "NNN", the date pattern, or "X".
    QString token() const;

    friend bool operator==(const NumberFormatChip&, const NumberFormatChip&) = default;
};

struct NumberFormatSegment
{
    std::variant<QString, NumberFormatChip> content;

    bool isText() const { return std::holds_alternative<QString>(content); }
    friend bool operator==(const NumberFormatSegment&, const NumberFormatSegment&) = default;
};

struct NumberFormatChipFormat
{
    QString token;
};

struct NumberFormatChipTypeDefinition
{
    NumberFormatChipKind kind;
    QList<NumberFormatChipFormat> formats; // in menu order
    QString defaultToken;
};

namespace NumberFormat {

inline constexpr int maxNumberLength = 5;

QList<NumberFormatChipTypeDefinition> chipTypeDefinitions();

// A chip for a token, or nothing when the token is not valid.
std::optional<NumberFormatChip> parseToken(QStringView token);
QList<NumberFormatSegment> parse(QStringView format);
// Joins text unchanged and chips as "{token}".
QString write(const QList<NumberFormatSegment>& segments);

QString render(QStringView format, qint64 number, QDate date, const QString& variable);

// The number as documents and lists show it: the invoice's own format (else the profile's)
// rendered with its number, date and variable, behind the cancellation or quote prefix.
QString displayNumber(const Invoice& invoice, const Profile& profile);

// The format equivalent to the numbering settings of old profile files.
QString fromLegacySettings(const QString& prefix, const QString& separator, const QString& position,
                           int length);

} // namespace NumberFormat
