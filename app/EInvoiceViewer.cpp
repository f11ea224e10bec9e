#include "EInvoiceViewer.h"

#include "AppText.h"
#include "DocumentActions.h"
#include "Icons.h"
#include "WindowMemory.h"
#include "numbering/NumberFormat.h"
#include "tasks/Workspace.h"

#include <QAction>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMimeData>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QWebEngineSettings>
#include <QWebEngineView>

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList viewableFiles(const QMimeData* data)
{
    QStringList files;
    if (!data || !data->hasUrls())
        return files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile() && ViewerTasks::isViewable(url.toLocalFile()))
            files.append(url.toLocalFile());
    return files;
}

} // namespace

EInvoiceViewer::EInvoiceViewer(Workspace& workspace, DocumentActions& documents, QWidget* parent)
    : QMainWindow(parent), m_workspace(workspace), m_documents(documents), m_list(new QListWidget),
      m_stack(new QStackedWidget), m_placeholder(new QLabel), m_view(new QWebEngineView)
{
    setObjectName(u"eInvoiceViewer"_s);
    setWindowFlag(Qt::Window);
    setAcceptDrops(true);
    resize(1000, 860);

    chooseOpenFiles = [this](const QString& title, const QString& filter) {
        return QFileDialog::getOpenFileNames(this, title, {}, filter);
    };

    m_list->setObjectName(u"viewerFiles"_s);
    m_list->setAccessibleName(ui(u"Open Files"));
    m_placeholder->setObjectName(u"viewerPlaceholder"_s);
    m_placeholder->setText(ui(u"Drop received e-invoices (XML or PDF) here,\nor choose File › Open…"));
    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setForegroundRole(QPalette::PlaceholderText);
    m_view->setObjectName(u"viewerPage"_s);
    // Drops belong to the window: the engine would otherwise navigate to the dropped file.
    m_view->setAcceptDrops(false);
    // The pages are generated here and need no scripts; a received file gets none to run.
    m_view->settings()->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
    m_view->settings()->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    m_stack->addWidget(m_placeholder);
    m_stack->addWidget(m_view);

    auto* splitter = new QSplitter;
    splitter->addWidget(m_list);
    splitter->addWidget(m_stack);
    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({220, 780});
    splitter->setChildrenCollapsible(false);
    setCentralWidget(splitter);

    auto add = [this](const QString& name, const QString& text, const QKeySequence& shortcut,
                      void (EInvoiceViewer::*slot)()) {
        auto* action = new QAction(text, this);
        action->setObjectName(name);
        action->setShortcut(shortcut);
        connect(action, &QAction::triggered, this, slot);
        m_actions.insert(name, action);
        return action;
    };
    QAction* open = add(u"open"_s, ui(u"Open…"), QKeySequence::Open, &EInvoiceViewer::chooseFiles);
    open->setIcon(Icons::named(u"document-open"_s));
    QAction* importAction = add(u"importAsInvoice"_s, ui(u"Import as Invoice"), QKeySequence(u"Ctrl+I"_s),
                                &EInvoiceViewer::importCurrent);
    importAction->setIcon(Icons::named(u"document-import"_s));
    importAction->setToolTip(ui(u"Add the shown e-invoice to the invoices of the active profile"));
    add(u"closeFile"_s, ui(u"Close File"), QKeySequence::Close, &EInvoiceViewer::closeCurrent);
    QAction* closeWindow = new QAction(ui(u"Close Viewer"), this);
    closeWindow->setObjectName(u"closeViewer"_s);
    closeWindow->setShortcut(QKeySequence(u"Ctrl+Shift+W"_s));
    connect(closeWindow, &QAction::triggered, this, &QWidget::close);

    QMenu* file = menuBar()->addMenu(ui(u"&File"));
    file->addActions({open, importAction});
    file->addSeparator();
    file->addActions({action(u"closeFile"_s), closeWindow});

    QToolBar* toolbar = addToolBar(ui(u"Viewer"));
    toolbar->setObjectName(u"viewerToolbar"_s);
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->addActions({open, importAction});

    connect(m_list, &QListWidget::currentRowChanged, this, &EInvoiceViewer::showCurrent);
    connect(m_view, &QWebEngineView::loadFinished, this, [this](bool ok) {
        // A page replaced before it finished reports failure; only the shown one counts.
        if (!ok)
            return;
        ++m_loadedCount;
        Q_EMIT pageLoaded();
    });
    updateState();
    WindowMemory::attach(this, u"eInvoiceViewer"_s);
}

