#pragma once

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// The pasted texts under tests/data/<corpus>, each with the fields a careful reader takes from it
// (NN-name.txt beside NN-name.json, the JSON as ExtractionSchema::toJson writes it), and a
// field-by-field comparison of an extractor's answer against them.
//
// Three corpora: "extraction", the texts the extractor was first written against;
// "extraction-dev", texts written later in forms the first lacks (items in sentences, forwarded
// and quoted mails, addresses of several countries), worked against; and "extraction-heldout",
// texts written apart from the extractor's rules and never used to tune them, so that its figure
// tells how the extractor does on texts it was not tuned to. A held-out folder that is empty or
// missing scores nothing.
namespace ExtractionCorpus {

inline constexpr const char* first = "extraction";
inline constexpr const char* dev = "extraction-dev";
inline constexpr const char* heldOut = "extraction-heldout";

struct Case
{
    QString name; // "01-anfrage-beratung-hamburg"
    QString text;
    QJsonObject expected;
};

// The names of all cases, sorted; a text without its JSON (or the other way round) is fatal.
QStringList caseNames(const QString& corpus = QString::fromLatin1(first));
Case load(const QString& name, const QString& corpus = QString::fromLatin1(first));
QList<Case> cases(const QString& corpus = QString::fromLatin1(first));

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

// All texts of a corpus run through an extractor and compared.
struct Score
{
    int texts = 0;
    int textsWithDifference = 0;
    QMap<QString, Tally> fields;
    Tally overall() const;
};
template <typename Extract>
Score score(const QList<Case>& cases, Extract extract)
{
    Score result;
    for (const Case& corpusCase : cases) {
        const Comparison comparison = compare(corpusCase.expected, extract(corpusCase.text));
        for (auto it = comparison.fields.cbegin(); it != comparison.fields.cend(); ++it)
            result.fields[it.key()] += it.value();
        ++result.texts;
        result.textsWithDifference += !comparison.differences.isEmpty();
    }
    return result;
}

} // namespace ExtractionCorpus
