#include "support/CliHome.h"
#include "support/ModelTestServer.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>

using namespace Qt::Literals::StringLiterals;

namespace {

struct WithApplication
{
    WithApplication() { ensureApplication(); }
};

const QByteArray mail = "Hallo Frau Schneider,\n\nbitte stellen Sie die Rechnung an:\n\n"
                        "Nordlicht Design UG (haftungsbeschränkt)\nAm Markt 3a\n24103 Kiel\n\n"
                        "Bestellnummer: 4711\n\nViele Grüße\n";

} // namespace

// `ledra extract`: a text becomes invoice fields, by the model on 127.0.0.1 or offline.
class ExtractCli : public CliHome, private WithApplication
{
protected:
    CliResult extract(const QStringList& arguments, const QByteArray& input = mail)
    {
        return runLedraServing(QStringLiteral(LEDRA_CLI), QStringList{u"extract"_s} + arguments,
                               m_environment, input);
    }

    int invoiceFiles() const
    {
        return int(QDir(invoicesFolder()).entryList({u"*.json"_s}, QDir::Files).size());
    }

    static QString unusedAddress()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        return u"http://127.0.0.1:%1"_s.arg(server.serverPort());
    }
};

TEST_F(ExtractCli, TheModelDraftsTheInvoiceAndSaysItDid)
{
    ModelTestServer server(ModelTestServer::Kind::ollama);
    server.answer({R"j({"recipient":{"businessName":"Nordlicht Design UG (haftungsbeschränkt)",)j",
                   R"("addressLineOne":"Am Markt 3a","postcode":"24103","city":"Kiel","countryCode":"DE"},)",
                   R"("items":[{"description":"Logo","quantity":1,"unit":"lumpSum","unitPrice":1234.5}],)",
                   R"("reference":"4711"})"});
    CliResult result = extract({u"--server"_s, server.origin()});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.startsWith(
        u"Extracted by Ollama with the model \u201Cllama3.2:latest\u201D at "_s + server.origin()))
        << result.out.toStdString();
    EXPECT_TRUE(result.out.contains(u"Nordlicht Design UG"_s));
    EXPECT_TRUE(result.out.contains(u"1234.50"_s));
    EXPECT_EQ(server.chatRequest()[u"messages"_s].toArray()[1][u"content"_s].toString(),
              QString::fromUtf8(mail));
    EXPECT_EQ(invoiceFiles(), 0); // only printed

    result = extract({u"--server"_s, server.origin(), u"--create"_s, u"--json"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonObject json = QJsonDocument::fromJson(result.out.toUtf8()).object();
    EXPECT_EQ(json[u"extractor"_s].toString(), u"model"_s);
    EXPECT_EQ(json[u"extracted"_s][u"reference"_s].toString(), u"4711"_s);
    const QJsonObject invoice = json[u"invoice"_s].toObject();
    EXPECT_EQ(invoice[u"recipient"_s][u"address"_s][u"city"_s].toString(), u"Kiel"_s);
    EXPECT_EQ(invoice[u"items"_s].toArray()[0][u"unitPrice"_s].toDouble(), 1234.5);
    // The profile's VAT rate, since the text stated none.
    EXPECT_EQ(invoice[u"items"_s].toArray()[0][u"vatPercentage"_s].toDouble(), 19);
    EXPECT_EQ(invoiceFiles(), 1);
}

TEST_F(ExtractCli, AModelErrorCreatesNoInvoice)
{
    ModelTestServer server(ModelTestServer::Kind::llamaServer);
    server.answer({R"({"items":[{"description":"Logo","unit":"stunden"}]})"});
    CliResult result = extract({u"--server"_s, server.origin(), u"--create"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"Unexpected rawValue \"stunden\""_s)) << result.err.toStdString();
    EXPECT_EQ(invoiceFiles(), 0);

    server.setLoading(true);
    result = extract({u"--server"_s, server.origin(), u"--status"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.out.contains(u"still loading its model"_s)) << result.out.toStdString();
}

TEST_F(ExtractCli, WithoutAModelTheOfflineExtractorReadsTheText)
{
    const QString nobody = unusedAddress();
    CliResult result = extract({u"--server"_s, nobody, u"--status"_s, u"--json"_s});
    EXPECT_EQ(result.exitCode, 1);
    const QJsonObject status = QJsonDocument::fromJson(result.out.toUtf8()).object();
    EXPECT_FALSE(status[u"available"_s].toBool());
    EXPECT_TRUE(
        status[u"message"_s].toString().startsWith(u"No language model server answers at "_s + nobody));

    result = extract({u"--server"_s, nobody, u"--create"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains(u"Using the offline extractor."_s)) << result.err.toStdString();
    EXPECT_TRUE(result.out.startsWith(u"Extracted by the offline extractor."_s)) << result.out.toStdString();
    EXPECT_TRUE(result.out.contains(u"Created invoice "_s));
    EXPECT_EQ(invoiceFiles(), 1);

    // --offline never asks the server.
    ModelTestServer server(ModelTestServer::Kind::llamaServer);
    result = extract({u"--server"_s, server.origin(), u"--offline"_s, u"--json"_s});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(result.out.toUtf8())[u"extractor"_s].toString(), u"offline"_s);
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(ExtractCli, BadInputIsNamed)
{
    CliResult result = extract({u"--offline"_s, m_home.filePath(u"missing.txt"_s)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"missing.txt"_s)) << result.err.toStdString();

    result = extract({u"--offline"_s}, "   \n");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"standard input: there is no text"_s)) << result.err.toStdString();

    result = extract({u"--offline"_s, u"--create"_s}, "Hallo, wie geht's?");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"found nothing"_s)) << result.err.toStdString();
    EXPECT_EQ(invoiceFiles(), 0);

    result = extract({u"a.txt"_s, u"b.txt"_s});
    EXPECT_EQ(result.exitCode, 64);

    // A server elsewhere is refused unless allowed: the text stays here.
    result = extract({u"--server"_s, u"http://203.0.113.9:8080"_s, u"--status"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.out.contains(u"allow other hosts"_s)) << result.out.toStdString();
}
