#include "DocumentActions.h"

#include "AppText.h"
#include "ImportReportDialog.h"
#include "MessageBar.h"
#include "einvoice/XMLGenerator.h"
#include "exchange/ProfileExchange.h"
#include "numbering/NumberFormat.h"
#include "plugins/PluginManager.h"
#include "reminders/Reminder.h"
#include "tasks/CsvTasks.h"
#include "tasks/DocumentTasks.h"
#include "tasks/PluginTasks.h"
#include "tasks/SyncTasks.h"
#include "tasks/TaskError.h"
#include "tasks/ValidationTasks.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QStandardPaths>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr char lastFolderKey[] = "lastExportFolder";

// The save dialog of CSV exports, with the columns to include beneath it.
std::optional<std::pair<QString, QList<CSVExporter::Column>>> askCsvFile(QWidget* parent,
                                                                         const QString& suggested)
{
    QFileDialog dialog(parent, ui(u"Export CSV"), suggested, ui(u"CSV Files (*.csv)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(u"csv"_s);
    // The platform's dialog cannot take extra controls; Qt's own can.
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    auto* columns = new QWidget(&dialog);
    auto* row = new QHBoxLayout(columns);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new QLabel(ui(u"Include:")));
    QList<std::pair<CSVExporter::Column, QCheckBox*>> boxes;
    for (const CSVExporter::Column column : CSVExporter::allColumns()) {
        auto* box = new QCheckBox(CSVExporter::title(column));
        box->setChecked(true);
        row->addWidget(box);
        boxes.append({column, box});
    }
    row->addStretch();
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout()))
        grid->addWidget(columns, grid->rowCount(), 0, 1, grid->columnCount());
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    QList<CSVExporter::Column> chosen;
    for (const auto& [column, box] : boxes)
        if (box->isChecked())
            chosen.append(column);
    if (chosen.isEmpty())
        chosen = CSVExporter::allColumns();
    return std::pair{dialog.selectedFiles().first(), chosen};
}

} // namespace

DocumentActions::DocumentActions(Workspace& workspace, QSettings& settings, MessageBar& messages,
                                 QWidget* window)
    : QObject(window), m_workspace(workspace), m_settings(settings), m_messages(messages), m_window(window)
{
    chooseSaveFile = [this](const QString& title, const QString& suggested, const QString& filter) {
        return QFileDialog::getSaveFileName(m_window, title, suggested, filter);
    };
    chooseOpenFiles = [this](const QString& title, const QString& folder, const QString& filter) {
        return QFileDialog::getOpenFileNames(m_window, title, folder, filter);
    };
    chooseCsvFile = [this](const QString& suggested) { return askCsvFile(m_window, suggested); };
    confirmImport = [this](const QString& question) {
        return QMessageBox::question(m_window, ui(u"Import Profiles"), question,
                                     QMessageBox::Yes | QMessageBox::Cancel) == QMessageBox::Yes;
    };
}

QString DocumentActions::lastFolder() const
{
    const QString folder = m_settings.value(lastFolderKey).toString();
    if (!folder.isEmpty() && QFileInfo(folder).isDir())
        return folder;
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return documents.isEmpty() ? QDir::homePath() : documents;
}

void DocumentActions::rememberFolder(const QString& path)
{
    m_settings.setValue(lastFolderKey, QFileInfo(path).absolutePath());
}

QString DocumentActions::suggestedPath(const QString& fileName) const
{
    return QDir(lastFolder()).filePath(fileName);
}

void DocumentActions::written(const QString& path, const QString& what)
{
    rememberFolder(path);
    Q_EMIT status(ui(u"%1 saved to %2").arg(what, QDir::toNativeSeparators(path)), path);
}

void DocumentActions::failed(const QString& title, const QString& error)
{
    m_messages.show(MessageBar::Kind::error, title + u"\n"_s + error);
    Q_EMIT status(title);
}

