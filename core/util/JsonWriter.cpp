#include "util/JsonWriter.h"

#include <charconv>
#include <cmath>

JsonWriter::JsonWriter(DateEncoding dates) : m_dates(dates)
{
    m_out.reserve(4096);
}

void JsonWriter::newline()
{
    m_out.push_back('\n');
    m_out.append(size_t(m_depth) * 2, ' ');
}

void JsonWriter::beforeValue()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (m_depth > 0) {
        if (!m_first)
            m_out.push_back(',');
        newline();
    }
    m_first = false;
}

void JsonWriter::beginObject()
{
    beforeValue();
    m_out.push_back('{');
    ++m_depth;
    m_first = true;
}

void JsonWriter::close(char bracket)
{
    --m_depth;
    if (!m_first)
        newline();
    m_out.push_back(bracket);
    m_first = false;
}

void JsonWriter::endObject()
{
    close('}');
}

void JsonWriter::beginArray()
{
    beforeValue();
    m_out.push_back('[');
    ++m_depth;
    m_first = true;
}

void JsonWriter::endArray()
{
    close(']');
}

void JsonWriter::key(QLatin1StringView name)
{
    beforeValue();
    m_out.push_back('"');
    m_out.append(name.data(), size_t(name.size()));
    m_out.append("\": ");
    m_afterKey = true;
}

void JsonWriter::writeString(QStringView text)
{
    m_out.push_back('"');
    const qsizetype length = text.size();
    for (qsizetype i = 0; i < length;) {
        const char16_t u = text[i].unicode();
        if (u >= 0x80) {
            // A run of non-ASCII text goes out as UTF-8 in one piece, so surrogate pairs stay whole.
            qsizetype end = i + 1;
            while (end < length && text[end].unicode() >= 0x80)
                ++end;
            const QByteArray utf8 = text.mid(i, end - i).toUtf8();
            m_out.append(utf8.constData(), size_t(utf8.size()));
            i = end;
            continue;
        }
        switch (u) {
        case '"':
            m_out.append("\\\"");
            break;
        case '\\':
            m_out.append("\\\\");
            break;
        case '\n':
            m_out.append("\\n");
            break;
        case '\r':
            m_out.append("\\r");
            break;
        case '\t':
            m_out.append("\\t");
            break;
        case '\b':
            m_out.append("\\b");
            break;
        case '\f':
            m_out.append("\\f");
            break;
        default:
            if (u < 0x20) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", unsigned(u));
                m_out.append(buffer);
            } else {
                m_out.push_back(char(u));
            }
        }
        ++i;
    }
    m_out.push_back('"');
}

void JsonWriter::value(const QString& text)
{
    beforeValue();
    writeString(text);
}

QByteArray JsonWriter::formatDouble(double number)
{
    if (!std::isfinite(number))
        throw JsonEncodeError("cannot write a non-finite number");
    char buffer[64];
    std::to_chars_result result;
    if (number == std::trunc(number) && std::fabs(number) < 1e15)
        result = std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(number));
    else
        result = std::to_chars(buffer, buffer + sizeof buffer, number);
    return QByteArray(buffer, result.ptr - buffer);
}

void JsonWriter::value(double number)
{
    const QByteArray text = formatDouble(number); // may throw before anything is written
    beforeValue();
    m_out.append(text.constData(), size_t(text.size()));
}

void JsonWriter::value(qint64 number)
{
    beforeValue();
    m_out.append(std::to_string(number));
}

void JsonWriter::value(bool flag)
{
    beforeValue();
    m_out.append(flag ? "true" : "false");
}

void JsonWriter::value(const QUuid& uuid)
{
    beforeValue();
    m_out.push_back('"');
    m_out.append(uuid.toByteArray(QUuid::WithoutBraces).toUpper().toStdString());
    m_out.push_back('"');
}

QString JsonWriter::iso8601(Timestamp date)
{
    // Whole seconds in UTC, as other ISO 8601 readers expect ("2025-03-14T09:30:00Z").
    const double seconds = std::floor(date.unixSeconds());
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(seconds), Qt::UTC)
        .toString(Qt::ISODate);
}

void JsonWriter::value(Timestamp date)
{
    if (m_dates == DateEncoding::iso8601)
        value(iso8601(date));
    else
        value(date.secondsSinceReference());
}

void JsonWriter::null()
{
    beforeValue();
    m_out.append("null");
}

QByteArray JsonWriter::take()
{
    m_out.push_back('\n');
    QByteArray result(m_out.data(), qsizetype(m_out.size()));
    m_out.clear();
    return result;
}
