#include "AppFixture.h"

#include "NumberFormatEdit.h"

#include "DocumentActions.h"
#include "FilterSidebar.h"
#include "InvoiceFilterModel.h"
#include "InvoiceListView.h"
#include "MessageBar.h"
#include "ProfileDialog.h"
#include "einvoice/PdfAttachments.h"
#include "numbering/NumberFormat.h"
#include "render/InvoicePdfData.h"
#include "tasks/DocumentTasks.h"
#include "tasks/SampleData.h"
#include "util/Files.h"

#include <QComboBox>
#include <QDir>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

using namespace Qt::Literals::StringLiterals;

class CommandsTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        // File dialogs answer with paths in the test's own folder.
        window().documents()->chooseSaveFile = [this](const QString&, const QString& suggested,
                                                      const QString&) {
            m_suggested = suggested;
            return m_home.filePath(u"out/"_s + m_nextFile);
        };
        QDir().mkpath(m_home.filePath(u"out"_s));
    }

    const Invoice& firstWhere(const std::function<bool(const Invoice&)>& accept)
    {
        for (const Invoice& invoice : workspace().invoices().invoices())
            if (accept(invoice))
                return invoice;
        ADD_FAILURE() << "no such invoice in the sample data";
        return workspace().invoices().invoices().first();
    }

    // Runs an export command and waits until it has written (or failed).
    QByteArray exported(const QString& action, const QString& file)
    {
        m_nextFile = file;
        QSignalSpy done(window().documents(), &DocumentActions::finished);
        trigger(action);
        EXPECT_TRUE(done.count() > 0 || done.wait(20000)) << action.toStdString();
        return Files::read(m_home.filePath(u"out/"_s + file)).value_or(QByteArray());
    }

    QString m_nextFile;
    QString m_suggested;
};

TEST_F(CommandsTest, ExportsWriteTheOpenInvoiceAsPdfXRechnungAndZugferd)
{
    const Invoice& invoice = firstWhere([](const Invoice& i) { return i.type == InvoiceType::invoice; });
    ASSERT_TRUE(window().list()->selectId(invoice.id));

    const QByteArray pdf = exported(u"exportPdf"_s, u"invoice.pdf"_s);
    ASSERT_TRUE(pdf.startsWith("%PDF-"));
    EXPECT_EQ(InvoicePdfData::read(pdf)->id, invoice.id) << "the PDF carries the invoice";
    EXPECT_TRUE(m_suggested.endsWith(u".pdf"_s));
    EXPECT_TRUE(m_suggested.contains(u"Rechnung 20"_s))
        << "named in the document's language: " << m_suggested.toStdString();

    const QByteArray xml = exported(u"exportXRechnung"_s, u"invoice.xml"_s);
    EXPECT_TRUE(xml.contains("<rsm:CrossIndustryInvoice"));
    EXPECT_TRUE(xml.contains(NumberFormat::displayNumber(invoice, workspace().activeProfile()).toUtf8()));

    const QByteArray hybrid = exported(u"exportZugferd"_s, u"invoice-zugferd.pdf"_s);
    const auto attachment = PdfAttachments::invoiceXml(PdfAttachments::list(hybrid));
    ASSERT_TRUE(attachment);
    EXPECT_EQ(attachment->name, u"factur-x.xml");
    EXPECT_EQ(attachment->data, xml) << "the hybrid carries the same XML";
    EXPECT_TRUE(window().findChild<QLabel*>(u"statusText"_s)->text().contains(u"invoice-zugferd.pdf"_s));
}

