#include "EInvoiceViewer.h"

#include "AppText.h"
#include "DocumentActions.h"
#include "Icons.h"
#include "WindowMemory.h"
#include "numbering/NumberFormat.h"
#include "render/ReceivedEInvoiceDocument.h"
#include "tasks/ValidationTasks.h"
#include "tasks/Workspace.h"

#include <QAction>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMimeData>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineSettings>
#include <QWebEngineView>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

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

// Where a rule's part of the page is kept in its list item.
constexpr int sectionRole = Qt::UserRole;

QString ruleSetNames(const QStringList& sets)
{
    QStringList names;
    for (const QString& set : sets)
        names.append(ui(set));
    if (names.size() < 2)
        return names.join(QString());
    const QString last = names.takeLast();
    return ui(u"%1 and %2").arg(names.join(u", "_s), last);
}

QString ruleCount(int count)
{
    return count == 1 ? ui(u"1 rule") : ui(u"%1 rules").arg(count);
}

} // namespace

EInvoiceViewer::EInvoiceViewer(Workspace& workspace, DocumentActions& documents, QWidget* parent)
    : QMainWindow(parent), m_workspace(workspace), m_documents(documents), m_list(new QListWidget),
      m_stack(new QStackedWidget), m_placeholder(new QLabel), m_view(new QWebEngineView),
      m_verdict(new QFrame), m_verdictIcon(new QLabel), m_verdictTitle(new QLabel),
      m_verdictDetail(new QLabel), m_rules(new QTreeWidget), m_documentSplit(new QSplitter(Qt::Vertical))
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

    // The verdict: a tinted banner with a headline and what it means, then the broken rules.
    m_verdict->setObjectName(u"viewerVerdict"_s);
    auto* verdictLayout = new QHBoxLayout(m_verdict);
    verdictLayout->setContentsMargins(12, 8, 12, 8);
    verdictLayout->setSpacing(10);
    verdictLayout->addWidget(m_verdictIcon, 0, Qt::AlignTop);
    auto* verdictText = new QVBoxLayout;
    verdictText->setSpacing(2);
    for (QLabel* label : {m_verdictTitle, m_verdictDetail}) {
        // Texts of rules and of the file are shown as they are, never as markup.
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        verdictText->addWidget(label);
    }
    m_verdictTitle->setObjectName(u"viewerVerdictTitle"_s);
    QFont bold = m_verdictTitle->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.15);
    m_verdictTitle->setFont(bold);
    verdictLayout->addLayout(verdictText, 1);

    m_rules->setObjectName(u"viewerRules"_s);
    m_rules->setAccessibleName(ui(u"Broken Rules"));
    m_rules->setColumnCount(3);
    m_rules->setHeaderLabels({ui(u"Rule"), ui(u"Where"), ui(u"What the rule says")});
    m_rules->setRootIsDecorated(false);
    m_rules->setUniformRowHeights(false);
    m_rules->setWordWrap(true);
    m_rules->setTextElideMode(Qt::ElideNone);
    m_rules->setAlternatingRowColors(true);
    m_rules->setSelectionMode(QAbstractItemView::SingleSelection);
    m_rules->header()->setStretchLastSection(true);
    m_rules->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_rules->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    connect(m_rules, &QTreeWidget::itemSelectionChanged, this, &EInvoiceViewer::markPage);

    QSplitter* document = m_documentSplit;
    document->setObjectName(u"viewerDocumentSplitter"_s);
    document->addWidget(m_rules);
    document->addWidget(m_stack);
    document->setStretchFactor(0, 0);
    document->setStretchFactor(1, 1);
    document->setSizes({150, 600});
    document->setChildrenCollapsible(false);
    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->setSpacing(6);
    rightLayout->addWidget(m_verdict);
    rightLayout->addWidget(document, 1);

    auto* splitter = new QSplitter;
    splitter->addWidget(m_list);
    splitter->addWidget(right);
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
        m_pageReady = true;
        markPage();
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
        startCheck(m_files[row]);
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
    // A check still running for the file is forgotten with it.
    m_verdicts.remove(m_files[row].path);
    m_files.removeAt(row);
    delete m_list->takeItem(row);
    showCurrent();
}

