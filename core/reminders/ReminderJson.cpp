#include "reminders/ReminderJson.h"

using namespace Qt::Literals::StringLiterals;

namespace ReminderJson {

void write(JsonWriter& w, const Reminder& r)
{
    w.beginObject();
    w.field("id"_L1, r.id);
    w.field("version"_L1, r.version);
    w.field("invoiceId"_L1, r.invoiceId);
    w.field("date"_L1, r.date);
    w.field("number"_L1, r.number);
    w.field("text"_L1, r.text);
    w.field("interestPercentage"_L1, r.interestPercentage);
    w.field("fee"_L1, r.fee);
    w.endObject();
}

QByteArray encode(const Reminder& reminder)
{
    JsonWriter writer;
    write(writer, reminder);
    return writer.take();
}

Reminder read(const JsonFieldReader& r)
{
    r.require("id"_L1);
    r.require("invoiceId"_L1);
    Reminder reminder;
    r.read("id"_L1, reminder.id);
    r.read("version"_L1, reminder.version);
    r.read("invoiceId"_L1, reminder.invoiceId);
    r.read("date"_L1, reminder.date);
    r.read("number"_L1, reminder.number);
    r.read("text"_L1, reminder.text);
    r.read("interestPercentage"_L1, reminder.interestPercentage);
    r.read("fee"_L1, reminder.fee);
    if (reminder.number < 0)
        r.fail("number"_L1, u"must not be negative"_s);
    return reminder;
}

Reminder decode(const QByteArray& bytes)
{
    const JsonDocument document(bytes);
    return read(JsonFieldReader(document, DateEncoding::referenceSeconds));
}

} // namespace ReminderJson
