#include "storage/InvoiceManager.h"

#include "model/InvoiceJson.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>

namespace {

const QUuid fixedId = QUuid::fromString(u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012");

QStringList filesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::Files, QDir::Name);
}

void writeReminder(const QString& path, const QUuid& invoiceId, int number)
{
    const QByteArray json =
        QStringLiteral(R"({"id":"%1","version":1,"invoiceId":"%2","date":0,"number":%3,
        "text":"","interestPercentage":0,"fee":0})")
            .arg(QUuid::createUuid().toString(QUuid::WithoutBraces), invoiceId.toString(QUuid::WithoutBraces))
            .arg(number)
            .toUtf8();
    ASSERT_FALSE(Files::writeAtomically(path, json));
}

} // namespace

class InvoiceManagerTest : public StorageFixture
{};

TEST_F(InvoiceManagerTest, NewInvoicesTakeProfileDataNumbersAndFileNames)
{
    Profile profile = *profiles().activeProfile();
    profile.businessName = u"Lindqvist Design"_qs;
    profile.website = u"lindqvist.example"_qs;
    profile.daysToPay = 30;
    profile.marginalNote = u"Bank holiday notice"_qs;
    ASSERT_FALSE(profiles().saveProfile(profile));

    Invoice first = invoices().createInvoice();
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.status, Status::draft);
    EXPECT_EQ(first.senderBusinessName, u"Lindqvist Design");
    EXPECT_EQ(first.senderWeb, u"lindqvist.example");
    EXPECT_EQ(first.daysToPay, 30);
    EXPECT_EQ(first.marginalNote, u"Bank holiday notice");
    EXPECT_EQ(first.currency.code, u"EUR");
    EXPECT_EQ(first.language, Language::german);
    EXPECT_EQ(invoices().newlyCreatedInvoiceId(), first.id);
    EXPECT_EQ(invoices().createInvoice().number, 2);

    const Invoice quote = invoices().createQuote();
    EXPECT_EQ(quote.number, 1);
    EXPECT_EQ(quote.quotePrefix, u"AN-");

    Invoice named = first;
    named.id = fixedId;
    ASSERT_FALSE(invoices().saveInvoice(named));
    EXPECT_TRUE(QFile::exists(invoicesFolder() + u"/2025-03-14-3F2A9C.json"_qs));
    EXPECT_EQ(invoices().invoices().size(), 4);
}

TEST_F(InvoiceManagerTest, ABrokenFileDoesNotStopTheOthersAndRemindersAreNotInvoices)
{
    const QString folder = invoicesFolder();
    for (int i = 0; i < 3; ++i) {
        Invoice invoice = Invoice::makeNew();
        invoice.number = i + 1;
        ASSERT_FALSE(Files::writeAtomically(folder + u'/' + InvoiceManager::fileName(invoice),
                                            InvoiceJson::encode(invoice)));
    }
    QFile::copy(TestSupport::dataPath(u"broken/lowercase-status.json"_qs),
                folder + u"/2025-01-01-BAD000.json"_qs);
    writeReminder(folder + u"/2025-01-01-AAAAAA-reminder-1.json"_qs, QUuid::createUuid(), 1);

    invoices().loadInvoices();
    EXPECT_EQ(invoices().invoices().size(), 3);
    EXPECT_GE(invoices().refreshTrigger(), 2);
}

