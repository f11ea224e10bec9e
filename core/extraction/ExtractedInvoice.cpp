#include "extraction/ExtractedInvoice.h"

#include <QJsonArray>

#include <array>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Field
{
    QString key;
    QString type; // "string", "number", or empty for the nested ones
    QString guide;
};

const QList<Field>& invoiceFields()
{
    static const QList<Field> fields = {
        {u"recipient"_s,
         {},
         u"The customer/recipient the invoice is addressed to. Omit entirely if the text contains no recipient details."_s},
        {u"items"_s,
         {},
         u"The billed line items (services or products). Omit entirely if the text lists no items."_s},
        {u"note"_s, u"string"_s, u"A free-form note for the invoice, if the text contains one."_s},
        {u"reference"_s, u"string"_s,
         u"A reference, order number, or project reference mentioned in the text."_s},
        {u"currencyCode"_s, u"string"_s,
         u"The ISO 4217 currency code (e.g. EUR, USD, CHF) if a currency is stated or clearly implied. Otherwise omit."_s},
        {u"serviceDateStart"_s, u"string"_s,
         u"Start of the service/delivery period as an ISO date, format yyyy-MM-dd. Omit if no date is given."_s},
        {u"serviceDateEnd"_s, u"string"_s,
         u"End of the service/delivery period as an ISO date, format yyyy-MM-dd. Omit if the period is a single day or no end date is given."_s},
    };
    return fields;
}

const QList<Field>& recipientFields()
{
    static const QList<Field> fields = {
        {u"name"_s, u"string"_s, u"The person\u2019s full name, if given."_s},
        {u"businessName"_s, u"string"_s, u"The company/organization name, if the recipient is a business."_s},
        {u"email"_s, u"string"_s, u"Email address, if present."_s},
        {u"addressLineOne"_s, u"string"_s, u"Street and house number, e.g. 'Hauptstraße 12'."_s},
        {u"addressLineTwo"_s, u"string"_s,
         u"A second address line such as suite, floor, or c/o, if present."_s},
        {u"postcode"_s, u"string"_s, u"Postal/ZIP code."_s},
        {u"city"_s, u"string"_s, u"City/town."_s},
        {u"state"_s, u"string"_s, u"State, province, or region, if the country uses one."_s},
        {u"countryCode"_s, u"string"_s,
         u"The country as an ISO 3166-1 alpha-2 code (e.g. DE, US, GB, CH). Infer it from the address when it is unambiguous; otherwise omit."_s},
    };
    return fields;
}

const QList<Field>& itemFields()
{
    static const QList<Field> fields = {
        {u"description"_s, u"string"_s,
         u"A concise description of the service or product (line item title)."_s},
        {u"quantity"_s, u"number"_s, u"The quantity billed. Defaults to 1 if not stated."_s},
        {u"unit"_s, {}, u"The unit the quantity is measured in. Fall back to 'Piece'."_s},
        {u"unitPrice"_s, u"number"_s,
         u"The net price per single unit (excluding VAT), as a plain number in the invoice currency."_s},
        {u"vatPercentage"_s, u"number"_s,
         u"The VAT/sales-tax percentage for this line (e.g. 19 for 19%). Omit if not stated."_s},
    };
    return fields;
}

const std::array<std::pair<ExtractedUnit, const char16_t*>, 5> unitNames = {{
    {ExtractedUnit::piece, u"piece"},
    {ExtractedUnit::hour, u"hour"},
    {ExtractedUnit::day, u"day"},
    {ExtractedUnit::week, u"week"},
    {ExtractedUnit::lumpSum, u"lumpSum"},
}};

QJsonObject objectSchema(const QList<Field>& fields, const QHash<QString, QJsonObject>& nested)
{
    QJsonObject properties;
    for (const Field& field : fields) {
        QJsonObject property = nested.value(field.key);
        if (!field.type.isEmpty())
            property.insert(u"type"_s, field.type);
        property.insert(u"description"_s, field.guide);
        properties.insert(field.key, property);
    }
    // Every field may be left out; nothing else may be added.
    return QJsonObject{{u"type"_s, u"object"_s},
                       {u"properties"_s, properties},
                       {u"required"_s, QJsonArray()},
                       {u"additionalProperties"_s, false}};
}

// How a reader treats a value that does not fit: a complete answer fails, a partial one skips it.
enum class Mode
{
    strict,
    partial
};

[[noreturn]] void typeMismatch(const QString& key, const QString& expected)
{
    throw ExtractionDecodingError(u"The value of \"%1\" is not %2."_s.arg(key, expected));
}

