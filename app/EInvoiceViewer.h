#pragma once

#include "tasks/ViewerTasks.h"

#include <QHash>
#include <QMainWindow>

#include <functional>
#include <optional>

class DocumentActions;
class QAction;
class QLabel;
class QListWidget;
class QSplitter;
class QStackedWidget;
class QTreeWidget;
class QWebEngineView;
class Workspace;

// A window of its own for e-invoices received from others: files dropped on it or opened are
// shown as readable documents, one at a time, with the list of open files beside them when
// there are several. Above the document a banner gives the official rules' verdict, checked off
// the window's thread, and lists the broken rules; choosing one marks the part of the document
// it concerns. "Import as Invoice" adds the shown document to the active profile.
class EInvoiceViewer : public QMainWindow
{
    Q_OBJECT
public:
    // Returns the chosen files, or none when the user cancelled; replaceable for tests.
    using OpenChooser = std::function<QStringList(const QString& title, const QString& filter)>;

    EInvoiceViewer(Workspace& workspace, DocumentActions& documents, QWidget* parent = nullptr);
    ~EInvoiceViewer() override;

    // Opens the files (again, if they are open already) and shows the last of them.
    void openFiles(const QStringList& paths);
    // File › Open…
    void chooseFiles();
    // Imports the shown document as a new invoice of the active profile.
    void importCurrent();
    void closeCurrent();

    OpenChooser chooseOpenFiles;

    int fileCount() const { return int(m_files.size()); }
    int currentIndex() const;
    const ViewerTasks::OpenedFile* currentFile() const;
    QAction* action(const QString& name) const;
    QWebEngineView* view() const { return m_view; }
    QListWidget* fileList() const { return m_list; }
    QTreeWidget* ruleList() const { return m_rules; }
    QWidget* verdictBanner() const { return m_verdict; }
    // The verdict's headline as shown ("Checking…", "Valid e-invoice", ...).
    QString verdictText() const;
    // True while the shown file is being checked.
    bool isChecking() const;
    // The verdict on the shown file, once it has been checked.
    const ValidationReport* currentReport() const;
    // Pages the view has finished loading, for tests and the screenshot tool.
    int loadedCount() const { return m_loadedCount; }

Q_SIGNALS:
    void pageLoaded();
    // A file's check has finished (shown or not).
    void checked(const QString& path);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    struct Verdict
    {
        quint64 job = 0;
        std::optional<ValidationReport> report;
    };

    void showCurrent();
    void updateState();
    void startCheck(const ViewerTasks::OpenedFile& file);
    void showVerdict();
    // Marks the parts of the page that broken rules point at, and the chosen rule's part.
    void markPage();

    Workspace& m_workspace;
    DocumentActions& m_documents;
    QList<ViewerTasks::OpenedFile> m_files;
    QListWidget* m_list;
    QStackedWidget* m_stack;
    QLabel* m_placeholder;
    QWebEngineView* m_view;
    QWidget* m_verdict;
    QLabel* m_verdictIcon;
    QLabel* m_verdictTitle;
    QLabel* m_verdictDetail;
    QTreeWidget* m_rules;
    QSplitter* m_documentSplit;
    QHash<QString, Verdict> m_verdicts; // by path
    quint64 m_lastJob = 0;
    bool m_pageReady = false;
    QHash<QString, QAction*> m_actions;
    int m_loadedCount = 0;
};