void EInvoiceViewer::showCurrent()
{
    const ViewerTasks::OpenedFile* file = currentFile();
    m_pageReady = false;
    if (file) {
        m_view->setHtml(ViewerTasks::html(*file, Strings::interfaceLanguage()));
        m_stack->setCurrentWidget(m_view);
    } else {
        m_stack->setCurrentWidget(m_placeholder);
    }
    showVerdict();
    updateState();
}

void EInvoiceViewer::startCheck(const ViewerTasks::OpenedFile& file)
{
    if (!file.einvoice) {
        // The page already says why the file cannot be shown; there is nothing to check.
        m_verdicts.remove(file.path);
        return;
    }
    const quint64 job = ++m_lastJob;
    m_verdicts.insert(file.path, {job, std::nullopt});
    auto* watcher = new QFutureWatcher<ValidationReport>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, path = file.path, job] {
        watcher->deleteLater();
        const auto verdict = m_verdicts.find(path);
        // Closed or opened again meanwhile: a later check has the say.
        if (verdict == m_verdicts.end() || verdict->job != job)
            return;
        verdict->report = watcher->result();
        const ViewerTasks::OpenedFile* shown = currentFile();
        if (shown && shown->path == path)
            showVerdict();
        Q_EMIT checked(path);
    });
    watcher->setFuture(QtConcurrent::run([file] { return ViewerTasks::check(file); }));
}

bool EInvoiceViewer::isChecking() const
{
    const ViewerTasks::OpenedFile* file = currentFile();
    if (!file)
        return false;
    const auto verdict = m_verdicts.constFind(file->path);
    return verdict != m_verdicts.constEnd() && !verdict->report;
}

const ValidationReport* EInvoiceViewer::currentReport() const
{
    const ViewerTasks::OpenedFile* file = currentFile();
    if (!file)
        return nullptr;
    const auto verdict = m_verdicts.constFind(file->path);
    return verdict != m_verdicts.constEnd() && verdict->report ? &*verdict->report : nullptr;
}

QString EInvoiceViewer::verdictText() const
{
    return m_verdict->isHidden() ? QString() : m_verdictTitle->text();
}