bool DocumentActions::checkEInvoice(const Invoice& invoice)
{
    try {
        DocumentTasks::checkEInvoice(DocumentSource::of(m_workspace, invoice));
        return true;
    } catch (const IncompleteEInvoice& incomplete) {
        const QList<MissingField>& missing = incomplete.missing();
        m_messages.show(MessageBar::Kind::warning,
                        ui(u"This invoice cannot be sent as an e-invoice yet. Missing: %1.")
                            .arg(incomplete.texts().join(u", "_s)));
        const MissingField first = missing.first();
        m_messages.addAction(ui(u"Go to %1").arg(first.text),
                             [this, first] { Q_EMIT showField(first.key, first.item); });
        // The user lands on the first missing field at once; the button brings them back.
        Q_EMIT showField(first.key, first.item);
        return false;
    } catch (const RejectedEInvoice& rejected) {
        showBrokenRules(rejected);
        return false;
    } catch (const TaskError& failure) {
        failed(ui(u"Export Failed"), failure.message());
        return false;
    }
}

void DocumentActions::showBrokenRules(const RejectedEInvoice& rejected)
{
    // Rarely more than one; the first few say enough to act on.
    constexpr int shown = 3;
    QStringList rules;
    for (const BrokenRule& rule : rejected.rules()) {
        if (rules.size() == shown) {
            rules.append(ui(u"and %1 more").arg(rejected.rules().size() - shown));
            break;
        }
        rules.append(u"%1: %2"_s.arg(rule.failure.ruleId, ValidationTasks::ruleText(rule.failure)));
    }
    m_messages.show(
        MessageBar::Kind::warning,
        ui(u"Not exported: the e-invoice breaks an official rule, so its receiver would reject it.") +
            u"\n"_s + rules.join(u"\n"_s));
    for (const BrokenRule& rule : rejected.rules()) {
        if (!rule.field)
            continue;
        const MissingField field = *rule.field;
        m_messages.addAction(ui(u"Go to %1").arg(field.text),
                             [this, field] { Q_EMIT showField(field.key, field.item); });
        Q_EMIT showField(field.key, field.item);
        break;
    }
    Q_EMIT status(ui(u"E-invoice not exported"));
}

bool DocumentActions::checkNumber(const Invoice& invoice)
{
    // Refused before the save dialog: the user should not choose a place for nothing.
    const QString clash = SyncTasks::numberClash(m_workspace, invoice);
    if (clash.isEmpty())
        return true;
    failed(ui(u"Export Failed"), clash);
    return false;
}

void DocumentActions::exportPdf(const Invoice& invoice)
{
    if (!checkNumber(invoice))
        return;
    const Profile& profile = m_workspace.activeProfile();
    const QString path = chooseSaveFile(
        ui(u"Export PDF"),
        suggestedPath(DocumentTasks::suggestedFileName(invoice, profile, DocumentTasks::Kind::pdf)),
        ui(u"PDF Documents (*.pdf)"));
    if (path.isEmpty())
        return;
    ++m_busy;
    Q_EMIT status(ui(u"Creating the PDF…"));
    DocumentTasks::invoicePdfAsync(
        DocumentSource::of(m_workspace, invoice),
        [self = QPointer<DocumentActions>(this), path](std::optional<QByteArray> pdf, const QString& error) {
            if (self)
                self->pdfDone(path, pdf, error, ui(u"PDF"));
        });
}

void DocumentActions::pdfDone(const QString& path, const std::optional<QByteArray>& pdf, const QString& error,
                              const QString& what)
{
    --m_busy;
    try {
        if (!pdf)
            throw TaskError(error);
        DocumentTasks::writeFile(path, *pdf);
        written(path, what);
    } catch (const TaskError& failure) {
        failed(ui(u"Export Failed"), failure.message());
    }
    Q_EMIT finished();
}

void DocumentActions::exportXRechnung(const Invoice& invoice)
{
    if (!checkNumber(invoice) || !checkEInvoice(invoice))
        return;
    const Profile& profile = m_workspace.activeProfile();
    const QString path = chooseSaveFile(
        ui(u"Export as E-Invoice (XML)"),
        suggestedPath(DocumentTasks::suggestedFileName(invoice, profile, DocumentTasks::Kind::xrechnung)),
        ui(u"E-Invoices (*.xml)"));
    if (path.isEmpty())
        return;
    try {
        DocumentTasks::writeFile(path, DocumentTasks::eInvoiceXml(DocumentSource::of(m_workspace, invoice)));
        written(path, ui(u"E-invoice (%1)").arg(labelText(XMLGenerator::chosenProfile(invoice, profile))));
    } catch (const TaskError& failure) {
        failed(ui(u"Export Failed"), failure.message());
    }
    Q_EMIT finished();
}

