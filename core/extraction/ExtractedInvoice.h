#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>
#include <stdexcept>

// What an extractor found in a pasted text. Every field is optional: an extractor leaves out
// what the text does not state, and the mapping into an invoice keeps the profile's presets
// for whatever is missing.

// The unit of a line, as a closed choice; the text forms are the case names.
enum class ExtractedUnit
{
    piece,
    hour,
    day,
    week,
    lumpSum
};

struct ExtractedRecipient
{
    std::optional<QString> name;
    std::optional<QString> businessName;
    std::optional<QString> email;
    std::optional<QString> addressLineOne;
    std::optional<QString> addressLineTwo;
    std::optional<QString> postcode;
    std::optional<QString> city;
    std::optional<QString> state;
    std::optional<QString> countryCode;

    friend bool operator==(const ExtractedRecipient&, const ExtractedRecipient&) = default;
};

struct ExtractedItem
{
    std::optional<QString> description;
    std::optional<double> quantity;
    std::optional<ExtractedUnit> unit;
    std::optional<double> unitPrice;
    std::optional<double> vatPercentage;

    friend bool operator==(const ExtractedItem&, const ExtractedItem&) = default;
};

struct ExtractedInvoice
{
    std::optional<ExtractedRecipient> recipient;
    std::optional<QList<ExtractedItem>> items;
    std::optional<QString> note;
    std::optional<QString> reference;
    std::optional<QString> currencyCode;
    std::optional<QString> serviceDateStart; // yyyy-MM-dd
    std::optional<QString> serviceDateEnd;   // yyyy-MM-dd

    // Whether nothing at all was found.
    bool isEmpty() const;

    friend bool operator==(const ExtractedInvoice&, const ExtractedInvoice&) = default;
};

// A value the model answered that does not fit the schema.
class ExtractionDecodingError : public std::runtime_error
{
public:
    explicit ExtractionDecodingError(const QString& message)
        : std::runtime_error(message.toStdString()), m_message(message)
    {}
    QString message() const { return m_message; }

private:
    QString m_message;
};

// The value while it is being generated: the same fields, all optional, plus an identity that
// stays the same from the first partial value to the last (the view keys its rows by it).
struct PartiallyGeneratedExtractedItem
{
    QString id; // "items/0", "items/1", …
    ExtractedItem value;

    friend bool operator==(const PartiallyGeneratedExtractedItem&,
                           const PartiallyGeneratedExtractedItem&) = default;
};

struct PartiallyGeneratedExtractedRecipient
{
    QString id; // "recipient"
    ExtractedRecipient value;

    friend bool operator==(const PartiallyGeneratedExtractedRecipient&,
                           const PartiallyGeneratedExtractedRecipient&) = default;
};

struct PartiallyGeneratedExtractedInvoice
{
    QString id; // the generation's identity
    std::optional<PartiallyGeneratedExtractedRecipient> recipient;
    std::optional<QList<PartiallyGeneratedExtractedItem>> items;
    std::optional<QString> note;
    std::optional<QString> reference;
    std::optional<QString> currencyCode;
    std::optional<QString> serviceDateStart;
    std::optional<QString> serviceDateEnd;

    // The fields found so far, as an ordinary value.
    ExtractedInvoice snapshot() const;

    friend bool operator==(const PartiallyGeneratedExtractedInvoice&,
                           const PartiallyGeneratedExtractedInvoice&) = default;
};

namespace ExtractionSchema {

QString unitName(ExtractedUnit unit);
// Throws ExtractionDecodingError ("Unexpected rawValue \"…\" for ExtractedUnit").
ExtractedUnit unitFromName(const QString& name);

// The JSON schema the model generates against; every description is the field's guide text.
QJsonObject jsonSchema();

// Reads a complete answer. Throws ExtractionDecodingError for anything outside the schema
// (a wrong type, an unknown unit); unknown keys are ignored, empty strings count as absent.
ExtractedInvoice decode(const QJsonObject& object);
// Reads what has been generated so far: a value of the wrong type or a unit still being
// written is left out rather than failing, since the next chunk may complete it.
PartiallyGeneratedExtractedInvoice decodePartial(const QJsonObject& object, const QString& id);

// The value as JSON with the schema's keys, absent fields left out (for `ledra extract --json`).
QJsonObject toJson(const ExtractedInvoice& invoice);

} // namespace ExtractionSchema
