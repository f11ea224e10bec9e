#include "PreviewWidget.h"

#include "AppText.h"
#include "render/DocumentPaginator.h"

#include <QFile>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QPointer>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineView>

using namespace Qt::Literals::StringLiterals;

namespace {

// Typing pauses this long before the preview follows.
constexpr int debounceMs = 120;
constexpr double minZoom = 0.25;
constexpr double maxZoom = 3.0;

// The shell's own logic, run in the application world after the shell has loaded.
QString shellScript()
{
    QFile file(u":/app/preview/preview.js"_s);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QString jsonString(const QString& text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

} // namespace

// Hears the shell's reports: ready, a render reached the screen, the page in view.
class PreviewPage : public QWebEnginePage
{
public:
    PreviewPage(PreviewWidget* owner) : QWebEnginePage(owner), m_owner(owner) {}

protected:
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString& message, int,
                                  const QString&) override
    {
        m_owner->onConsoleMessage(message);
    }

private:
    PreviewWidget* m_owner;
};

PreviewWidget::PreviewWidget(QWidget* parent) : QWidget(parent)
{
    setObjectName(u"preview"_s);
    m_view = new QWebEngineView(this);
    m_page = new PreviewPage(this);
    m_view->setPage(m_page);
    m_view->setContextMenuPolicy(Qt::NoContextMenu);
    m_view->setFocusPolicy(Qt::ClickFocus);
    m_page->setBackgroundColor(palette().color(QPalette::Window));
    lockDocumentPage(m_page);
    connect(m_page, &QWebEnginePage::loadFinished, this, [this](bool ok) {
        if (ok)
            runScript(shellScript());
    });

    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(8, 4, 8, 4);
    auto button = [this](const QString& text, const QString& tip) {
        auto* b = new QToolButton(this);
        b->setText(text);
        b->setToolTip(tip);
        b->setAutoRaise(true);
        return b;
    };
    m_previous = button(u"◀"_s, ui(u"Previous Page"));
    m_next = button(u"▶"_s, ui(u"Next Page"));
    m_pageLabel = new QLabel(this);
    m_pageLabel->setObjectName(u"pageLabel"_s);
    QToolButton* zoomOutButton = button(u"−"_s, ui(u"Zoom Out"));
    QToolButton* zoomInButton = button(u"+"_s, ui(u"Zoom In"));
    QToolButton* fit = button(ui(u"Fit"), ui(u"Fit Page Width"));
    m_zoomLabel = new QLabel(this);
    m_zoomLabel->setMinimumWidth(m_zoomLabel->fontMetrics().horizontalAdvance(u"300 %"_s));
    m_zoomLabel->setAlignment(Qt::AlignCenter);
    bar->addWidget(m_previous);
    bar->addWidget(m_pageLabel);
    bar->addWidget(m_next);
    bar->addStretch();
    bar->addWidget(zoomOutButton);
    bar->addWidget(m_zoomLabel);
    bar->addWidget(zoomInButton);
    bar->addWidget(fit);
    connect(m_previous, &QToolButton::clicked, this, &PreviewWidget::previousPage);
    connect(m_next, &QToolButton::clicked, this, &PreviewWidget::nextPage);
    connect(zoomOutButton, &QToolButton::clicked, this, &PreviewWidget::zoomOut);
    connect(zoomInButton, &QToolButton::clicked, this, &PreviewWidget::zoomIn);
    connect(fit, &QToolButton::clicked, this, &PreviewWidget::zoomToFit);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_view, 1);
    layout->addLayout(bar);

    m_debounce.setSingleShot(true);
    m_debounce.setInterval(debounceMs);
    connect(&m_debounce, &QTimer::timeout, this, &PreviewWidget::render);
    m_view->setUrl(QUrl(u"qrc:/app/preview/preview.html"_s));
    updateControls();
}

PreviewWidget::~PreviewWidget()
{
    // The page goes before the view that shows it.
    m_view->setPage(nullptr);
    delete m_page;
}

void PreviewWidget::setDocument(std::shared_ptr<const InvoiceDocument> document)
{
    const bool shown = m_document != nullptr;
    m_document = std::move(document);
    if (shown != (m_document != nullptr))
        updateControls();
    scheduleRender();
}

void PreviewWidget::scheduleRender()
{
    m_debounce.start();
}

void PreviewWidget::render()
{
    if (!m_shellReady)
        return; // the shell's "ready" renders what is there by then
    if (m_measuring) {
        // One measuring job at a time; the newest document follows when this one is done.
        m_debounce.start();
        return;
    }
    const int generation = ++m_generation;
    std::shared_ptr<const InvoiceDocument> document = m_document;
    if (!document) {
        runScript(u"setPages([], 0, 0, '%1', '#fff', %2);"_s.arg(palette().color(QPalette::Window).name(),
                                                                 QString::number(generation)));
        return;
    }
    m_measuring = true;
    // The paginator outlives the widget; a job that ends after the widget is gone is dropped.
    DocumentPaginator::shared().paginate(
        document, [self = QPointer<PreviewWidget>(this), generation, document](QList<PageBlocks> pages) {
            if (!self)
                return;
            self->m_measuring = false;
            self->pagesMeasured(generation, document, std::move(pages));
        });
}

