#include "MainWindow.h"

#include "AppSettings.h"
#include "AppText.h"
#include "BackgroundServices.h"
#include "DetailArea.h"
#include "DocumentActions.h"
#include "EInvoiceViewer.h"
#include "FilterSidebar.h"
#include "Icons.h"
#include "InvoiceEditor.h"
#include "InvoiceFilterModel.h"
#include "InvoiceListView.h"
#include "MessageBar.h"
#include "PluginsDialog.h"
#include "PreferencesDialog.h"
#include "PreviewWidget.h"
#include "ProfileDialog.h"
#include "RemindersDialog.h"
#include "StylingDialog.h"
#include "SyncIssuesBar.h"
#include "TextExtractionDialog.h"
#include "WindowMemory.h"
#include "exchange/BackupManager.h"
#include "numbering/NumberFormat.h"
#include "plugins/PluginError.h"
#include "plugins/PluginManager.h"
#include "render/InvoiceDocument.h"
#include "search/SpotlightIndexer.h"
#include "storage/RateLimitedSaver.h"
#include "tasks/AutoExport.h"
#include "tasks/ContactTasks.h"
#include "tasks/ExtractTasks.h"
#include "tasks/ImportTasks.h"
#include "tasks/SyncTasks.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"
#include "util/Files.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QStyleHints>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QUndoGroup>
#include <QUndoStack>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

// How contacts programs hand over a card.
QStringList vCardFormats()
{
    return {u"text/vcard"_s, u"text/x-vcard"_s, u"text/directory"_s};
}

bool isContactFile(const QString& path)
{
    return path.endsWith(u".vcf"_s, Qt::CaseInsensitive) || path.endsWith(u".vcard"_s, Qt::CaseInsensitive);
}

bool hasContact(const QMimeData* data)
{
    for (const QString& format : vCardFormats())
        if (data->hasFormat(format))
            return true;
    if (data->hasUrls())
        for (const QUrl& url : data->urls())
            if (url.isLocalFile() && isContactFile(url.toLocalFile()))
                return true;
    return false;
}

// Text dragged from a mail or a web page (not a file, not a contact card): drafted into an invoice.
bool isDroppedText(const QMimeData* data)
{
    if (data->hasUrls() || !data->hasText() || hasContact(data))
        return false;
    const QString text = data->text().trimmed();
    return !text.isEmpty() && !text.startsWith(u"BEGIN:VCARD"_s, Qt::CaseInsensitive);
}

} // namespace

namespace {

enum ExportKind
{
    exportPdfKind,
    exportXRechnungKind,
    exportZugferdKind
};

bool isDarkPalette(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

QIcon themeIcon(const QString& name)
{
    return Icons::named(name);
}

} // namespace

MainWindow::MainWindow(Workspace& workspace, QSettings& settings, QWidget* parent)
    : QMainWindow(parent), m_workspace(workspace), m_settings(settings)
{
    setObjectName(u"mainWindow"_s);
    setAcceptDrops(true);
    setUnifiedTitleAndToolBarOnMac(true);
    m_listModel = new InvoiceListModel(workspace.invoices(), workspace.profiles(), this);
    m_filter = new InvoiceFilterModel(this);
    m_filter->setSourceModel(m_listModel);
    m_undoGroup = new QUndoGroup(this);
    m_saver = std::make_unique<RateLimitedSaver>();
    m_fileWatcher = std::make_unique<InvoiceFileWatcher>(workspace.invoices());

    setCentralWidget(createCentralArea());
    m_documents = new DocumentActions(workspace, settings, *m_messages, this);
    m_services = new BackgroundServices(workspace, settings, this);
    createActions();
    createMenus();
    createToolBar();

    m_saveState = new QLabel(this);
    m_statusText = new QLabel(this);
    m_statusText->setObjectName(u"statusText"_s);
    m_statusText->setTextFormat(Qt::RichText);
    connect(m_statusText, &QLabel::linkActivated, this, [](const QString& link) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(link).absolutePath()));
    });
    statusBar()->addWidget(m_statusText, 1);
    statusBar()->addPermanentWidget(m_saveState);

    connect(m_documents, &DocumentActions::status, this, &MainWindow::setStatusText);
    connect(m_documents, &DocumentActions::showField, m_editor, &InvoiceEditor::focusField);
    connect(m_documents, &DocumentActions::showField, this,
            [this] { m_detail->showTab(DetailArea::formTab); });
    connect(m_documents, &DocumentActions::imported, this,
            [this](const QList<QUuid>& ids) { reveal(ids.last()); });

    connect(m_editor, &InvoiceEditor::edited, this, &MainWindow::onEdited);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &MainWindow::onCurrentRowChanged);
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::updateActions);
    connect(m_list, &InvoiceListView::newInvoiceRequested, this,
            [this] { newInvoice(InvoiceType::invoice); });
    connect(m_sidebar, &FilterSidebar::categoryChanged, this, [this](InvoiceCategory category) {
        m_filter->setCategory(category);
        const bool quotes = category == InvoiceCategory::quotes;
        m_list->setEmptyTexts(quotes ? ui(u"No Quotes") : ui(u"No Invoices Here"),
                              ui(u"Drop PDFs or e-invoices here to import them."), true);
        if (m_listModel->rowCount() == 0)
            m_list->setEmptyTexts(ui(u"No Invoices Yet"), ui(u"Drop PDFs or e-invoices here to import them."),
                                  true);
    });
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        m_filter->setSearchText(text);
        // The row texts answer at once; the index adds what only the addresses, items or notes
        // hold a moment later, from its own thread.
        if (!text.trimmed().isEmpty())
            m_services->search().search(text, m_workspace.activeProfile().id, 2000,
                                        [this, text](const QList<SearchResult>& results) {
                                            QSet<QUuid> ids;
                                            for (const SearchResult& result : results)
                                                ids.insert(result.ref.invoiceId);
                                            m_filter->setIndexMatches(text, ids);
                                        });
        if (!text.isEmpty())
            m_list->setEmptyTexts(ui(u"No Matches"), ui(u"No invoice matches “%1”.").arg(text), false);
    });

    InvoiceManager& invoices = workspace.invoices();
    connect(&invoices, &InvoiceManager::newlyCreatedInvoiceIdChanged, this, &MainWindow::showNewlyCreated);
    connect(&invoices, &InvoiceManager::invoiceRemoved, this, &MainWindow::onInvoiceRemoved);
    connect(&invoices, &InvoiceManager::refreshTriggerChanged, this, &MainWindow::onStoreReloaded);
    connect(m_fileWatcher.get(), &InvoiceFileWatcher::invoiceUpdated, this,
            &MainWindow::onInvoiceChangedOnDisk);
    connect(&workspace.profiles(), &ProfileManager::profilesChanged, this, [this] {
        rebuildProfileMenu();
        if (const Profile* profile = m_workspace.profiles().activeProfile())
            m_editor->setProfile(*profile);
        updatePreview();
    });
    connect(&workspace, &Workspace::activeProfileSwitched, this, [this] {
        m_undoStacks.clear();
        qDeleteAll(m_undoGroup->stacks());
        openInvoice(std::nullopt);
        m_editor->setProfile(m_workspace.activeProfile());
        rebuildProfileMenu();
        updateWindowTitle();
    });
    connect(&workspace.styling(), &StylingManager::stylingChanged, this, &MainWindow::updatePreview);
    // A day later, some invoices are overdue that were not: the list and filters follow.
    auto* daily = new QTimer(this);
    daily->setInterval(std::chrono::minutes(30));
    connect(daily, &QTimer::timeout, this, [this, day = Clock::today()]() mutable {
        if (Clock::today() != day) {
            day = Clock::today();
            m_listModel->reload();
        }
    });
    daily->start();

    m_editor->setProfile(workspace.activeProfile());
    rebuildProfileMenu();
    restoreState();
    updateWindowTitle();
    updateActions();
    // Plugins load once the window is up, so their scripts never delay the first paint.
    QTimer::singleShot(1000, this, [this] { pluginManager(); });
}

