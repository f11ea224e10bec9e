#include "storage/SyncFiles.h"

#include "exchange/ProfileExchange.h"
#include "model/InvoiceJson.h"
#include "reminders/ReminderJson.h"
#include "reminders/ReminderManager.h"
#include "support/StorageFixture.h"
#include "util/Files.h"
#include "util/ZipArchive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files, QDir::Name);
}

void write(const QString& path, const QByteArray& bytes)
{
    ASSERT_FALSE(Files::writeAtomically(path, bytes)) << path.toStdString();
}

} // namespace

TEST(SyncFiles, ConflictCopiesOfEveryEngineNameTheirOriginal)
{
    const QString original = u"2026-11-24-2EFE5B.json"_s;
    for (const QString& copy : {
             u"2026-11-24-2EFE5B.sync-conflict-20261124-101010-ABCDEFG.json"_s,            // Syncthing
             u"2026-11-24-2EFE5B (conflicted copy 2026-11-24 101010).json"_s,              // Nextcloud
             u"2026-11-24-2EFE5B_conflict-20261124-101010.json"_s,                         // ownCloud
             u"2026-11-24-2EFE5B (Ann's conflicted copy 2026-11-24).json"_s,               // Dropbox
             u"2026-11-24-2EFE5B (SFConflict ann@example.com 2026-11-24-10-10-10).json"_s, // Seafile
             SyncFiles::makeConflictName(original, u"Default"_s),                          // our own
         }) {
        EXPECT_EQ(SyncFiles::conflictOriginal(copy), original) << copy.toStdString();
        EXPECT_TRUE(SyncFiles::isConflictCopy(copy));
    }
    EXPECT_EQ(SyncFiles::conflictOriginal(u"profile.sync-conflict-20261124-101010-ABCDEFG.json"_s),
              u"profile.json"_s);
    EXPECT_EQ(SyncFiles::conflictOriginal(
                  u"2026-11-24-2EFE5B-reminder-1 (conflicted copy 2026-11-24 101010).json"_s),
              u"2026-11-24-2EFE5B-reminder-1.json"_s);
    for (const QString& plain :
         {original, u"profile.json"_s, u"2026-11-24-2EFE5B-reminder-2.json"_s, u"conflict.json"_s,
          QString(600, u'x') + u"_conflict-20261124-101010.json"_s})
        EXPECT_FALSE(SyncFiles::isConflictCopy(plain)) << plain.left(40).toStdString();

    for (const QString& temporary : {u".syncthing.2026-11-24-2EFE5B.json.tmp"_s, u"~2026-11-24-2EFE5B.tmp"_s,
                                     u"2026-11-24-2EFE5B.json.part"_s, u".2026-11-24-2EFE5B.json.~1a2b"_s,
                                     u"2026-11-24-2EFE5B.json.crdownload"_s})
        EXPECT_TRUE(SyncFiles::isTemporary(temporary)) << temporary.toStdString();
    EXPECT_FALSE(SyncFiles::isTemporary(original));
}

class SyncConflictTest : public StorageFixture
{
protected:
    // An invoice saved by the store, and the path of a second version of it written as another
    // machine's sync engine would, with another recipient.
    std::pair<Invoice, QString> invoiceWithOtherVersion(const QString& copyName)
    {
        Invoice invoice = invoices().createInvoice();
        invoice.name = u"Mine GmbH"_s;
        EXPECT_FALSE(invoices().saveInvoice(invoice));
        Invoice other = invoice;
        other.name = u"Theirs AG"_s;
        other.note = u"edited on the laptop"_s;
        const QString path = invoicesFolder() + u'/' + copyName;
        write(path, InvoiceJson::encode(other));
        return {invoice, path};
    }

    void reload()
    {
        m_invoices.reset();
        invoices();
    }
};

