#pragma once

#include "einvoice/CSVExporter.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "reminders/Reminder.h"
#include "tasks/ImportTasks.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <optional>

class MessageBar;
class PluginManager;
class RejectedEInvoice;
class QSettings;
class QWidget;
class Workspace;

// The window's export and import commands: they ask for files, hand the work to the task
// layer, and report in the message bar and status line. File choices go through replaceable
// functions, so that tests drive the commands without native dialogs.
class DocumentActions : public QObject
{
    Q_OBJECT
public:
    // Returns the chosen path, or an empty string when the user cancelled.
    using SaveChooser =
        std::function<QString(const QString& title, const QString& suggestedPath, const QString& filter)>;
    using OpenChooser =
        std::function<QStringList(const QString& title, const QString& folder, const QString& filter)>;
    // The CSV columns to write, asked with the save dialog; nothing when cancelled.
    using CsvChooser = std::function<std::optional<std::pair<QString, QList<CSVExporter::Column>>>(
        const QString& suggestedPath)>;

    DocumentActions(Workspace& workspace, QSettings& settings, MessageBar& messages, QWidget* window);

    SaveChooser chooseSaveFile;
    OpenChooser chooseOpenFiles;
    CsvChooser chooseCsvFile;

    void exportPdf(const Invoice& invoice);
    void exportXRechnung(const Invoice& invoice);
    void exportZugferd(const Invoice& invoice);
    void exportCsv(const QList<Invoice>& invoices);
    // Creates the next payment reminder of the chain and writes its letter.
    void exportReminder(const Invoice& invoice);
    // The PDF of a reminder that exists already, to a file the user chooses.
    void exportReminderPdf(const Reminder& reminder, const Invoice& invoice);

    void importPdfs();
    void importEInvoices();

    // A plugin's entry points: export to a file the user chooses, import from one, or update
    // the statuses of the profile's invoices. Results and the plugin's errors are reported.
    void exportWithPlugin(PluginManager& plugins, const QString& id, const QList<Invoice>& invoices);
    void importWithPlugin(PluginManager& plugins, const QString& id);
    void updateWithPlugin(PluginManager& plugins, const QString& id);
    // Files dropped on the window or given on the command line.
    void importFiles(const QStringList& files);
    // Reports imports in the status line and message bar, and lists refusals and notes in a
    // report dialog over `dialogParent` (the main window when none).
    void reportImport(const QList<ImportResult>& results, QWidget* dialogParent = nullptr);

    // Ledra Data files: one profile or all of them, with everything in their folders.
    void exportProfile(const Profile& profile);
    void exportAllProfiles();
    void importProfiles();
    // `confirm` asks first, for a file opened from outside (the file manager, a drop).
    void importDataFile(const QString& path, bool confirm);
    // Asks whether to import a file opened from outside; replaceable for tests.
    std::function<bool(const QString& question)> confirmImport;

    bool isBusy() const { return m_busy > 0; }

Q_SIGNALS:
    // Shown in the status line; `path` makes it a link that opens the file's folder.
    void status(const QString& text, const QString& path = {});
    // A missing field of an e-invoice the user wants to go to.
    void showField(const QString& key, std::optional<int> item);
    // Invoices added by an import; the window selects the last one.
    void imported(const QList<QUuid>& ids);
    // An export finished (written or failed); for tests and the busy indicator.
    void finished();

private:
    QString lastFolder() const;
    void rememberFolder(const QString& path);
    QString suggestedPath(const QString& fileName) const;
    bool checkEInvoice(const Invoice& invoice);
    // The message for an e-invoice that breaks a rule, with a jump to the field to mend.
    void showBrokenRules(const RejectedEInvoice& rejected);
    // False, with the message that names the other invoice, when the number is used twice.
    bool checkNumber(const Invoice& invoice);
    void writeDataFile(const QList<Profile>& profiles, const QString& path);
    QString chooseReminderFile(const Reminder& reminder, const Invoice& invoice, const QString& title);
    void writeReminderPdf(const Reminder& reminder, const Invoice& invoice, const QString& path);
    void written(const QString& path, const QString& what);
    // Writes a rendered PDF, or reports why there is none.
    void pdfDone(const QString& path, const std::optional<QByteArray>& pdf, const QString& error,
                 const QString& what);
    void failed(const QString& title, const QString& error);

    Workspace& m_workspace;
    QSettings& m_settings;
    MessageBar& m_messages;
    QWidget* m_window;
    int m_busy = 0;
};
