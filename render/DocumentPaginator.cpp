#include "render/DocumentPaginator.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineSettings>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const QUrl baseUrl(u"qrc:/render/"_s);

// Forcing a layout first makes the engine start every font load the page needs, so a
// "loaded" status afterwards means the text is set in its real fonts.
const QString readyCheck = u"(function() {"
                           u"  if (document.body) document.body.getBoundingClientRect();"
                           u"  return document.fonts.status === 'loaded' &&"
                           u"         Array.from(document.images).every(function(i) { return i.complete; });"
                           u"})()"_s;

void pollReady(QWebEnginePage* page, std::function<void()> ready, std::shared_ptr<QElapsedTimer> clock)
{
    page->runJavaScript(readyCheck, QWebEngineScript::ApplicationWorld,
                        [page, ready = std::move(ready), clock](const QVariant& result) mutable {
                            // A page that never settles (a broken font URL keeps "loading") is printed after
                            // 10 s.
                            if (result.toBool() || clock->elapsed() > 10000) {
                                ready();
                                return;
                            }
                            QTimer::singleShot(2, page, [page, ready = std::move(ready), clock]() mutable {
                                pollReady(page, std::move(ready), clock);
                            });
                        });
}

} // namespace

void lockDocumentPage(QWebEnginePage* page)
{
    // Documents carry text from others. Their own scripts never run (the page's policy says so
    // as well); what measuring and printing need runs from here, in a world of its own.
    QWebEngineSettings* settings = page->settings();
    settings->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessFileUrls, false);
    settings->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
    settings->setAttribute(QWebEngineSettings::PluginsEnabled, false);
}

void whenPageReady(QWebEnginePage* page, std::function<void()> ready)
{
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    pollReady(page, std::move(ready), clock);
}

namespace {

DocumentPaginator* g_shared = nullptr;

// Registered after the engine's own clean-up and therefore run before it: the engine wants
// its pages gone before it releases the profile.
void releaseShared()
{
    delete g_shared;
    g_shared = nullptr;
}

} // namespace

DocumentPaginator& DocumentPaginator::shared()
{
    if (!g_shared)
        g_shared = new DocumentPaginator(QCoreApplication::instance());
    return *g_shared;
}

DocumentPaginator::DocumentPaginator(QObject* parent) : QObject(parent) {}

DocumentPaginator::~DocumentPaginator() = default;

void DocumentPaginator::paginate(std::shared_ptr<const PaginatedDocument> document, Completion completion)
{
    m_queue.enqueue({std::move(document), std::move(completion)});
    if (!m_running)
        startNext();
}

void DocumentPaginator::startNext()
{
    if (m_running || m_queue.isEmpty())
        return;
    m_running = m_queue.dequeue();
    measure();
}

void DocumentPaginator::measure()
{
    if (!m_view) {
        m_view = new QWebEnginePage(this); // one view for all jobs: creating one costs more than a layout
        lockDocumentPage(m_view);
        if (this == g_shared)
            qAddPostRoutine(releaseShared);
    }
    const PaginatedDocument& document = *m_running->document;
    const QString html = document.render(PageKind::single, std::nullopt, u"measuring"_s);
    auto finished = std::make_shared<bool>(false);
    m_observer = connect(m_view, &QWebEnginePage::loadFinished, this, [this, finished](bool ok) {
        // Engines may report one load twice; only the first report measures.
        if (*finished)
            return;
        *finished = true;
        if (!ok) {
            fallBack();
            return;
        }
        whenPageReady(m_view, [this] {
            if (!m_running)
                return;
            const PaginatedDocument& doc = *m_running->document;
            const QString script =
                measuringScript(doc.selectors(), doc.headerSelector(), pageSize(doc.pageFormat()).heightRem);
            m_view->runJavaScript(script, QWebEngineScript::ApplicationWorld, [this](const QVariant& result) {
                if (!m_running)
                    return;
                const auto geometry = decodeGeometry(result.toString());
                if (!geometry) {
                    fallBack();
                    return;
                }
                finish(breakIntoPages(*geometry, m_running->document->topReserve(geometry->rem)));
            });
        });
    });
    m_view->setHtml(html, baseUrl);
}

void DocumentPaginator::fallBack()
{
    qWarning("Pagination measurement failed, falling back to a single page");
    PageBlocks all;
    for (int i = 0; i < m_running->document->blockCount(); ++i)
        all.append(i);
    finish({all});
}

void DocumentPaginator::finish(QList<PageBlocks> pages)
{
    disconnect(m_observer);
    m_view->triggerAction(QWebEnginePage::Stop);
    Job job = std::move(*m_running);
    m_running.reset();
    job.completion(std::move(pages));
    // The next job starts from the event loop, after the completion's own work.
    QTimer::singleShot(0, this, [this] { startNext(); });
}

