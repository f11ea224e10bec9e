#include "support/CliHome.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// `ledra check`, `ledra resolve` and renumbering, on a data folder that a sync engine wrote into
// (conflict copies and numbers given twice made by hand, as Nextcloud and two offline machines
// leave them).
class SyncCli : public CliHome
{
protected:
    QString create()
    {
        const CliResult result = ledra({u"invoice"_s, u"new"_s});
        EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
        return result.out.mid(result.out.indexOf(u"(id "_s) + 4, 36);
    }

    QString fileOf(const QString& id) const
    {
        const QStringList names =
            QDir(invoicesFolder()).entryList({u"*-"_s + id.left(6) + u".json"_s}, QDir::Files);
        return names.isEmpty() ? QString() : invoicesFolder() + u'/' + names.first();
    }

    // Rewrites one key of an invoice file as another program would.
    void edit(const QString& path, const QString& key, const QJsonValue& value, const QString& into = {})
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
        file.close();
        object.insert(key, value);
        QFile target(into.isEmpty() ? path : into);
        ASSERT_TRUE(target.open(QIODevice::WriteOnly | QIODevice::Truncate));
        target.write(QJsonDocument(object).toJson());
    }
};

TEST_F(SyncCli, NumbersUsedTwiceAreReportedRefusedAndRenumbered)
{
    const QString first = create();
    const QString second = create();
    edit(fileOf(second), u"number"_s, 1); // both machines gave out 2025-001

    const CliResult report = ledra({u"check"_s});
    EXPECT_EQ(report.exitCode, 1);
    EXPECT_TRUE(report.out.contains(u"Number used twice: Invoice 2025-001"_s)) << report.out.toStdString();
    EXPECT_TRUE(report.out.contains(first.left(8)) && report.out.contains(second.left(8)));
    const QJsonObject json = QJsonDocument::fromJson(ledra({u"check"_s, u"--json"_s}).out.toUtf8()).object();
    ASSERT_EQ(json[u"duplicateNumbers"_s].toArray().size(), 1);
    EXPECT_EQ(json[u"duplicateNumbers"_s][0][u"invoices"_s].toArray().size(), 2);
    EXPECT_EQ(json[u"duplicateNumbers"_s][0][u"number"_s].toString(), u"2025-001"_s);

    // Sending and issuing documents are refused with a message that names the other invoice.
    for (const QStringList& refused :
         {QStringList{u"invoice"_s, u"status"_s, first, u"sent"_s},
          QStringList{u"invoice"_s, u"set"_s, first, u"status"_s, u"Sent"_s},
          QStringList{u"xrechnung"_s, first, u"-o"_s, m_home.filePath(u"x.xml"_s)}}) {
        const CliResult result = ledra(refused);
        EXPECT_EQ(result.exitCode, 1) << refused.join(u' ').toStdString();
        EXPECT_TRUE(result.err.contains(u"is also used by Invoice 2025-001"_s) &&
                    result.err.contains(second.left(8)))
            << result.err.toStdString();
    }

    // A sent invoice keeps its number; the draft beside it gets the next free one.
    edit(fileOf(first), u"status"_s, u"Sent"_s);
    const CliResult sentRefused = ledra({u"invoice"_s, u"renumber"_s, first});
    EXPECT_EQ(sentRefused.exitCode, 1);
    EXPECT_TRUE(sentRefused.err.contains(u"keeps it"_s)) << sentRefused.err.toStdString();
    const CliResult renumbered = ledra({u"invoice"_s, u"renumber"_s, second});
    EXPECT_EQ(renumbered.exitCode, 0) << renumbered.err.toStdString();
    EXPECT_TRUE(renumbered.out.contains(u"to 2025-002"_s)) << renumbered.out.toStdString();
    const CliResult clean = ledra({u"check"_s});
    EXPECT_EQ(clean.exitCode, 0) << clean.out.toStdString();
}

TEST_F(SyncCli, ConflictCopiesAreListedComparedAndResolved)
{
    const QString id = create();
    const QString file = fileOf(id);
    const QString stem = file.chopped(5);
    // Nextcloud kept the laptop's version beside ours; Dropbox another one.
    const QString nextcloud = stem + u" (conflicted copy 2025-03-14 101010).json"_s;
    const QString dropbox = stem + u" (Ann's conflicted copy 2025-03-14).json"_s;
    edit(file, u"note"_s, u"from the laptop"_s, nextcloud);
    edit(file, u"note"_s, u"from the tablet"_s, dropbox);

    const CliResult report = ledra({u"check"_s});
    EXPECT_EQ(report.exitCode, 1);
    EXPECT_EQ(report.out.count(u"Conflict: Invoice 2025-001"_s), 2) << report.out.toStdString();
    EXPECT_TRUE(report.out.contains(QFileInfo(nextcloud).fileName()));
    // The copies are not invoices of their own.
    const CliResult list = ledra({u"invoice"_s, u"list"_s, u"--json"_s});
    EXPECT_EQ(QJsonDocument::fromJson(list.out.toUtf8()).array().size(), 1);

    const CliResult compared = ledra({u"resolve"_s, QFileInfo(nextcloud).fileName(), u"--compare"_s});
    EXPECT_EQ(compared.exitCode, 0) << compared.err.toStdString();
    EXPECT_TRUE(compared.out.contains(u"note:  | from the laptop"_s)) << compared.out.toStdString();

    // A save of the invoice leaves both copies in place.
    ASSERT_EQ(ledra({u"invoice"_s, u"set"_s, id, u"date"_s, u"2025-03-10"_s}).exitCode, 0);
    EXPECT_TRUE(QFile::exists(nextcloud) && QFile::exists(dropbox));

    const CliResult both = ledra({u"resolve"_s, QFileInfo(nextcloud).fileName(), u"--keep"_s, u"both"_s});
    EXPECT_EQ(both.exitCode, 0) << both.err.toStdString();
    EXPECT_TRUE(both.out.contains(u"is now Invoice 2025-002"_s)) << both.out.toStdString();
    const CliResult other = ledra({u"resolve"_s, dropbox, u"--keep"_s, u"other"_s});
    EXPECT_EQ(other.exitCode, 0) << other.err.toStdString();
    EXPECT_FALSE(QFile::exists(nextcloud) || QFile::exists(dropbox));

    const QJsonArray invoices =
        QJsonDocument::fromJson(ledra({u"invoice"_s, u"list"_s, u"--json"_s}).out.toUtf8()).array();
    EXPECT_EQ(invoices.size(), 2);
    EXPECT_TRUE(ledra({u"invoice"_s, u"show"_s, id, u"--json"_s}).out.contains(u"from the tablet"_s));
    EXPECT_EQ(ledra({u"check"_s}).exitCode, 0);
    EXPECT_EQ(ledra({u"resolve"_s, dropbox, u"--keep"_s, u"this"_s}).exitCode, 1);
}