void DocumentActions::exportZugferd(const Invoice& invoice)
{
    if (!checkNumber(invoice) || !checkEInvoice(invoice))
        return;
    const Profile& profile = m_workspace.activeProfile();
    const QString path = chooseSaveFile(
        ui(u"Export as ZUGFeRD PDF"),
        suggestedPath(DocumentTasks::suggestedFileName(invoice, profile, DocumentTasks::Kind::zugferd)),
        ui(u"PDF Documents (*.pdf)"));
    if (path.isEmpty())
        return;
    const DocumentSource source = DocumentSource::of(m_workspace, invoice);
    ++m_busy;
    Q_EMIT status(ui(u"Creating the ZUGFeRD PDF…"));
    // The window may close before the pages are printed; then nothing is written.
    DocumentTasks::invoicePdfAsync(source, [self = QPointer<DocumentActions>(this), path,
                                            source](std::optional<QByteArray> pdf, const QString& error) {
        if (!self)
            return;
        --self->m_busy;
        try {
            if (!pdf) {
                qWarning("Failed to create PDF for ZUGFeRD export");
                throw TaskError(error);
            }
            const QByteArray hybrid =
                DocumentTasks::hybridPdf(source, *pdf, DocumentTasks::eInvoiceXml(source));
            DocumentTasks::writeFile(path, hybrid);
            qInfo("ZUGFeRD PDF saved to %s", qPrintable(path));
            self->written(path, ui(u"ZUGFeRD PDF"));
        } catch (const TaskError& failure) {
            self->failed(ui(u"ZUGFeRD Export Failed"), failure.message());
        }
        Q_EMIT self->finished();
    });
}

void DocumentActions::exportCsv(const QList<Invoice>& invoices)
{
    const auto choice = chooseCsvFile(suggestedPath(CsvTasks::suggestedFileName()));
    if (!choice)
        return;
    const auto& [path, columns] = *choice;
    try {
        CsvTasks::write(path, invoices, columns, m_workspace.activeProfile());
        written(path, ui(u"CSV file"));
    } catch (const TaskError& failure) {
        failed(ui(u"Export Failed"), failure.message());
    }
    Q_EMIT finished();
}

void DocumentActions::exportReminder(const Invoice& invoice)
{
    ReminderManager& reminders = m_workspace.reminders();
    QString error;
    const std::optional<Reminder> next = reminders.nextReminder(invoice.id, &error);
    if (!next) {
        failed(ui(u"The payment reminder could not be created"), error);
        return;
    }
    const QString path = chooseReminderFile(*next, invoice, ui(u"Create Payment Reminder"));
    if (path.isEmpty())
        return;
    Reminder created;
    if (const auto saveError = reminders.createReminder(invoice.id, &created)) {
        failed(ui(u"The payment reminder could not be created"), *saveError);
        return;
    }
    writeReminderPdf(created, invoice, path);
}

void DocumentActions::exportReminderPdf(const Reminder& reminder, const Invoice& invoice)
{
    const QString path = chooseReminderFile(reminder, invoice, ui(u"Export PDF"));
    if (!path.isEmpty())
        writeReminderPdf(reminder, invoice, path);
}

QString DocumentActions::chooseReminderFile(const Reminder& reminder, const Invoice& invoice,
                                            const QString& title)
{
    const Profile& profile = m_workspace.activeProfile();
    QString name = Strings::text(Reminder::titleKey(reminder.number), invoice.documentLanguage(profile)) +
                   u' ' + NumberFormat::displayNumber(invoice, profile) + u".pdf"_s;
    name.replace(u'/', u'-');
    return chooseSaveFile(title, suggestedPath(name), ui(u"PDF Documents (*.pdf)"));
}

void DocumentActions::writeReminderPdf(const Reminder& reminder, const Invoice& invoice, const QString& path)
{
    ++m_busy;
    Q_EMIT status(ui(u"Creating the payment reminder…"));
    DocumentTasks::reminderPdfAsync(reminder, DocumentSource::of(m_workspace, invoice),
                                    [self = QPointer<DocumentActions>(this),
                                     path](std::optional<QByteArray> pdf, const QString& renderError) {
                                        if (self)
                                            self->pdfDone(path, pdf, renderError, ui(u"Payment reminder"));
                                    });
}

void DocumentActions::importPdfs()
{
    const QStringList files = chooseOpenFiles(ui(u"Import PDF"), lastFolder(), ui(u"PDF Documents (*.pdf)"));
    if (files.isEmpty())
        return;
    rememberFolder(files.first());
    reportImport(ImportTasks::importPdfs(m_workspace.invoices(), files));
}