TEST_F(SyncConflictTest, ConflictCopiesAreKeptMarkedAndSurviveSaves)
{
    const Invoice first = invoices().createInvoice();
    const QString stem = InvoiceManager::fileStem(first);
    const QString syncthing = stem + u".sync-conflict-20250314-101010-ABCDEFG.json"_s;
    const QString nextcloud = stem + u" (conflicted copy 2025-03-14 101010).json"_s;
    Invoice other = first;
    other.name = u"Theirs AG"_s;
    write(invoicesFolder() + u'/' + syncthing, InvoiceJson::encode(other));
    other.name = u"Third Ltd"_s;
    write(invoicesFolder() + u'/' + nextcloud, InvoiceJson::encode(other));
    // A write in progress of a sync engine and an editor's lock file are not invoices.
    write(invoicesFolder() + u"/.syncthing."_s + stem + u".json.tmp"_s, "{\"id\":");
    write(invoicesFolder() + u"/~"_s + stem + u".json"_s, InvoiceJson::encode(other));
    reload();

    ASSERT_EQ(invoices().invoices().size(), 1);
    EXPECT_EQ(invoices().invoices().first().name, first.name); // the plain file is the record
    EXPECT_TRUE(invoices().isInConflict(first.id));
    EXPECT_EQ(invoices().conflictFiles(first.id), (QStringList{nextcloud, syncthing}));
    EXPECT_EQ(invoices().conflictVersion(first.id, syncthing)->name, u"Theirs AG");

    // Saves, also one that moves the file to another date, leave the other versions alone.
    Invoice edited = *invoices().invoice(first.id);
    edited.date = TestSupport::berlinTimestamp(u"2025-03-20T10:00:00"_s);
    ASSERT_FALSE(invoices().saveInvoice(edited));
    EXPECT_TRUE(QFileInfo::exists(invoicesFolder() + u'/' + syncthing));
    EXPECT_TRUE(QFileInfo::exists(invoicesFolder() + u'/' + nextcloud));
    EXPECT_FALSE(QFileInfo::exists(invoicesFolder() + u'/' + InvoiceManager::fileName(first)));
    reload();
    EXPECT_EQ(invoices().invoices().size(), 1);
    EXPECT_EQ(invoices().conflictFiles(first.id).size(), 2);
}

TEST_F(SyncConflictTest, ASecondPlainFileWithTheSameIdIsAVersionInConflict)
{
    // Another machine moved the invoice to another date while this one edited it.
    auto [invoice, unused] = invoiceWithOtherVersion(u"ignored.sync-conflict-20250314-101010-ABCDEFG.json"_s);
    QFile::remove(unused);
    Invoice moved = invoice;
    moved.date = TestSupport::berlinTimestamp(u"2025-03-01T10:00:00"_s);
    moved.name = u"Moved KG"_s;
    write(invoicesFolder() + u'/' + InvoiceManager::fileName(moved), InvoiceJson::encode(moved));
    reload();
    ASSERT_EQ(invoices().invoices().size(), 1);
    EXPECT_TRUE(invoices().isInConflict(invoice.id));
    const Invoice kept = invoices().invoices().first();
    ASSERT_FALSE(invoices().saveInvoice(kept));
    EXPECT_EQ(filesIn(invoicesFolder()).size(), 2); // nothing removed by the save
}