MainWindow::~MainWindow()
{
    saveNow();
}

QWidget* MainWindow::createCentralArea()
{
    m_sidebar = new FilterSidebar(*m_listModel);
    m_list = new InvoiceListView;
    m_list->setModel(m_filter);
    m_list->sortByColumn(InvoiceListModel::dateColumn, Qt::DescendingOrder);

    m_messages = new MessageBar;
    m_editor = new InvoiceEditor;
    auto* editorPane = new QWidget;
    auto* editorLayout = new QVBoxLayout(editorPane);
    editorLayout->setContentsMargins(8, 8, 0, 0);
    editorLayout->setSpacing(6);
    editorLayout->addWidget(m_messages);
    m_syncIssues = new SyncIssuesBar(m_workspace);
    // The versions are compared as they are on disk, with the last edits in.
    connect(m_syncIssues, &SyncIssuesBar::aboutToCompare, this, &MainWindow::saveNow);
    connect(m_syncIssues, &SyncIssuesBar::resolved, this, [this](const QString& text) {
        setStatusText(text);
        openInvoice(m_list->currentId().isNull() ? openInvoiceId()
                                                 : std::optional<QUuid>(m_list->currentId()));
    });
    editorLayout->addWidget(m_syncIssues);
    editorLayout->addWidget(m_editor, 1);

    m_preview = new PreviewWidget;
    m_detail = new DetailArea(editorPane, m_preview);
    m_detailSplitter = m_detail->splitter();

    m_splitter = new QSplitter(Qt::Horizontal);
    m_splitter->setObjectName(u"mainSplitter"_s);
    m_splitter->addWidget(m_sidebar);
    m_splitter->addWidget(m_list);
    m_splitter->addWidget(m_detail);
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 2);
    m_splitter->setStretchFactor(2, 5);
    m_splitter->setCollapsible(1, false);
    return m_splitter;
}