void DocumentActions::importEInvoices()
{
    const QStringList files =
        chooseOpenFiles(ui(u"Select E-Invoices"), lastFolder(), ui(u"E-Invoices (*.xml *.pdf)"));
    if (files.isEmpty())
        return;
    rememberFolder(files.first());
    reportImport(ImportTasks::importEInvoices(m_workspace.invoices(), m_workspace.activeProfile(), files));
}

void DocumentActions::exportWithPlugin(PluginManager& plugins, const QString& id,
                                       const QList<Invoice>& invoices)
{
    const auto plugin = plugins.plugin(id);
    if (!plugin || invoices.isEmpty())
        return;
    const Profile& profile = m_workspace.activeProfile();
    const QString extension = plugin->manifest.fileExtension.value_or(u"txt"_s);
    const QString path = chooseSaveFile(
        ui(u"Export Invoices"), suggestedPath(PluginTasks::suggestedExportName(*plugin, invoices, profile)),
        ui(u"%1 Files (*.%2)").arg(extension.toUpper(), extension));
    if (path.isEmpty())
        return;
    try {
        PluginTasks::exportToFile(plugins, id, invoices, profile, path);
        written(path, plugin->manifest.name);
    } catch (const TaskError& failure) {
        failed(ui(u"Export Failed"), failure.message());
    }
    Q_EMIT finished();
}

void DocumentActions::importWithPlugin(PluginManager& plugins, const QString& id)
{
    const auto plugin = plugins.plugin(id);
    if (!plugin)
        return;
    const QString extension = plugin->manifest.fileExtension.value_or(QString());
    const QString filter = extension.isEmpty() ? ui(u"All Files (*)")
                                               : ui(u"%1 Files (*.%2)").arg(extension.toUpper(), extension);
    const QStringList files = chooseOpenFiles(ui(u"Import Invoices"), lastFolder(), filter);
    if (files.isEmpty())
        return;
    rememberFolder(files.first());
    QList<QUuid> ids;
    QStringList problems;
    for (const QString& file : files) {
        try {
            for (const Invoice& invoice : PluginTasks::importFile(plugins, id, file, m_workspace.invoices(),
                                                                  m_workspace.activeProfile()))
                ids.append(invoice.id);
        } catch (const TaskError& failure) {
            problems.append(failure.message());
        }
    }
    if (!problems.isEmpty())
        failed(ui(u"Import Failed"), problems.join(u'\n'));
    if (!ids.isEmpty()) {
        Q_EMIT status(ui(u"Imported invoices: %1").arg(ids.size()));
        Q_EMIT imported(ids);
    } else if (problems.isEmpty()) {
        m_messages.show(MessageBar::Kind::information,
                        ui(u"The plugin “%1” found no invoices.").arg(plugin->manifest.name));
    }
}

void DocumentActions::updateWithPlugin(PluginManager& plugins, const QString& id)
{
    const auto plugin = plugins.plugin(id);
    if (!plugin)
        return;
    if (const auto changed = plugins.runUpdate(id)) {
        Q_EMIT status(*changed == 0
                          ? ui(u"“%1”: every invoice is up to date").arg(plugin->manifest.name)
                          : ui(u"“%1” updated invoices: %2").arg(plugin->manifest.name).arg(*changed));
        return;
    }
    const PluginRuntime* runtime = plugins.runtime(id);
    failed(ui(u"Update Failed"),
           ui(u"The plugin “%1” could not update the invoices: %2")
               .arg(plugin->manifest.name,
                    runtime && runtime->lastError() ? *runtime->lastError() : ui(u"it returned no result.")));
}

void DocumentActions::importFiles(const QStringList& files)
{
    if (files.isEmpty())
        return;
    reportImport(ImportTasks::importDropped(m_workspace.invoices(), m_workspace.activeProfile(), files));
}