EInvoiceViewer::~EInvoiceViewer() = default;

QAction* EInvoiceViewer::action(const QString& name) const
{
    return m_actions.value(name);
}

int EInvoiceViewer::currentIndex() const
{
    return m_list->currentRow();
}

const ViewerTasks::OpenedFile* EInvoiceViewer::currentFile() const
{
    const int row = currentIndex();
    return row >= 0 && row < m_files.size() ? &m_files[row] : nullptr;
}

void EInvoiceViewer::openFiles(const QStringList& paths)
{
    int last = -1;
    for (const QString& path : paths) {
        ViewerTasks::OpenedFile opened = ViewerTasks::open(QFileInfo(path).absoluteFilePath());
        const QString name = QFileInfo(path).fileName();
        int row = -1;
        for (int i = 0; i < m_files.size(); ++i)
            if (m_files[i].path == opened.path)
                row = i;
        if (row < 0) {
            m_files.append(std::move(opened));
            row = int(m_files.size()) - 1;
            m_list->addItem(name);
        } else {
            m_files[row] = std::move(opened);
        }
        QListWidgetItem* item = m_list->item(row);
        item->setToolTip(m_files[row].einvoice ? m_files[row].path : m_files[row].problem);
        item->setIcon(m_files[row].einvoice ? QIcon() : style()->standardIcon(QStyle::SP_MessageBoxWarning));
        last = row;
    }
    if (last < 0)
        return;
    if (m_list->currentRow() == last)
        showCurrent();
    else
        m_list->setCurrentRow(last);
}

void EInvoiceViewer::chooseFiles()
{
    const QStringList files = chooseOpenFiles(ui(u"Open E-Invoices"), ui(u"E-Invoices (*.xml *.pdf)"));
    openFiles(files);
}

void EInvoiceViewer::importCurrent()
{
    const ViewerTasks::OpenedFile* file = currentFile();
    if (!file || !file->einvoice)
        return;
    const ImportResult result =
        ViewerTasks::importAsInvoice(m_workspace.invoices(), m_workspace.activeProfile(), *file);
    if (result.invoice)
        statusBar()->showMessage(
            ui(u"Imported as invoice %1 of “%2”.")
                .arg(NumberFormat::displayNumber(*result.invoice, m_workspace.activeProfile()),
                     m_workspace.activeProfile().displayName()));
    else
        statusBar()->showMessage(ui(u"Not imported: %1").arg(result.problem));
    // The main window selects the new invoice and reports notes and refusals as for any import.
    m_documents.reportImport({result}, this);
}

void EInvoiceViewer::closeCurrent()
{
    const int row = currentIndex();
    if (row < 0)
        return;
    m_files.removeAt(row);
    delete m_list->takeItem(row);
    showCurrent();
}

void EInvoiceViewer::showCurrent()
{
    const ViewerTasks::OpenedFile* file = currentFile();
    if (file) {
        m_view->setHtml(ViewerTasks::html(*file, Strings::interfaceLanguage()));
        m_stack->setCurrentWidget(m_view);
    } else {
        m_stack->setCurrentWidget(m_placeholder);
    }
    updateState();
}

void EInvoiceViewer::updateState()
{
    const ViewerTasks::OpenedFile* file = currentFile();
    // The list earns its room only when there is a choice.
    m_list->setVisible(m_files.size() > 1);
    action(u"importAsInvoice"_s)->setEnabled(file && file->einvoice);
    action(u"closeFile"_s)->setEnabled(file != nullptr);
    setWindowTitle(file ? ui(u"E-Invoice Viewer – %1").arg(QFileInfo(file->path).fileName())
                        : ui(u"E-Invoice Viewer"));
}

void EInvoiceViewer::dragEnterEvent(QDragEnterEvent* event)
{
    if (!viewableFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void EInvoiceViewer::dropEvent(QDropEvent* event)
{
    const QStringList files = viewableFiles(event->mimeData());
    if (files.isEmpty())
        return;
    event->acceptProposedAction();
    openFiles(files);
    raise();
    activateWindow();
}
