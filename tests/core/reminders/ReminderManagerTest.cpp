#include "reminders/ReminderManager.h"

#include "reminders/ReminderJson.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>

using namespace Qt::Literals::StringLiterals;

// A sent invoice of 1 February 2025, overdue on 14 March, stored as 2025-02-01-3F2A9C.json.
class ReminderManagerTest : public StorageFixture
{
protected:
    ReminderManagerTest()
    {
        m_reminders = std::make_unique<ReminderManager>(profiles(), invoices());
        m_reminders->loadReminders();
        invoice = Invoice::makeNew();
        invoice.id = QUuid::fromString(u"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012");
        invoice.date = TestSupport::berlinTimestamp(u"2025-02-01T10:00:00"_s);
        invoice.status = Status::sent;
        invoice.name = u"Jana Becker"_s;
        EXPECT_FALSE(invoices().saveInvoice(invoice));
    }

    ReminderManager& reminders() { return *m_reminders; }
    QStringList files() { return QDir(invoicesFolder()).entryList(QDir::Files, QDir::Name); }
    QList<int> chain()
    {
        QList<int> numbers;
        for (const Reminder& r : reminders().remindersOf(invoice.id))
            numbers.append(r.number);
        return numbers;
    }
    Reminder create()
    {
        Reminder created;
        const auto error = reminders().createReminder(invoice.id, &created);
        EXPECT_FALSE(error) << error.value_or(QString()).toStdString();
        return created;
    }

    std::unique_ptr<ReminderManager> m_reminders;
    Invoice invoice;
};

TEST_F(ReminderManagerTest, NumbersAndDefaultsComeFromTheProfile)
{
    Profile profile = *profiles().activeProfile();
    profile.latePaymentInterestRate = 9.12;
    ASSERT_FALSE(profiles().saveProfile(profile));
    const Reminder friendly = create();
    EXPECT_EQ(friendly.number, 0);
    EXPECT_EQ(friendly.fee, 0); // a courtesy, no fee yet
    EXPECT_EQ(friendly.interestPercentage, 9.12);
    EXPECT_EQ(friendly.date, TestSupport::berlinTimestamp(u"2025-03-14T09:30:00"_s));
    EXPECT_TRUE(friendly.text.startsWith(u"Guten Tag"_s)); // the German profile's default text
    Reminder first = create();
    EXPECT_EQ(first.fee, 40);
    // The next number follows the highest, also across a gap.
    first.number = 5;
    ASSERT_FALSE(reminders().saveReminder(first));
    create();
    EXPECT_EQ(chain(), (QList<int>{0, 5, 6}));
    ReminderManager reread(profiles(), invoices());
    reread.loadReminders();
    EXPECT_EQ(reread.remindersOf(invoice.id), reminders().remindersOf(invoice.id));

    // Without the friendly reminder a chain starts at 1, and the profile's template is the text.
    profile.friendlyReminderEnabled = false;
    profile.reminderTemplate = u"Bitte zahlen Sie {{amount}}."_s;
    ASSERT_FALSE(profiles().saveProfile(profile));
    const Invoice other = invoices().createInvoice();
    Reminder created;
    ASSERT_FALSE(reminders().createReminder(other.id, &created));
    EXPECT_EQ(created.number, 1);
    EXPECT_EQ(created.text, u"Bitte zahlen Sie {{amount}}.");
    EXPECT_TRUE(reminders().createReminder(QUuid::createUuid()).has_value()); // no such invoice
}

TEST_F(ReminderManagerTest, FilesSitBesideTheInvoiceAndFollowItsName)
{
    const Reminder friendly = create();
    Reminder first = create();
    EXPECT_EQ(files(), (QStringList{u"2025-02-01-3F2A9C-reminder-1.json"_s,
                                    u"2025-02-01-3F2A9C-reminder.json"_s, u"2025-02-01-3F2A9C.json"_s}));

    // The invoice's date changes: the invoice store moves the files and this store follows.
    invoice.date = TestSupport::berlinTimestamp(u"2025-02-03T10:00:00"_s);
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    first.number = 2;
    ASSERT_FALSE(reminders().saveReminder(first));
    EXPECT_EQ(files(), (QStringList{u"2025-02-03-3F2A9C-reminder-2.json"_s,
                                    u"2025-02-03-3F2A9C-reminder.json"_s, u"2025-02-03-3F2A9C.json"_s}));
    // A number the chain already has would overwrite another reminder's file.
    first.number = 0;
    EXPECT_TRUE(reminders().saveReminder(first).value_or(QString()).contains(
        u"already has a reminder with number 0"_s));
    EXPECT_EQ(ReminderJson::decode(*Files::read(invoicesFolder() + u"/2025-02-03-3F2A9C-reminder.json"_s)).id,
              friendly.id);

    ASSERT_FALSE(reminders().deleteReminder(first.id));
    EXPECT_EQ(files().size(), 2);
    // Deleting the invoice deletes the rest of its chain.
    ASSERT_FALSE(invoices().deleteInvoice(invoice.id));
    EXPECT_TRUE(files().isEmpty());
    EXPECT_TRUE(reminders().reminders().isEmpty());
}

TEST_F(ReminderManagerTest, AnUndecodableFileIsReportedSkippedAndNeverOverwritten)
{
    const Reminder kept = create();
    const QString broken = invoicesFolder() + u"/2025-02-01-3F2A9C-reminder-1.json"_s;
    const QByteArray brokenBytes = R"({"id": "3F2A9C10-0000-4000-8000-000000000001", "invoiceId": 12})";
    ASSERT_FALSE(Files::writeAtomically(broken, brokenBytes));

    reminders().loadReminders();
    ASSERT_EQ(reminders().reminders().size(), 1);
    EXPECT_EQ(reminders().reminders().first().id, kept.id);
    ASSERT_EQ(reminders().loadErrors().size(), 1);
    EXPECT_TRUE(reminders().loadErrors()[0].startsWith(broken + u": "_s));
    EXPECT_TRUE(reminders().loadErrors()[0].contains(u"invoiceId"_s))
        << reminders().loadErrors()[0].toStdString();
    // The next reminder would take the broken file's name: refused, the file stays as it was.
    EXPECT_TRUE(reminders().createReminder(invoice.id).value_or(QString()).contains(broken));
    EXPECT_EQ(*Files::read(broken), brokenBytes);
    invoices().loadInvoices();
    EXPECT_EQ(invoices().invoices().size(), 1); // nor is it taken for an invoice
}

TEST_F(ReminderManagerTest, OutsideChangesAndProfileSwitchesReload)
{
    const Reminder own = create();
    QSignalSpy changes(&reminders(), &ReminderManager::remindersChanged);
    spin(400);
    EXPECT_EQ(changes.count(), 0); // its own writes do not reload

    // Someone else (a sync client, a second window) adds a reminder.
    Reminder outside = Reminder::makeNew(invoice.id);
    ASSERT_FALSE(Files::writeAtomically(invoicesFolder() + u"/2025-02-01-3F2A9C-reminder-1.json"_s,
                                        ReminderJson::encode(outside)));
    ASSERT_TRUE(waitFor([&] { return reminders().reminder(outside.id) != nullptr; }));

    const QUuid first = profiles().activeProfile()->id;
    Profile second;
    ASSERT_FALSE(profiles().createProfile(u"Second"_s, &second));
    profiles().setActiveProfile(second.id);
    EXPECT_TRUE(reminders().reminders().isEmpty());
    profiles().setActiveProfile(first);
    EXPECT_EQ(reminders().reminders().size(), 2);
}
