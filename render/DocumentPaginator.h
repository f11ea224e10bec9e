#pragma once

#include "render/PaginatedDocument.h"

#include <QList>
#include <QObject>
#include <QQueue>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QWebEnginePage;

// Measured layout of a whole document, in CSS pixels of the measuring view.
struct PageGeometry
{
    struct Block
    {
        double top = 0;
        double bottom = 0;
    };
    double rem = 0;
    double contentTop = 0;
    double contentBottom = 0;
    double flowTop = 0;
    QList<Block> blocks;
    double headerHeight = 0;
    std::optional<double> footerSectionTop;
};

// A page: the indices of the blocks it shows, in order.
using PageBlocks = QList<int>;

// Splits documents into pages by laying them out once in a shared off-screen web page and
// measuring their unsplittable blocks. Jobs run one at a time, in the order they came.
class DocumentPaginator : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(QList<PageBlocks>)>;

    static DocumentPaginator& shared();
    explicit DocumentPaginator(QObject* parent = nullptr);
    ~DocumentPaginator() override;

    // Calls `completion` on the main thread with the pages; one page of all blocks when
    // measuring fails.
    void paginate(std::shared_ptr<const PaginatedDocument> document, Completion completion);

    static QString measuringScript(const QStringList& selectors, const std::optional<QString>& headerSelector,
                                   double pageHeightRem);
    static std::optional<PageGeometry> decodeGeometry(const QString& json);
    // The greedy walk: blocks in order, a new page when the next block would pass the limit.
    static QList<PageBlocks> breakIntoPages(const PageGeometry& geometry, double topReserve);
    static QList<PageKind> pageKinds(int pageCount);

private:
    struct Job
    {
        std::shared_ptr<const PaginatedDocument> document;
        Completion completion;
    };
    void startNext();
    void measure();
    void finish(QList<PageBlocks> pages);
    void fallBack();

    QWebEnginePage* m_view = nullptr;
    QQueue<Job> m_queue;
    std::optional<Job> m_running;
    QMetaObject::Connection m_observer;
};

// Waits until a loaded page's fonts and images are ready and its layout has settled, polling
// from the event loop (scripts cannot hand back a promise), then calls `ready` once.
void whenPageReady(QWebEnginePage* page, std::function<void()> ready);

// Settings of every page that shows a document: no script of the document runs, nothing
// local or remote is reached from it. The program's own scripts run in the application world.
void lockDocumentPage(QWebEnginePage* page);
