#include "support/ExtractionCorpus.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace ExtractionCorpus {

namespace {

QString folder(const QString& corpus)
{
    // A corpus is a folder under tests/data, or anywhere when given as an absolute path.
    if (QDir::isAbsolutePath(corpus))
        return corpus + u'/';
    return QStringLiteral(LEDRA_TEST_DATA) + u'/' + corpus + u'/';
}

QByteArray read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("extraction corpus: %s missing", qPrintable(path));
    return file.readAll();
}

const QStringList recipientFields{u"name"_s,           u"businessName"_s,   u"email"_s,
                                  u"addressLineOne"_s, u"addressLineTwo"_s, u"postcode"_s,
                                  u"city"_s,           u"state"_s,          u"countryCode"_s};
const QStringList itemFields{u"description"_s, u"quantity"_s, u"unit"_s, u"unitPrice"_s, u"vatPercentage"_s};
const QStringList invoiceFields{u"note"_s, u"reference"_s, u"currencyCode"_s, u"serviceDateStart"_s,
                                u"serviceDateEnd"_s};

QString shown(const QJsonValue& value)
{
    if (value.isUndefined() || value.isNull())
        return u"(absent)"_s;
    if (value.isString())
        return u'"' + value.toString() + u'"';
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 12);
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
}

bool same(const QJsonValue& a, const QJsonValue& b)
{
    if (a.isDouble() && b.isDouble())
        return std::abs(a.toDouble() - b.toDouble()) < 1e-9;
    return a == b;
}

void count(Comparison& comparison, const QString& field, const QString& path, const QJsonValue& expected,
           const QJsonValue& actual)
{
    const bool hasExpected = !expected.isUndefined() && !expected.isNull();
    const bool hasActual = !actual.isUndefined() && !actual.isNull();
    Tally& tally = comparison.fields[field];
    if (hasExpected && hasActual && same(expected, actual)) {
        ++tally.truePositives;
        return;
    }
    if (hasActual)
        ++tally.falsePositives;
    if (hasExpected)
        ++tally.falseNegatives;
    if (hasExpected || hasActual)
        comparison.differences.append({path, shown(expected), shown(actual)});
}

} // namespace

double Tally::precision() const
{
    const int extracted = truePositives + falsePositives;
    return extracted == 0 ? 1.0 : double(truePositives) / extracted;
}

double Tally::recall() const
{
    const int expected = truePositives + falseNegatives;
    return expected == 0 ? 1.0 : double(truePositives) / expected;
}

Tally& Tally::operator+=(const Tally& other)
{
    truePositives += other.truePositives;
    falsePositives += other.falsePositives;
    falseNegatives += other.falseNegatives;
    return *this;
}

QStringList caseNames(const QString& corpus)
{
    const QDir dir(folder(corpus));
    QStringList texts;
    for (const QString& file : dir.entryList({u"*.txt"_s}, QDir::Files, QDir::Name))
        texts.append(file.chopped(4));
    QStringList answers;
    for (const QString& file : dir.entryList({u"*.json"_s}, QDir::Files, QDir::Name))
        answers.append(file.chopped(5));
    if (texts != answers)
        qFatal("extraction corpus %s: every text needs its expected JSON and the other way round",
               qPrintable(corpus));
    return texts;
}

Case load(const QString& name, const QString& corpus)
{
    Case loaded;
    loaded.name = name;
    loaded.text = QString::fromUtf8(read(folder(corpus) + name + u".txt"_s));
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(read(folder(corpus) + name + u".json"_s), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        qFatal("extraction corpus: %s.json is no JSON object: %s", qPrintable(name),
               qPrintable(error.errorString()));
    loaded.expected = document.object();
    return loaded;
}

QList<Case> cases(const QString& corpus)
{
    QList<Case> all;
    for (const QString& name : caseNames(corpus))
        all.append(load(name, corpus));
    return all;
}

Tally Score::overall() const
{
    Tally all;
    for (const Tally& tally : fields)
        all += tally;
    return all;
}

Comparison compare(const QJsonObject& expected, const QJsonObject& actual)
{
    Comparison comparison;
    const QJsonObject expectedRecipient = expected.value(u"recipient"_s).toObject();
    const QJsonObject actualRecipient = actual.value(u"recipient"_s).toObject();
    for (const QString& field : recipientFields)
        count(comparison, u"recipient."_s + field, u"recipient."_s + field, expectedRecipient.value(field),
              actualRecipient.value(field));

    const QJsonArray expectedItems = expected.value(u"items"_s).toArray();
    const QJsonArray actualItems = actual.value(u"items"_s).toArray();
    for (qsizetype i = 0; i < std::max(expectedItems.size(), actualItems.size()); ++i) {
        const QJsonObject expectedItem = expectedItems.at(i).toObject();
        const QJsonObject actualItem = actualItems.at(i).toObject();
        for (const QString& field : itemFields)
            count(comparison, u"items."_s + field, u"items[%1].%2"_s.arg(i).arg(field),
                  expectedItem.value(field), actualItem.value(field));
    }

    for (const QString& field : invoiceFields)
        count(comparison, field, field, expected.value(field), actual.value(field));

    // Keys outside the schema would go unnoticed above.
    static const QStringList known = QStringList{u"recipient"_s, u"items"_s} + invoiceFields;
    for (const QJsonObject& object : {expected, actual})
        for (const QString& key : object.keys())
            if (!known.contains(key))
                comparison.differences.append({key, shown(expected.value(key)), shown(actual.value(key))});
    return comparison;
}

} // namespace ExtractionCorpus