TEST_F(InvoiceManagerTest, ChangingTheDateMovesTheFileAndItsReminders)
{
    Invoice invoice = invoices().createInvoice();
    invoice.id = fixedId;
    invoice.date = TestSupport::berlinTimestamp(u"2025-03-14T10:00:00"_qs);
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    const QString folder = invoicesFolder();
    writeReminder(folder + u"/2025-03-14-3F2A9C-reminder.json"_qs, fixedId, 0);
    writeReminder(folder + u"/2025-03-14-3F2A9C-reminder-1.json"_qs, fixedId, 1);
    // Another invoice whose id starts the same way keeps its files.
    Invoice lookalike = Invoice::makeNew();
    lookalike.id = QUuid::fromString(u"3F2A9CFF-0000-4000-8000-000000000000");
    lookalike.date = invoice.date;
    lookalike.number = 99;
    ASSERT_FALSE(
        Files::writeAtomically(folder + u"/2025-02-01-3F2A9C.json"_qs, InvoiceJson::encode(lookalike)));

    invoice.date = TestSupport::berlinTimestamp(u"2025-03-15T10:00:00"_qs);
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    const QStringList files = filesIn(folder);
    EXPECT_TRUE(files.contains(u"2025-03-15-3F2A9C.json"));
    EXPECT_FALSE(files.contains(u"2025-03-14-3F2A9C.json"));
    EXPECT_TRUE(files.contains(u"2025-03-15-3F2A9C-reminder.json"));
    EXPECT_TRUE(files.contains(u"2025-03-15-3F2A9C-reminder-1.json"));
    EXPECT_FALSE(files.contains(u"2025-03-14-3F2A9C-reminder-1.json"));
    EXPECT_TRUE(files.contains(u"2025-02-01-3F2A9C.json"));
    EXPECT_EQ(InvoiceJson::decode(*Files::read(folder + u"/2025-03-15-3F2A9C.json"_qs)).date, invoice.date);
}

TEST_F(InvoiceManagerTest, CancellationNegatesPricesAndMarksTheInvoice)
{
    Invoice invoice = invoices().createInvoice();
    invoice.items = {TestSupport::line(2, 100, 19), TestSupport::line(1, -20, 19)};
    invoice.status = Status::sent;
    invoice.name = u"Jana Becker"_qs;
    ASSERT_FALSE(invoices().saveInvoice(invoice));

    QSignalSpy cancelledSpy(&invoices(), &InvoiceManager::invoiceCancelled);
    const auto cancellation = invoices().cancelInvoice(invoice.id);
    ASSERT_TRUE(cancellation);
    EXPECT_EQ(cancellation->type, InvoiceType::cancellation);
    EXPECT_EQ(cancellation->cancelledInvoiceId, invoice.id);
    EXPECT_EQ(cancellation->number, 1);
    EXPECT_EQ(cancellation->cancellationPrefix, u"STO-");
    EXPECT_EQ(cancellation->name, u"Jana Becker");
    ASSERT_EQ(cancellation->items.size(), 2);
    EXPECT_EQ(cancellation->items[0].unitPrice, -100);
    EXPECT_EQ(cancellation->items[0].quantity, 2);
    EXPECT_EQ(cancellation->items[1].unitPrice, -20);
    EXPECT_NE(cancellation->items[0].id, invoice.items[0].id);
    EXPECT_EQ(invoices().invoice(invoice.id)->status, Status::cancelled);
    EXPECT_EQ(cancelledSpy.count(), 1);

    // Both are on disk: a reload sees the same.
    invoices().loadInvoices();
    EXPECT_EQ(invoices().invoice(invoice.id)->status, Status::cancelled);
    EXPECT_EQ(invoices().invoice(cancellation->id)->items[0].unitPrice, -100);
    // Quotes and cancellations cannot be cancelled.
    EXPECT_FALSE(invoices().cancelInvoice(cancellation->id));
}

TEST_F(InvoiceManagerTest, DuplicatesQuotesAndItemClipboard)
{
    Invoice quote = invoices().createQuote();
    quote.items = {TestSupport::line(3, 50, 19)};
    quote.reference = u"PO-7"_qs;
    ASSERT_FALSE(invoices().saveInvoice(quote));

    const auto accepted = invoices().createInvoiceFromQuote(quote.id);
    ASSERT_TRUE(accepted);
    EXPECT_EQ(accepted->type, InvoiceType::invoice);
    EXPECT_EQ(accepted->quoteId, quote.id);
    EXPECT_EQ(accepted->number, 1);
    EXPECT_EQ(accepted->reference, u"PO-7");
    EXPECT_EQ(accepted->items.size(), 1);

    const auto copy = invoices().duplicateInvoice(accepted->id);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->number, 2);
    EXPECT_FALSE(copy->quoteId);
    EXPECT_EQ(copy->status, Status::draft);
    EXPECT_EQ(invoices().duplicateInvoice(quote.id)->type, InvoiceType::quote);
    EXPECT_FALSE(invoices().createInvoiceFromQuote(accepted->id));

    invoices().copyItem(quote.items[0]);
    const auto pasted = invoices().pasteItem();
    ASSERT_TRUE(pasted);
    EXPECT_NE(pasted->id, quote.items[0].id);
    EXPECT_EQ(pasted->unitPrice, 50);
}

