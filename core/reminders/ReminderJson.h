#pragma once

#include "reminders/Reminder.h"
#include "util/JsonReader.h"
#include "util/JsonWriter.h"

#include <QByteArray>

// The JSON form of a reminder: keys in the record's order, every key present.
namespace ReminderJson {

QByteArray encode(const Reminder& reminder);
void write(JsonWriter& writer, const Reminder& reminder);

// Lenient like the invoice reader: missing keys keep the values of a new record, except "id"
// and "invoiceId", without which a reminder cannot be kept apart or placed. Throws
// JsonDecodeError for invalid JSON, those missing keys or a value of the wrong type.
Reminder decode(const QByteArray& bytes);
Reminder read(const JsonFieldReader& reader);

} // namespace ReminderJson
