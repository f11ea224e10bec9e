#pragma once

#include "InvoiceListModel.h"
#include "extraction/ExtractedInvoice.h"
#include "model/Invoice.h"

#include <QHash>
#include <QMainWindow>
#include <QPointer>
#include <QUuid>

#include <memory>
#include <optional>

class BackgroundServices;
class DetailArea;
class DocumentActions;
class EInvoiceViewer;
class FilterSidebar;
class InvoiceEditor;
class InvoiceFileWatcher;
class InvoiceFilterModel;
class InvoiceListView;
class MessageBar;
class SyncIssuesBar;
class PluginManager;
class PreviewWidget;
class QAction;
class QComboBox;
class QLabel;
class QLineEdit;
class QSettings;
class QSplitter;
class QUndoGroup;
class QUndoStack;
class RateLimitedSaver;
class Workspace;

// The window most users live in: the filters, the invoice list and the open invoice with its
// live preview, and every command in the menus, the toolbar and the list's context menu.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    MainWindow(Workspace& workspace, QSettings& settings, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens files given on the command line or dropped on the window.
    void openFiles(const QStringList& files);
    // New invoices addressed to the contacts of vCard data (a dropped card or .vcf file).
    void createFromContacts(const QByteArray& vcard, const QString& source);
    // "New Invoice from Text…": the text view, filled with `text` when given.
    void newInvoiceFromText(const QString& text = {});
    // A new invoice of the active profile from what an extractor found, opened in the editor.
    void createFromExtraction(const ExtractedInvoice& extracted, const QString& extractor);
    // Edit › Plugins…: the installed plugins, installation and updates.
    void showPlugins();
    // Invoice › Payment Reminders…: the reminders of the open invoice, to edit and export.
    void showReminders();
    // Profile › Rename Profile…, Delete Profile… (asks first; the last profile stays).
    void renameProfile();
    void deleteProfile();
    PluginManager& pluginManager();
    // The File menu's plugin entries, as the installed and enabled plugins offer them.
    void rebuildPluginMenus();
    // Opens the invoice of a search result ("profile/invoice"), switching to its profile; false
    // (and nothing happens) for an identifier that names no invoice.
    bool showSearchResult(const QString& identifier);
    // Shows the first-start guide when the profile has no sender data yet (and it was not
    // skipped before).
    void offerOnboarding();
    // File › E-Invoice Viewer…: the viewer window (made on first use), showing `files` if any.
    EInvoiceViewer* showEInvoiceViewer(const QStringList& files = {});

    // The parts the tests and the screenshot tool reach for.
    InvoiceEditor* editor() const { return m_editor; }
    InvoiceListView* list() const { return m_list; }
    InvoiceListModel* listModel() const { return m_listModel; }
    InvoiceFilterModel* filterModel() const { return m_filter; }
    FilterSidebar* sidebar() const { return m_sidebar; }
    PreviewWidget* preview() const { return m_preview; }
    DetailArea* detailArea() const { return m_detail; }
    MessageBar* messages() const { return m_messages; }
    SyncIssuesBar* syncIssues() const { return m_syncIssues; }
    QLineEdit* searchField() const { return m_search; }
    DocumentActions* documents() const { return m_documents; }
    BackgroundServices* services() const { return m_services; }
    QAction* action(const QString& name) const;
    std::optional<QUuid> openInvoiceId() const;
    // Writes every edit that waits for the saver (on close, before switching invoice or profile).
    void saveNow();
    // Where the window opens on a screen with this free area: where the user left it (moved
    // and shrunk into the area), or on the first start as much of it as suits.
    void placeOnScreen(const QRect& available);
    // Shares a window width out among filters, list, form and preview.
    void distributeWidth(int total);

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool event(QEvent* event) override;

private:
    void createActions();
    void createMenus();
    void createToolBar();
    QWidget* createCentralArea();
    void restoreState();
    void storeState();

    void openInvoice(const std::optional<QUuid>& id);
    void onCurrentRowChanged();
    void onEdited(const Invoice& invoice);
    void saveInvoice(const QUuid& id);
    void onInvoiceChangedOnDisk(const QUuid& id);
    void onInvoiceRemoved(const QUuid& id);
    void onStoreReloaded();
    void updatePreview();
    void updateActions();
    void updateWindowTitle();
    void rebuildProfileMenu();
    void showNewlyCreated();
    void reveal(const QUuid& id);

    QList<Invoice> selectedInvoices() const;
    std::optional<Invoice> currentInvoice() const;
    QUndoStack* undoStackFor(const QUuid& id);
    void forgetHistory(const QUuid& id);
    // Changes invoices outside the editor: the open one through the editor (undoable), the
    // others straight to the store.
    void changeInvoices(const QList<Invoice>& invoices, const QString& text,
                        const std::function<void(Invoice&)>& change);

    void newInvoice(InvoiceType type);
    void duplicateInvoice();
    void cancelInvoice();
    void convertQuote();
    void setStatus(Status status);
    void deleteInvoices();
    void copyItem();
    void pasteItem();
    void exportCurrent(int kind);
    void exportCsv();
    void createReminder();
    void openDataFolder();
    void showPreferences();
    void editProfile();
    void showStyling();
    void newProfile();
    void switchProfile(const QUuid& id);
    void showAbout();
    void backUpNow();
    void installPlugin(const QString& path);
    void setStatusText(const QString& text, const QString& path = {});

    Workspace& m_workspace;
    QSettings& m_settings;
    InvoiceListModel* m_listModel = nullptr;
    InvoiceFilterModel* m_filter = nullptr;
    FilterSidebar* m_sidebar = nullptr;
    InvoiceListView* m_list = nullptr;
    InvoiceEditor* m_editor = nullptr;
    PreviewWidget* m_preview = nullptr;
    DetailArea* m_detail = nullptr;
    MessageBar* m_messages = nullptr;
    SyncIssuesBar* m_syncIssues = nullptr;
    QLineEdit* m_search = nullptr;
    QComboBox* m_profiles = nullptr;
    QSplitter* m_splitter = nullptr;
    QSplitter* m_detailSplitter = nullptr;
    QLabel* m_saveState = nullptr;
    QLabel* m_statusText = nullptr;
    DocumentActions* m_documents = nullptr;
    BackgroundServices* m_services = nullptr;
    bool m_fillingNewInvoice = false;
    bool m_distributeOnShow = false;
    QUndoGroup* m_undoGroup = nullptr;
    QHash<QUuid, QUndoStack*> m_undoStacks;
    std::unique_ptr<RateLimitedSaver> m_saver;
    std::unique_ptr<InvoiceFileWatcher> m_fileWatcher;
    std::unique_ptr<PluginManager> m_pluginManager;
    QMenu* m_exportPluginMenu = nullptr;
    QMenu* m_importPluginMenu = nullptr;
    QMenu* m_updatePluginMenu = nullptr;
    QHash<QString, QAction*> m_actions;
    QMenu* m_profileMenu = nullptr;
    QPointer<EInvoiceViewer> m_viewer;

    // The open invoice's record as it was last saved or read: the editor's copy differs from it
    // while an edit waits to be saved.
    std::optional<Invoice> m_savedVersion;
    // Edits waiting for the saver, by invoice.
    QHash<QUuid, Invoice> m_unsaved;
    // Set while a change on disk and the user's edits of the open invoice disagree.
    bool m_conflict = false;
    bool m_deletingOurselves = false;
};
