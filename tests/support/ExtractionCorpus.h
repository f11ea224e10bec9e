#pragma once

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// The pasted texts under tests/data/extraction, each with the fields a careful reader takes
// from it (NN-name.txt beside NN-name.json, the JSON as ExtractionSchema::toJson writes it), and
// a field-by-field comparison of an extractor's answer against them.
namespace ExtractionCorpus {

struct Case
{
    QString name; // "01-anfrage-beratung-hamburg"
    QString text;
    QJsonObject expected;
};

// The names of all cases, sorted; a text without its JSON (or the other way round) is fatal.
QStringList caseNames();
Case load(const QString& name);
QList<Case> cases();

struct Tally
{
    int truePositives = 0;  // extracted and right
    int falsePositives = 0; // extracted, but not what the text says (or nothing was expected)
    int falseNegatives = 0; // expected, but not extracted or extracted wrong

    // correct / extracted and correct / expected; 1 when there was nothing to count.
    double precision() const;
    double recall() const;
    Tally& operator+=(const Tally& other);
};

struct Difference
{
    QString field; // "recipient.city", "items[1].unitPrice"
    QString expected;
    QString actual; // "(absent)" when a side lacks the field
};

struct Comparison
{
    QList<Difference> differences;
    QMap<QString, Tally> fields; // by field, items without their index: "items.unitPrice"
};

// Items are compared in order; a wrong value counts as both a false positive and a false negative.
Comparison compare(const QJsonObject& expected, const QJsonObject& actual);

} // namespace ExtractionCorpus