TEST_F(CommandsTest, DroppedFilesAreImportedWithAReportPerFile)
{
    // An e-invoice of the sample data, once as written and once with a document total that
    // its lines do not give, and a file that is no e-invoice at all.
    const Invoice& source = firstWhere([](const Invoice& i) { return i.status == Status::paid; });
    const QByteArray xml = DocumentTasks::eInvoiceXml(DocumentSource::of(workspace(), source));
    const QString good = m_home.filePath(u"out/good.xml"_s);
    const QString off = m_home.filePath(u"out/off.xml"_s);
    const QString broken = m_home.filePath(u"out/broken.xml"_s);
    DocumentTasks::writeFile(good, xml);
    QByteArray tampered = xml;
    const qsizetype start = tampered.indexOf("<ram:GrandTotalAmount>") + 22;
    tampered.replace(start, tampered.indexOf('<', start) - start, "9999.99");
    DocumentTasks::writeFile(off, tampered);
    DocumentTasks::writeFile(broken, "<invoice>no</invoice>");
    const int before = int(workspace().invoices().invoices().size());

    QTreeWidget* report = nullptr;
    whenModal([&](QWidget* modal) {
        report = modal->findChild<QTreeWidget*>(u"importResults"_s);
        ASSERT_NE(report, nullptr);
        ASSERT_EQ(report->topLevelItemCount(), 3);
        EXPECT_TRUE(report->topLevelItem(0)->text(1).startsWith(u"Imported as"_s));
        EXPECT_TRUE(report->topLevelItem(1)->text(1).startsWith(u"Imported as"_s));
        ASSERT_EQ(report->topLevelItem(1)->childCount(), 1);
        EXPECT_TRUE(report->topLevelItem(1)->child(0)->text(1).contains(u"differ"_s))
            << report->topLevelItem(1)->child(0)->text(1).toStdString();
        EXPECT_TRUE(report->topLevelItem(2)->text(1).contains(u"does not appear to be a valid e-invoice"_s))
            << report->topLevelItem(2)->text(1).toStdString();
        qobject_cast<QDialog*>(modal)->reject();
    });
    window().openFiles({good, off, broken});
    ASSERT_TRUE(waitFor([&] { return report != nullptr; }));
    EXPECT_EQ(workspace().invoices().invoices().size(), before + 2);
    EXPECT_TRUE(window().messages()->text().contains(u"2 of 3"_s));
    // The last imported invoice is open.
    ASSERT_TRUE(window().editor()->invoice());
    EXPECT_EQ(window().editor()->invoice()->status, Status::sent);
}

TEST_F(CommandsTest, CsvExportWritesTheChosenColumnsOfTheShownInvoices)
{
    window().sidebar()->setCategory(InvoiceCategory::paid);
    const QString path = m_home.filePath(u"out/list.csv"_s);
    window().documents()->chooseCsvFile = [&](const QString&) {
        return std::optional(
            std::pair{path, QList{CSVExporter::Column::invoiceNumber, CSVExporter::Column::gross}});
    };
    trigger(u"exportCsv"_s);
    const QStringList lines = QString::fromUtf8(Files::read(path).value_or(QByteArray())).split(u'\n');
    ASSERT_EQ(lines.size(), window().filterModel()->rowCount() + 2);
    EXPECT_EQ(lines.first(), u"Invoice Number;Gross");
    EXPECT_TRUE(lines.last().startsWith(u"Sum:;"_s));
}

TEST_F(CommandsTest, DuplicateCancelAndConvertOpenTheNewDocument)
{
    const Invoice original = firstWhere(
        [](const Invoice& i) { return i.status == Status::sent && i.type == InvoiceType::invoice; });
    ASSERT_TRUE(window().list()->selectId(original.id));
    trigger(u"duplicate"_s);
    const Invoice copy = *window().editor()->invoice();
    EXPECT_NE(copy.id, original.id);
    EXPECT_EQ(copy.items.size(), original.items.size());
    EXPECT_EQ(copy.status, Status::draft);
    EXPECT_EQ(window().list()->currentId(), copy.id);

    ASSERT_TRUE(window().list()->selectId(original.id));
    trigger(u"cancelInvoice"_s);
    const Invoice cancellation = *window().editor()->invoice();
    EXPECT_EQ(cancellation.type, InvoiceType::cancellation);
    EXPECT_EQ(cancellation.cancelledInvoiceId, original.id);
    EXPECT_EQ(workspace().invoices().invoice(original.id)->status, Status::cancelled);
    EXPECT_EQ(window().list()->currentId(), cancellation.id);

    const Invoice quote = firstWhere([](const Invoice& i) { return i.type == InvoiceType::quote; });
    ASSERT_TRUE(
        window().list()->selectId(quote.id) ||
        (window().sidebar()->setCategory(InvoiceCategory::quotes), window().list()->selectId(quote.id)));
    trigger(u"convertQuote"_s);
    const Invoice converted = *window().editor()->invoice();
    EXPECT_EQ(converted.type, InvoiceType::invoice);
    EXPECT_EQ(converted.quoteId, quote.id);
    EXPECT_EQ(window().sidebar()->category(), InvoiceCategory::all) << "the list shows where the invoice is";
}

TEST_F(CommandsTest, StatusFromTheMenuIsSavedAndUndoable)
{
    const Invoice draft = firstWhere(
        [](const Invoice& i) { return i.status == Status::draft && i.type == InvoiceType::invoice; });
    ASSERT_TRUE(window().list()->selectId(draft.id));
    trigger(u"markSent"_s);
    window().saveNow();
    EXPECT_EQ(workspace().invoices().invoice(draft.id)->status, Status::sent);
    EXPECT_TRUE(window().action(u"markSent"_s)->isChecked());
    trigger(u"undo"_s);
    window().saveNow();
    EXPECT_EQ(workspace().invoices().invoice(draft.id)->status, Status::draft);
}