TEST_F(SyncConflictTest, ResolvingKeepsOneOtherOrBoth)
{
    auto [invoice, copy] = invoiceWithOtherVersion(u"x.sync-conflict-20250314-101010-ABCDEFG.json"_s);
    Q_UNUSED(copy);
    const QString name = InvoiceManager::fileStem(invoice);
    const QString a = name + u".sync-conflict-20250314-101010-AAAAAAA.json"_s;
    const QString b = name + u".sync-conflict-20250314-101011-BBBBBBB.json"_s;
    const QString c = name + u".sync-conflict-20250314-101012-CCCCCCC.json"_s;
    QFile::rename(copy, invoicesFolder() + u'/' + a);
    QFile::copy(invoicesFolder() + u'/' + a, invoicesFolder() + u'/' + b);
    QFile::copy(invoicesFolder() + u'/' + a, invoicesFolder() + u'/' + c);
    reload();
    ASSERT_EQ(invoices().conflictFiles(invoice.id), (QStringList{a, b, c}));

    ASSERT_FALSE(invoices().resolveConflict(invoice.id, a, InvoiceManager::Resolution::keepThis));
    EXPECT_FALSE(QFileInfo::exists(invoicesFolder() + u'/' + a));
    EXPECT_EQ(invoices().invoice(invoice.id)->name, u"Mine GmbH");

    Invoice created;
    ASSERT_FALSE(invoices().resolveConflict(invoice.id, b, InvoiceManager::Resolution::keepBoth, &created));
    EXPECT_NE(created.id, invoice.id);
    EXPECT_EQ(created.name, u"Theirs AG");
    EXPECT_EQ(created.number, invoice.number + 1);
    EXPECT_EQ(invoices().invoices().size(), 2);

    ASSERT_FALSE(invoices().resolveConflict(invoice.id, c, InvoiceManager::Resolution::keepOther));
    EXPECT_EQ(invoices().invoice(invoice.id)->name, u"Theirs AG");
    EXPECT_FALSE(invoices().isInConflict(invoice.id));
    EXPECT_TRUE(invoices().resolveConflict(invoice.id, c, InvoiceManager::Resolution::keepThis).has_value());
    reload();
    EXPECT_EQ(invoices().invoices().size(), 2);
    EXPECT_TRUE(invoices().conflictedIds().isEmpty());
    EXPECT_EQ(filesIn(invoicesFolder()).size(), 2);
}

TEST_F(SyncConflictTest, OutsideChangesBringAndTakeConflicts)
{
    const Invoice invoice = invoices().createInvoice();
    Invoice other = invoice;
    other.name = u"Theirs AG"_s;
    const QString copy = invoicesFolder() + u'/' + InvoiceManager::fileStem(invoice) +
                         u" (conflicted copy 2025-03-14 101010).json"_s;
    write(copy, InvoiceJson::encode(other));
    ASSERT_TRUE(waitFor([&] { return invoices().isInConflict(invoice.id); }));
    EXPECT_EQ(invoices().invoices().size(), 1);
    EXPECT_EQ(invoices().invoice(invoice.id)->name, invoice.name);

    // The original goes (the other machine resolved it there): the copy is what remains.
    QFile::remove(invoicesFolder() + u'/' + InvoiceManager::fileName(invoice));
    ASSERT_TRUE(waitFor([&] { return !invoices().isInConflict(invoice.id); }));
    ASSERT_EQ(invoices().invoices().size(), 1);
    EXPECT_EQ(invoices().invoice(invoice.id)->name, u"Theirs AG");
}

TEST_F(SyncConflictTest, NumbersUsedTwiceAreFoundAndADraftGetsTheNextFreeOne)
{
    Invoice a = invoices().createInvoice();
    Invoice b = invoices().createInvoice();
    const Invoice quote = invoices().createQuote();
    EXPECT_TRUE(invoices().duplicateNumbers().isEmpty());
    b.number = a.number; // created on two machines while they were apart
    ASSERT_FALSE(invoices().saveInvoice(b));
    EXPECT_EQ(invoices().sameNumberAs(a.id), QList<QUuid>{b.id});
    EXPECT_EQ(invoices().sameNumberAs(b.id), QList<QUuid>{a.id});
    EXPECT_FALSE(invoices().duplicateNumbers().contains(quote.id)); // quotes count apart
    b.number = invoices().nextFreeNumber(b);
    EXPECT_EQ(b.number, 2);
    ASSERT_FALSE(invoices().saveInvoice(b));
    EXPECT_TRUE(invoices().duplicateNumbers().isEmpty());

    // A format without a number chip shows the same number for every invoice of the day.
    Invoice c = invoices().createInvoice();
    c.numberFormat = u"{YYYY}-FIX"_s;
    a.numberFormat = c.numberFormat;
    ASSERT_FALSE(invoices().saveInvoice(a));
    ASSERT_FALSE(invoices().saveInvoice(c));
    EXPECT_EQ(invoices().sameNumberAs(c.id), QList<QUuid>{a.id});
}