void PreviewWidget::pagesMeasured(int generation, std::shared_ptr<const InvoiceDocument> document,
                                  QList<QList<int>> pages)
{
    if (generation != m_generation || document != m_document) {
        // Overtaken while measuring: the newer document is due.
        scheduleRender();
        return;
    }
    if (pages.isEmpty())
        pages.append(QList<int>());
    const QList<PageKind> kinds = DocumentPaginator::pageKinds(int(pages.size()));
    QStringList html;
    for (int i = 0; i < pages.size(); ++i)
        html.append(jsonString(document->render(kinds[i], pages[i])));
    const PageSize size = pageSize(document->pageFormat());
    const bool dark = document->styleValues().value(u"background-color"_s) != u"#FFFFFF"_s;
    const QString surround = dark ? u"#2b2b2b"_s : palette().color(QPalette::Window).darker(112).name();
    const QString paper = document->styleValues().value(u"background-color"_s, u"#FFFFFF"_s);
    m_pageCount = int(pages.size());
    runScript(u"setPages([%1], %2, %3, '%4', '%5', %6);"_s.arg(
        html.join(u','), QString::number(size.widthRem), QString::number(size.heightRem), surround, paper,
        QString::number(generation)));
    applyZoom();
    updateControls();
}

void PreviewWidget::onConsoleMessage(const QString& message)
{
    if (message == u"ready") {
        m_shellReady = true;
        render();
    } else if (message.startsWith(u"rendered:")) {
        if (message.mid(9).toInt() == m_generation) {
            ++m_renderedCount;
            Q_EMIT rendered();
        }
    } else if (message.startsWith(u"page:")) {
        const QStringList parts = message.mid(5).split(u'/');
        if (parts.size() == 2) {
            m_currentPage = parts[0].toInt();
            m_pageCount = parts[1].toInt();
            updateControls();
            Q_EMIT pageChanged(m_currentPage, m_pageCount);
        }
    }
}

void PreviewWidget::setZoom(double zoom)
{
    m_fitWidth = false;
    m_zoom = std::clamp(zoom, minZoom, maxZoom);
    applyZoom();
}

void PreviewWidget::zoomIn()
{
    setZoom(m_zoom * 1.2);
}

void PreviewWidget::zoomOut()
{
    setZoom(m_zoom / 1.2);
}

void PreviewWidget::zoomToFit()
{
    m_fitWidth = true;
    applyZoom();
}

void PreviewWidget::applyZoom()
{
    if (m_fitWidth) {
        // CSS pixels of the page: its width in centimetres at 96 pixels per inch.
        const double pageWidth =
            (m_document ? pageSize(m_document->pageFormat()).widthRem : 21.0) * 96 / 2.54;
        // Room for the page's shadow and a scroll bar.
        m_zoom = std::clamp((m_view->width() - 40.0) / pageWidth, minZoom, maxZoom);
    }
    if (!qFuzzyCompare(m_view->zoomFactor(), m_zoom))
        m_view->setZoomFactor(m_zoom);
    updateControls();
    Q_EMIT zoomChanged(m_zoom);
}

void PreviewWidget::runScript(const QString& script)
{
    m_page->runJavaScript(script, QWebEngineScript::ApplicationWorld);
}

void PreviewWidget::showPage(int index)
{
    runScript(u"showPage(%1);"_s.arg(index));
}

void PreviewWidget::nextPage()
{
    showPage(std::min(m_currentPage + 1, std::max(0, m_pageCount - 1)));
}

void PreviewWidget::previousPage()
{
    showPage(std::max(0, m_currentPage - 1));
}

void PreviewWidget::updateControls()
{
    // Page and zoom controls only mean something with a document to show.
    for (QWidget* control : findChildren<QToolButton*>())
        control->setVisible(m_document != nullptr);
    m_zoomLabel->setVisible(m_document != nullptr);
    m_pageLabel->setText(m_pageCount > 0 ? ui(u"%1 of %2").arg(m_currentPage + 1).arg(m_pageCount)
                                         : QString());
    m_previous->setEnabled(m_currentPage > 0);
    m_next->setEnabled(m_currentPage + 1 < m_pageCount);
    m_zoomLabel->setText(QString::number(qRound(m_zoom * 100)) + u" %"_s);
}

void PreviewWidget::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (m_fitWidth)
        applyZoom();
}
