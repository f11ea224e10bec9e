#include "util/JsonReader.h"

#include "util/Bounds.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <cmath>
#include <limits>

JsonDecodeError::JsonDecodeError(QString keyPath, QString reason)
    : std::runtime_error(
          (keyPath.isEmpty() ? reason : QStringLiteral("key \"%1\": %2").arg(keyPath, reason)).toStdString()),
      m_keyPath(std::move(keyPath)), m_reason(std::move(reason))
{}

QString JsonDecodeError::message() const
{
    return QString::fromStdString(what());
}

namespace {

thread_local simdjson::dom::parser t_parser;
thread_local bool t_parserInUse = false;

} // namespace

JsonDocument::JsonDocument(const QByteArray& bytes)
{
    // Records come from files others can write (sync engines, Ledra Data files, plugins): one
    // too large for any record is refused before the parser reserves memory for it.
    if (bytes.size() > Bounds::jsonRecordBytes)
        throw JsonDecodeError({}, QStringLiteral("the record is larger than %1 MB")
                                      .arg(Bounds::jsonRecordBytes / Bounds::megabyte));
    if (t_parserInUse) {
        m_ownParser = std::make_unique<simdjson::dom::parser>();
        m_parser = m_ownParser.get();
    } else {
        t_parserInUse = true;
        m_parser = &t_parser;
    }
    simdjson::dom::element root;
    if (m_parser->parse(bytes.constData(), size_t(bytes.size())).get(root) != simdjson::SUCCESS) {
        if (!m_ownParser)
            t_parserInUse = false;
        // simdjson reports no position; Qt's parser does, and broken files are rare.
        QJsonParseError error;
        QJsonDocument::fromJson(bytes, &error);
        if (error.error != QJsonParseError::NoError)
            throw JsonDecodeError(
                {},
                QStringLiteral("invalid JSON at offset %1: %2").arg(error.offset).arg(error.errorString()));
        throw JsonDecodeError({}, QStringLiteral("invalid JSON"));
    }
    if (root.get_object().get(m_root) != simdjson::SUCCESS) {
        if (!m_ownParser)
            t_parserInUse = false;
        throw JsonDecodeError({}, QStringLiteral("the document is not a JSON object"));
    }
}

JsonDocument::~JsonDocument()
{
    if (!m_ownParser)
        t_parserInUse = false;
}

QString JsonFieldReader::typeName(simdjson::dom::element value)
{
    switch (value.type()) {
    case simdjson::dom::element_type::BOOL:
        return QStringLiteral("a boolean");
    case simdjson::dom::element_type::INT64:
    case simdjson::dom::element_type::UINT64:
    case simdjson::dom::element_type::DOUBLE:
        return QStringLiteral("a number");
    case simdjson::dom::element_type::STRING:
        return QStringLiteral("a string");
    case simdjson::dom::element_type::ARRAY:
        return QStringLiteral("an array");
    case simdjson::dom::element_type::OBJECT:
        return QStringLiteral("an object");
    case simdjson::dom::element_type::NULL_VALUE:
        break;
    }
    return QStringLiteral("null");
}

JsonFieldReader::JsonFieldReader(simdjson::dom::object object, QString path, DateEncoding dates)
    : m_object(object), m_path(std::move(path)), m_dates(dates)
{}

std::optional<simdjson::dom::element> JsonFieldReader::raw(QLatin1StringView key) const
{
    simdjson::dom::element value;
    if (m_object.at_key(std::string_view(key.data(), size_t(key.size()))).get(value) != simdjson::SUCCESS ||
        value.is_null())
        return std::nullopt;
    return value;
}

bool JsonFieldReader::has(QLatin1StringView key) const
{
    return raw(key).has_value();
}

QString JsonFieldReader::path() const
{
    return m_index < 0 ? m_path : m_path + u'[' + QString::number(m_index) + u']';
}

QString JsonFieldReader::pathOf(QLatin1StringView key) const
{
    const QString base = path();
    return base.isEmpty() ? QString(key) : base + u'.' + key;
}

void JsonFieldReader::fail(QLatin1StringView key, const QString& reason) const
{
    throw JsonDecodeError(pathOf(key), reason);
}