void MainWindow::createActions()
{
    auto add = [this](const QString& name, const QString& text, const QKeySequence& shortcut = {},
                      const QString& icon = {}) {
        auto* action = new QAction(text, this);
        action->setObjectName(name);
        if (!shortcut.isEmpty())
            action->setShortcut(shortcut);
        // The platform's other bindings of a standard key (Ctrl+Y besides Ctrl+Shift+Z ...).
        for (const QKeySequence::StandardKey standard :
             {QKeySequence::ZoomIn, QKeySequence::ZoomOut, QKeySequence::Find, QKeySequence::Quit})
            if (!shortcut.isEmpty() && QKeySequence::keyBindings(standard).value(0) == shortcut)
                action->setShortcuts(standard);
        if (!icon.isEmpty())
            action->setIcon(themeIcon(icon));
        m_actions.insert(name, action);
        return action;
    };
    connect(add(u"newInvoice"_s, ui(u"New Invoice"), QKeySequence::New, u"document-new"_s),
            &QAction::triggered, this, [this] { newInvoice(InvoiceType::invoice); });
    connect(add(u"newQuote"_s, ui(u"New Quote"), QKeySequence(u"Ctrl+Shift+N"_s)), &QAction::triggered, this,
            [this] { newInvoice(InvoiceType::quote); });
    connect(add(u"newFromText"_s, ui(u"New Invoice from Text…"), QKeySequence(u"Ctrl+Alt+N"_s)),
            &QAction::triggered, this, [this] { newInvoiceFromText(); });
    connect(add(u"duplicate"_s, ui(u"Duplicate"), QKeySequence(u"Ctrl+D"_s), u"edit-copy"_s),
            &QAction::triggered, this, &MainWindow::duplicateInvoice);
    connect(add(u"cancelInvoice"_s, ui(u"Create Cancellation Invoice")), &QAction::triggered, this,
            &MainWindow::cancelInvoice);
    connect(add(u"convertQuote"_s, ui(u"Convert Quote to Invoice")), &QAction::triggered, this,
            &MainWindow::convertQuote);
    auto* statusGroup = new QActionGroup(this);
    for (const auto& [name, status, key] : {std::tuple{u"markDraft"_s, Status::draft, u"Mark as Draft"},
                                            std::tuple{u"markSent"_s, Status::sent, u"Mark as Sent"},
                                            std::tuple{u"markPaid"_s, Status::paid, u"Mark as Paid"}}) {
        QAction* action = add(name, ui(key));
        action->setCheckable(true);
        statusGroup->addAction(action);
        connect(action, &QAction::triggered, this, [this, status = status] { setStatus(status); });
    }
    QAction* remove = add(u"delete"_s, ui(u"Delete Invoice…"), QKeySequence::Delete, u"edit-delete"_s);
    // Delete acts on the list only; in a text field the key deletes text.
    remove->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    m_list->addAction(remove);
    connect(remove, &QAction::triggered, this, &MainWindow::deleteInvoices);

    connect(add(u"exportPdf"_s, ui(u"Export PDF…"), QKeySequence(u"Ctrl+E"_s), u"document-export"_s),
            &QAction::triggered, this, [this] { exportCurrent(exportPdfKind); });
    connect(add(u"exportXRechnung"_s, ui(u"Export as E-Invoice (XML)…"), QKeySequence(u"Ctrl+Shift+E"_s)),
            &QAction::triggered, this, [this] { exportCurrent(exportXRechnungKind); });
    connect(add(u"exportZugferd"_s, ui(u"Export as ZUGFeRD PDF…"), QKeySequence(u"Ctrl+Alt+E"_s)),
            &QAction::triggered, this, [this] { exportCurrent(exportZugferdKind); });
    connect(add(u"exportCsv"_s, ui(u"Export CSV…")), &QAction::triggered, this, &MainWindow::exportCsv);
    connect(add(u"importPdf"_s, ui(u"Import PDF…"), {}, u"document-import"_s), &QAction::triggered,
            m_documents, &DocumentActions::importPdfs);
    connect(add(u"importEInvoices"_s, ui(u"Import E-Invoices…")), &QAction::triggered, m_documents,
            &DocumentActions::importEInvoices);
    connect(add(u"eInvoiceViewer"_s, ui(u"E-Invoice Viewer…"), QKeySequence(u"Ctrl+Shift+O"_s)),
            &QAction::triggered, this, [this] { showEInvoiceViewer(); });
    connect(add(u"createReminder"_s, ui(u"Create Payment Reminder")), &QAction::triggered, this,
            &MainWindow::createReminder);
    connect(add(u"showReminders"_s, ui(u"Payment Reminders…"), QKeySequence(u"Ctrl+Shift+R"_s)),
            &QAction::triggered, this, &MainWindow::showReminders);
    connect(add(u"plugins"_s, ui(u"Plugins…")), &QAction::triggered, this, &MainWindow::showPlugins);
    connect(add(u"openDataFolder"_s, ui(u"Open Data Folder")), &QAction::triggered, this,
            &MainWindow::openDataFolder);
    QAction* preferences =
        add(u"preferences"_s, ui(u"Preferences…"), QKeySequence(u"Ctrl+,"_s), u"preferences-system"_s);
    preferences->setMenuRole(QAction::PreferencesRole);
    connect(preferences, &QAction::triggered, this, &MainWindow::showPreferences);
    QAction* quit = add(u"quit"_s, ui(u"Quit"), QKeySequence::Quit, u"application-exit"_s);
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, this, &QWidget::close);

    QAction* undo = m_undoGroup->createUndoAction(this, ui(u"Undo"));
    undo->setObjectName(u"undo"_s);
    undo->setShortcuts(QKeySequence::Undo);
    undo->setIcon(themeIcon(u"edit-undo"_s));
    m_actions.insert(u"undo"_s, undo);
    QAction* redo = m_undoGroup->createRedoAction(this, ui(u"Redo"));
    redo->setObjectName(u"redo"_s);
    redo->setShortcuts(QKeySequence::Redo);
    redo->setIcon(themeIcon(u"edit-redo"_s));
    m_actions.insert(u"redo"_s, redo);

    QTableView* items = m_editor->itemsView();
    QAction* copy = add(u"copyItem"_s, ui(u"Copy Item"), QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    items->addAction(copy);
    connect(copy, &QAction::triggered, this, &MainWindow::copyItem);
    QAction* paste = add(u"pasteItem"_s, ui(u"Paste Item"), QKeySequence::Paste);
    paste->setShortcutContext(Qt::WidgetShortcut);
    items->addAction(paste);
    connect(paste, &QAction::triggered, this, &MainWindow::pasteItem);
    connect(add(u"addItem"_s, ui(u"Add Item"), QKeySequence(u"Ctrl+Return"_s), u"list-add"_s),
            &QAction::triggered, m_editor, &InvoiceEditor::addItem);
    QAction* removeItem = add(u"removeItem"_s, ui(u"Remove Item"), QKeySequence::Delete, u"list-remove"_s);
    removeItem->setShortcutContext(Qt::WidgetShortcut);
    items->addAction(removeItem);
    connect(removeItem, &QAction::triggered, m_editor, &InvoiceEditor::removeSelectedItems);
    connect(add(u"moveItemUp"_s, ui(u"Move Item Up"), QKeySequence(u"Alt+Up"_s)), &QAction::triggered, this,
            [this] { m_editor->moveCurrentItem(-1); });
    connect(add(u"moveItemDown"_s, ui(u"Move Item Down"), QKeySequence(u"Alt+Down"_s)), &QAction::triggered,
            this, [this] { m_editor->moveCurrentItem(1); });
    connect(add(u"editNumber"_s, ui(u"Edit Number"), QKeySequence(u"F2"_s)), &QAction::triggered, m_editor,
            &InvoiceEditor::focusNumber);
    connect(add(u"find"_s, ui(u"Find…"), QKeySequence::Find, u"edit-find"_s), &QAction::triggered, this,
            [this] {
                m_search->setFocus(Qt::ShortcutFocusReason);
                m_search->selectAll();
            });

    QAction* sidebar = add(u"showSidebar"_s, ui(u"Show Filters"));
    sidebar->setCheckable(true);
    sidebar->setChecked(true);
    connect(sidebar, &QAction::toggled, m_sidebar, &QWidget::setVisible);
    QAction* preview = add(u"showPreview"_s, ui(u"Show Preview"), QKeySequence(u"Ctrl+Shift+P"_s));
    preview->setCheckable(true);
    preview->setChecked(m_settings.value(AppSettings::showPreviewKey, true).toBool());
    m_detail->setPreviewShown(preview->isChecked());
    connect(preview, &QAction::toggled, this, [this](bool on) {
        m_detail->setPreviewShown(on);
        m_settings.setValue(AppSettings::showPreviewKey, on);
    });
    QAction* dark = add(u"previewDarkMode"_s, ui(u"Dark Preview in Dark Mode"));
    dark->setCheckable(true);
    dark->setChecked(AppSettings::invoiceDarkMode(m_settings));
    connect(dark, &QAction::toggled, this, [this](bool on) {
        m_settings.setValue(AppSettings::invoiceDarkModeKey, on);
        updatePreview();
    });
    connect(add(u"zoomIn"_s, ui(u"Zoom In"), QKeySequence::ZoomIn), &QAction::triggered, m_preview,
            &PreviewWidget::zoomIn);
    connect(add(u"zoomOut"_s, ui(u"Zoom Out"), QKeySequence::ZoomOut), &QAction::triggered, m_preview,
            &PreviewWidget::zoomOut);
    connect(add(u"zoomFit"_s, ui(u"Fit Page Width"), QKeySequence(u"Ctrl+0"_s)), &QAction::triggered,
            m_preview, &PreviewWidget::zoomToFit);
    connect(add(u"nextPage"_s, ui(u"Next Page"), QKeySequence(u"Ctrl+PgDown"_s)), &QAction::triggered,
            m_preview, &PreviewWidget::nextPage);
    connect(add(u"previousPage"_s, ui(u"Previous Page"), QKeySequence(u"Ctrl+PgUp"_s)), &QAction::triggered,
            m_preview, &PreviewWidget::previousPage);

    connect(add(u"editProfile"_s, ui(u"Edit Profile…")), &QAction::triggered, this, &MainWindow::editProfile);
    connect(add(u"editStyling"_s, ui(u"Styling…"), QKeySequence(u"Ctrl+Shift+Y"_s)), &QAction::triggered,
            this, &MainWindow::showStyling);
    connect(add(u"newProfile"_s, ui(u"New Profile…")), &QAction::triggered, this, &MainWindow::newProfile);
    connect(add(u"renameProfile"_s, ui(u"Rename Profile…")), &QAction::triggered, this,
            &MainWindow::renameProfile);
    connect(add(u"deleteProfile"_s, ui(u"Delete Profile…")), &QAction::triggered, this,
            &MainWindow::deleteProfile);
    connect(add(u"exportProfile"_s, ui(u"Export Profile…")), &QAction::triggered, this,
            [this] { m_documents->exportProfile(m_workspace.activeProfile()); });
    connect(add(u"exportAllProfiles"_s, ui(u"Export All Profiles…")), &QAction::triggered, m_documents,
            &DocumentActions::exportAllProfiles);
    connect(add(u"importProfiles"_s, ui(u"Import Profiles…")), &QAction::triggered, m_documents,
            &DocumentActions::importProfiles);
    connect(add(u"backUpNow"_s, ui(u"Back Up Now")), &QAction::triggered, this, &MainWindow::backUpNow);
    connect(add(u"runAutoExport"_s, ui(u"Export to Folder Now")), &QAction::triggered, this, [this] {
        saveNow();
        m_services->autoExport().exportAllEligibleInvoices([this](const QStringList& written) {
            setStatusText(ui(u"%1 files written to the export folder").arg(written.size()),
                          written.isEmpty() ? QString() : written.first());
        });
    });
    connect(add(u"about"_s, ui(u"About Ledra")), &QAction::triggered, this, &MainWindow::showAbout);

    // Every command is reachable from the keyboard in the window, not only from its menu.
    for (QAction* action : std::as_const(m_actions))
        if (action->shortcutContext() == Qt::WindowShortcut)
            addAction(action);

    // The list's context menu offers what applies to the selected invoices.
    for (const QString& name : {u"duplicate"_s, u"cancelInvoice"_s, u"convertQuote"_s})
        m_list->addAction(action(name));
    auto separator = [this] {
        auto* line = new QAction(this);
        line->setSeparator(true);
        return line;
    };
    m_list->addAction(separator());
    for (const QString& name : {u"markDraft"_s, u"markSent"_s, u"markPaid"_s})
        m_list->addAction(action(name));
    m_list->addAction(separator());
    for (const QString& name : {u"exportPdf"_s, u"exportXRechnung"_s, u"exportZugferd"_s, u"exportCsv"_s,
                                u"createReminder"_s, u"showReminders"_s})
        m_list->addAction(action(name));
    m_list->addAction(separator());
    // The delete action was added first; move it to the end of the menu.
    m_list->removeAction(remove);
    m_list->addAction(remove);
}

QAction* MainWindow::action(const QString& name) const
{
    return m_actions.value(name);
}

