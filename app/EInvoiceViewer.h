#pragma once

#include "tasks/ViewerTasks.h"

#include <QHash>
#include <QMainWindow>

#include <functional>

class DocumentActions;
class QAction;
class QLabel;
class QListWidget;
class QStackedWidget;
class QWebEngineView;
class Workspace;

// A window of its own for e-invoices received from others: files dropped on it or opened are
// shown as readable documents, one at a time, with the list of open files beside them when
// there are several. "Import as Invoice" adds the shown document to the active profile.
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
    // Pages the view has finished loading, for tests and the screenshot tool.
    int loadedCount() const { return m_loadedCount; }

Q_SIGNALS:
    void pageLoaded();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void showCurrent();
    void updateState();

    Workspace& m_workspace;
    DocumentActions& m_documents;
    QList<ViewerTasks::OpenedFile> m_files;
    QListWidget* m_list;
    QStackedWidget* m_stack;
    QLabel* m_placeholder;
    QWebEngineView* m_view;
    QHash<QString, QAction*> m_actions;
    int m_loadedCount = 0;
};
