#pragma once

#include "model/Codes.h"
#include "model/Enums.h"
#include "util/JsonWriter.h"
#include "util/Timestamp.h"

#include <QString>
#include <QUuid>

#include <simdjson.h>

#include <memory>
#include <optional>
#include <stdexcept>

// A record that cannot be decoded: which key (a path such as "items[2].unit") and why.
class JsonDecodeError : public std::runtime_error
{
public:
    JsonDecodeError(QString keyPath, QString reason);

    const QString& keyPath() const { return m_keyPath; }
    const QString& reason() const { return m_reason; }
    // `key "items[2].unit": unknown value "Pieces" ...`, or just the reason for the whole document.
    QString message() const;

private:
    QString m_keyPath;
    QString m_reason;
};

// A parsed document whose top level is an object. Record files are read in bulk when a data
// folder loads, so parsing uses simdjson; the readers below are views into this document and
// must not outlive it.
class JsonDocument
{
public:
    // Throws JsonDecodeError for invalid JSON (with the byte offset), a non-object top level, or
    // more than Bounds::jsonRecordBytes. simdjson bounds the nesting depth (1024) itself.
    explicit JsonDocument(const QByteArray& bytes);
    JsonDocument(const JsonDocument&) = delete;
    JsonDocument& operator=(const JsonDocument&) = delete;

    simdjson::dom::object root() const { return m_root; }

    ~JsonDocument();

private:
    // Parsing reuses one parser per thread (its buffers are the expensive part); a document
    // opened while another is alive on the same thread gets a parser of its own.
    simdjson::dom::parser* m_parser = nullptr;
    std::unique_ptr<simdjson::dom::parser> m_ownParser;
    simdjson::dom::object m_root;
};

// Lenient field access for record decoding: a key that is missing or null leaves the target
// untouched (so it keeps the new-record value); a key of the wrong type fails the record.
class JsonFieldReader
{
public:
    JsonFieldReader(simdjson::dom::object object, QString path, DateEncoding dates);
    JsonFieldReader(const JsonDocument& document, DateEncoding dates)
        : JsonFieldReader(document.root(), QString(), dates)
    {}

    bool has(QLatin1StringView key) const;
    // The value under a key; nullopt when missing or null.
    std::optional<simdjson::dom::element> raw(QLatin1StringView key) const;
    QString pathOf(QLatin1StringView key) const;
    [[noreturn]] void fail(QLatin1StringView key, const QString& reason) const;

    void read(QLatin1StringView key, QString& out) const;
    void read(QLatin1StringView key, std::optional<QString>& out) const;
    void read(QLatin1StringView key, double& out) const;
    void read(QLatin1StringView key, std::optional<double>& out) const;
    void read(QLatin1StringView key, int& out) const;
    void read(QLatin1StringView key, std::optional<int>& out) const;
    void read(QLatin1StringView key, bool& out) const;
    void read(QLatin1StringView key, QUuid& out) const;
    void read(QLatin1StringView key, std::optional<QUuid>& out) const;
    void read(QLatin1StringView key, Timestamp& out) const;
    void read(QLatin1StringView key, std::optional<Timestamp>& out) const;
    void read(QLatin1StringView key, Country& out) const;
    void read(QLatin1StringView key, Currency& out) const;

    template <class E>
    requires std::is_enum_v<E>
    void read(QLatin1StringView key, E& out) const
    {
        if (const auto raw = stringValue(key))
            out = enumValue<E>(key, *raw);
    }

    template <class E>
    requires std::is_enum_v<E>
    void read(QLatin1StringView key, std::optional<E>& out) const
    {
        if (const auto raw = stringValue(key))
            out = enumValue<E>(key, *raw);
        else
            out.reset();
    }

    // Fails the record when the key is missing or null.
    void require(QLatin1StringView key) const;
    // A nested object; nullopt when missing or null.
    std::optional<JsonFieldReader> object(QLatin1StringView key) const;
    // Calls `each(reader)` for every element of an array of objects; nothing when missing or null.
    template <class Function>
    void forEachObject(QLatin1StringView key, Function each) const
    {
        const auto value = raw(key);
        if (!value)
            return;
        simdjson::dom::array array;
        if (value->get_array().get(array) != simdjson::SUCCESS)
            fail(key, QStringLiteral("expected an array, found %1").arg(typeName(*value)));
        qsizetype index = 0;
        for (simdjson::dom::element element : array)
            each(elementReader(key, index++, element));
    }
    // Number of elements of an array (0 when missing or null), to reserve space.
    qsizetype arraySize(QLatin1StringView key) const;

    static QString typeName(simdjson::dom::element value);


private:
    std::optional<QString> stringValue(QLatin1StringView key) const;
    std::optional<double> numberValue(QLatin1StringView key) const;
    JsonFieldReader elementReader(QLatin1StringView arrayKey, qsizetype index,
                                  simdjson::dom::element element) const;

    template <class E>
    E enumValue(QLatin1StringView key, const QString& raw) const
    {
        if (const auto value = enumFromRaw<E>(raw))
            return *value;
        fail(key, QStringLiteral("unknown value \"%1\" (expected one of: %2)").arg(raw, rawValueList<E>()));
    }

    QString path() const;

    simdjson::dom::object m_object;
    // The key path is only needed for error messages, so array elements keep its parts.
    QString m_path;
    qsizetype m_index = -1; // for an array element: its index, appended to m_path on demand
    DateEncoding m_dates;
};