void MainWindow::createMenus()
{
    QMenu* file = menuBar()->addMenu(ui(u"&File"));
    file->addActions({action(u"newInvoice"_s), action(u"newQuote"_s), action(u"newFromText"_s)});
    file->addSeparator();
    file->addActions({action(u"importPdf"_s), action(u"importEInvoices"_s), action(u"eInvoiceViewer"_s)});
    file->addSeparator();
    // Filled with the plugins that can do it each time the menu opens; hidden when none can.
    m_exportPluginMenu = file->addMenu(ui(u"Export Invoices…"));
    m_exportPluginMenu->setObjectName(u"exportPluginMenu"_s);
    m_importPluginMenu = file->addMenu(ui(u"Import Invoices…"));
    m_importPluginMenu->setObjectName(u"importPluginMenu"_s);
    m_updatePluginMenu = file->addMenu(ui(u"Update Invoices…"));
    m_updatePluginMenu->setObjectName(u"updatePluginMenu"_s);
    connect(file, &QMenu::aboutToShow, this, &MainWindow::rebuildPluginMenus);
    rebuildPluginMenus();
    file->addSeparator();
    file->addActions({action(u"exportPdf"_s), action(u"exportXRechnung"_s), action(u"exportZugferd"_s),
                      action(u"exportCsv"_s)});
    file->addSeparator();
    file->addAction(action(u"runAutoExport"_s));
    file->addSeparator();
    file->addActions({action(u"openDataFolder"_s), action(u"backUpNow"_s)});
    file->addSeparator();
    file->addAction(action(u"quit"_s));

    QMenu* edit = menuBar()->addMenu(ui(u"&Edit"));
    edit->addActions({action(u"undo"_s), action(u"redo"_s)});
    edit->addSeparator();
    edit->addActions({action(u"copyItem"_s), action(u"pasteItem"_s)});
    edit->addSeparator();
    edit->addAction(action(u"find"_s));
    edit->addSeparator();
    edit->addActions({action(u"plugins"_s), action(u"preferences"_s)});

    QMenu* invoice = menuBar()->addMenu(ui(u"&Invoice"));
    invoice->addActions({action(u"duplicate"_s), action(u"cancelInvoice"_s), action(u"convertQuote"_s)});
    invoice->addSeparator();
    invoice->addActions({action(u"markDraft"_s), action(u"markSent"_s), action(u"markPaid"_s)});
    invoice->addSeparator();
    invoice->addActions({action(u"createReminder"_s), action(u"showReminders"_s)});
    invoice->addSeparator();
    invoice->addActions({action(u"editNumber"_s), action(u"addItem"_s), action(u"removeItem"_s),
                         action(u"moveItemUp"_s), action(u"moveItemDown"_s)});
    invoice->addSeparator();
    invoice->addAction(action(u"delete"_s));

    QMenu* view = menuBar()->addMenu(ui(u"&View"));
    view->addActions({action(u"showSidebar"_s), action(u"showPreview"_s), action(u"previewDarkMode"_s)});
    view->addSeparator();
    view->addActions({action(u"zoomIn"_s), action(u"zoomOut"_s), action(u"zoomFit"_s)});
    view->addSeparator();
    view->addActions({action(u"previousPage"_s), action(u"nextPage"_s)});

    m_profileMenu = menuBar()->addMenu(ui(u"&Profile"));

    QMenu* help = menuBar()->addMenu(ui(u"&Help"));
    help->addAction(action(u"about"_s));
}

void MainWindow::createToolBar()
{
    QToolBar* bar = addToolBar(ui(u"Toolbar"));
    bar->setObjectName(u"toolbar"_s);
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

    m_profiles = new QComboBox;
    m_profiles->setObjectName(u"profileSwitcher"_s);
    m_profiles->setAccessibleName(ui(u"Profile"));
    m_profiles->setToolTip(ui(u"The sender profile whose invoices are shown"));
    m_profiles->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(m_profiles, &QComboBox::activated, this,
            [this](int index) { switchProfile(m_profiles->itemData(index).toUuid()); });
    bar->addWidget(m_profiles);
    bar->addSeparator();

    auto* newButton = new QToolButton;
    newButton->setDefaultAction(action(u"newInvoice"_s));
    newButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    newButton->setPopupMode(QToolButton::MenuButtonPopup);
    auto* newMenu = new QMenu(newButton);
    newMenu->addActions({action(u"newInvoice"_s), action(u"newQuote"_s), action(u"newFromText"_s)});
    newButton->setMenu(newMenu);
    bar->addWidget(newButton);

    auto* exportButton = new QToolButton;
    exportButton->setObjectName(u"exportButton"_s);
    exportButton->setText(ui(u"Export"));
    exportButton->setIcon(themeIcon(u"document-export"_s));
    exportButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    exportButton->setPopupMode(QToolButton::InstantPopup);
    auto* exportMenu = new QMenu(exportButton);
    exportMenu->addActions(
        {action(u"exportPdf"_s), action(u"exportXRechnung"_s), action(u"exportZugferd"_s)});
    exportMenu->addSeparator();
    exportMenu->addAction(action(u"exportCsv"_s));
    exportButton->setMenu(exportMenu);
    bar->addWidget(exportButton);

    auto* spacer = new QWidget;
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(spacer);
    m_search = new QLineEdit;
    m_search->setObjectName(u"search"_s);
    m_search->setAccessibleName(ui(u"Search"));
    m_search->setPlaceholderText(ui(u"Search number, recipient, items, amount"));
    m_search->setClearButtonEnabled(true);
    m_search->addAction(themeIcon(u"edit-find"_s), QLineEdit::LeadingPosition);
    m_search->setMinimumWidth(m_search->fontMetrics().horizontalAdvance(m_search->placeholderText()) + 48);
    bar->addWidget(m_search);
}

void MainWindow::rebuildProfileMenu()
{
    const ProfileManager& profiles = m_workspace.profiles();
    const Profile* active = profiles.activeProfile();
    m_profiles->clear();
    m_profileMenu->clear();
    auto* group = new QActionGroup(m_profileMenu);
    for (const Profile& profile : profiles.profiles()) {
        m_profiles->addItem(profile.displayName(), profile.id);
        QAction* item = m_profileMenu->addAction(profile.displayName());
        item->setCheckable(true);
        item->setChecked(active && profile.id == active->id);
        group->addAction(item);
        connect(item, &QAction::triggered, this, [this, id = profile.id] { switchProfile(id); });
    }
    if (active)
        m_profiles->setCurrentIndex(m_profiles->findData(active->id));
    m_profileMenu->addSeparator();
    m_profileMenu->addActions({action(u"editProfile"_s), action(u"editStyling"_s), action(u"newProfile"_s),
                               action(u"renameProfile"_s), action(u"deleteProfile"_s)});
    // The last profile stays: the invoices need a sender.
    action(u"deleteProfile"_s)->setEnabled(profiles.profiles().size() > 1);
    m_profileMenu->addSeparator();
    m_profileMenu->addActions(
        {action(u"exportProfile"_s), action(u"exportAllProfiles"_s), action(u"importProfiles"_s)});
}

void MainWindow::restoreState()
{
    const QRect available = screen() ? screen()->availableGeometry() : QRect(0, 0, 1366, 700);
    placeOnScreen(available);
    if (!m_splitter->restoreState(m_settings.value(AppSettings::splitterKey).toByteArray()) ||
        !m_detailSplitter->restoreState(m_settings.value(AppSettings::detailSplitterKey).toByteArray())) {
        distributeWidth(width());
        m_distributeOnShow = true;
    }
    if (!m_list->header()->restoreState(m_settings.value(AppSettings::listHeaderKey).toByteArray()))
        m_list->fitColumns();
    m_sidebar->setCategory(InvoiceCategory(m_settings.value(AppSettings::filterKey, 0).toInt()));
    if (m_settings.contains(AppSettings::previewZoomKey))
        m_preview->setZoom(m_settings.value(AppSettings::previewZoomKey).toDouble());
    // The invoice the user had open last time, else the newest one.
    const QUuid last = m_settings.value(AppSettings::lastInvoiceKey).toUuid();
    if (!last.isNull() && m_workspace.invoices().invoice(last))
        reveal(last);
    else if (m_filter->rowCount() > 0)
        m_list->setCurrentIndex(m_filter->index(0, 0));
}

void MainWindow::placeOnScreen(const QRect& available)
{
    const QByteArray saved = m_settings.value(AppSettings::geometryKey).toByteArray();
    if (!saved.isEmpty() && restoreGeometry(saved)) {
        // Left on a bigger screen, or one that is gone: moved and shrunk into this one.
        if (!isMaximized() && !isFullScreen()) {
            const QRect fitted = WindowMemory::clampedToScreen(geometry(), available);
            if (fitted != geometry())
                setGeometry(fitted);
        }
        return;
    }
    const WindowMemory::Placement first = WindowMemory::firstStart(available);
    setGeometry(first.geometry);
    if (first.maximized)
        setWindowState(windowState() | Qt::WindowMaximized);
}