QString DocumentPaginator::measuringScript(const QStringList& selectors,
                                           const std::optional<QString>& headerSelector, double pageHeightRem)
{
    const QString selectorJson = QString::fromUtf8(
        QJsonDocument(QJsonArray::fromStringList(selectors)).toJson(QJsonDocument::Compact));
    const QString headerJson =
        headerSelector
            ? QString::fromUtf8(QJsonDocument(QJsonArray{*headerSelector}).toJson(QJsonDocument::Compact))
                  .mid(1)
                  .chopped(1)
            : u"null"_s;
    return uR"JS((function(selectors, headerSelector, pageHeightRem) {
    var rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
    var body = document.body;
    var style = getComputedStyle(body);
    var paddingTop = parseFloat(style.paddingTop);
    var paddingBottom = parseFloat(style.paddingBottom);
    var pageHeight = pageHeightRem * rem;
    var origin = body.getBoundingClientRect().top;
    var blocks = [];
    selectors.forEach(function(selector) {
        document.querySelectorAll(selector).forEach(function(element) {
            var r = element.getBoundingClientRect();
            blocks.push({top: r.top - origin, bottom: r.bottom - origin});
        });
    });
    var headerHeight = 0;
    if (headerSelector) {
        var header = document.querySelector(headerSelector);
        if (header) headerHeight = header.getBoundingClientRect().height;
    }
    var footerSectionTop = null;
    var footer = document.querySelector('aside.footer');
    var section = document.querySelector('aside.footer > section');
    if (footer && section && parseFloat(getComputedStyle(footer).opacity) > 0.01)
        footerSectionTop = section.getBoundingClientRect().top - origin;
    return JSON.stringify({
        rem: rem,
        contentTop: paddingTop,
        contentBottom: pageHeight - paddingBottom,
        flowTop: blocks.length ? blocks[0].top : paddingTop,
        blocks: blocks,
        headerHeight: headerHeight,
        footerSectionTop: footerSectionTop
    });
})(%1, %2, %3))JS"_s.arg(selectorJson, headerJson, QString::number(pageHeightRem, 'g', 10));
}

std::optional<PageGeometry> DocumentPaginator::decodeGeometry(const QString& json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    for (const char* key : {"rem", "contentTop", "contentBottom", "flowTop", "headerHeight"})
        if (!object.value(QLatin1StringView(key)).isDouble())
            return std::nullopt;
    if (!object.value("blocks"_L1).isArray())
        return std::nullopt;
    PageGeometry geometry;
    geometry.rem = object.value("rem"_L1).toDouble();
    geometry.contentTop = object.value("contentTop"_L1).toDouble();
    geometry.contentBottom = object.value("contentBottom"_L1).toDouble();
    geometry.flowTop = object.value("flowTop"_L1).toDouble();
    geometry.headerHeight = object.value("headerHeight"_L1).toDouble();
    if (object.value("footerSectionTop"_L1).isDouble())
        geometry.footerSectionTop = object.value("footerSectionTop"_L1).toDouble();
    for (const QJsonValue& value : object.value("blocks"_L1).toArray()) {
        const QJsonObject block = value.toObject();
        if (!block.value("top"_L1).isDouble() || !block.value("bottom"_L1).isDouble())
            return std::nullopt;
        geometry.blocks.append({block.value("top"_L1).toDouble(), block.value("bottom"_L1).toDouble()});
    }
    return geometry;
}

QList<PageBlocks> DocumentPaginator::breakIntoPages(const PageGeometry& g, double topReserve)
{
    const double limit = g.footerSectionTop ? *g.footerSectionTop - 1.2 * g.rem : g.contentBottom;
    const double continuationTop = g.contentTop + topReserve + g.headerHeight;
    QList<PageBlocks> pages;
    PageBlocks current;
    double cursor = g.flowTop;
    for (int i = 0; i < g.blocks.size(); ++i) {
        const PageGeometry::Block& block = g.blocks[i];
        const double gap = i == 0 ? 0 : std::max(0.0, block.top - g.blocks[i - 1].bottom);
        const double height = std::max(0.0, block.bottom - block.top);
        if (cursor + gap + height > limit && !current.isEmpty()) {
            pages.append(current);
            current.clear();
            cursor = continuationTop + height;
        } else {
            cursor += gap + height;
        }
        current.append(i);
    }
    pages.append(current);
    return pages;
}

QList<PageKind> DocumentPaginator::pageKinds(int pageCount)
{
    if (pageCount <= 1)
        return {PageKind::single};
    QList<PageKind> kinds;
    for (int i = 0; i < pageCount; ++i)
        kinds.append(i == 0 ? PageKind::first : i == pageCount - 1 ? PageKind::last : PageKind::middle);
    return kinds;
}
