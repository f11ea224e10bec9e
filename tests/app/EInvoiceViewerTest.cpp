#include "AppFixture.h"

#include "EInvoiceViewer.h"
#include "ImportReportDialog.h"
#include "calc/Totals.h"
#include "einvoice/ReceivedEInvoice.h"
#include "support/TestSupport.h"
#include "tasks/DocumentTasks.h"
#include "tasks/SampleData.h"
#include "util/Files.h"

#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QFileInfo>
#include <QListWidget>
#include <QMimeData>
#include <QStatusBar>
#include <QTest>
#include <QTreeWidget>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineView>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

// File › E-Invoice Viewer…: received e-invoices shown as documents in a window of their own.
class EInvoiceViewerTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        trigger(u"eInvoiceViewer"_s);
        m_viewer = window().findChild<EInvoiceViewer*>();
        ASSERT_TRUE(m_viewer);
        ASSERT_TRUE(m_viewer->isVisible());
    }

    QString write(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_home.filePath(name);
        EXPECT_FALSE(Files::writeAtomically(path, bytes)) << path.toStdString();
        return path;
    }

    QString fixture()
    {
        return write(u"GS-2025-0042.xml"_s, TestSupport::readData(u"einvoice/received-credit-note.xml"_s));
    }

    // Runs `open` and waits for the page it shows; returns the page's HTML as the engine has it.
    QString shownAfter(const std::function<void()>& open)
    {
        const int loaded = m_viewer->loadedCount();
        open();
        EXPECT_TRUE(waitFor([&] { return m_viewer->loadedCount() > loaded; }, 20000));
        QString html;
        bool done = false;
        m_viewer->view()->page()->toHtml([&](const QString& result) {
            html = result;
            done = true;
        });
        EXPECT_TRUE(waitFor([&] { return done; }, 10000));
        return html;
    }

    void drop(const QStringList& files)
    {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString& file : files)
            urls.append(QUrl::fromLocalFile(file));
        data.setUrls(urls);
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_viewer, &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent dropped(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_viewer, &dropped);
    }

    EInvoiceViewer* m_viewer = nullptr;
};

TEST_F(EInvoiceViewerTest, AnotherProducersFileIsShownWithSellerTotalsAndWarning)
{
    const QString path = fixture();
    m_viewer->chooseOpenFiles = [&](const QString&, const QString& filter) {
        EXPECT_TRUE(filter.contains(u"*.xml *.pdf"_s));
        return QStringList{path};
    };
    const QString html = shownAfter([&] { m_viewer->action(u"open"_s)->trigger(); });
    EXPECT_TRUE(html.contains(u"Nordwind Bürobedarf GmbH &amp; Co. KG"_s));
    EXPECT_TRUE(html.contains(u"€438.62"_s)) << "the grand total, in the interface's language";
    EXPECT_TRUE(html.contains(u"Credit Note"_s));
    EXPECT_TRUE(html.contains(u"totals-warning"_s));
    EXPECT_EQ(m_viewer->windowTitle(), u"E-Invoice Viewer – GS-2025-0042.xml");
    EXPECT_FALSE(m_viewer->fileList()->isVisible()) << "no list for a single file";
    EXPECT_TRUE(m_viewer->action(u"importAsInvoice"_s)->isEnabled());
}

TEST_F(EInvoiceViewerTest, HybridPdfOfOurOwnExportIsShownTheSameWay)
{
    const Invoice& invoice = workspace().invoices().invoices().first();
    const DocumentSource source = DocumentSource::of(workspace(), invoice);
    const QByteArray hybrid = DocumentTasks::hybridPdf(source, DocumentTasks::invoicePdf(source),
                                                       DocumentTasks::eInvoiceXml(source));
    const QString path = write(u"hybrid.pdf"_s, hybrid);

    const QString html = shownAfter([&] { m_viewer->openFiles({path}); });
    EXPECT_TRUE(html.contains(u"Mira Lindqvist"_s));
    EXPECT_TRUE(html.contains(u"embedded as factur-x.xml"_s));
    const auto* file = m_viewer->currentFile();
    ASSERT_TRUE(file && file->einvoice);
    EXPECT_TRUE(
        html.contains(Totals::formatMoney(*file->einvoice->totals.grandTotal, u"EUR"_s, Language::english)));
    EXPECT_FALSE(html.contains(u"totals-warning"_s)) << "our own totals follow our lines";
}