void MainWindow::distributeWidth(int total)
{
    const int sidebar = m_sidebar->isVisibleTo(this) ? m_sidebar->sizeHint().width() : 0;
    const int rest = total - sidebar - 2 * m_splitter->handleWidth();
    // The list as wide as its columns need (a third of the room on large screens), the form
    // and the page the rest, side by side if the list can give up enough for both.
    const int fitting = m_list->fittingWidth();
    int list = std::max(fitting, std::min(int(rest * 0.33), 620));
    if (rest - list < m_detail->sideBySideWidth())
        list = std::max(fitting, rest - m_detail->sideBySideWidth());
    const int detail = rest - list;
    const int preview = DetailArea::previewShare(detail - m_detailSplitter->handleWidth());
    const int editor =
        std::max(m_detail->minimumFormWidth(), detail - m_detailSplitter->handleWidth() - preview);
    m_detail->arrangeFor(detail);
    m_splitter->setSizes({sidebar, list, detail});
    m_detailSplitter->setSizes({editor, std::max(0, detail - editor)});
}

void MainWindow::storeState()
{
    m_settings.setValue(AppSettings::geometryKey, saveGeometry());
    m_settings.setValue(AppSettings::splitterKey, m_splitter->saveState());
    m_settings.setValue(AppSettings::detailSplitterKey, m_detailSplitter->saveState());
    m_settings.setValue(AppSettings::listHeaderKey, m_list->header()->saveState());
    m_settings.setValue(AppSettings::filterKey, int(m_sidebar->category()));
    if (const auto id = openInvoiceId())
        m_settings.setValue(AppSettings::lastInvoiceKey, *id);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    saveNow();
    storeState();
    event->accept();
}

std::optional<QUuid> MainWindow::openInvoiceId() const
{
    if (const auto& invoice = m_editor->invoice())
        return invoice->id;
    return std::nullopt;
}

std::optional<Invoice> MainWindow::currentInvoice() const
{
    return m_editor->invoice();
}

QList<Invoice> MainWindow::selectedInvoices() const
{
    QList<Invoice> invoices;
    for (const QUuid& id : m_list->selectedIds()) {
        if (id == openInvoiceId())
            invoices.append(*m_editor->invoice());
        else if (const Invoice* invoice = m_workspace.invoices().invoice(id))
            invoices.append(*invoice);
    }
    if (invoices.isEmpty() && m_editor->invoice())
        invoices.append(*m_editor->invoice());
    return invoices;
}

QUndoStack* MainWindow::undoStackFor(const QUuid& id)
{
    QUndoStack*& stack = m_undoStacks[id];
    if (!stack) {
        stack = new QUndoStack(m_undoGroup);
        stack->setUndoLimit(200);
    }
    return stack;
}

void MainWindow::forgetHistory(const QUuid& id)
{
    if (QUndoStack* stack = m_undoStacks.take(id))
        stack->deleteLater();
}

void MainWindow::onCurrentRowChanged()
{
    const QUuid id = m_list->currentId();
    if (id.isNull() || id == openInvoiceId())
        return;
    openInvoice(id);
}

void MainWindow::openInvoice(const std::optional<QUuid>& id)
{
    saveNow();
    m_messages->dismiss();
    m_conflict = false;
    const Invoice* invoice = id ? m_workspace.invoices().invoice(*id) : nullptr;
    if (!invoice) {
        m_savedVersion.reset();
        m_editor->setInvoice(std::nullopt, nullptr);
        m_undoGroup->setActiveStack(nullptr);
        m_fileWatcher->setInvoice(std::nullopt);
    } else {
        m_savedVersion = *invoice;
        QUndoStack* stack = undoStackFor(invoice->id);
        m_editor->setInvoice(*invoice, stack);
        m_undoGroup->setActiveStack(stack);
        m_fileWatcher->setInvoice(invoice->id);
    }
    m_syncIssues->setInvoice(invoice ? std::optional<QUuid>(invoice->id) : std::nullopt);
    updatePreview();
    updateActions();
}

void MainWindow::onEdited(const Invoice& invoice)
{
    m_unsaved.insert(invoice.id, invoice);
    m_saveState->setText(ui(u"Saving…"));
    m_saver->request([this] {
        const QList<QUuid> ids = m_unsaved.keys();
        for (const QUuid& id : ids)
            saveInvoice(id);
    });
    updatePreview();
    updateActions();
}

void MainWindow::saveInvoice(const QUuid& id)
{
    if (m_conflict && id == openInvoiceId())
        return; // waits for the user's choice between their edit and the file on disk
    const auto pending = m_unsaved.constFind(id);
    if (pending == m_unsaved.constEnd())
        return;
    const Invoice invoice = *pending;
    m_unsaved.erase(pending);
    if (const auto error = m_workspace.invoices().saveInvoice(invoice)) {
        m_messages->show(MessageBar::Kind::error, ui(u"The invoice could not be saved: %1").arg(*error));
        m_saveState->setText(ui(u"Not saved"));
        return;
    }
    if (id == openInvoiceId())
        m_savedVersion = invoice;
    if (m_unsaved.isEmpty())
        m_saveState->setText(ui(u"Saved"));
}

void MainWindow::saveNow()
{
    if (m_saver)
        m_saver->flush();
    const QList<QUuid> ids = m_unsaved.keys();
    for (const QUuid& id : ids)
        saveInvoice(id);
}

void MainWindow::onInvoiceChangedOnDisk(const QUuid& id)
{
    if (id != openInvoiceId())
        return;
    const bool unsavedEdits =
        m_unsaved.contains(id) || (m_savedVersion && *m_savedVersion != *m_editor->invoice());
    const std::optional<Invoice> theirs = m_workspace.invoices().loadInvoice(id);
    if (!theirs)
        return;
    if (!unsavedEdits) {
        m_savedVersion = theirs;
        forgetHistory(id);
        QUndoStack* stack = undoStackFor(id);
        m_editor->setInvoice(*theirs, stack);
        m_undoGroup->setActiveStack(stack);
        setStatusText(ui(u"The invoice was changed by another program and has been reloaded."));
        updatePreview();
        return;
    }
    // The user's edit and another program's change meet: the user decides, nothing is lost.
    m_conflict = true;
    m_messages->show(MessageBar::Kind::warning,
                     ui(u"Another program changed this invoice while you were editing it."));
    m_messages->addAction(ui(u"Keep My Changes"), [this, id] {
        m_conflict = false;
        if (m_editor->invoice() && m_editor->invoice()->id == id) {
            m_unsaved.insert(id, *m_editor->invoice());
            saveInvoice(id);
        }
    });
    m_messages->addAction(ui(u"Use Their Version"), [this, id, theirs] {
        m_conflict = false;
        m_unsaved.remove(id);
        m_savedVersion = *theirs;
        forgetHistory(id);
        QUndoStack* stack = undoStackFor(id);
        m_editor->setInvoice(*theirs, stack);
        m_undoGroup->setActiveStack(stack);
        updatePreview();
    });
}

void MainWindow::onInvoiceRemoved(const QUuid& id)
{
    m_unsaved.remove(id);
    forgetHistory(id);
    if (id != openInvoiceId())
        return;
    const Invoice lost = *m_editor->invoice();
    openInvoice(std::nullopt);
    if (m_deletingOurselves)
        return;
    m_messages->show(MessageBar::Kind::warning,
                     ui(u"Invoice %1 was deleted by another program.")
                         .arg(NumberFormat::displayNumber(lost, m_workspace.activeProfile())));
    m_messages->addAction(ui(u"Restore It"), [this, lost] {
        if (const auto error = m_workspace.invoices().saveInvoice(lost))
            m_messages->show(MessageBar::Kind::error, ui(u"The invoice could not be saved: %1").arg(*error));
        else
            reveal(lost.id);
    });
}

void MainWindow::onStoreReloaded()
{
    // The open invoice keeps its editor; its row may have moved.
    if (const auto id = openInvoiceId()) {
        if (!m_workspace.invoices().invoice(*id))
            return onInvoiceRemoved(*id);
        m_list->selectId(*id);
    }
}

