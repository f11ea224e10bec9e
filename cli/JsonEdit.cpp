#include "JsonEdit.h"

#include "Commands.h"
#include "model/Enums.h"
#include "util/Clock.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QStringList dateKeys{QStringLiteral("date"), QStringLiteral("serviceDateStart"),
                           QStringLiteral("serviceDateEnd"), QStringLiteral("statusUpdateDate")};
const QStringList optionalNumberKeys{QStringLiteral("discountPercentage"), QStringLiteral("discountAmount"),
                                     QStringLiteral("startNumberYear"), QStringLiteral("skontoPercentage"),
                                     QStringLiteral("skontoDays")};
// Keys that records carry only when they are used; setting one adds it, clearing removes it.
const QStringList occasionalKeys{QStringLiteral("vatNumber"),
                                 QStringLiteral("electronicAddress"),
                                 QStringLiteral("electronicAddressScheme"),
                                 QStringLiteral("leitwegId"),
                                 QStringLiteral("vatExemptionNote"),
                                 QStringLiteral("vatExemptionCode"),
                                 QStringLiteral("skontoPercentage"),
                                 QStringLiteral("skontoDays"),
                                 QStringLiteral("eInvoiceProfile")};

QJsonValue dateValue(const QString& key, const QString& text, const QJsonValue& old)
{
    QDateTime moment = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!moment.isValid()) {
        const QDate day = QDate::fromString(text, Qt::ISODate);
        if (!day.isValid())
            throw CliError(QStringLiteral("%1: \"%2\" is not a date (YYYY-MM-DD)").arg(key, text));
        // Keep the time of day the invoice had, so due moments stay where they were.
        const QTime time = old.isDouble() ? Timestamp(old.toDouble()).toLocalDateTime().time() : QTime(12, 0);
        moment = QDateTime(day, time, Clock::timeZone());
    }
    return Timestamp::fromDateTime(moment).secondsSinceReference();
}

QJsonValue convert(const QString& key, const QString& leaf, const QString& text, const QJsonValue& old)
{
    // Read leniently (an unknown choice is automatic), so checked here where a user types it.
    if (leaf == u"eInvoiceProfile" && !text.isEmpty() && !enumFromRaw<EInvoiceProfile>(text))
        throw CliError(
            QStringLiteral("%1: \"%2\" is not one of %3").arg(key, text, rawValueList<EInvoiceProfile>()));
    if ((text.isEmpty() || text == u"null") &&
        (old.isNull() || optionalNumberKeys.contains(leaf) || leaf == u"serviceDateEnd" ||
         leaf == u"numberFormat" || leaf == u"reference" || leaf == u"language"))
        return QJsonValue::Null;
    if (dateKeys.contains(leaf))
        return dateValue(key, text, old);
    if (old.isBool()) {
        const QString lower = text.toLower();
        if (lower == u"true" || lower == u"yes" || lower == u"1")
            return true;
        if (lower == u"false" || lower == u"no" || lower == u"0")
            return false;
        throw CliError(QStringLiteral("%1: \"%2\" is not true or false").arg(key, text));
    }
    if (old.isDouble() || (old.isNull() && optionalNumberKeys.contains(leaf))) {
        bool ok = false;
        const double number = QString(text).replace(u',', u'.').toDouble(&ok);
        if (!ok)
            throw CliError(QStringLiteral("%1: \"%2\" is not a number").arg(key, text));
        return number;
    }
    if (old.isObject() || old.isArray())
        throw CliError(QStringLiteral("%1 is not a single value; set its fields, e.g. %1.name").arg(key));
    return text;
}

void setIn(QJsonObject& object, const QStringList& path, qsizetype depth, const QString& key,
           const QString& value)
{
    const QString& name = path[depth];
    const bool last = depth + 1 == path.size();
    if (!object.contains(name) && last && occasionalKeys.contains(name)) {
        const QJsonValue converted = convert(key, name, value, QJsonValue::Null);
        if (converted.isNull() || (converted.isString() && converted.toString().isEmpty()))
            object.remove(name);
        else
            object[name] = converted;
        return;
    }
    if (!object.contains(name))
        throw CliError(QStringLiteral("unknown field \"%1\"").arg(key));
    if (depth + 1 < path.size()) {
        if (!object[name].isObject())
            throw CliError(QStringLiteral("unknown field \"%1\"").arg(key));
        QJsonObject child = object[name].toObject();
        setIn(child, path, depth + 1, key, value);
        object[name] = child;
        return;
    }
    object[name] = convert(key, name, value, object[name]);
}

} // namespace

QByteArray setJsonField(const QByteArray& record, const QString& key, const QString& value)
{
    if (key == u"id" || key == u"items" || key == u"version")
        throw CliError(QStringLiteral("\"%1\" cannot be set this way").arg(key));
    QJsonObject object = QJsonDocument::fromJson(record).object();
    setIn(object, key.split(u'.'), 0, key, value);
    return QJsonDocument(object).toJson();
}
