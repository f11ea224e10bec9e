#include "support/CliHome.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

// Contact cards from an address book become invoices addressed to them.
class ContactCli : public CliHome
{
protected:
    QJsonArray listed()
    {
        const CliResult result = ledra({u"invoice"_s, u"list"_s, u"--json"_s});
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        return QJsonDocument::fromJson(result.out.toUtf8()).array();
    }

    QJsonObject recipientOf(const QString& id)
    {
        const CliResult result = ledra({u"invoice"_s, u"show"_s, id, u"--json"_s});
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        return QJsonDocument::fromJson(result.out.toUtf8()).object()[u"recipient"].toObject();
    }
};

TEST_F(ContactCli, EachContactOfTheCardBecomesAnInvoiceAddressedToIt)
{
    const QString file = TestSupport::dataPath(u"vcard/two-contacts.vcf"_s);
    CliResult result = ledra({u"invoice"_s, u"new"_s, u"--from-vcard"_s, file});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.out.count(u"Created invoice "_s), 2) << result.out.toStdString();

    const QJsonArray invoices = listed();
    ASSERT_EQ(invoices.size(), 2);
    QStringList numbers;
    QHash<QString, QString> ids; // recipient -> id
    for (const QJsonValue& invoice : invoices) {
        numbers.append(invoice[u"number"].toString());
        ids.insert(invoice[u"recipient"].toString(), invoice[u"id"].toString());
        EXPECT_TRUE(result.out.contains(invoice[u"number"].toString())) << result.out.toStdString();
    }
    EXPECT_EQ(numbers.size(), QSet<QString>(numbers.begin(), numbers.end()).size());

    const QJsonObject jana = recipientOf(ids.value(u"Lindqvist Design GmbH"_s));
    EXPECT_EQ(jana[u"name"].toString(), u"Jana Becker");
    EXPECT_EQ(jana[u"businessName"].toString(), u"Lindqvist Design GmbH");
    EXPECT_EQ(jana[u"email"].toString(), u"j.becker@lindqvist.example");
    const QJsonObject berlin = jana[u"address"].toObject();
    EXPECT_EQ(berlin[u"lineOne"].toString(), u"Friedrichstraße 112");
    EXPECT_EQ(berlin[u"postcode"].toString(), u"10117");
    EXPECT_EQ(berlin[u"city"].toString(), u"Berlin");
    EXPECT_EQ(berlin[u"country"].toString(), u"DE");

    const QJsonObject alois = recipientOf(ids.value(u"Alois Huber"_s));
    EXPECT_EQ(alois[u"businessName"].toString(), u"");
    const QJsonObject salzburg = alois[u"address"].toObject();
    EXPECT_EQ(salzburg[u"lineOne"].toString(), u"Getreidegasse 9");
    EXPECT_EQ(salzburg[u"state"].toString(), u"Salzburg");
    EXPECT_EQ(salzburg[u"country"].toString(), u"AT");

    // The same from standard input, as JSON: an array of the new invoices.
    QProcess process;
    process.setProcessEnvironment(m_environment);
    process.start(QStringLiteral(LEDRA_CLI),
                  {u"invoice"_s, u"new"_s, u"--from-vcard"_s, u"-"_s, u"--json"_s});
    process.write(TestSupport::readData(u"vcard/organization-only.vcf"_s));
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QJsonArray created = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    ASSERT_EQ(created.size(), 1);
    EXPECT_EQ(created[0][u"recipient"][u"businessName"].toString(), u"Kaffeerösterei Hanse KG");
    EXPECT_EQ(created[0][u"recipient"][u"name"].toString(), u"");
    EXPECT_EQ(listed().size(), 3);
}

TEST_F(ContactCli, ABrokenCardFailsWithTheFileAndTheReasonAndCreatesNothing)
{
    const QString file = TestSupport::dataPath(u"vcard/unterminated.vcf"_s);
    CliResult result = ledra({u"invoice"_s, u"new"_s, u"--from-vcard"_s, file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(
        file + u": Error parsing vCard: The card that begins on line 1 has no END:VCARD."_s))
        << result.err.toStdString();

    const QString empty = m_home.filePath(u"empty.vcf"_s);
    QFile emptyFile(empty);
    ASSERT_TRUE(emptyFile.open(QIODevice::WriteOnly));
    ASSERT_TRUE(emptyFile.write("BEGIN:VCARD\nVERSION:3.0\nEND:VCARD\n") > 0);
    emptyFile.close();
    result = ledra({u"invoice"_s, u"new"_s, u"--from-vcard"_s, empty});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(empty + u": The vCard holds no contact."_s)) << result.err.toStdString();

    result = ledra({u"invoice"_s, u"new"_s, u"--from-vcard"_s, m_home.filePath(u"missing.vcf"_s)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"missing.vcf: "_s)) << result.err.toStdString();

    result = ledra({u"invoice"_s, u"quote"_s, u"--from-vcard"_s, file});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(listed().isEmpty());
}