void MainWindow::showNewlyCreated()
{
    // Invoices from contacts or text are opened once they are filled in.
    if (m_fillingNewInvoice)
        return;
    if (const auto id = m_workspace.invoices().newlyCreatedInvoiceId())
        reveal(*id);
}

void MainWindow::reveal(const QUuid& id)
{
    if (!m_list->selectId(id)) {
        // Hidden by the filter or the search: show all of the kind it belongs to.
        const Invoice* invoice = m_workspace.invoices().invoice(id);
        m_search->clear();
        m_sidebar->setCategory(invoice && invoice->type == InvoiceType::quote ? InvoiceCategory::quotes
                                                                              : InvoiceCategory::all);
        m_list->selectId(id);
    }
    if (id != openInvoiceId())
        openInvoice(id);
}

void MainWindow::updatePreview()
{
    const auto& invoice = m_editor->invoice();
    if (!invoice) {
        m_preview->setDocument(nullptr);
        return;
    }
    const bool darkPreview =
        AppSettings::invoiceDarkMode(m_settings) || m_workspace.activeProfile().invoiceDarkMode;
    const bool dark = darkPreview && isDarkPalette(palette());
    m_preview->setDocument(std::make_shared<InvoiceDocument>(
        *invoice, m_workspace.activeProfile(), m_workspace.activeStyling(), m_workspace.related(*invoice),
        dark ? ColorScheme::dark : ColorScheme::light));
}

void MainWindow::updateActions()
{
    const QList<Invoice> selected = selectedInvoices();
    const bool any = !selected.isEmpty();
    const bool one = selected.size() == 1;
    const std::optional<Invoice> current = currentInvoice();
    const bool ordinary = current && current->type == InvoiceType::invoice;
    const bool quote = current && current->type == InvoiceType::quote;
    action(u"duplicate"_s)->setEnabled(one);
    action(u"cancelInvoice"_s)->setEnabled(one && ordinary && current->status != Status::cancelled);
    action(u"convertQuote"_s)->setEnabled(one && quote);
    for (const QString& name : {u"markDraft"_s, u"markSent"_s, u"markPaid"_s})
        action(name)->setEnabled(any);
    if (current) {
        action(u"markDraft"_s)->setChecked(current->status == Status::draft);
        action(u"markSent"_s)->setChecked(current->status == Status::sent);
        action(u"markPaid"_s)->setChecked(current->status == Status::paid);
    }
    action(u"delete"_s)->setEnabled(any);
    for (const QString& name : {u"exportPdf"_s, u"exportXRechnung"_s, u"exportZugferd"_s})
        action(name)->setEnabled(current.has_value());
    action(u"exportCsv"_s)->setEnabled(m_listModel->rowCount() > 0);
    const bool remindable = ordinary && current->isOverdue();
    action(u"createReminder"_s)->setEnabled(remindable);
    action(u"showReminders"_s)
        ->setEnabled(ordinary && (remindable || !m_workspace.reminders().remindersOf(current->id).isEmpty()));
    if (remindable)
        action(u"createReminder"_s)
            ->setText(m_workspace.reminders().remindersOf(current->id).isEmpty()
                          ? ui(u"Create Payment Reminder")
                          : ui(u"Create Next Payment Reminder"));
    for (const QString& name :
         {u"addItem"_s, u"removeItem"_s, u"moveItemUp"_s, u"moveItemDown"_s, u"editNumber"_s, u"copyItem"_s})
        action(name)->setEnabled(current.has_value());
    action(u"pasteItem"_s)->setEnabled(current && m_workspace.invoices().copiedItem());
    const AutoExportHelper& autoExport = m_services->autoExport();
    action(u"runAutoExport"_s)
        ->setEnabled(autoExport.isEnabled() &&
                     autoExport.folderPath(m_workspace.activeProfile()).has_value());
}

void MainWindow::updateWindowTitle()
{
    setWindowTitle(m_workspace.activeProfile().displayName() + u" — Ledra"_s);
}

void MainWindow::setStatusText(const QString& text, const QString& path)
{
    if (path.isEmpty())
        m_statusText->setText(text.toHtmlEscaped());
    else
        m_statusText->setText(u"<a href=\"%1\">%2</a>"_s.arg(path.toHtmlEscaped(), text.toHtmlEscaped()));
    m_statusText->setToolTip(path.isEmpty() ? QString() : ui(u"Show in folder"));
}

void MainWindow::changeInvoices(const QList<Invoice>& invoices, const QString& text,
                                const std::function<void(Invoice&)>& change)
{
    for (Invoice invoice : invoices) {
        if (invoice.id == openInvoiceId()) {
            m_editor->changeInvoice(text, change);
            continue;
        }
        change(invoice);
        // Its undo history would restore the state before this change.
        forgetHistory(invoice.id);
        if (const auto error = m_workspace.invoices().saveInvoice(invoice))
            m_messages->show(MessageBar::Kind::error, ui(u"The invoice could not be saved: %1").arg(*error));
    }
    updateActions();
}

void MainWindow::newInvoice(InvoiceType type)
{
    saveNow();
    if (type == InvoiceType::quote)
        m_workspace.invoices().createQuote();
    else
        m_workspace.invoices().createInvoice();
    m_editor->focusField(u"Recipient name"_s, std::nullopt);
}

void MainWindow::duplicateInvoice()
{
    saveNow();
    if (const auto current = currentInvoice())
        m_workspace.invoices().duplicateInvoice(current->id);
}

void MainWindow::cancelInvoice()
{
    saveNow();
    const auto current = currentInvoice();
    if (!current || current->type != InvoiceType::invoice)
        return;
    forgetHistory(current->id);
    m_workspace.invoices().cancelInvoice(current->id);
}

void MainWindow::convertQuote()
{
    saveNow();
    if (const auto current = currentInvoice(); current && current->type == InvoiceType::quote)
        m_workspace.invoices().createInvoiceFromQuote(current->id);
}

void MainWindow::setStatus(Status status)
{
    saveNow();
    // A number must name one invoice before the invoice goes out.
    if (status == Status::sent)
        for (const Invoice& invoice : selectedInvoices())
            if (const QString clash = SyncTasks::numberClash(m_workspace, invoice);
                !clash.isEmpty() && invoice.status != Status::sent) {
                m_messages->show(MessageBar::Kind::error, clash);
                return;
            }
    changeInvoices(selectedInvoices(), ui(u"Change Status"), [status](Invoice& invoice) {
        if (invoice.status != status) {
            invoice.status = status;
            invoice.statusUpdateDate = Clock::nowTimestamp();
        }
    });
}

