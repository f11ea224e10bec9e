#include "support/CliRunner.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// The reminder commands, run as a user would, in a home of their own on 14 March 2025.
class ReminderCli : public ::testing::Test
{
protected:
    ReminderCli()
    {
        m_environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        m_environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        m_environment.insert(u"LEDRA_REGION"_s, u"DE"_s);
        m_environment.insert(u"LEDRA_NOW"_s, u"2025-03-14T09:30:00+01:00"_s);
        m_environment.insert(u"LEDRA_TIMEZONE"_s, u"Europe/Berlin"_s);
    }

    CliResult ledra(const QStringList& arguments)
    {
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, m_environment);
    }

    QString ok(const QStringList& arguments)
    {
        const CliResult result = ledra(arguments);
        EXPECT_EQ(result.exitCode, 0)
            << arguments.join(u' ').toStdString() << ": " << result.err.toStdString();
        return result.out;
    }

    QJsonArray list()
    {
        return QJsonDocument::fromJson(ok({u"reminder"_s, u"list"_s, u"--json"_s}).toUtf8()).array();
    }

    QString folder() const { return m_home.filePath(u"data/Ledra/Data/Default/Invoices"_s); }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

TEST_F(ReminderCli, RoundTripFromOverdueInvoiceToPdfAndBack)
{
    ok({u"invoice"_s, u"new"_s});
    ok({u"invoice"_s, u"set"_s, u"2025-001"_s, u"date"_s, u"2025-02-01"_s});
    ok({u"invoice"_s, u"add-item"_s, u"2025-001"_s, u"--description"_s, u"Design"_s, u"--price"_s, u"100"_s});

    // A draft is not overdue: a reminder needs --force.
    const CliResult refused = ledra({u"reminder"_s, u"new"_s, u"2025-001"_s});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(
        refused.err.contains(u"invoice 2025-001 is not overdue (Draft, due 2025-02-15); use --force"_s))
        << refused.err.toStdString();

    ok({u"invoice"_s, u"status"_s, u"2025-001"_s, u"Sent"_s});
    EXPECT_TRUE(ok({u"reminder"_s, u"new"_s, u"2025-001"_s}).startsWith(u"Created friendly reminder"_s));
    const QJsonObject first =
        QJsonDocument::fromJson(ok({u"reminder"_s, u"new"_s, u"2025-001"_s, u"--json"_s}).toUtf8()).object();
    EXPECT_EQ(first[u"number"_s].toInt(), 1);
    const QJsonArray listed = list();
    ASSERT_EQ(listed.size(), 2);
    EXPECT_EQ(listed[1][u"title"_s].toString(), u"First Payment Reminder");
    const QString stem = listed[0][u"file"_s].toString().chopped(u"-reminder.json"_s.size());
    EXPECT_TRUE(stem.startsWith(u"2025-02-01-"_s)) << stem.toStdString();

    // Edited by a prefix of its id; bad values are refused with the reason.
    const QString id = first[u"id"_s].toString().left(8);
    ok({u"reminder"_s, u"set"_s, id, u"fee"_s, u"12,50"_s});
    ok({u"reminder"_s, u"set"_s, id, u"text"_s,
        u"Bitte zahlen Sie {{amount}} EUR zzgl. {{fee-amount}} EUR."_s});
    const QList<std::pair<QStringList, QString>> bad{
        {{u"set"_s, id, u"number"_s, u"0"_s}, u"already has a reminder with number 0"_s},
        {{u"set"_s, id, u"invoiceId"_s, u"x"_s}, u"\"invoiceId\" cannot be set"_s},
        {{u"set"_s, id, u"date"_s, u"soon"_s}, u"\"soon\" is not a date"_s},
        {{u"show"_s, u"FFFFFFFF"_s}, u"no reminder \"FFFFFFFF\""_s}};
    for (const auto& [arguments, message] : bad) {
        const CliResult result = ledra(QStringList{u"reminder"_s} + arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_TRUE(result.err.contains(message)) << result.err.toStdString();
    }
    // 100 net + 19 % VAT and the new fee, in German; the letter as PDF says the same.
    EXPECT_TRUE(
        ok({u"reminder"_s, u"show"_s, id}).contains(u"Bitte zahlen Sie 119,00 EUR zzgl. 12,50 EUR."_s));
    const QString pdf = m_home.filePath(u"reminder.pdf"_s);
    EXPECT_EQ(ok({u"reminder"_s, u"pdf"_s, id, u"-o"_s, pdf}).trimmed(), pdf);
    const CliResult text = runLedra(u"pdftotext"_s, {u"-layout"_s, pdf, u"-"_s});
    EXPECT_TRUE(text.out.contains(u"1. Mahnung"_s)) << text.out.toStdString();
    EXPECT_TRUE(text.out.contains(u"Bitte zahlen Sie 119,00 EUR zzgl. 12,50 EUR."_s));

    // The invoice's date changes: its reminder files move along.
    ok({u"invoice"_s, u"set"_s, u"2025-001"_s, u"date"_s, u"2025-02-03"_s});
    const QString moved = u"2025-02-03-"_s + stem.mid(11);
    EXPECT_EQ(QDir(folder()).entryList({u"*-reminder*"_s}, QDir::Files, QDir::Name),
              (QStringList{moved + u"-reminder-1.json"_s, moved + u"-reminder.json"_s}));

    // A file that cannot be read is named on the error stream and skipped.
    const QString broken = folder() + u'/' + moved + u"-reminder-7.json"_s;
    ASSERT_FALSE(QFile::exists(broken));
    ASSERT_TRUE(QFile(broken).open(QIODevice::WriteOnly)); // empty: no JSON at all
    const CliResult withBroken = ledra({u"reminder"_s, u"list"_s});
    EXPECT_EQ(withBroken.exitCode, 0);
    EXPECT_TRUE(withBroken.err.contains(u"skipped "_s + broken + u": "_s)) << withBroken.err.toStdString();
    EXPECT_EQ(withBroken.out.count(u'\n'), 2);
    QFile::remove(broken);

    EXPECT_TRUE(ok({u"reminder"_s, u"delete"_s, id}).startsWith(u"Deleted first payment reminder"_s));
    EXPECT_EQ(list().size(), 1);
    ok({u"invoice"_s, u"delete"_s, u"2025-001"_s, u"--force"_s});
    EXPECT_TRUE(list().isEmpty());
    EXPECT_TRUE(QDir(folder()).entryList({u"*-reminder*"_s}, QDir::Files).isEmpty());
}