TEST_F(CommandsTest, TheProfileSwitcherShowsTheOtherProfilesInvoices)
{
    Profile second;
    ASSERT_FALSE(workspace().profiles().createProfile(u"Side Business"_s, &second));
    auto* switcher = window().findChild<QComboBox*>(u"profileSwitcher"_s);
    ASSERT_NE(switcher, nullptr);
    ASSERT_EQ(switcher->count(), 2);
    const int total = window().listModel()->rowCount();
    switcher->setCurrentIndex(switcher->findText(u"Side Business"_s));
    Q_EMIT switcher->activated(switcher->currentIndex());
    EXPECT_EQ(window().listModel()->rowCount(), 0);
    EXPECT_FALSE(window().editor()->invoice());
    EXPECT_TRUE(window().windowTitle().startsWith(u"Side Business"_s));
    EXPECT_EQ(m_settings->value(u"activeProfileId"_s).toUuid(), second.id) << "remembered for the next start";

    switcher->setCurrentIndex(switcher->findText(u"Lindqvist Design"_s));
    Q_EMIT switcher->activated(switcher->currentIndex());
    EXPECT_EQ(window().listModel()->rowCount(), total);
}

TEST_F(CommandsTest, ProfilesAreRenamedAndDeletedAfterAsking)
{
    EXPECT_FALSE(window().action(u"deleteProfile"_s)->isEnabled()) << "the only profile stays";
    Profile second;
    ASSERT_FALSE(workspace().profiles().createProfile(u"Side Business"_s, &second));
    workspace().profiles().setActiveProfile(second.id);
    EXPECT_TRUE(window().action(u"deleteProfile"_s)->isEnabled());

    whenModal([](QWidget* modal) {
        auto* input = qobject_cast<QInputDialog*>(modal);
        ASSERT_TRUE(input);
        input->setTextValue(u"Workshops"_s);
        input->accept();
    });
    trigger(u"renameProfile"_s);
    EXPECT_EQ(workspace().activeProfile().displayName(), u"Workshops"_s);
    EXPECT_GE(window().findChild<QComboBox*>(u"profileSwitcher"_s)->findText(u"Workshops"_s), 0);

    // Cancel keeps it; the destructive button removes its folder.
    const QString folder = *workspace().profiles().activeProfileFolder();
    whenModal(
        [](QWidget* modal) { qobject_cast<QMessageBox*>(modal)->button(QMessageBox::Cancel)->click(); });
    trigger(u"deleteProfile"_s);
    EXPECT_TRUE(QDir(folder).exists());
    whenModal([](QWidget* modal) {
        auto* box = qobject_cast<QMessageBox*>(modal);
        for (QAbstractButton* button : box->buttons())
            if (box->buttonRole(button) == QMessageBox::DestructiveRole)
                button->click();
    });
    trigger(u"deleteProfile"_s);
    EXPECT_FALSE(QDir(folder).exists());
    EXPECT_EQ(workspace().profiles().profiles().size(), 1);
    EXPECT_EQ(workspace().activeProfile().displayName(), u"Lindqvist Design"_s);
    EXPECT_FALSE(window().action(u"deleteProfile"_s)->isEnabled());
}

TEST_F(CommandsTest, APaymentReminderOfAnOverdueInvoiceIsWritten)
{
    const Invoice overdue = firstWhere([](const Invoice& i) { return i.isOverdue(); });
    ASSERT_TRUE(window().list()->selectId(overdue.id));
    EXPECT_EQ(window().action(u"createReminder"_s)->text(), u"Create Payment Reminder");
    const QByteArray pdf = exported(u"createReminder"_s, u"reminder.pdf"_s);
    EXPECT_TRUE(pdf.startsWith("%PDF-"));
    EXPECT_EQ(workspace().reminders().remindersOf(overdue.id).size(), 1);
    EXPECT_EQ(window().action(u"createReminder"_s)->text(), u"Create Next Payment Reminder");
    // A sent invoice that is not overdue gets no reminder.
    const Invoice recent =
        firstWhere([](const Invoice& i) { return i.status == Status::sent && !i.isOverdue(); });
    ASSERT_TRUE(window().list()->selectId(recent.id));
    EXPECT_FALSE(window().action(u"createReminder"_s)->isEnabled());
}

class FirstStartTest : public AppFixture
{};

