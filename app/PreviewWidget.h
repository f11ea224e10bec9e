#pragma once

#include "render/InvoiceDocument.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <memory>
#include <optional>

class QLabel;
class QToolButton;
class QWebEngineView;
class PreviewPage;

// The invoice's pages as they will print: the document is laid out by the same paginator as
// the PDF, and each page is shown in its own frame. Changes are collected for a moment and
// rendered off the input path; a render that is overtaken by a newer one is dropped.
class PreviewWidget : public QWidget
{
    Q_OBJECT
public:
    explicit PreviewWidget(QWidget* parent = nullptr);
    ~PreviewWidget() override;

    // Shows this document from now on; nothing shows an empty surface.
    void setDocument(std::shared_ptr<const InvoiceDocument> document);
    const std::shared_ptr<const InvoiceDocument>& document() const { return m_document; }

    int pageCount() const { return m_pageCount; }
    int currentPage() const { return m_currentPage; }
    double zoom() const { return m_zoom; }
    void setZoom(double zoom);
    // The last render that reached the screen, for tests and benchmarks.
    int renderedCount() const { return m_renderedCount; }

    void zoomIn();
    void zoomOut();
    void zoomToFit();
    void showPage(int index);
    void nextPage();
    void previousPage();

Q_SIGNALS:
    void rendered();
    void pageChanged(int page, int count);
    void zoomChanged(double zoom);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    friend class PreviewPage;
    void scheduleRender();
    void render();
    void pagesMeasured(int generation, std::shared_ptr<const InvoiceDocument> document,
                       QList<QList<int>> pages);
    void onConsoleMessage(const QString& message);
    // The shell's functions live in the application world, where the shell's page cannot reach.
    void runScript(const QString& script);
    void applyZoom();
    void updateControls();

    QWebEngineView* m_view = nullptr;
    PreviewPage* m_page = nullptr;
    QLabel* m_pageLabel = nullptr;
    QToolButton* m_previous = nullptr;
    QToolButton* m_next = nullptr;
    QLabel* m_zoomLabel = nullptr;
    QTimer m_debounce;
    bool m_shellReady = false;
    bool m_measuring = false;
    bool m_fitWidth = true;
    double m_zoom = 1.0;
    int m_generation = 0;
    int m_pageCount = 0;
    int m_currentPage = 0;
    int m_renderedCount = 0;
    std::shared_ptr<const InvoiceDocument> m_document;
};
