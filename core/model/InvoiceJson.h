#pragma once

#include "model/Invoice.h"
#include "util/JsonReader.h"
#include "util/JsonWriter.h"

#include <QByteArray>

// The JSON form of an invoice: keys in the record's order, every key present.
namespace InvoiceJson {

QByteArray encode(const Invoice& invoice, DateEncoding dates = DateEncoding::referenceSeconds);
void write(JsonWriter& writer, const Invoice& invoice);

// Lenient: missing keys keep the values of a new invoice. Throws JsonDecodeError for invalid
// JSON, a missing "currency" or address "country", an unknown enumeration value or a value
// of the wrong type.
Invoice decode(const QByteArray& bytes, DateEncoding dates = DateEncoding::referenceSeconds);
Invoice read(const JsonFieldReader& reader);

void writeItem(JsonWriter& writer, const InvoiceItem& item);
InvoiceItem readItem(const JsonFieldReader& reader);

} // namespace InvoiceJson