std::optional<QString> JsonFieldReader::stringValue(QLatin1StringView key) const
{
    const auto value = raw(key);
    if (!value)
        return std::nullopt;
    std::string_view text;
    if (value->get_string().get(text) != simdjson::SUCCESS)
        fail(key, QStringLiteral("expected a string, found %1").arg(typeName(*value)));
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

std::optional<double> JsonFieldReader::numberValue(QLatin1StringView key) const
{
    const auto value = raw(key);
    if (!value)
        return std::nullopt;
    double number = 0;
    if (value->get_double().get(number) != simdjson::SUCCESS)
        fail(key, QStringLiteral("expected a number, found %1").arg(typeName(*value)));
    return number;
}

void JsonFieldReader::read(QLatin1StringView key, QString& out) const
{
    if (auto text = stringValue(key))
        out = std::move(*text);
}

void JsonFieldReader::read(QLatin1StringView key, std::optional<QString>& out) const
{
    out = stringValue(key);
}

void JsonFieldReader::read(QLatin1StringView key, double& out) const
{
    if (const auto number = numberValue(key))
        out = *number;
}

void JsonFieldReader::read(QLatin1StringView key, std::optional<double>& out) const
{
    out = numberValue(key);
}

void JsonFieldReader::read(QLatin1StringView key, int& out) const
{
    std::optional<int> value;
    read(key, value);
    if (value)
        out = *value;
}

void JsonFieldReader::read(QLatin1StringView key, std::optional<int>& out) const
{
    const auto number = numberValue(key);
    if (!number) {
        out.reset();
        return;
    }
    if (*number != std::trunc(*number) || *number < std::numeric_limits<int>::min() ||
        *number > std::numeric_limits<int>::max())
        fail(key, QStringLiteral("expected a whole number, found %1").arg(*number));
    out = static_cast<int>(*number);
}

void JsonFieldReader::read(QLatin1StringView key, bool& out) const
{
    const auto value = raw(key);
    if (!value)
        return;
    if (value->get_bool().get(out) != simdjson::SUCCESS)
        fail(key, QStringLiteral("expected a boolean, found %1").arg(typeName(*value)));
}

void JsonFieldReader::read(QLatin1StringView key, QUuid& out) const
{
    std::optional<QUuid> value;
    read(key, value);
    if (value)
        out = *value;
}

void JsonFieldReader::read(QLatin1StringView key, std::optional<QUuid>& out) const
{
    const auto text = stringValue(key);
    if (!text) {
        out.reset();
        return;
    }
    const QUuid uuid = QUuid::fromString(*text);
    if (uuid.isNull() && *text != QLatin1StringView("00000000-0000-0000-0000-000000000000"))
        fail(key, QStringLiteral("\"%1\" is not a UUID").arg(*text));
    out = uuid;
}

void JsonFieldReader::read(QLatin1StringView key, Timestamp& out) const
{
    std::optional<Timestamp> value;
    read(key, value);
    if (value)
        out = *value;
}

void JsonFieldReader::read(QLatin1StringView key, std::optional<Timestamp>& out) const
{
    if (m_dates == DateEncoding::referenceSeconds) {
        const auto seconds = numberValue(key);
        out = seconds ? std::optional(Timestamp(*seconds)) : std::nullopt;
        return;
    }
    const auto text = stringValue(key);
    if (!text) {
        out.reset();
        return;
    }
    const QDateTime parsed = QDateTime::fromString(*text, Qt::ISODateWithMs);
    if (!parsed.isValid())
        fail(key, QStringLiteral("\"%1\" is not an ISO 8601 date").arg(*text));
    out = Timestamp::fromDateTime(parsed);
}

void JsonFieldReader::read(QLatin1StringView key, Country& out) const
{
    if (auto code = stringValue(key))
        out.code = std::move(*code);
}

void JsonFieldReader::read(QLatin1StringView key, Currency& out) const
{
    if (auto code = stringValue(key))
        out.code = std::move(*code);
}

void JsonFieldReader::require(QLatin1StringView key) const
{
    if (!has(key))
        fail(key, QStringLiteral("missing"));
}

std::optional<JsonFieldReader> JsonFieldReader::object(QLatin1StringView key) const
{
    const auto value = raw(key);
    if (!value)
        return std::nullopt;
    simdjson::dom::object object;
    if (value->get_object().get(object) != simdjson::SUCCESS)
        fail(key, QStringLiteral("expected an object, found %1").arg(typeName(*value)));
    return JsonFieldReader(object, pathOf(key), m_dates);
}

qsizetype JsonFieldReader::arraySize(QLatin1StringView key) const
{
    const auto value = raw(key);
    simdjson::dom::array array;
    if (!value || value->get_array().get(array) != simdjson::SUCCESS)
        return 0;
    return qsizetype(array.size());
}

JsonFieldReader JsonFieldReader::elementReader(QLatin1StringView arrayKey, qsizetype index,
                                               simdjson::dom::element element) const
{
    simdjson::dom::object object;
    if (element.get_object().get(object) != simdjson::SUCCESS)
        throw JsonDecodeError(pathOf(arrayKey) + u'[' + QString::number(index) + u']',
                              QStringLiteral("expected an object, found %1").arg(typeName(element)));
    JsonFieldReader reader(object, pathOf(arrayKey), m_dates);
    reader.m_index = index;
    return reader;
}
