#pragma once

#include "render/DocumentPaginator.h"
#include "render/PaginatedDocument.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QQueue>

#include <functional>
#include <memory>
#include <optional>

class QWebEnginePage;

// Prints each page of a paginated document in an off-screen web page of the paper's size
// and joins the pages into one PDF. Jobs run one at a time.
class PDFRenderer : public QObject
{
    Q_OBJECT

public:
    using Completion = std::function<void(std::optional<QByteArray>)>;

    static PDFRenderer& shared();
    explicit PDFRenderer(QObject* parent = nullptr);

    void render(std::shared_ptr<const PaginatedDocument> document, QList<PageBlocks> pages,
                Completion completion);

    // Paginates, then prints; the completion runs on the main thread. For the desktop program,
    // which must not wait.
    static void paginateAndRender(std::shared_ptr<const PaginatedDocument> document, Completion completion);

    // Paginates and prints, waiting in a local event loop: for the command line and tests.
    static std::optional<QByteArray> renderNow(std::shared_ptr<const PaginatedDocument> document);
    static QList<PageBlocks> paginateNow(std::shared_ptr<const PaginatedDocument> document);

private:
    struct Job
    {
        std::shared_ptr<const PaginatedDocument> document;
        QList<PageBlocks> pages;
        Completion completion;
        QList<QByteArray> printed;
    };
    void startNext();
    void printPage();
    void pagePrinted(const QByteArray& pdf);

    QWebEnginePage* m_page = nullptr;
    QQueue<Job> m_queue;
    std::optional<Job> m_running;
    QMetaObject::Connection m_observer;
};
