#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// `ledra plugin` with the example plugins of the repository, in a home of its own.
class PluginCli : public ::testing::Test
{
protected:
    PluginCli()
    {
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        m_environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        m_environment.insert(u"LEDRA_REGION"_s, u"DE"_s);
        m_environment.insert(u"LEDRA_NOW"_s, u"2025-03-20T09:30:00+01:00"_s);
        m_environment.insert(u"LEDRA_TIMEZONE"_s, u"Europe/Berlin"_s);
        m_environment.insert(u"LEDRA_BANK_STATEMENT"_s, m_home.filePath(u"statement.csv"_s));
    }

    CliResult ledra(const QStringList& arguments)
    {
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, m_environment);
    }

    void ok(const QStringList& arguments)
    {
        const CliResult result = ledra(arguments);
        EXPECT_EQ(result.exitCode, 0) << qPrintable(arguments.join(u' ')) << ": " << qPrintable(result.err);
    }

    void write(const QString& name, const QByteArray& content)
    {
        QFile file(m_home.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    static QString example(const QString& name)
    {
        return QStringLiteral(LEDRA_TEST_DATA "/../../plugins/examples/") + name + u".ledraplugin"_s;
    }

    QJsonArray invoices()
    {
        const CliResult result = ledra({u"invoice"_s, u"list"_s, u"--json"_s});
        return QJsonDocument::fromJson(result.out.toUtf8()).array();
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment;
};

TEST_F(PluginCli, ExamplePluginsImportExportAndMarkPaid)
{
    for (const QString& name : {u"JSON Export"_s, u"Bank Statement"_s, u"Timesheet Import"_s})
        ok({u"plugin"_s, u"install"_s, example(name)});
    const CliResult listed = ledra({u"plugin"_s, u"list"_s, u"--json"_s});
    const QJsonArray plugins = QJsonDocument::fromJson(listed.out.toUtf8()).array();
    ASSERT_EQ(plugins.size(), 3) << qPrintable(listed.out);
    EXPECT_EQ(plugins[0][u"id"_s], u"Bank Statement"_s);
    EXPECT_EQ(plugins[2][u"entryPoints"_s].toArray(), QJsonArray{u"importInvoices"_s});

    ok({u"profile"_s, u"set"_s, u"hourlyRate"_s, u"80"_s});
    write(u"timesheet.csv"_s, "customer;email;city;country;date;task;hours;rate\n"
                              "Acme GmbH;billing@acme.example;Wien;AT;03.03.2025;Workshop;4;120\n"
                              "Beta AG;;Graz;AT;2025-03-04;Support;1,5;\n");
    ok({u"plugin"_s, u"import"_s, u"Timesheet Import"_s, m_home.filePath(u"timesheet.csv"_s)});
    QJsonArray list = invoices();
    ASSERT_EQ(list.size(), 2);

    ok({u"plugin"_s, u"export"_s, u"JSON Export"_s, u"-o"_s, m_home.filePath(u"all.json"_s)});
    QFile exported(m_home.filePath(u"all.json"_s));
    ASSERT_TRUE(exported.open(QIODevice::ReadOnly));
    const QJsonArray rows = QJsonDocument::fromJson(exported.readAll())[u"invoices"_s].toArray();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows[0][u"customer"_s][u"name"_s], u"Acme GmbH"_s);
    EXPECT_EQ(rows[0][u"itemsNet"_s], 480);
    EXPECT_EQ(rows[1][u"items"_s][0][u"unitPrice"_s], 80); // the profile's hourly rate

    // The bank statement arrives through the connector.
    const QString scripts = m_home.filePath(u"data/Ledra/Scripts"_s);
    ASSERT_TRUE(QDir().mkpath(scripts));
    ASSERT_TRUE(QFile::copy(QStringLiteral(LEDRA_TEST_DATA "/../../plugins/examples/LedraConnector.example"),
                            scripts + u"/LedraConnector"_s));
    QFile::setPermissions(scripts + u"/LedraConnector"_s, QFile::ReadOwner | QFile::ExeOwner);
    ok({u"invoice"_s, u"status"_s, u"2025-001"_s, u"Sent"_s});
    ok({u"invoice"_s, u"status"_s, u"2025-002"_s, u"Sent"_s});
    write(u"statement.csv"_s, "Date;Amount;Purpose\n"
                              "18.03.2025;571,20;\"RE 2025-001, Acme\"\n"
                              "19.03.2025;10,00;Invoice 2025-0021\n");
    const CliResult updated = ledra({u"plugin"_s, u"update-invoices"_s, u"Bank Statement"_s});
    EXPECT_EQ(updated.exitCode, 0) << qPrintable(updated.err);
    EXPECT_EQ(updated.out, u"Updated 1 invoice(s)\n");
    list = invoices();
    for (const QJsonValue& invoice : list)
        EXPECT_EQ(invoice[u"status"_s], invoice[u"number"_s] == u"2025-001"_s ? u"Paid"_s : u"Sent"_s)
            << QJsonDocument(invoice.toObject()).toJson().constData();
}

TEST_F(PluginCli, DisabledAndMissingPluginsFail)
{
    ok({u"plugin"_s, u"install"_s, example(u"JSON Export"_s)});
    ok({u"plugin"_s, u"disable"_s, u"JSON Export"_s});
    CliResult result = ledra({u"plugin"_s, u"export"_s, u"JSON Export"_s});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(u"disabled"_s)) << qPrintable(result.err);
    ok({u"plugin"_s, u"enable"_s, u"json export"_s});
    ok({u"plugin"_s, u"export"_s, u"JSON Export"_s});

    result = ledra({u"plugin"_s, u"install"_s, m_home.path()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, u"ledra plugin: The selected plugin is missing a plugin.json manifest.\n");

    ok({u"plugin"_s, u"uninstall"_s, u"JSON Export"_s});
    result = ledra({u"plugin"_s, u"list"_s});
    EXPECT_TRUE(result.out.startsWith(u"No plugins installed."_s));
    EXPECT_EQ(ledra({u"plugin"_s, u"enable"_s, u"JSON Export"_s}).exitCode, 1);
    EXPECT_EQ(ledra({u"plugin"_s, u"import"_s, u"x"_s}).exitCode, 64);
}