std::optional<QString> readString(const QJsonObject& object, const QString& key, Mode mode)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isString()) {
        if (mode == Mode::partial)
            return std::nullopt;
        typeMismatch(key, u"a string"_s);
    }
    const QString text = value.toString().trimmed();
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

std::optional<double> readNumber(const QJsonObject& object, const QString& key, Mode mode)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isDouble()) {
        if (mode == Mode::partial)
            return std::nullopt;
        typeMismatch(key, u"a number"_s);
    }
    return value.toDouble();
}

std::optional<QJsonObject> readObject(const QJsonObject& object, const QString& key, Mode mode)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isObject()) {
        if (mode == Mode::partial)
            return std::nullopt;
        typeMismatch(key, u"an object"_s);
    }
    return value.toObject();
}

ExtractedRecipient readRecipient(const QJsonObject& object, Mode mode)
{
    ExtractedRecipient recipient;
    recipient.name = readString(object, u"name"_s, mode);
    recipient.businessName = readString(object, u"businessName"_s, mode);
    recipient.email = readString(object, u"email"_s, mode);
    recipient.addressLineOne = readString(object, u"addressLineOne"_s, mode);
    recipient.addressLineTwo = readString(object, u"addressLineTwo"_s, mode);
    recipient.postcode = readString(object, u"postcode"_s, mode);
    recipient.city = readString(object, u"city"_s, mode);
    recipient.state = readString(object, u"state"_s, mode);
    recipient.countryCode = readString(object, u"countryCode"_s, mode);
    if (recipient.countryCode)
        recipient.countryCode = recipient.countryCode->toUpper();
    return recipient;
}

ExtractedItem readItem(const QJsonObject& object, Mode mode)
{
    ExtractedItem item;
    item.description = readString(object, u"description"_s, mode);
    item.quantity = readNumber(object, u"quantity"_s, mode);
    item.unitPrice = readNumber(object, u"unitPrice"_s, mode);
    item.vatPercentage = readNumber(object, u"vatPercentage"_s, mode);
    if (const auto unit = readString(object, u"unit"_s, mode)) {
        try {
            item.unit = ExtractionSchema::unitFromName(*unit);
        } catch (const ExtractionDecodingError&) {
            // While streaming, "hou" may still become "hour".
            if (mode == Mode::strict)
                throw;
        }
    }
    return item;
}

std::optional<QList<QJsonObject>> readItems(const QJsonObject& object, Mode mode)
{
    const QJsonValue value = object.value(u"items"_s);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isArray()) {
        if (mode == Mode::partial)
            return std::nullopt;
        typeMismatch(u"items"_s, u"a list"_s);
    }
    QList<QJsonObject> items;
    for (const QJsonValue& entry : value.toArray()) {
        if (!entry.isObject()) {
            if (mode == Mode::partial)
                continue;
            typeMismatch(u"items"_s, u"a list of objects"_s);
        }
        items.append(entry.toObject());
    }
    return items;
}

bool isEmpty(const ExtractedRecipient& recipient)
{
    return recipient == ExtractedRecipient{};
}

void putString(QJsonObject& object, const QString& key, const std::optional<QString>& value)
{
    if (value)
        object.insert(key, *value);
}

void putNumber(QJsonObject& object, const QString& key, const std::optional<double>& value)
{
    if (value)
        object.insert(key, *value);
}

} // namespace

bool ExtractedInvoice::isEmpty() const
{
    return *this == ExtractedInvoice{};
}

ExtractedInvoice PartiallyGeneratedExtractedInvoice::snapshot() const
{
    ExtractedInvoice invoice;
    if (recipient)
        invoice.recipient = recipient->value;
    if (items) {
        QList<ExtractedItem> values;
        for (const PartiallyGeneratedExtractedItem& item : *items)
            values.append(item.value);
        invoice.items = values;
    }
    invoice.note = note;
    invoice.reference = reference;
    invoice.currencyCode = currencyCode;
    invoice.serviceDateStart = serviceDateStart;
    invoice.serviceDateEnd = serviceDateEnd;
    return invoice;
}

