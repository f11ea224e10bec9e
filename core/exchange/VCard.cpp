#include "exchange/VCard.h"

#include "util/Bounds.h"

#include <QStringDecoder>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

bool isFoldSpace(char c)
{
    return c == ' ' || c == '\t';
}

// The data as UTF-8 without byte order mark. Windows address books write UTF-16 with one.
QByteArray normalized(const QByteArray& data)
{
    if (data.startsWith("\xFF\xFE") || data.startsWith("\xFE\xFF")) {
        QStringDecoder decoder(data.startsWith("\xFF\xFE") ? QStringConverter::Utf16LE
                                                           : QStringConverter::Utf16BE);
        return QString(decoder.decode(data.mid(2))).toUtf8();
    }
    if (data.startsWith("\xEF\xBB\xBF"))
        return data.mid(3);
    return data;
}

QList<QByteArray> physicalLines(const QByteArray& data)
{
    // Old Mac files end their lines with a bare CR.
    const char separator = data.contains('\n') ? '\n' : '\r';
    QList<QByteArray> lines = data.split(separator);
    for (QByteArray& line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    return lines;
}

// Where the value begins: the first colon outside a quoted parameter value.
qsizetype valueColon(const QByteArray& line)
{
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line[i] == '"')
            quoted = !quoted;
        else if (line[i] == ':' && !quoted)
            return i;
    }
    return -1;
}

QList<QByteArray> splitOutsideQuotes(const QByteArray& text, char separator)
{
    QList<QByteArray> parts;
    QByteArray part;
    bool quoted = false;
    for (char c : text) {
        if (c == '"')
            quoted = !quoted;
        if (c == separator && !quoted) {
            parts.append(part);
            part.clear();
        } else {
            part.append(c);
        }
    }
    parts.append(part);
    return parts;
}

QString unquoted(const QByteArray& value)
{
    QByteArray text = value.trimmed();
    if (text.size() >= 2 && text.startsWith('"') && text.endsWith('"'))
        text = text.mid(1, text.size() - 2);
    return QString::fromUtf8(text);
}

bool isEncodingName(const QString& upper)
{
    return upper == u"QUOTED-PRINTABLE" || upper == u"BASE64" || upper == u"B" || upper == u"8BIT" ||
           upper == u"7BIT";
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

QByteArray decodeQuotedPrintable(const QByteArray& value)
{
    QByteArray bytes;
    bytes.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == '=' && i + 2 < value.size()) {
            const int high = hexValue(value[i + 1]);
            const int low = hexValue(value[i + 2]);
            if (high >= 0 && low >= 0) {
                bytes.append(char(high * 16 + low));
                i += 2;
                continue;
            }
        }
        // A trailing "=" is what is left of a soft line break; any other stray "=" (a sloppy
        // encoder) stays as it is.
        if (value[i] == '=' && i == value.size() - 1)
            continue;
        bytes.append(value[i]);
    }
    return bytes;
}

std::optional<QString> strictUtf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

QString decodeText(const QByteArray& bytes, const QString& charset)
{
    const QString upper = charset.toUpper();
    if (!charset.isEmpty() && upper != u"UTF-8" && upper != u"UTF8") {
        QStringDecoder decoder(charset.toLatin1().constData());
        if (decoder.isValid())
            return decoder.decode(bytes);
    }
    // Without a (known) character set: UTF-8 where it is valid, else what old phones wrote.
    if (const auto text = strictUtf8(bytes))
        return *text;
    return QString::fromLatin1(bytes);
}

QString unescaped(QStringView text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c != u'\\' || i + 1 == text.size()) {
            result.append(c);
            continue;
        }
        const QChar next = text[++i];
        if (next == u'n' || next == u'N')
            result.append(u'\n');
        else if (next == u',' || next == u';' || next == u'\\' || next == u':')
            result.append(next);
        else
            result.append(c).append(next); // not an escape: keep the backslash
    }
    return result;
}

QString excerpt(const QByteArray& line)
{
    const QString text = QString::fromUtf8(line.trimmed());
    return text.size() > 40 ? text.left(40) + u"…"_s : text;
}

} // namespace

