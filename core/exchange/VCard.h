#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <stdexcept>

// Why data could not be read as vCards: the line and what is wrong with it.
class VCardError : public std::runtime_error
{
public:
    explicit VCardError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromStdString(what()); }
};

// One property of a card, "item1.TEL;TYPE=WORK,VOICE:+49 30 1234567", with its value already
// decoded from quoted-printable and its character set but still escaped, because splitting a
// structured value must see the escapes.
struct VCardProperty
{
    QString group; // "item1", or empty
    QString name;  // upper case: "TEL"
    // Parameter names in upper case, each with its values (quotes removed, split at commas).
    // Bare 2.1 parameters count as TYPE, or as ENCODING for the encodings.
    QHash<QString, QStringList> parameters;
    QString value;

    QStringList parameter(const QString& name) const { return parameters.value(name); }
    // The TYPE values in lower case ("work", "voice", "pref").
    QStringList types() const;
    bool hasType(const QString& type) const;

    // The value with its escapes resolved.
    QString text() const;
    // A structured value (N, ADR, ORG) split at the unescaped semicolons, each part unescaped.
    QStringList components() const;
    // The component at `index`, trimmed; empty when the value has fewer.
    QString component(qsizetype index) const;
};

// One card, BEGIN:VCARD to END:VCARD.
class VCard
{
public:
    // Reads every card of the data: vCard 2.1, 3.0 and 4.0, UTF-8 (with or without byte order
    // mark, UTF-16 with one), CRLF or LF, folded lines, quoted-printable values. Throws
    // VCardError for data that holds no card or a card that is cut off or malformed.
    static QList<VCard> parse(const QByteArray& data);

    QString version() const { return m_version; }
    const QList<VCardProperty>& properties() const { return m_properties; }
    // The properties of that name, in the card's order.
    QList<VCardProperty> all(const QString& name) const;
    // The first property of that name, or nullptr.
    const VCardProperty* first(const QString& name) const;

private:
    friend class VCardReader;

    QString m_version;
    QList<VCardProperty> m_properties;
};
