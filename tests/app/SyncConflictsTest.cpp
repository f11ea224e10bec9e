#include "AppFixture.h"

#include "ConflictDialog.h"
#include "InvoiceListModel.h"
#include "InvoiceListView.h"
#include "MessageBar.h"
#include "SyncIssuesBar.h"
#include "model/InvoiceJson.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

// A data folder that a sync engine wrote into, as the window shows it: the mark in the list,
// the bar above the editor, the comparison and the user's choice.
class SyncConflictsTest : public AppFixture
{
protected:
    QPushButton* barButton(const QString& text)
    {
        for (QPushButton* button : window().syncIssues()->findChildren<QPushButton*>())
            if (button->text() == text && button->isVisible())
                return button;
        return nullptr;
    }
};

TEST_F(SyncConflictsTest, AConflictIsMarkedComparedAndKeptBoth)
{
    QUuid id;
    openWindow([&](Workspace& workspace) {
        Invoice invoice = workspace.invoices().createInvoice();
        invoice.name = u"Mine GmbH"_s;
        workspace.invoices().saveInvoice(invoice);
        id = invoice.id;
        Invoice theirs = invoice;
        theirs.name = u"Theirs AG"_s;
        const QString copy = *workspace.invoices().invoicesFolder() + u'/' +
                             InvoiceManager::fileStem(invoice) +
                             u".sync-conflict-20250314-101010-ABCDEFG.json"_s;
        Files::writeAtomically(copy, InvoiceJson::encode(theirs));
        workspace.invoices().loadInvoices();
    });
    const InvoiceListModel* model = window().listModel();
    ASSERT_EQ(model->rowCount(), 1);
    EXPECT_EQ(model->index(0, 0).data(InvoiceListModel::SyncIssueRole).toString(),
              u"Changed on another machine at the same time"_s);
    EXPECT_FALSE(model->index(0, 0).data(Qt::DecorationRole).isNull());

    ASSERT_TRUE(window().list()->selectId(id));
    SyncIssuesBar* bar = window().syncIssues();
    ASSERT_TRUE(waitFor([&] { return bar->isVisible(); }));
    EXPECT_TRUE(bar->text().startsWith(u"Changed on another machine at the same time"_s));
    QPushButton* compare = barButton(u"Compare…"_s);
    ASSERT_NE(compare, nullptr);

    bool sawDifference = false;
    whenModal([&](QWidget* modal) {
        auto* dialog = qobject_cast<ConflictDialog*>(modal);
        ASSERT_NE(dialog, nullptr);
        QTableWidget* table = dialog->table();
        // The differing field comes first, highlighted, with both values.
        sawDifference = table->rowCount() > 0 && table->item(0, 0)->text() == u"recipient.name"_s &&
                        table->item(0, 1)->text() == u"Mine GmbH"_s &&
                        table->item(0, 2)->text() == u"Theirs AG"_s && table->item(0, 0)->font().bold();
        QTest::mouseClick(dialog->findChild<QPushButton*>(u"keepBoth"_s), Qt::LeftButton);
    });
    QTest::mouseClick(compare, Qt::LeftButton);
    EXPECT_TRUE(sawDifference);

    ASSERT_TRUE(waitFor([&] { return model->rowCount() == 2; }));
    EXPECT_FALSE(workspace().invoices().isInConflict(id));
    EXPECT_TRUE(model->index(0, 0).data(InvoiceListModel::SyncIssueRole).toString().isEmpty());
    EXPECT_EQ(QDir(invoicesFolder()).entryList({u"*.json"_s}, QDir::Files).size(), 2);
    EXPECT_FALSE(bar->isVisible());
}

TEST_F(SyncConflictsTest, ANumberUsedTwiceIsRefusedUntilTheDraftIsRenumbered)
{
    QUuid first;
    QUuid second;
    openWindow([&](Workspace& workspace) {
        first = workspace.invoices().createInvoice().id;
        Invoice other = workspace.invoices().createInvoice();
        other.number = 1; // given on another machine while the two were apart
        workspace.invoices().saveInvoice(other);
        second = other.id;
    });
    const InvoiceListModel* model = window().listModel();
    for (int row = 0; row < 2; ++row)
        EXPECT_EQ(model->index(row, 0).data(InvoiceListModel::SyncIssueRole).toString(),
                  u"This number is used by another invoice too"_s);

    // Marking as sent is refused with the other invoice named.
    ASSERT_TRUE(window().list()->selectId(first));
    trigger(u"markSent"_s);
    EXPECT_EQ(workspace().invoices().invoice(first)->status, Status::draft);
    EXPECT_TRUE(window().messages()->text().contains(second.toString(QUuid::WithoutBraces).toUpper().left(8)))
        << window().messages()->text().toStdString();

    SyncIssuesBar* bar = window().syncIssues();
    ASSERT_TRUE(waitFor([&] { return bar->isVisible(); }));
    EXPECT_TRUE(bar->text().contains(u"is also used by"_s)) << bar->text().toStdString();
    QPushButton* renumber = barButton(u"Renumber"_s);
    ASSERT_NE(renumber, nullptr);
    QTest::mouseClick(renumber, Qt::LeftButton);
    EXPECT_EQ(workspace().invoices().invoice(first)->number, 2);
    EXPECT_TRUE(workspace().invoices().duplicateNumbers().isEmpty());
    EXPECT_FALSE(bar->isVisible());
    trigger(u"markSent"_s);
    EXPECT_EQ(workspace().invoices().invoice(first)->status, Status::sent);
}