TEST_F(EInvoiceViewerTest, ImportAsInvoiceAddsTheShownDocumentToTheProfile)
{
    const qsizetype before = workspace().invoices().invoices().size();
    shownAfter([&] { m_viewer->openFiles({fixture()}); });
    m_viewer->action(u"importAsInvoice"_s)->trigger();

    ASSERT_EQ(workspace().invoices().invoices().size(), before + 1);
    const auto imported = std::find_if(
        workspace().invoices().invoices().begin(), workspace().invoices().invoices().end(),
        [](const Invoice& invoice) { return invoice.senderName == u"Nordwind Bürobedarf GmbH & Co. KG"; });
    ASSERT_NE(imported, workspace().invoices().invoices().end());
    EXPECT_EQ(imported->name, u"Stadtbibliothek Oldenburg");
    EXPECT_EQ(imported->items.size(), 3);
    EXPECT_TRUE(m_viewer->statusBar()->currentMessage().startsWith(u"Imported as invoice"_s));
    // The totals difference goes with the import's report, over the viewer.
    auto* report = m_viewer->findChild<ImportReportDialog*>();
    ASSERT_TRUE(report);
    report->close();
    EXPECT_TRUE(waitFor([&] { return window().openInvoiceId() == imported->id; }))
        << "the main window selects the new invoice";
}

TEST_F(EInvoiceViewerTest, DroppedFilesOpenAndAFileThatIsNoEInvoiceSaysWhy)
{
    const QString good = fixture();
    const QString order = write(u"order.xml"_s, "<?xml version=\"1.0\"?><order><id>1</id></order>");
    const QString html = shownAfter([&] { drop({good, order}); });

    EXPECT_EQ(m_viewer->fileCount(), 2);
    EXPECT_TRUE(m_viewer->fileList()->isVisible()) << "two files are listed";
    EXPECT_EQ(m_viewer->currentIndex(), 1) << "the last dropped file shows";
    EXPECT_TRUE(html.contains(u"This file cannot be shown"_s));
    EXPECT_TRUE(html.contains(u"“order.xml” is not an e-invoice"_s));
    EXPECT_FALSE(m_viewer->action(u"importAsInvoice"_s)->isEnabled());

    const QString first = shownAfter([&] { m_viewer->fileList()->setCurrentRow(0); });
    EXPECT_TRUE(first.contains(u"GS-2025-0042"_s));

    // Dropping a file that is open already shows it again instead of listing it twice.
    shownAfter([&] { drop({good}); });
    EXPECT_EQ(m_viewer->fileCount(), 2);
    m_viewer->action(u"closeFile"_s)->trigger();
    EXPECT_EQ(m_viewer->fileCount(), 1);
}

TEST_F(EInvoiceViewerTest, UblInvoiceIsShownWithItsSellerAndTotal)
{
    const QString path = write(u"HD-2025-118.xml"_s, TestSupport::readData(u"einvoice/ubl-invoice.xml"_s));
    const QString html = shownAfter([&] { m_viewer->openFiles({path}); });
    EXPECT_TRUE(html.contains(u"Hanse Druck GmbH"_s));
    EXPECT_TRUE(html.contains(Totals::formatMoney(255.93, u"EUR"_s, Language::english)));
    EXPECT_FALSE(html.contains(u"totals-warning"_s)) << "the document's totals follow its lines";
    EXPECT_TRUE(m_viewer->action(u"importAsInvoice"_s)->isEnabled());
}

TEST_F(EInvoiceViewerTest, AReceivedSampleOfTheOfficialTestSuiteShowsItsSellerAndTotal)
{
    const QDir folder(QStringLiteral(LEDRA_EINVOICE_SAMPLES));
    const QString path = folder.filePath(u"01.01a-INVOICE_uncefact.xml"_s);
    if (!QFile::exists(path))
        GTEST_SKIP() << "no samples at " << folder.path().toStdString();
    QString error;
    const auto received =
        ReceivedEInvoice::read(Files::read(path).value_or(QByteArray()), QFileInfo(path).fileName(), &error);
    ASSERT_TRUE(received && received->totals.grandTotal) << error.toStdString();
    const QString html = shownAfter([&] { m_viewer->openFiles({path}); });
    EXPECT_TRUE(html.contains(received->seller.name.toHtmlEscaped())) << received->seller.name.toStdString();
    EXPECT_TRUE(html.contains(
        Totals::formatMoney(*received->totals.grandTotal, received->currency, Language::english)));
}

// The verdict of the official rules stands above the document. It is worked out beside the
// window, which says so until it is known.
TEST_F(EInvoiceViewerTest, AnEInvoiceWrittenByLedraIsCheckedBesideTheWindowAndValid)
{
    const QString path =
        write(u"RE-2026-2318.xml"_s, SampleData::receivedEInvoice(workspace().activeProfile()));
    m_viewer->openFiles({path});
    EXPECT_TRUE(m_viewer->isChecking()) << "the verdict arrives through the event loop, never at once";
    EXPECT_EQ(m_viewer->verdictText(), u"Checking…");
    ASSERT_TRUE(waitFor([&] { return !m_viewer->isChecking(); }, 20000));
    EXPECT_EQ(m_viewer->verdictText(), u"Valid e-invoice");
    ASSERT_TRUE(m_viewer->currentReport());
    EXPECT_TRUE(m_viewer->currentReport()->ruleSets.contains(u"EN 16931"_s));
    EXPECT_FALSE(m_viewer->ruleList()->isVisibleTo(m_viewer)) << "nothing broken, nothing listed";
}