void EInvoiceViewer::showVerdict()
{
    const ViewerTasks::OpenedFile* file = currentFile();
    const bool checking = isChecking();
    const ValidationReport* report = currentReport();
    m_rules->clear();
    if (!file || (!checking && !report)) {
        m_verdict->hide();
        m_rules->hide();
        return;
    }
    enum class Tone
    {
        neutral,
        good,
        bad
    };
    Tone tone = Tone::neutral;
    QStyle::StandardPixmap icon = QStyle::SP_BrowserReload;
    if (checking) {
        m_verdictTitle->setText(ui(u"Checking…"));
        m_verdictDetail->setText(ui(u"The e-invoice is being checked against the official rules."));
    } else if (!report->problem.isEmpty()) {
        tone = Tone::bad;
        icon = QStyle::SP_MessageBoxWarning;
        m_verdictTitle->setText(ui(u"Not checked"));
        m_verdictDetail->setText(report->problem);
    } else if (report->valid()) {
        tone = Tone::good;
        icon = QStyle::SP_DialogApplyButton;
        m_verdictTitle->setText(ui(u"Valid e-invoice"));
        QString detail = ui(u"Checked against %1: every rule is kept.").arg(ruleSetNames(report->ruleSets));
        if (report->warningCount() > 0)
            detail += u' ' + ui(u"The hints below do not make it invalid.");
        m_verdictDetail->setText(detail);
    } else {
        tone = Tone::bad;
        icon = QStyle::SP_MessageBoxCritical;
        m_verdictTitle->setText(ui(u"Invalid e-invoice"));
        m_verdictDetail->setText(ui(u"Checked against %1: %2 broken. Ask the sender for a corrected invoice.")
                                     .arg(ruleSetNames(report->ruleSets), ruleCount(report->errorCount())));
    }
    const int iconSize = style()->pixelMetric(QStyle::PM_LargeIconSize);
    m_verdictIcon->setPixmap(style()->standardIcon(icon).pixmap(iconSize, iconSize));
    // A tint on the window's background, as the message bars have, so that it suits dark themes too.
    const QColor accent = tone == Tone::good  ? QColor(0x1A, 0x7F, 0x37)
                          : tone == Tone::bad ? QColor(0xC0, 0x39, 0x2B)
                                              : palette().color(QPalette::Highlight);
    m_verdict->setStyleSheet(u"#viewerVerdict { background: rgba(%1,%2,%3,0.12); border: 1px solid "
                             u"rgba(%1,%2,%3,0.5); border-radius: 4px; }"_s.arg(accent.red())
                                 .arg(accent.green())
                                 .arg(accent.blue()));
    m_verdict->setAccessibleName(m_verdictTitle->text());
    m_verdict->show();

    if (report) {
        // Errors first, then hints, each in the order the rule sets report them.
        for (const bool errors : {true, false}) {
            for (const ValidationFailure& failure : report->failures) {
                if (failure.isError() != errors)
                    continue;
                const QString section = ReceivedEInvoiceDocument::sectionOf(failure.location);
                auto* item = new QTreeWidgetItem(m_rules);
                item->setText(0, failure.ruleId);
                item->setIcon(0, style()->standardIcon(errors ? QStyle::SP_MessageBoxCritical
                                                              : QStyle::SP_MessageBoxInformation));
                item->setText(1, section.isEmpty() ? ui(u"Whole document")
                                                   : ReceivedEInvoiceDocument::sectionName(
                                                         section, Strings::interfaceLanguage()));
                item->setText(2, ValidationTasks::ruleText(failure));
                item->setData(0, sectionRole, section);
                const QString severity = errors ? ui(u"Error") : ui(u"Hint");
                item->setToolTip(0, u"%1 · %2"_s.arg(severity, failure.ruleSet));
                // Tool tips are plain text application-wide, so the rule's own words show as they are.
                item->setToolTip(2, failure.location.isEmpty() ? failure.text
                                                               : failure.text + u"\n\n"_s + failure.location);
            }
        }
    }
    const int rows = m_rules->topLevelItemCount();
    m_rules->setVisible(rows > 0);
    if (rows > 0) {
        // As tall as its rules, up to a third of the room: the document stays the main thing.
        const int wanted = m_rules->header()->sizeHint().height() + 2 * m_rules->frameWidth() + 4 +
                           rows * (m_rules->fontMetrics().height() + 6);
        const int room = m_documentSplit->height();
        const int height = std::clamp(wanted, 60, std::max(60, room / 3));
        m_documentSplit->setSizes({height, std::max(room - height, 100)});
    }
    markPage();
}

void EInvoiceViewer::markPage()
{
    if (!m_pageReady)
        return;
    QJsonArray broken;
    for (int i = 0; i < m_rules->topLevelItemCount(); ++i) {
        const QString section = m_rules->topLevelItem(i)->data(0, sectionRole).toString();
        if (!section.isEmpty())
            broken.append(section);
    }
    QString chosen;
    if (QTreeWidgetItem* item = m_rules->currentItem(); item && item->isSelected())
        chosen = item->data(0, sectionRole).toString();
    // The page runs no script of its own; this one runs apart from it and only sets classes on
    // the parts named by our own section ids.
    const QString script = uR"js((function (broken, chosen) {
    for (const e of document.querySelectorAll('.rule-broken, .flagged'))
        e.classList.remove('rule-broken', 'flagged');
    for (const id of broken) {
        const e = document.getElementById(id) || document.getElementById(id.split('-')[0]);
        if (e) e.classList.add('rule-broken');
    }
    if (!chosen) return '';
    const target = document.getElementById(chosen) || document.getElementById(chosen.split('-')[0]);
    if (!target) return '';
    target.classList.add('flagged');
    target.scrollIntoView({block: 'center'});
    return target.id;
})(%1, %2))js"_s.arg(QString::fromUtf8(QJsonDocument(broken).toJson(QJsonDocument::Compact)),
                     QString::fromUtf8(QJsonDocument(QJsonArray{chosen}).toJson(QJsonDocument::Compact))
                         .mid(1)
                         .chopped(1));
    m_view->page()->runJavaScript(script, QWebEngineScript::ApplicationWorld);
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