// Reads the physical lines one after the other, unfolding them into logical lines, and keeps
// the card being read. A class so that VCard can let it fill its private members.
class VCardReader
{
public:
    QList<VCard> read(const QByteArray& data)
    {
        if (data.size() > Bounds::vCardBytes)
            throw VCardError(u"The data is larger than %1 MB."_s.arg(Bounds::vCardBytes / Bounds::megabyte));
        const QByteArray bytes = normalized(data);
        if (bytes.trimmed().isEmpty())
            throw VCardError(u"The data is empty."_s);
        const QList<QByteArray> lines = physicalLines(bytes);
        for (qsizetype i = 0; i < lines.size(); ++i) {
            const int number = int(i) + 1;
            QByteArray line = lines[i];
            // Whether the line is quoted-printable is known once its head is complete. The head is
            // scanned once as the line grows, never again per folded line: a long value folded a
            // thousand times must not be read a thousand times.
            qsizetype scanned = 0;
            bool quoted = false;
            std::optional<bool> quotedPrintable;
            auto isQuotedPrintableLine = [&] {
                for (; !quotedPrintable && scanned < line.size(); ++scanned) {
                    if (line[scanned] == '"')
                        quoted = !quoted;
                    else if (line[scanned] == ':' && !quoted)
                        quotedPrintable =
                            scanned > 0 && line.left(scanned).toUpper().contains("QUOTED-PRINTABLE");
                }
                return quotedPrintable.value_or(false);
            };
            while (i + 1 < lines.size()) {
                const QByteArray& next = lines[i + 1];
                if (line.endsWith('=') && isQuotedPrintableLine() &&
                    next.trimmed().toUpper() != "END:VCARD") {
                    line.chop(1);
                    line += next;
                } else if (!next.isEmpty() && isFoldSpace(next[0])) {
                    // 3.0 and 4.0 fold by inserting line break and one blank; 2.1 only inserted
                    // a line break before a blank that belongs to the value.
                    line += m_card.m_version == u"2.1" ? next : next.mid(1);
                } else {
                    break;
                }
                ++i;
            }
            handle(line, number);
        }
        if (m_depth > 0)
            throw VCardError(u"The card that begins on line %1 has no END:VCARD."_s.arg(m_cardLine));
        if (m_cards.isEmpty())
            throw VCardError(u"There is no BEGIN:VCARD."_s);
        return m_cards;
    }

private:
    void handle(const QByteArray& line, int number)
    {
        if (line.trimmed().isEmpty())
            return;
        const qsizetype colon = valueColon(line);
        if (colon < 0) {
            if (m_depth == 0)
                throw VCardError(
                    u"Line %1: BEGIN:VCARD expected, found \"%2\"."_s.arg(number).arg(excerpt(line)));
            throw VCardError(
                u"Line %1: \"%2\" is no property (it lacks a colon)."_s.arg(number).arg(excerpt(line)));
        }
        VCardProperty property = head(line.left(colon));
        const QByteArray rawValue = line.mid(colon + 1);
        const bool cardMarker = rawValue.trimmed().toUpper() == "VCARD";

        if (property.name == u"BEGIN" && cardMarker) {
            // A 2.1 AGENT may hold a whole card; only the outer one is read.
            if (m_depth++ == 0) {
                m_card = VCard();
                m_cardLine = number;
            }
            return;
        }
        if (m_depth == 0)
            throw VCardError(
                u"Line %1: BEGIN:VCARD expected, found \"%2\"."_s.arg(number).arg(excerpt(line)));
        if (property.name == u"END" && cardMarker) {
            if (--m_depth == 0)
                m_cards.append(m_card);
            return;
        }
        if (m_depth > 1)
            return;

        QByteArray valueBytes = rawValue;
        const QStringList encoding = property.parameter(u"ENCODING"_s);
        if (!encoding.isEmpty() && encoding.first().toUpper() == u"QUOTED-PRINTABLE")
            valueBytes = decodeQuotedPrintable(valueBytes);
        const QStringList charset = property.parameter(u"CHARSET"_s);
        property.value = decodeText(valueBytes, charset.isEmpty() ? QString() : charset.first());
        if (property.name == u"VERSION")
            m_card.m_version = property.value.trimmed();
        m_card.m_properties.append(property);
    }

    // "item1.TEL;TYPE=WORK,VOICE" or "TEL;WORK;VOICE" (2.1).
    static VCardProperty head(const QByteArray& text)
    {
        VCardProperty property;
        const QList<QByteArray> parts = splitOutsideQuotes(text, ';');
        QString name = QString::fromUtf8(parts.first().trimmed());
        if (const qsizetype dot = name.lastIndexOf(u'.'); dot >= 0) {
            property.group = name.left(dot);
            name = name.mid(dot + 1);
        }
        property.name = name.toUpper();
        for (qsizetype i = 1; i < parts.size(); ++i) {
            const QByteArray& part = parts[i];
            if (part.trimmed().isEmpty())
                continue;
            const qsizetype equals = part.indexOf('=');
            if (equals < 0) {
                const QString bare = unquoted(part);
                const QString key = isEncodingName(bare.toUpper()) ? u"ENCODING"_s : u"TYPE"_s;
                property.parameters[key].append(bare);
                continue;
            }
            const QString key = QString::fromUtf8(part.left(equals).trimmed()).toUpper();
            QStringList& values = property.parameters[key];
            for (const QByteArray& value : splitOutsideQuotes(part.mid(equals + 1), ',')) {
                // 4.0 writes TYPE="work,voice": one quoted value that is a list.
                if (key == u"TYPE")
                    for (const QString& type : unquoted(value).split(u',', Qt::SkipEmptyParts))
                        values.append(type.trimmed());
                else
                    values.append(unquoted(value));
            }
        }
        return property;
    }

    QList<VCard> m_cards;
    VCard m_card;
    int m_depth = 0;
    int m_cardLine = 0;
};

QStringList VCardProperty::types() const
{
    QStringList lower;
    for (const QString& type : parameters.value(u"TYPE"_s))
        lower.append(type.toLower());
    return lower;
}

bool VCardProperty::hasType(const QString& type) const
{
    return types().contains(type.toLower());
}

QString VCardProperty::text() const
{
    return unescaped(value);
}

QStringList VCardProperty::components() const
{
    QStringList parts;
    qsizetype start = 0;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\') {
            ++i; // the escaped character never separates
        } else if (value[i] == u';') {
            parts.append(unescaped(QStringView(value).mid(start, i - start)));
            start = i + 1;
        }
    }
    parts.append(unescaped(QStringView(value).mid(start)));
    return parts;
}

QString VCardProperty::component(qsizetype index) const
{
    return components().value(index).trimmed();
}

QList<VCard> VCard::parse(const QByteArray& data)
{
    return VCardReader().read(data);
}

QList<VCardProperty> VCard::all(const QString& name) const
{
    QList<VCardProperty> found;
    for (const VCardProperty& property : m_properties)
        if (property.name == name)
            found.append(property);
    return found;
}

const VCardProperty* VCard::first(const QString& name) const
{
    for (const VCardProperty& property : m_properties)
        if (property.name == name)
            return &property;
    return nullptr;
}