TEST_F(EInvoiceViewerTest, BrokenRulesAreListedAndChoosingOneMarksItsPartOfThePage)
{
    const QString path =
        write(u"RE-2026-2319.xml"_s, SampleData::faultyReceivedEInvoice(workspace().activeProfile()));
    shownAfter([&] { m_viewer->openFiles({path}); });
    ASSERT_TRUE(waitFor([&] { return !m_viewer->isChecking(); }, 20000));
    EXPECT_EQ(m_viewer->verdictText(), u"Invalid e-invoice");
    QTreeWidget* rules = m_viewer->ruleList();
    ASSERT_TRUE(rules->isVisibleTo(m_viewer));
    QHash<QString, QTreeWidgetItem*> byId;
    for (int i = 0; i < rules->topLevelItemCount(); ++i)
        byId.insert(rules->topLevelItem(i)->text(0), rules->topLevelItem(i));
    // The unit "Stk" of the second line (BR-CL-23) and the typed VAT total (BR-CO-14).
    ASSERT_TRUE(byId.contains(u"BR-CL-23"_s)) << byId.keys().join(u' ').toStdString();
    ASSERT_TRUE(byId.contains(u"BR-CO-14"_s));
    EXPECT_EQ(byId[u"BR-CL-23"_s]->text(1), u"Item 2");
    EXPECT_TRUE(byId[u"BR-CL-23"_s]->text(2).startsWith(u"Unit code MUST be coded"_s))
        << "the rule's own text, without its id in front";
    // Its tool tip is the full text and where the rule looked, as text (tool tips are plain).
    EXPECT_TRUE(byId[u"BR-CL-23"_s]->toolTip(2).startsWith(u"[BR-CL-23]"_s) ||
                byId[u"BR-CL-23"_s]->toolTip(2).startsWith(u"Unit code MUST be coded"_s))
        << byId[u"BR-CL-23"_s]->toolTip(2).toStdString();
    EXPECT_TRUE(byId[u"BR-CL-23"_s]->toolTip(2).contains(u"IncludedSupplyChainTradeLineItem"_s));
    EXPECT_EQ(byId[u"BR-CO-14"_s]->text(1), u"Totals");

    // Reads the page's marks (the page itself runs no script).
    auto marked = [&](const QString& selector) {
        QString ids;
        bool done = false;
        m_viewer->view()->page()->runJavaScript(
            u"Array.from(document.querySelectorAll('%1')).map(e => e.id).sort().join(' ')"_s.arg(selector),
            QWebEngineScript::ApplicationWorld, [&](const QVariant& result) {
                ids = result.toString();
                done = true;
            });
        EXPECT_TRUE(waitFor([&] { return done; }, 10000));
        return ids;
    };
    EXPECT_TRUE(waitFor([&] { return marked(u".rule-broken"_s) == u"line-2 totals"; }, 10000))
        << marked(u".rule-broken"_s).toStdString();
    const QRect row = rules->visualItemRect(byId[u"BR-CL-23"_s]);
    QTest::mouseClick(rules->viewport(), Qt::LeftButton, {}, row.center());
    EXPECT_TRUE(waitFor([&] { return marked(u".flagged"_s) == u"line-2"; }, 10000));
    rules->setCurrentItem(byId[u"BR-CO-14"_s]);
    EXPECT_TRUE(waitFor([&] { return marked(u".flagged"_s) == u"totals"; }, 10000));
}

TEST_F(EInvoiceViewerTest, AFileClosedWhileBeingCheckedLeavesNoVerdictBehind)
{
    const QString valid = write(u"valid.xml"_s, SampleData::receivedEInvoice(workspace().activeProfile()));
    const QString faulty =
        write(u"faulty.xml"_s, SampleData::faultyReceivedEInvoice(workspace().activeProfile()));
    QStringList checked;
    QObject::connect(m_viewer, &EInvoiceViewer::checked, [&](const QString& path) { checked.append(path); });
    m_viewer->openFiles({valid, faulty});
    m_viewer->closeCurrent(); // the faulty one, still being checked
    ASSERT_TRUE(waitFor([&] { return !m_viewer->isChecking(); }, 20000));
    EXPECT_EQ(m_viewer->verdictText(), u"Valid e-invoice");
    EXPECT_EQ(m_viewer->ruleList()->topLevelItemCount(), 0);
    QTest::qWait(300);
    EXPECT_FALSE(checked.contains(QFileInfo(faulty).absoluteFilePath()));
}
