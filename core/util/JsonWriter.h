#pragma once

#include "util/Timestamp.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QString>
#include <QUuid>

#include <optional>
#include <stdexcept>
#include <string>

// How dates are written and read: record files use seconds since 2001-01-01 UTC; records
// embedded in PDFs use ISO 8601 strings.
enum class DateEncoding { referenceSeconds, iso8601 };

class JsonEncodeError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A streaming writer for pretty-printed JSON that keeps keys in the order they are written
// (QJsonObject sorts them). Objects and arrays nest; every value after key() belongs to it.
class JsonWriter
{
public:
    explicit JsonWriter(DateEncoding dates = DateEncoding::referenceSeconds);

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(QLatin1StringView name);

    void value(const QString& text);
    // Whole numbers are written without a fraction; others in the shortest form that reads
    // back to the same double. Non-finite numbers cannot be written (throws JsonEncodeError).
    void value(double number);
    void value(int number) { value(static_cast<qint64>(number)); }
    void value(qint64 number);
    void value(bool flag);
    void value(const QUuid& uuid); // canonical upper-case form
    void value(Timestamp date);
    void null();

    template <class T>
    void value(const std::optional<T>& optional)
    {
        if (optional)
            value(*optional);
        else
            null();
    }

    template <class T>
    void field(QLatin1StringView name, const T& v)
    {
        key(name);
        value(v);
    }

    // The finished document, ending in a newline.
    QByteArray take();

    static QByteArray formatDouble(double number);
    static QString iso8601(Timestamp date);

private:
    void beforeValue();
    void newline();
    void close(char bracket);
    void writeString(QStringView text);

    std::string m_out; // inline appends; converted once in take()
    DateEncoding m_dates;
    int m_depth = 0;
    bool m_first = true;    // no element yet in the current container
    bool m_afterKey = false; // the next value completes a key
};
