#include "render/PDFRenderer.h"

#include "render/PdfTools.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QPageLayout>
#include <QPageRanges>
#include <QSizeF>
#include <QTimer>
#include <QWebEnginePage>

using namespace Qt::Literals::StringLiterals;

namespace {

QPageLayout layoutFor(PageFormat format)
{
    // The page box the document was drawn for (21 × 29.7 cm); the joined PDF gets the exact
    // point size afterwards.
    const QPageSize size =
        format == PageFormat::usLetter
            ? QPageSize(QSizeF(8.5, 11), QPageSize::Inch, u"Letter"_s, QPageSize::ExactMatch)
            : QPageSize(QSizeF(210, 297), QPageSize::Millimeter, u"A4"_s, QPageSize::ExactMatch);
    return QPageLayout(size, QPageLayout::Portrait, QMarginsF(0, 0, 0, 0));
}

} // namespace

namespace {

PDFRenderer* g_shared = nullptr;

// Runs before the engine's own clean-up (post routines run in reverse order of registration).
void releaseShared()
{
    delete g_shared;
    g_shared = nullptr;
}

} // namespace

PDFRenderer& PDFRenderer::shared()
{
    if (!g_shared)
        g_shared = new PDFRenderer(QCoreApplication::instance());
    return *g_shared;
}

PDFRenderer::PDFRenderer(QObject* parent) : QObject(parent) {}

void PDFRenderer::render(std::shared_ptr<const PaginatedDocument> document, QList<PageBlocks> pages,
                         Completion completion)
{
    m_queue.enqueue({std::move(document), std::move(pages), std::move(completion), {}});
    if (!m_running)
        startNext();
}

void PDFRenderer::startNext()
{
    if (m_running || m_queue.isEmpty())
        return;
    m_running = m_queue.dequeue();
    if (m_running->pages.isEmpty())
        m_running->pages.append(PageBlocks{});
    printPage();
}

void PDFRenderer::printPage()
{
    if (!m_page) {
        m_page = new QWebEnginePage(this);
        lockDocumentPage(m_page);
        if (this == g_shared)
            qAddPostRoutine(releaseShared);
    }
    Job& job = *m_running;
    const int index = int(job.printed.size());
    const PageKind kind = DocumentPaginator::pageKinds(int(job.pages.size()))[index];
    const QString html = job.document->render(kind, job.pages[index]);
    const QPageLayout layout = layoutFor(job.document->pageFormat());
    auto finished = std::make_shared<bool>(false);
    disconnect(m_observer);
    m_observer = connect(m_page, &QWebEnginePage::loadFinished, this, [this, finished, layout](bool ok) {
        // One PDF page per load, however often the engine reports the load as finished.
        if (*finished)
            return;
        *finished = true;
        if (!ok) {
            qWarning("Failed to create PDF: the page did not load");
            pagePrinted({});
            return;
        }
        whenPageReady(m_page, [this, layout] {
            QPageRanges firstSheet;
            firstSheet.addPage(1); // whatever overflows the sheet is cut, never a second page
            m_page->printToPdf([this](const QByteArray& pdf) { pagePrinted(pdf); }, layout, firstSheet);
        });
    });
    m_page->setHtml(html, QUrl(u"qrc:/render/"_s));
}

void PDFRenderer::pagePrinted(const QByteArray& pdf)
{
    if (!m_running)
        return;
    Job& job = *m_running;
    if (pdf.isEmpty())
        qWarning("Failed to create PDF: the engine returned no data for page %d",
                 int(job.printed.size()) + 1);
    job.printed.append(pdf);
    if (job.printed.size() < job.pages.size()) {
        printPage();
        return;
    }
    disconnect(m_observer);
    const PageSize size = pageSize(job.document->pageFormat());
    std::optional<QByteArray> result =
        PdfTools::joinFirstPages(job.printed, size.widthPoints, size.heightPoints);
    Job done = std::move(job);
    m_running.reset();
    done.completion(std::move(result));
    QTimer::singleShot(0, this, [this] { startNext(); });
}

void PDFRenderer::paginateAndRender(std::shared_ptr<const PaginatedDocument> document, Completion completion)
{
    DocumentPaginator::shared().paginate(
        document, [document, completion = std::move(completion)](QList<PageBlocks> pages) mutable {
            shared().render(std::move(document), std::move(pages), std::move(completion));
        });
}

QList<PageBlocks> PDFRenderer::paginateNow(std::shared_ptr<const PaginatedDocument> document)
{
    QEventLoop loop;
    QList<PageBlocks> pages;
    DocumentPaginator::shared().paginate(std::move(document), [&](QList<PageBlocks> result) {
        pages = std::move(result);
        loop.quit();
    });
    loop.exec();
    return pages;
}

std::optional<QByteArray> PDFRenderer::renderNow(std::shared_ptr<const PaginatedDocument> document)
{
    const QList<PageBlocks> pages = paginateNow(document);
    QEventLoop loop;
    std::optional<QByteArray> pdf;
    shared().render(std::move(document), pages, [&](std::optional<QByteArray> result) {
        pdf = std::move(result);
        loop.quit();
    });
    loop.exec();
    return pdf;
}