TEST_F(FirstStartTest, TheGuideFillsTheFirstProfileAndSaysWhatIsMissing)
{
    openWindow();
    QString missing;
    whenModal([&](QWidget* modal) {
        auto* dialog = qobject_cast<ProfileDialog*>(modal);
        ASSERT_NE(dialog, nullptr);
        auto next = [&] { dialog->findChild<QPushButton*>(u"next"_s)->click(); };
        next();
        QTest::keyClicks(dialog->findChild<QLineEdit*>(u"name"_s), u"Mira Lindqvist"_s);
        QTest::keyClicks(dialog->findChild<QLineEdit*>(u"email"_s), u"mira@example.org"_s);
        QTest::keyClicks(dialog->findChild<QLineEdit*>(u"city"_s), u"Berlin"_s);
        next();
        QTest::keyClicks(dialog->findChild<QLineEdit*>(u"iban"_s), u"DE89 3704 0044 0532 0130 00"_s);
        next();
        auto* format = dialog->findChild<NumberFormatEdit*>(u"numberFormat"_s);
        format->selectAll();
        QTest::keyClicks(format, u"RE-{YYYY}-{NNNN}"_s);
        EXPECT_TRUE(dialog->findChild<QLabel*>(u"numberPreview"_s)->text().startsWith(u"RE-20"_s));
        EXPECT_TRUE(dialog->findChild<QLabel*>(u"numberPreview"_s)->text().endsWith(u"-0001"_s));
        next();
        missing = dialog->findChild<QLabel*>(u"missing"_s)->text();
        next();
    });
    window().offerOnboarding();
    const Profile& profile = workspace().activeProfile();
    EXPECT_EQ(profile.name, u"Mira Lindqvist");
    EXPECT_EQ(profile.email, u"mira@example.org");
    EXPECT_EQ(profile.iban, u"DE89 3704 0044 0532 0130 00");
    EXPECT_EQ(profile.numberFormat, u"RE-{YYYY}-{NNNN}");
    // In plain words: what e-invoices still need.
    EXPECT_TRUE(missing.contains(u"Sender phone number"_s)) << missing.toStdString();
    EXPECT_TRUE(missing.contains(u"Sender BIC"_s));
    EXPECT_FALSE(missing.contains(u"Sender IBAN"_s));

    // Once done (or skipped), it is not offered again.
    bool offeredAgain = false;
    whenModal(
        [&](QWidget* modal) {
            offeredAgain = true;
            qobject_cast<QDialog*>(modal)->reject();
        },
        300);
    window().offerOnboarding();
    spin(400);
    EXPECT_FALSE(offeredAgain);
}

TEST(ProfileDialogRules, EmailAndVatIdForms)
{
    for (const char16_t* good :
         {u"", u"mira@example.org", u" rechnung@lindqvist-design.de ", u"a.b+c@sub.example.co.uk"})
        EXPECT_TRUE(ProfileDialog::emailProblem(QString::fromUtf16(good)).isEmpty())
            << QString::fromUtf16(good).toStdString();
    for (const char16_t* bad : {u"mira", u"mira@", u"mira@example", u"mira@@example.org",
                                u"mira example@org.de", u"mira@example.c"})
        EXPECT_FALSE(ProfileDialog::emailProblem(QString::fromUtf16(bad)).isEmpty())
            << QString::fromUtf16(bad).toStdString();

    for (const char16_t* good : {u"", u"DE123456789", u"de 123 456 789", u"ATU12345678", u"FR12345678901",
                                 u"NL123456789B01", u"IE1234567WA"})
        EXPECT_TRUE(ProfileDialog::vatIdProblem(QString::fromUtf16(good)).isEmpty())
            << QString::fromUtf16(good).toStdString();
    EXPECT_EQ(ProfileDialog::vatIdProblem(u"123456789"_s),
              u"A VAT ID starts with its country code, e.g. DE123456789."_s);
    EXPECT_EQ(ProfileDialog::vatIdProblem(u"DE12345678"_s),
              u"A German VAT ID is DE followed by nine digits."_s);
    EXPECT_EQ(ProfileDialog::vatIdProblem(u"DE12345678X"_s),
              u"A German VAT ID is DE followed by nine digits."_s);
}

TEST_F(FirstStartTest, TheProfileEditorSaysWhatLooksMistypedAsTheUserTypes)
{
    openWindow();
    ProfileDialog dialog(workspace(), *m_settings, ProfileDialog::Mode::edit, &window());
    auto* email = dialog.findChild<QLineEdit*>(u"email"_s);
    auto* emailHint = dialog.findChild<QLabel*>(u"emailHint"_s);
    auto* vat = dialog.findChild<QLineEdit*>(u"vatNumber"_s);
    auto* vatHint = dialog.findChild<QLabel*>(u"vatHint"_s);
    ASSERT_TRUE(email && emailHint && vat && vatHint);
    email->clear();
    QTest::keyClicks(email, u"mira@example"_s);
    EXPECT_FALSE(emailHint->isHidden());
    QTest::keyClicks(email, u".org"_s);
    EXPECT_TRUE(emailHint->isHidden());
    vat->clear();
    QTest::keyClicks(vat, u"DE12345678"_s);
    EXPECT_EQ(vatHint->text(), u"A German VAT ID is DE followed by nine digits."_s);
    QTest::keyClicks(vat, u"9"_s);
    EXPECT_TRUE(vatHint->isHidden());
}
