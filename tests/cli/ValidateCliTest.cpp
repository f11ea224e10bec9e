// `ledra validate` on what Ledra writes, on a document with a wrong total, and on wrong input.
#include "support/CliHome.h"
#include "support/TestSupport.h"
#include "util/Files.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

class ValidateCli : public CliHome
{
protected:
    QString write(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_home.filePath(name);
        EXPECT_FALSE(Files::writeAtomically(path, bytes)) << path.toStdString();
        return path;
    }
};

TEST_F(ValidateCli, AWrittenInvoicePassesAndAWrongTotalFailsItsRule)
{
    const CliResult written = ledra({u"xrechnung"_s, sampleInvoicePath()});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    QByteArray xml = written.out.toUtf8();
    const QString good = write(u"good.xml"_s, xml);
    // BR-CO-15: the total with VAT must be the total without VAT plus the VAT.
    ASSERT_TRUE(xml.contains("<ram:GrandTotalAmount>1533.44</ram:GrandTotalAmount>"));
    xml.replace("<ram:GrandTotalAmount>1533.44</ram:GrandTotalAmount>",
                "<ram:GrandTotalAmount>1000.00</ram:GrandTotalAmount>");
    const QString bad = write(u"bad.xml"_s, xml);

    const CliResult alone = ledra({u"validate"_s, good});
    EXPECT_EQ(alone.exitCode, 0) << alone.out.toStdString();
    EXPECT_TRUE(alone.out.contains(u"VALID (0 errors"_s)) << alone.out.toStdString();

    // One invalid file makes the whole run fail; each file gets its own verdict.
    const CliResult both = ledra({u"validate"_s, u"--json"_s, good, bad});
    EXPECT_EQ(both.exitCode, 1);
    const QJsonArray verdicts = QJsonDocument::fromJson(both.out.toUtf8()).array();
    ASSERT_EQ(verdicts.size(), 2) << both.out.toStdString();
    EXPECT_TRUE(verdicts[0][u"valid"_s].toBool());
    EXPECT_FALSE(verdicts[1][u"valid"_s].toBool());
    QStringList ids;
    for (const QJsonValue& failure : verdicts[1][u"failures"_s].toArray())
        ids << failure[u"id"_s].toString();
    EXPECT_TRUE(ids.contains(u"BR-CO-15"_s)) << ids.join(u' ').toStdString();
}

TEST_F(ValidateCli, UnreadableInputIsInvalidAndWrongArgumentsAreRefused)
{
    const QString notXml = write(u"notes.xml"_s, "just text");
    const CliResult garbage = ledra({u"validate"_s, notXml});
    EXPECT_EQ(garbage.exitCode, 1);
    EXPECT_TRUE(garbage.out.contains(u"INVALID (1 error, 0 warnings"_s)) << garbage.out.toStdString();

    const CliResult missing = ledra({u"validate"_s, m_home.filePath(u"nowhere.xml"_s)});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.out.contains(u"cannot be read"_s)) << missing.out.toStdString();

    const QString pdf = write(u"broken.pdf"_s, "%PDF-1.4\n");
    EXPECT_EQ(ledra({u"validate"_s, pdf}).exitCode, 1);

    EXPECT_EQ(ledra({u"validate"_s, u"--rules"_s, u"peppol"_s, notXml}).exitCode, 64);
    EXPECT_EQ(ledra({u"validate"_s}).exitCode, 64);
}
