#pragma once

#include <QByteArray>
#include <QString>

// Sets one field of a record's JSON form from text typed on the command line. The key is the
// record's JSON key, nested keys joined by dots ("recipient.address.city"). The new value takes
// the type of the old one; dates may be given as YYYY-MM-DD (the time of day is kept) or as an
// ISO 8601 moment; "null" or an empty value clears an optional field. Throws CliError.
QByteArray setJsonField(const QByteArray& record, const QString& key, const QString& value);