void DocumentActions::reportImport(const QList<ImportResult>& results, QWidget* dialogParent)
{
    QList<QUuid> added;
    int refused = 0;
    bool notes = false;
    for (const ImportResult& result : results) {
        if (result.invoice)
            added.append(result.invoice->id);
        else
            ++refused;
        notes = notes || !result.notes.isEmpty();
    }
    if (!added.isEmpty())
        Q_EMIT imported(added);
    if (results.size() == 1 && refused == 0 && !notes) {
        Q_EMIT status(ui(u"Imported %1").arg(QFileInfo(results.first().file).fileName()));
        return;
    }
    if (refused > 0)
        m_messages.show(MessageBar::Kind::warning,
                        ui(u"%1 of %2 files imported.").arg(added.size()).arg(results.size()));
    else
        m_messages.show(MessageBar::Kind::information, ui(u"%1 files imported.").arg(added.size()));
    auto* report =
        new ImportReportDialog(m_workspace.activeProfile(), results, dialogParent ? dialogParent : m_window);
    report->open();
}

void DocumentActions::exportProfile(const Profile& profile)
{
    const QString path = chooseSaveFile(
        ui(u"Export Profile"), suggestedPath(ProfileExporter::suggestedFileName(profile, Clock::today())),
        ui(u"Ledra Data (*.ledradata)"));
    if (!path.isEmpty())
        writeDataFile({profile}, path);
}

void DocumentActions::exportAllProfiles()
{
    const QString path =
        chooseSaveFile(ui(u"Export All Profiles"),
                       suggestedPath(ProfileExporter::suggestedAllProfilesFileName(Clock::today())),
                       ui(u"Ledra Data (*.ledradata)"));
    if (!path.isEmpty())
        writeDataFile(m_workspace.profiles().profiles(), path);
}

void DocumentActions::writeDataFile(const QList<Profile>& profiles, const QString& target)
{
    // Without the extension the file would not open in Ledra again.
    const QString path =
        target.endsWith(u".ledradata"_s, Qt::CaseInsensitive) ? target : target + u".ledradata"_s;
    QList<std::pair<QString, QString>> folders;
    try {
        folders = ProfileExporter(m_workspace.profiles()).archiveFolders(profiles);
    } catch (const ProfileExportError& error) {
        failed(ui(u"Export Failed"), error.message());
        Q_EMIT finished();
        return;
    }
    ++m_busy;
    Q_EMIT status(ui(u"Writing the Ledra Data file…"));
    // Big profiles take a moment to pack; the window stays free meanwhile.
    auto error = std::make_shared<QString>();
    QThread* thread = QThread::create([folders, path, error] {
        try {
            ProfileExporter::writeArchive(folders, path);
        } catch (const ProfileExportError& failure) {
            *error = failure.message();
        }
    });
    connect(thread, &QThread::finished, this, [this, thread, path, error] {
        thread->deleteLater();
        --m_busy;
        if (error->isEmpty())
            written(path, ui(u"Ledra Data file"));
        else
            failed(ui(u"Export Failed"), *error);
        Q_EMIT finished();
    });
    // The window waits for a running export before it goes, so no archive is left half written.
    connect(m_window, &QObject::destroyed, thread, [thread] { thread->wait(); });
    thread->start();
}

void DocumentActions::importProfiles()
{
    const QStringList files = chooseOpenFiles(ui(u"Choose the Ledra Data file you want to import"),
                                              lastFolder(), ui(u"Ledra Data (*.ledradata)"));
    if (!files.isEmpty())
        importDataFile(files.first(), false);
}

void DocumentActions::importDataFile(const QString& path, bool confirm)
{
    if (confirm &&
        !confirmImport(ui(u"Add the profiles in “%1” to Ledra? Profiles you have already stay as they are.")
                           .arg(QFileInfo(path).fileName())))
        return;
    ProfileImportResult result;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    try {
        result = ProfileImporter(m_workspace.profiles()).importFile(path);
    } catch (const ProfileImportError& error) {
        QApplication::restoreOverrideCursor();
        qWarning("Import failed: %s", qPrintable(error.message() + u' ' + error.detail()));
        failed(ui(u"Import Failed"), error.message());
        return;
    }
    QApplication::restoreOverrideCursor();
    if (result.imported.isEmpty()) {
        failed(ui(u"Import Failed"), result.failures.join(u'\n'));
        return;
    }
    QString text =
        ui(u"Profiles added: %1. Switch to them with the profile menu.").arg(result.imported.join(u", "_s));
    if (!result.failures.isEmpty())
        text += u'\n' + ui(u"Not added: %1").arg(result.failures.join(u"; "_s));
    m_messages.show(result.failures.isEmpty() ? MessageBar::Kind::information : MessageBar::Kind::warning,
                    text);
    Q_EMIT status(ui(u"Profiles imported"));
}