TEST_F(SyncConflictTest, ReminderConflictCopiesAreNeitherRemindersNorInvoices)
{
    const Invoice invoice = invoices().createInvoice();
    ReminderManager reminders(profiles(), invoices());
    reminders.loadReminders();
    Reminder created;
    ASSERT_FALSE(reminders.createReminder(invoice.id, &created));
    const QString path = *reminders.filePath(created.id);
    Reminder theirs = Reminder::makeNew(invoice.id); // the laptop wrote the same reminder
    theirs.number = created.number;
    theirs.fee = 12.5;
    const QString copy = QFileInfo(path).path() + u'/' + QFileInfo(path).completeBaseName() +
                         u".sync-conflict-20250314-101010-ABCDEFG.json"_s;
    write(copy, ReminderJson::encode(theirs));
    reminders.loadReminders();
    // A fresh load of the invoices does not take the reminder's copy for an invoice (a store of
    // its own: the reminders hold on to the fixture's).
    InvoiceManager fresh(profiles());
    fresh.loadInvoices();
    EXPECT_EQ(fresh.invoices().size(), 1);
    EXPECT_EQ(reminders.reminders().size(), 1);
    ASSERT_TRUE(reminders.isInConflict(created.id));
    ASSERT_FALSE(reminders.resolveConflict(created.id, QFileInfo(copy).fileName(), true));
    EXPECT_EQ(reminders.reminders().size(), 1);
    EXPECT_EQ(reminders.reminders().first().fee, 12.5);
    EXPECT_FALSE(QFileInfo::exists(copy));
}

TEST_F(SyncConflictTest, ImportOnANewMachineReplacesTheUntouchedFirstProfile)
{
    // The user's machine: a profile "Default" with invoices, exported.
    invoices().createInvoice();
    const QString exported = m_home.filePath(u"Profiles.ledradata"_s);
    ProfileExporter(profiles()).writeArchive(profiles().profiles(), exported);
    const QUuid original = profiles().activeProfile()->id;

    // A new machine: the first start made an empty "Default".
    QTemporaryDir newHome;
    QSettings settings(newHome.filePath(u"settings.ini"_s), QSettings::IniFormat);
    ProfileManager fresh(settings, newHome.filePath(u"Data"_s), Country{u"DE"_s});
    fresh.load();
    ASSERT_TRUE(fresh.isUntouchedFirstProfile(fresh.profiles().first()));
    const ProfileImportResult result = ProfileImporter(fresh).importFile(exported);
    EXPECT_EQ(result.imported, QStringList{u"Default"_s});
    ASSERT_EQ(fresh.profiles().size(), 1);
    EXPECT_EQ(fresh.activeProfile()->id, original);
    EXPECT_EQ(filesIn(newHome.filePath(u"Data/Default/Invoices"_s)).size(), 1);

    // Anywhere else nothing is replaced: the same file again comes in as a copy.
    EXPECT_FALSE(fresh.isUntouchedFirstProfile(fresh.profiles().first()));
    EXPECT_EQ(ProfileImporter(fresh).importFile(exported).imported, QStringList{u"Default Copy"_s});
    EXPECT_EQ(fresh.activeProfile()->id, original);

    // A first profile with a changed setting counts as the user's own.
    QTemporaryDir thirdHome;
    QSettings thirdSettings(thirdHome.filePath(u"settings.ini"_s), QSettings::IniFormat);
    ProfileManager edited(thirdSettings, thirdHome.filePath(u"Data"_s), Country{u"DE"_s});
    edited.load();
    Profile changed = *edited.activeProfile();
    changed.businessName = u"Mine"_s;
    ASSERT_FALSE(edited.saveProfile(changed));
    EXPECT_FALSE(edited.isUntouchedFirstProfile(*edited.activeProfile()));
    EXPECT_EQ(ProfileImporter(edited).importFile(exported).imported, QStringList{u"Default Copy"_s});
}
