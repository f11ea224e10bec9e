#include "AppFixture.h"

#include "InvoiceListView.h"
#include "PreviewWidget.h"
#include "RemindersDialog.h"
#include "numbering/NumberFormat.h"
#include "reminders/ReminderJson.h"
#include "reminders/ReminderManager.h"
#include "tasks/SampleData.h"

#include <QDoubleSpinBox>
#include <QFile>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

// Invoice › Payment Reminders…: the chain of an overdue invoice, edited, previewed and extended.
class RemindersDialogTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
    }

    RemindersDialog* openFor(const Invoice& invoice)
    {
        EXPECT_TRUE(window().list()->selectId(invoice.id));
        trigger(u"showReminders"_s);
        auto* dialog = window().findChild<RemindersDialog*>();
        EXPECT_TRUE(dialog);
        return dialog;
    }

    Invoice overdue()
    {
        for (const Invoice& invoice : workspace().invoices().invoices())
            if (invoice.isOverdue())
                return invoice;
        ADD_FAILURE() << "the sample data has no overdue invoice";
        return {};
    }

    // The reminder as its file says, not as the store holds it.
    Reminder onDisk(const QUuid& id)
    {
        const auto path = workspace().reminders().filePath(id);
        EXPECT_TRUE(path);
        QFile file(path.value_or(QString()));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return ReminderJson::decode(file.readAll());
    }
};

TEST_F(RemindersDialogTest, TheFirstReminderIsMadeEditedIntoItsFileAndPreviewed)
{
    const Invoice invoice = overdue();
    RemindersDialog* dialog = openFor(invoice);
    ASSERT_TRUE(dialog);
    auto* chain = dialog->findChild<QListWidget*>(u"reminderChain"_s);
    ASSERT_EQ(chain->count(), 1);
    ASSERT_TRUE(dialog->current());
    const QUuid id = dialog->current()->id;
    EXPECT_TRUE(waitFor([&] { return dialog->preview()->renderedCount() > 0; }, 20000));

    // The fee and a variable typed into the text reach the file a moment later.
    auto* fee = dialog->findChild<QDoubleSpinBox*>(u"reminderFee"_s);
    fee->setValue(5);
    auto* text = dialog->findChild<QPlainTextEdit*>(u"reminderText"_s);
    text->setPlainText(u"Bitte zahlen Sie bis "_s);
    text->moveCursor(QTextCursor::End);
    QMenu* variables = dialog->findChild<QPushButton*>(u"insertVariable"_s)->menu();
    ASSERT_EQ(variables->actions().size(), 9);
    variables->actions().at(4)->trigger(); // the payment deadline
    EXPECT_EQ(text->toPlainText(), u"Bitte zahlen Sie bis {{payment-deadline}}"_s);
    const bool saved = waitFor([&] { return onDisk(id).fee == 5; });
    ASSERT_TRUE(saved) << "store: " << workspace().reminders().reminder(id)->fee
                       << " file: " << onDisk(id).fee << " editor: " << dialog->current()->fee;
    EXPECT_EQ(onDisk(id).text, u"Bitte zahlen Sie bis {{payment-deadline}}"_s);
    const int rendered = dialog->preview()->renderedCount();
    EXPECT_TRUE(waitFor([&] { return dialog->preview()->renderedCount() > rendered; }, 20000));

    // The next one joins the chain; deleting asks first.
    auto* next = dialog->findChild<QPushButton*>(u"createNextReminder"_s);
    EXPECT_EQ(next->text(), u"Create Next Payment Reminder"_s);
    next->click();
    EXPECT_EQ(chain->count(), 2);
    EXPECT_EQ(workspace().reminders().remindersOf(invoice.id).size(), 2);
    EXPECT_NE(dialog->current()->id, id);
    whenModal([](QWidget* modal) { qobject_cast<QMessageBox*>(modal)->button(QMessageBox::Yes)->click(); });
    dialog->findChild<QPushButton*>(u"deleteReminder"_s)->click();
    EXPECT_EQ(chain->count(), 1);
    EXPECT_EQ(workspace().reminders().remindersOf(invoice.id).size(), 1);
    EXPECT_EQ(dialog->current()->id, id);
}

TEST_F(RemindersDialogTest, OnlyOverdueInvoicesOrThoseWithRemindersOfferThem)
{
    for (const Invoice& invoice : workspace().invoices().invoices()) {
        // Quotes are listed under their own filter.
        if (invoice.type == InvoiceType::quote)
            continue;
        ASSERT_TRUE(window().list()->selectId(invoice.id));
        const bool expected = invoice.type == InvoiceType::invoice && invoice.isOverdue();
        EXPECT_EQ(window().action(u"showReminders"_s)->isEnabled(), expected)
            << NumberFormat::displayNumber(invoice, workspace().activeProfile()).toStdString();
    }
}