void MainWindow::deleteInvoices()
{
    saveNow();
    const QList<Invoice> invoices = selectedInvoices();
    if (invoices.isEmpty())
        return;
    const Profile& profile = m_workspace.activeProfile();
    QString warning;
    for (const Invoice& invoice : invoices)
        if (warning.isEmpty())
            warning = InvoiceManager::deletionWarning(invoice);
    const QString question = invoices.size() == 1
                                 ? ui(u"Delete %1 %2?")
                                       .arg(labelText(invoices.first().type),
                                            NumberFormat::displayNumber(invoices.first(), profile))
                                 : ui(u"Delete %1 invoices?").arg(invoices.size());
    QMessageBox box(warning.isEmpty() ? QMessageBox::Question : QMessageBox::Warning, ui(u"Delete Invoice"),
                    question, QMessageBox::Cancel, this);
    box.setObjectName(u"deleteConfirmation"_s);
    box.setInformativeText(warning.isEmpty() ? ui(u"This cannot be undone.") : warning);
    QPushButton* remove = box.addButton(ui(u"Delete"), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    if (box.clickedButton() != remove)
        return;
    m_deletingOurselves = true;
    for (const Invoice& invoice : invoices)
        if (const auto error = m_workspace.invoices().deleteInvoice(invoice.id))
            m_messages->show(MessageBar::Kind::error,
                             ui(u"The invoice could not be deleted: %1").arg(*error));
    m_deletingOurselves = false;
    setStatusText(invoices.size() == 1 ? ui(u"Invoice deleted")
                                       : ui(u"%1 invoices deleted").arg(invoices.size()));
}

void MainWindow::copyItem()
{
    if (const auto item = m_editor->currentItem()) {
        m_workspace.invoices().copyItem(*item);
        setStatusText(ui(u"Item copied"));
        updateActions();
    }
}

void MainWindow::pasteItem()
{
    if (const auto item = m_workspace.invoices().pasteItem())
        m_editor->insertItem(*item);
}

void MainWindow::exportCurrent(int kind)
{
    const auto current = currentInvoice();
    if (!current)
        return;
    saveNow();
    switch (kind) {
    case exportPdfKind:
        m_documents->exportPdf(*current);
        break;
    case exportXRechnungKind:
        m_documents->exportXRechnung(*current);
        break;
    case exportZugferdKind:
        m_documents->exportZugferd(*current);
        break;
    }
}

void MainWindow::exportCsv()
{
    saveNow();
    // The selection when several are selected, else every invoice the list shows.
    QList<Invoice> invoices;
    if (m_list->selectedIds().size() > 1) {
        invoices = selectedInvoices();
    } else {
        for (int row = 0; row < m_filter->rowCount(); ++row)
            if (const Invoice* invoice = m_workspace.invoices().invoice(
                    m_filter->index(row, 0).data(InvoiceListModel::IdRole).toUuid()))
                invoices.append(*invoice);
    }
    m_documents->exportCsv(invoices);
}

void MainWindow::createReminder()
{
    saveNow();
    if (const auto current = currentInvoice())
        m_documents->exportReminder(*current);
    updateActions();
}

void MainWindow::showReminders()
{
    saveNow();
    const auto current = currentInvoice();
    if (!current)
        return;
    auto* dialog = new RemindersDialog(m_workspace, *m_documents, *current, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // The first one is made right away when there is none yet.
    if (m_workspace.reminders().remindersOf(current->id).isEmpty())
        dialog->createNext();
    connect(dialog, &QDialog::finished, this, &MainWindow::updateActions);
    dialog->open();
}

EInvoiceViewer* MainWindow::showEInvoiceViewer(const QStringList& files)
{
    if (!m_viewer)
        m_viewer = new EInvoiceViewer(m_workspace, *m_documents, this);
    m_viewer->show();
    m_viewer->raise();
    m_viewer->activateWindow();
    m_viewer->openFiles(files);
    return m_viewer;
}

void MainWindow::openDataFolder()
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(m_workspace.profiles().dataFolder()));
}

void MainWindow::showPreferences()
{
    saveNow();
    PreferencesDialog dialog(m_workspace, m_settings, *m_services, this);
    connect(&dialog, &PreferencesDialog::restoreRequested, m_documents,
            [this](const QString& path) { m_documents->importDataFile(path, true); });
    dialog.exec();
    action(u"previewDarkMode"_s)->setChecked(AppSettings::invoiceDarkMode(m_settings));
    updatePreview();
}

void MainWindow::showStyling()
{
    saveNow();
    if (auto* open = findChild<StylingDialog*>()) {
        open->raise();
        open->activateWindow();
        return;
    }
    // Not modal: the user may want to look at other invoices in the new look meanwhile.
    auto* dialog = new StylingDialog(m_workspace, currentInvoice(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->show();
}

void MainWindow::editProfile()
{
    ProfileDialog dialog(m_workspace, m_settings, ProfileDialog::Mode::edit, this);
    dialog.exec();
}

void MainWindow::newProfile()
{
    bool ok = false;
    const QString name = QInputDialog::getText(this, ui(u"New Profile"), ui(u"Name of the new profile:"),
                                               QLineEdit::Normal, QString(), &ok)
                             .trimmed();
    if (!ok || name.isEmpty())
        return;
    Profile created;
    if (const auto error = m_workspace.profiles().createProfile(name, &created)) {
        m_messages->show(MessageBar::Kind::error, ui(u"The profile could not be created: %1").arg(*error));
        return;
    }
    switchProfile(created.id);
    editProfile();
}

void MainWindow::renameProfile()
{
    const Profile& profile = m_workspace.activeProfile();
    bool ok = false;
    const QString name = QInputDialog::getText(this, ui(u"Rename Profile"), ui(u"New name of the profile:"),
                                               QLineEdit::Normal, profile.displayName(), &ok)
                             .trimmed();
    if (!ok || name.isEmpty() || name == profile.displayName())
        return;
    saveNow();
    if (const auto error = m_workspace.profiles().renameProfile(profile.id, name))
        m_messages->show(MessageBar::Kind::error, ui(u"The profile could not be renamed: %1").arg(*error));
}

void MainWindow::deleteProfile()
{
    if (m_workspace.profiles().profiles().size() < 2)
        return;
    const Profile profile = m_workspace.activeProfile();
    QMessageBox question(QMessageBox::Warning, ui(u"Delete Profile"),
                         ui(u"Delete the profile “%1” (invoices: %2)?")
                             .arg(profile.displayName())
                             .arg(m_workspace.invoices().invoices().size()),
                         QMessageBox::Cancel, this);
    question.setInformativeText(
        ui(u"Its folder is removed with all its invoices, reminders and styling. This cannot be undone; "
           u"export the profile first to keep a copy."));
    QPushButton* remove = question.addButton(ui(u"Delete Profile"), QMessageBox::DestructiveRole);
    question.setDefaultButton(QMessageBox::Cancel);
    question.exec();
    if (question.clickedButton() != remove)
        return;
    saveNow();
    if (const auto error = m_workspace.profiles().deleteProfile(profile.id))
        m_messages->show(MessageBar::Kind::error, ui(u"The profile could not be deleted: %1").arg(*error));
    else
        setStatusText(ui(u"Profile “%1” deleted").arg(profile.displayName()));
}

void MainWindow::switchProfile(const QUuid& id)
{
    const Profile* active = m_workspace.profiles().activeProfile();
    if (active && active->id == id)
        return;
    saveNow();
    m_workspace.profiles().setActiveProfile(id);
}

void MainWindow::showAbout()
{
    // The one message box that is meant to be HTML; labels are plain text unless they say so.
    QMessageBox about(
        QMessageBox::NoIcon, ui(u"About Ledra"),
        ui(u"<h3>Ledra %1</h3><p>Invoices, quotes and e-invoices (XRechnung, ZUGFeRD) for "
           u"freelancers and small businesses.</p><p>Your data stays on this computer, in %2.</p>")
            .arg(QApplication::applicationVersion(),
                 QDir::toNativeSeparators(m_workspace.profiles().dataFolder()).toHtmlEscaped()),
        QMessageBox::Ok, this);
    about.setTextFormat(Qt::RichText);
    about.setIconPixmap(QApplication::windowIcon().pixmap(64));
    about.exec();
}

void MainWindow::offerOnboarding()
{
    const Profile& profile = m_workspace.activeProfile();
    const bool empty = profile.name.isEmpty() && profile.businessName.isEmpty();
    if (!empty || m_settings.value(AppSettings::onboardingDoneKey, false).toBool())
        return;
    ProfileDialog dialog(m_workspace, m_settings, ProfileDialog::Mode::onboarding, this);
    dialog.exec();
    m_settings.setValue(AppSettings::onboardingDoneKey, true);
}

void MainWindow::openFiles(const QStringList& files)
{
    QStringList importable;
    QStringList refused;
    for (const QString& file : files) {
        const QString name = file.toLower();
        if (name.endsWith(u".ledradata"_s))
            m_documents->importDataFile(file, true);
        else if (name.endsWith(u".ledraplugin"_s) || name.endsWith(u".ledraplugin.zip"_s))
            installPlugin(file);
        else if (isContactFile(file))
            createFromContacts(Files::read(file).value_or(QByteArray()), QFileInfo(file).fileName());
        else
            (ImportTasks::isImportable(file) ? importable : refused).append(file);
    }
    if (!importable.isEmpty())
        m_documents->importFiles(importable);
    if (!refused.isEmpty())
        m_messages->show(MessageBar::Kind::warning,
                         ui(u"These files cannot be opened here: %1").arg(refused.join(u", "_s)));
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const QMimeData* data = event->mimeData();
    if (hasContact(data)) {
        m_list->setDropHint(ui(u"Drop Contact here\nto Create new Invoice"));
        event->acceptProposedAction();
        return;
    }
    if (isDroppedText(data)) {
        m_list->setDropHint(ui(u"Drop Text here\nto Draft an Invoice from It"));
        event->acceptProposedAction();
        return;
    }
    if (!data->hasUrls())
        return;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile() && (ImportTasks::isImportable(url.toLocalFile()) ||
                                  url.toLocalFile().endsWith(u".ledradata"_s, Qt::CaseInsensitive))) {
            event->acceptProposedAction();
            return;
        }
}

void MainWindow::dragLeaveEvent(QDragLeaveEvent* event)
{
    m_list->setDropHint({});
    QMainWindow::dragLeaveEvent(event);
}

void MainWindow::dropEvent(QDropEvent* event)
{
    m_list->setDropHint({});
    const QMimeData* data = event->mimeData();
    event->acceptProposedAction();
    // A card from a contacts program comes as data, not as a file.
    for (const QString& format : vCardFormats())
        if (data->hasFormat(format)) {
            const QByteArray card = data->data(format);
            QTimer::singleShot(0, this,
                               [this, card] { createFromContacts(card, ui(u"the dropped contact")); });
            return;
        }
    if (isDroppedText(data)) {
        const QString text = data->text();
        QTimer::singleShot(0, this, [this, text] { newInvoiceFromText(text); });
        return;
    }
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile())
            files.append(url.toLocalFile());
    // Imported after the drop has finished, so that the source program is not kept waiting.
    QTimer::singleShot(0, this, [this, files] { openFiles(files); });
}