TEST_F(InvoiceManagerTest, DeletionWarningAndReminderCleanup)
{
    Invoice draft = invoices().createInvoice();
    EXPECT_TRUE(InvoiceManager::deletionWarning(draft).isEmpty());
    Invoice sent = draft;
    sent.status = Status::sent;
    EXPECT_TRUE(InvoiceManager::deletionWarning(sent).startsWith(
        u"Invoices shouldn’t be deleted when already sent."));
    sent.type = InvoiceType::cancellation;
    EXPECT_TRUE(InvoiceManager::deletionWarning(sent).isEmpty());

    const QString folder = invoicesFolder();
    writeReminder(folder + u'/' + InvoiceManager::reminderFileName(InvoiceManager::fileStem(draft), 1),
                  draft.id, 1);
    ASSERT_FALSE(invoices().deleteInvoice(draft.id));
    EXPECT_TRUE(filesIn(folder).isEmpty());
    EXPECT_FALSE(invoices().invoice(draft.id));
    EXPECT_TRUE(invoices().deleteInvoice(draft.id).has_value());
}

TEST_F(InvoiceManagerTest, OutsideChangesReloadOwnWritesDoNot)
{
    Invoice invoice = invoices().createInvoice();
    QSignalSpy changed(&invoices(), &InvoiceManager::refreshTriggerChanged);
    invoice.name = u"Saved by us"_qs;
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    spin(600);
    EXPECT_EQ(changed.count(), 0);

    // Another program replaces the file atomically and adds a new invoice.
    Invoice theirs = invoice;
    theirs.name = u"Edited elsewhere"_qs;
    Invoice added = Invoice::makeNew();
    added.number = 42;
    const QString staging = m_home.filePath(u"staging"_qs);
    QDir().mkpath(staging);
    ASSERT_FALSE(Files::writeAtomically(staging + u"/a.json"_qs, InvoiceJson::encode(theirs)));
    ASSERT_FALSE(Files::writeAtomically(staging + u"/b.json"_qs, InvoiceJson::encode(added)));
    const QString path = *invoices().filePath(invoice.id);
    QProcess::execute(u"mv"_qs, {staging + u"/a.json"_qs, path});
    QProcess::execute(u"cp"_qs,
                      {staging + u"/b.json"_qs, invoicesFolder() + u'/' + InvoiceManager::fileName(added)});

    ASSERT_TRUE(waitFor([&] { return invoices().invoice(added.id) != nullptr; }));
    ASSERT_TRUE(waitFor([&] { return invoices().invoice(invoice.id)->name == u"Edited elsewhere"; }));

    // And a removal by another program.
    QProcess::execute(u"rm"_qs, {path});
    EXPECT_TRUE(waitFor([&] { return invoices().invoice(invoice.id) == nullptr; }));
}

TEST_F(InvoiceManagerTest, EditorWatcherSurvivesAtomicReplacement)
{
    Invoice invoice = invoices().createInvoice();
    InvoiceFileWatcher watcher(invoices());
    QSignalSpy updated(&watcher, &InvoiceFileWatcher::invoiceUpdated);
    watcher.setInvoice(invoice.id);

    // Our own save is not an outside change.
    invoice.note = u"ours"_qs;
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    spin(300);
    EXPECT_EQ(updated.count(), 0);

    const QString path = *invoices().filePath(invoice.id);
    for (int round = 1; round <= 2; ++round) {
        Invoice theirs = invoice;
        theirs.note = QStringLiteral("theirs %1").arg(round);
        const QString temp = path + u".tmp"_qs;
        ASSERT_FALSE(Files::writeAtomically(temp, InvoiceJson::encode(theirs)));
        QProcess::execute(u"mv"_qs, {temp, path});
        ASSERT_TRUE(waitFor([&] { return updated.count() >= round; })) << "round " << round;
        EXPECT_EQ(invoices().loadInvoice(invoice.id)->note, theirs.note);
    }
}