namespace ExtractionSchema {

QString unitName(ExtractedUnit unit)
{
    for (const auto& [value, name] : unitNames)
        if (value == unit)
            return QString::fromUtf16(name);
    return u"piece"_s;
}

ExtractedUnit unitFromName(const QString& name)
{
    for (const auto& [value, text] : unitNames)
        if (name == QStringView(text))
            return value;
    throw ExtractionDecodingError(u"Unexpected rawValue \"%1\" for ExtractedUnit"_s.arg(name));
}

QJsonObject jsonSchema()
{
    QJsonArray units;
    for (const auto& [value, name] : unitNames)
        units.append(QString::fromUtf16(name));
    const QJsonObject unit{{u"type"_s, u"string"_s}, {u"enum"_s, units}};
    const QJsonObject item = objectSchema(itemFields(), {{u"unit"_s, unit}});
    const QJsonObject recipient = objectSchema(recipientFields(), {});
    const QJsonObject items{{u"type"_s, u"array"_s}, {u"items"_s, item}};
    return objectSchema(invoiceFields(), {{u"recipient"_s, recipient}, {u"items"_s, items}});
}

ExtractedInvoice decode(const QJsonObject& object)
{
    ExtractedInvoice invoice;
    if (const auto recipient = readObject(object, u"recipient"_s, Mode::strict)) {
        ExtractedRecipient value = readRecipient(*recipient, Mode::strict);
        if (!isEmpty(value))
            invoice.recipient = value;
    }
    if (const auto items = readItems(object, Mode::strict)) {
        QList<ExtractedItem> values;
        for (const QJsonObject& item : *items) {
            ExtractedItem value = readItem(item, Mode::strict);
            if (value != ExtractedItem{})
                values.append(value);
        }
        if (!values.isEmpty())
            invoice.items = values;
    }
    invoice.note = readString(object, u"note"_s, Mode::strict);
    invoice.reference = readString(object, u"reference"_s, Mode::strict);
    invoice.currencyCode = readString(object, u"currencyCode"_s, Mode::strict);
    if (invoice.currencyCode)
        invoice.currencyCode = invoice.currencyCode->toUpper();
    invoice.serviceDateStart = readString(object, u"serviceDateStart"_s, Mode::strict);
    invoice.serviceDateEnd = readString(object, u"serviceDateEnd"_s, Mode::strict);
    return invoice;
}

PartiallyGeneratedExtractedInvoice decodePartial(const QJsonObject& object, const QString& id)
{
    PartiallyGeneratedExtractedInvoice invoice;
    invoice.id = id;
    if (const auto recipient = readObject(object, u"recipient"_s, Mode::partial))
        invoice.recipient =
            PartiallyGeneratedExtractedRecipient{u"recipient"_s, readRecipient(*recipient, Mode::partial)};
    if (const auto items = readItems(object, Mode::partial)) {
        QList<PartiallyGeneratedExtractedItem> values;
        for (qsizetype i = 0; i < items->size(); ++i)
            values.append({u"items/%1"_s.arg(i), readItem(items->at(i), Mode::partial)});
        invoice.items = values;
    }
    invoice.note = readString(object, u"note"_s, Mode::partial);
    invoice.reference = readString(object, u"reference"_s, Mode::partial);
    invoice.currencyCode = readString(object, u"currencyCode"_s, Mode::partial);
    invoice.serviceDateStart = readString(object, u"serviceDateStart"_s, Mode::partial);
    invoice.serviceDateEnd = readString(object, u"serviceDateEnd"_s, Mode::partial);
    return invoice;
}

QJsonObject toJson(const ExtractedInvoice& invoice)
{
    QJsonObject object;
    if (invoice.recipient) {
        const ExtractedRecipient& r = *invoice.recipient;
        QJsonObject recipient;
        putString(recipient, u"name"_s, r.name);
        putString(recipient, u"businessName"_s, r.businessName);
        putString(recipient, u"email"_s, r.email);
        putString(recipient, u"addressLineOne"_s, r.addressLineOne);
        putString(recipient, u"addressLineTwo"_s, r.addressLineTwo);
        putString(recipient, u"postcode"_s, r.postcode);
        putString(recipient, u"city"_s, r.city);
        putString(recipient, u"state"_s, r.state);
        putString(recipient, u"countryCode"_s, r.countryCode);
        object.insert(u"recipient"_s, recipient);
    }
    if (invoice.items) {
        QJsonArray items;
        for (const ExtractedItem& i : *invoice.items) {
            QJsonObject item;
            putString(item, u"description"_s, i.description);
            putNumber(item, u"quantity"_s, i.quantity);
            if (i.unit)
                item.insert(u"unit"_s, unitName(*i.unit));
            putNumber(item, u"unitPrice"_s, i.unitPrice);
            putNumber(item, u"vatPercentage"_s, i.vatPercentage);
            items.append(item);
        }
        object.insert(u"items"_s, items);
    }
    putString(object, u"note"_s, invoice.note);
    putString(object, u"reference"_s, invoice.reference);
    putString(object, u"currencyCode"_s, invoice.currencyCode);
    putString(object, u"serviceDateStart"_s, invoice.serviceDateStart);
    putString(object, u"serviceDateEnd"_s, invoice.serviceDateEnd);
    return object;
}

} // namespace ExtractionSchema