bool MainWindow::showSearchResult(const QString& identifier)
{
    const auto ref = SpotlightInvoiceRef::parse(identifier);
    if (!ref || !m_workspace.profiles().profile(ref->profileId))
        return false;
    if (m_workspace.activeProfile().id != ref->profileId)
        m_workspace.profiles().setActiveProfile(ref->profileId);
    if (!m_workspace.invoices().invoice(ref->invoiceId))
        return false;
    reveal(ref->invoiceId);
    raise();
    activateWindow();
    return true;
}

void MainWindow::createFromContacts(const QByteArray& vcard, const QString& source)
{
    saveNow();
    QList<Invoice> created;
    m_fillingNewInvoice = true;
    try {
        created = ContactTasks::createInvoicesFromVCard(m_workspace, vcard);
    } catch (const TaskError& error) {
        m_fillingNewInvoice = false;
        m_messages->show(MessageBar::Kind::warning, source + u": "_s + error.message());
        return;
    }
    m_fillingNewInvoice = false;
    reveal(created.last().id);
    QStringList names;
    for (const Invoice& invoice : created)
        names.append(invoice.businessName.isEmpty() ? invoice.name : invoice.businessName);
    setStatusText(created.size() == 1
                      ? ui(u"New invoice for %1").arg(names.first())
                      : ui(u"%1 new invoices: %2").arg(created.size()).arg(names.join(u", "_s)));
}

void MainWindow::newInvoiceFromText(const QString& text)
{
    auto* dialog = new TextExtractionDialog(m_settings, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    if (!text.isEmpty())
        dialog->setText(text);
    connect(dialog, &QDialog::accepted, this,
            [this, dialog] { createFromExtraction(dialog->result(), dialog->extractorName()); });
    dialog->open();
}

void MainWindow::createFromExtraction(const ExtractedInvoice& extracted, const QString& extractor)
{
    saveNow();
    Invoice created;
    m_fillingNewInvoice = true;
    try {
        created = ExtractTasks::createInvoice(m_workspace, extracted);
    } catch (const TaskError& error) {
        m_fillingNewInvoice = false;
        m_messages->show(MessageBar::Kind::warning, error.message());
        return;
    }
    m_fillingNewInvoice = false;
    reveal(created.id);
    setStatusText(ui(u"New invoice drafted by %1").arg(extractor));
}

void MainWindow::backUpNow()
{
    saveNow();
    QString error;
    if (const auto written = m_services->backups().backupNow(&error))
        setStatusText(ui(u"Backup saved to %1").arg(QDir::toNativeSeparators(*written)), *written);
    else
        m_messages->show(MessageBar::Kind::error, ui(u"Backup failed: %1").arg(error));
}

void MainWindow::installPlugin(const QString& path)
{
    const auto answer = QMessageBox::question(
        this, ui(u"Install Plugin"),
        ui(u"Install the plugin “%1”? Plugins run scripts on your invoices; install only plugins you trust.")
            .arg(QFileInfo(path).fileName()));
    if (answer != QMessageBox::Yes)
        return;
    try {
        const Plugin installed = pluginManager().install(path);
        setStatusText(ui(u"Plugin “%1” installed").arg(installed.manifest.name));
    } catch (const PluginError& error) {
        m_messages->show(MessageBar::Kind::error, error.message());
    }
}

PluginManager& MainWindow::pluginManager()
{
    if (!m_pluginManager) {
        m_pluginManager = std::make_unique<PluginManager>(m_settings, QApplication::applicationVersion());
        m_pluginManager->setStores(&m_workspace.invoices(), &m_workspace.profiles());
        // Loads the plugins, watches their folder and runs the update plugins once, then on
        // their timers.
        m_pluginManager->start();
        connect(m_pluginManager.get(), &PluginManager::updateFinished, this,
                [this](const QString& id, int changed) {
                    if (changed > 0)
                        if (const auto plugin = m_pluginManager->plugin(id))
                            setStatusText(
                                ui(u"“%1” updated invoices: %2").arg(plugin->manifest.name).arg(changed));
                });
    }
    return *m_pluginManager;
}

void MainWindow::rebuildPluginMenus()
{
    // Before the plugins have loaded (just after start) the menus simply stay hidden.
    const bool loaded = m_pluginManager != nullptr;
    auto fill = [&](QMenu* menu, const QList<Plugin>& plugins,
                    const std::function<void(const QString&)>& run) {
        menu->clear();
        for (const Plugin& plugin : plugins)
            menu->addAction(plugin.manifest.name + u'…', this, [run, id = plugin.id()] { run(id); })
                ->setData(plugin.id());
        menu->menuAction()->setVisible(!menu->isEmpty());
    };
    const bool haveInvoices = !selectedInvoices().isEmpty();
    fill(m_exportPluginMenu, loaded ? m_pluginManager->exportPlugins() : QList<Plugin>{},
         [this](const QString& id) {
             saveNow();
             m_documents->exportWithPlugin(pluginManager(), id, selectedInvoices());
         });
    m_exportPluginMenu->setEnabled(haveInvoices);
    fill(m_importPluginMenu, loaded ? m_pluginManager->importPlugins() : QList<Plugin>{},
         [this](const QString& id) { m_documents->importWithPlugin(pluginManager(), id); });
    fill(m_updatePluginMenu, loaded ? m_pluginManager->updatePlugins() : QList<Plugin>{},
         [this](const QString& id) {
             saveNow();
             m_documents->updateWithPlugin(pluginManager(), id);
         });
}

void MainWindow::showPlugins()
{
    auto* dialog = findChild<PluginsDialog*>();
    if (!dialog) {
        dialog = new PluginsDialog(pluginManager(), this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
    }
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
}

bool MainWindow::event(QEvent* event)
{
    // The mail add-on may have asked for an attachment while Ledra was in the background.
    if (event->type() == QEvent::WindowActivate)
        m_services->serveMailRequests();
    // The first time without remembered panes: shared out for the width the window shows at,
    // which the window manager or a maximised state may have set after the constructor.
    if (event->type() == QEvent::Show && m_distributeOnShow) {
        m_distributeOnShow = false;
        distributeWidth(width());
    }
    return QMainWindow::event(event);
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updatePreview();
}
