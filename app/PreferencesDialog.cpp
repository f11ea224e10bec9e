#include "PreferencesDialog.h"

#include "AppSettings.h"
#include "AppText.h"
#include "BackgroundServices.h"
#include "WindowMemory.h"
#include "exchange/BackupManager.h"
#include "exchange/MailExtensionSync.h"
#include "extraction/TextParser.h"
#include "tasks/AutoExport.h"
#include "tasks/MailExtensionHandler.h"
#include "tasks/Workspace.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSignalBlocker>
#include <QTabWidget>
#include <QTime>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

PreferencesDialog::PreferencesDialog(Workspace& workspace, QSettings& settings, BackgroundServices& services,
                                     QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_settings(settings), m_services(services)
{
    setObjectName(u"preferences"_s);
    setWindowTitle(ui(u"Preferences"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    auto* folder = new QVBoxLayout;
    m_dataFolder = new QLabel;
    m_dataFolder->setObjectName(u"dataFolder"_s);
    m_dataFolder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_dataFolder->setWordWrap(true);
    auto* folderButtons = new QHBoxLayout;
    auto* change = new QPushButton(ui(u"Change…"));
    auto* reset = new QPushButton(ui(u"Reset to Default"));
    reset->setObjectName(u"resetDataFolder"_s);
    folderButtons->addWidget(change);
    folderButtons->addWidget(reset);
    folderButtons->addStretch();
    folder->addWidget(m_dataFolder);
    folder->addLayout(folderButtons);
    connect(change, &QPushButton::clicked, this, &PreferencesDialog::changeDataFolder);
    connect(reset, &QPushButton::clicked, this, &PreferencesDialog::resetDataFolder);
    form->addRow(ui(u"Data Folder"), folder);

    m_language = new QComboBox;
    m_language->setObjectName(u"interfaceLanguage"_s);
    // Each language under its own name, so that it is found whatever language is showing.
    m_language->setProperty("endonyms", true);
    m_language->setAccessibleName(ui(u"Language"));
    m_language->addItem(ui(u"Language of the System"), u"system"_s);
    m_language->addItem(u"English"_s, u"en"_s);
    m_language->addItem(u"Deutsch"_s, u"de"_s);
    const auto chosen = AppSettings::interfaceLanguage(m_settings);
    m_language->setCurrentIndex(chosen ? m_language->findData(rawValue(*chosen)) : 0);
    m_restartHint = new QLabel(ui(u"Ledra uses the new language after a restart."));
    m_restartHint->setForegroundRole(QPalette::PlaceholderText);
    m_restartHint->hide();
    connect(m_language, &QComboBox::activated, this, [this] {
        AppSettings::setInterfaceLanguage(m_settings,
                                          enumFromRaw<Language>(m_language->currentData().toString()));
        m_restartHint->show();
    });
    auto* language = new QVBoxLayout;
    language->addWidget(m_language);
    language->addWidget(m_restartHint);
    form->addRow(ui(u"Language"), language);

    m_darkMode = new QCheckBox(ui(u"Show the preview in dark colours when the desktop is dark"));
    m_darkMode->setObjectName(u"invoiceDarkMode"_s);
    m_darkMode->setChecked(AppSettings::invoiceDarkMode(m_settings));
    connect(m_darkMode, &QCheckBox::toggled, this,
            [this](bool on) { m_settings.setValue(AppSettings::invoiceDarkModeKey, on); });
    form->addRow(ui(u"Preview"), m_darkMode);

    m_pluginUpdates = new QCheckBox(ui(u"Check for plugin updates automatically"));
    m_pluginUpdates->setObjectName(u"pluginUpdates"_s);
    m_pluginUpdates->setChecked(AppSettings::pluginUpdateChecks(m_settings));
    connect(m_pluginUpdates, &QCheckBox::toggled, this,
            [this](bool on) { m_settings.setValue(AppSettings::pluginUpdateChecksKey, on); });
    form->addRow(ui(u"Plugins"), m_pluginUpdates);

    // One page per subject: the dialog stays short and each page says what it is about.
    auto* general = new QWidget;
    general->setLayout(form);
    auto* tabs = new QTabWidget;
    tabs->setObjectName(u"preferencePages"_s);
    tabs->addTab(general, ui(u"General"));
    tabs->addTab(pageOf(backupSection()), ui(u"Backups"));
    tabs->addTab(pageOf(exportSection()), ui(u"Automatic Export"));
    tabs->addTab(pageOf(mailSection()), ui(u"Mail Add-on"));
    tabs->addTab(pageOf(modelSection()), ui(u"Language Model"));
    layout->addWidget(tabs);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);
    layout->addWidget(buttons);
    updateDataFolder();
    resize(640, sizeHint().height());
    WindowMemory::attach(this, u"preferences"_s);
}

QWidget* PreferencesDialog::pageOf(QWidget* section)
{
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(section);
    layout->addStretch();
    return page;
}

QWidget* PreferencesDialog::mailSection()
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* intro = new QLabel(ui(u"The mail add-on lists your invoices in your mail program and attaches them "
                                u"to messages. It exchanges files with Ledra in this folder:"));
    intro->setWordWrap(true);
    auto* folder = new QLabel(QDir::toNativeSeparators(MailExtension::containerPath()));
    folder->setObjectName(u"mailFolder"_s);
    folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folder->setWordWrap(true);
    auto* open = new QPushButton(ui(u"Open Folder"));
    connect(open, &QPushButton::clicked, this, [] {
        if (const auto path = MailExtension::container())
            QDesktopServices::openUrl(QUrl::fromLocalFile(*path));
    });
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(folder, 1);
    folderRow->addWidget(open);

    auto* form = new QFormLayout;
    m_mailFormat = new QComboBox;
    m_mailFormat->setObjectName(u"mailAttachmentFormat"_s);
    for (const EInvoiceFormat format : allCases<EInvoiceFormat>())
        m_mailFormat->addItem(labelText(format), int(format));
    m_mailFormat->setCurrentIndex(m_mailFormat->findData(int(m_workspace.activeProfile().eInvoiceFormat)));
    connect(m_mailFormat, &QComboBox::activated, this, [this] {
        Profile profile = m_workspace.activeProfile();
        profile.eInvoiceFormat = EInvoiceFormat(m_mailFormat->currentData().toInt());
        if (const auto error = m_workspace.profiles().saveProfile(profile))
            QMessageBox::warning(this, ui(u"Profile Not Saved"),
                                 ui(u"The profile could not be saved: %1").arg(*error));
    });
    form->addRow(ui(u"Attach Invoices of “%1” as").arg(m_workspace.activeProfile().displayName()),
                 m_mailFormat);

    m_mailState = new QLabel;
    m_mailState->setObjectName(u"mailState"_s);
    m_mailState->setWordWrap(true);
    m_mailState->setForegroundRole(QPalette::PlaceholderText);
    auto* sync = new QPushButton(ui(u"Update the Invoice List Now"));
    sync->setObjectName(u"mailSync"_s);
    sync->setToolTip(ui(u"Ledra updates the list by itself after every change; this is for a mail "
                        u"program that was installed just now."));
    connect(sync, &QPushButton::clicked, this, [this] {
        m_mailState->setText(m_services.mail().sync()
                                 ? ui(u"The invoice list was written at %1.")
                                       .arg(QLocale().toString(QTime::currentTime(), QLocale::ShortFormat))
                                 : ui(u"The exchange folder cannot be written; see the log for why."));
    });
    auto* syncRow = new QHBoxLayout;
    syncRow->addWidget(sync);
    syncRow->addWidget(m_mailState, 1);

    layout->addWidget(intro);
    layout->addLayout(folderRow);
    layout->addLayout(form);
    layout->addLayout(syncRow);
    return box;
}

void PreferencesDialog::updateDataFolder()
{
    const ProfileManager& profiles = m_workspace.profiles();
    m_dataFolder->setText(QDir::toNativeSeparators(profiles.dataFolder()));
    findChild<QPushButton*>(u"resetDataFolder"_s)->setEnabled(profiles.customDataPath().has_value());
}

void PreferencesDialog::changeDataFolder()
{
    const QString folder =
        QFileDialog::getExistingDirectory(this,
                                          ui(u"Choose where to store your profiles, invoices, and styling "
                                             u"data. The default location is in the app’s "
                                             u"“Application Support” folder."),
                                          m_workspace.profiles().dataFolder());
    if (folder.isEmpty())
        return;
    if (const auto error = m_workspace.profiles().changeDataFolder(folder))
        QMessageBox::warning(this, ui(u"Data Folder Not Changed"), *error);
    updateDataFolder();
}

void PreferencesDialog::resetDataFolder()
{
    const auto answer = QMessageBox::question(this, ui(u"Reset Data Folder"),
                                              ui(u"This will reset the data storage location to the default "
                                                 u"“Application Support” folder. Your data will "
                                                 u"get migrated automatically."));
    if (answer != QMessageBox::Yes)
        return;
    if (const auto error = m_workspace.profiles().resetDataFolder())
        QMessageBox::warning(this, ui(u"Data Folder Not Changed"), *error);
    updateDataFolder();
}

QWidget* PreferencesDialog::backupSection()
{
    BackupManager& backups = m_services.backups();
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* choices = new QHBoxLayout;
    auto* frequency = new QComboBox;
    frequency->setObjectName(u"backupFrequency"_s);
    for (const BackupFrequency value : BackupManager::frequencies())
        frequency->addItem(BackupManager::label(value), int(value));
    frequency->setCurrentIndex(frequency->findData(int(backups.frequency())));
    connect(frequency, &QComboBox::activated, this, [&backups, frequency] {
        backups.setFrequency(BackupFrequency(frequency->currentData().toInt()));
    });
    auto* retention = new QComboBox;
    retention->setObjectName(u"backupRetention"_s);
    for (const BackupRetention value : BackupManager::retentions())
        retention->addItem(BackupManager::label(value), int(value));
    retention->setCurrentIndex(retention->findData(int(backups.retention())));
    connect(retention, &QComboBox::activated, this, [&backups, retention] {
        backups.setRetention(BackupRetention(retention->currentData().toInt()));
    });
    auto* rows = new QFormLayout;
    rows->addRow(ui(u"Back Up"), frequency);
    rows->addRow(ui(u"Keep"), retention);
    choices->addLayout(rows);
    choices->addStretch();
    layout->addLayout(choices);
    // The backups there are, newest first; one is restored by adding its profiles beside
    // the user's own.
    auto* list = new QListWidget;
    list->setObjectName(u"backupList"_s);
    list->setAccessibleName(ui(u"Backups"));
    auto* actions = new QHBoxLayout;
    auto* now = new QPushButton(ui(u"Back Up Now"));
    auto* restore = new QPushButton(ui(u"Restore…"));
    restore->setObjectName(u"restoreBackup"_s);
    restore->setToolTip(ui(u"Adds the profiles of the backup beside yours; nothing is replaced."));
    auto* show = new QPushButton(ui(u"Show Backups"));
    auto* status = new QLabel;
    status->setForegroundRole(QPalette::PlaceholderText);
    status->setWordWrap(true);
    auto describe = [&backups, status, list] {
        const auto all = backups.backups();
        if (all.isEmpty()) {
            status->setText(ui(u"No backups yet."));
        } else {
            const QString newest = QLocale().toString(all.first().date, QLocale::LongFormat);
            status->setText(all.size() == 1
                                ? ui(u"One backup, from %1.").arg(newest)
                                : ui(u"%1 backups, the newest from %2.").arg(all.size()).arg(newest));
        }
        list->clear();
        for (const BackupManager::Backup& backup : all) {
            auto* item = new QListWidgetItem(
                u"%1 (%2)"_s.arg(QLocale().toString(backup.date, QLocale::LongFormat),
                                 QLocale().formattedDataSize(QFileInfo(backup.path).size(), 1)),
                list);
            item->setData(Qt::UserRole, backup.path);
            item->setToolTip(backup.path);
        }
        list->setVisible(!all.isEmpty());
        list->setCurrentRow(0); // also enables Restore… when there is a backup
    };
    connect(list, &QListWidget::currentRowChanged, restore,
            [list, restore] { restore->setEnabled(list->currentItem() != nullptr); });
    connect(now, &QPushButton::clicked, this, [this, &backups, describe] {
        QString error;
        if (!backups.backupNow(&error))
            QMessageBox::warning(this, ui(u"Backup Failed"), error);
        describe();
    });
    auto restoreCurrent = [this, list] {
        if (const QListWidgetItem* item = list->currentItem())
            Q_EMIT restoreRequested(item->data(Qt::UserRole).toString());
    };
    connect(restore, &QPushButton::clicked, this, restoreCurrent);
    connect(list, &QListWidget::itemActivated, this, restoreCurrent);
    connect(show, &QPushButton::clicked, this, [&backups] {
        QDir().mkpath(backups.backupsDirectory());
        QDesktopServices::openUrl(QUrl::fromLocalFile(backups.backupsDirectory()));
    });
    actions->addWidget(now);
    actions->addWidget(restore);
    actions->addWidget(show);
    actions->addStretch();
    layout->addWidget(list, 1);
    layout->addLayout(actions);
    layout->addWidget(status);
    describe();
    return box;
}

QWidget* PreferencesDialog::exportSection()
{
    AutoExportHelper& helper = m_services.autoExport();
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    m_exportEnabled =
        new QCheckBox(ui(u"Save the PDF of sent and paid invoices into a folder automatically"));
    m_exportEnabled->setObjectName(u"autoExportEnabled"_s);
    auto* folderRow = new QHBoxLayout;
    m_exportFolder = new QLabel;
    m_exportFolder->setObjectName(u"autoExportFolder"_s);
    m_exportFolder->setWordWrap(true);
    m_exportFolder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* choose = new QPushButton(ui(u"Choose Folder…"));
    folderRow->addWidget(m_exportFolder, 1);
    folderRow->addWidget(choose);
    m_exportXml = new QCheckBox(ui(u"Also the e-invoice XML"));
    m_exportZugferd = new QCheckBox(ui(u"Also the ZUGFeRD PDF"));
    m_exportAll = new QCheckBox(ui(u"After a save, export every eligible invoice, not only the saved one"));
    layout->addWidget(m_exportEnabled);
    layout->addLayout(folderRow);
    layout->addWidget(m_exportXml);
    layout->addWidget(m_exportZugferd);
    layout->addWidget(m_exportAll);
    connect(m_exportEnabled, &QCheckBox::toggled, this, [this, &helper](bool on) {
        if (on && !helper.folderPath(m_workspace.activeProfile())) {
            const QString folder = QFileDialog::getExistingDirectory(this, ui(u"Choose the Export Folder"));
            if (folder.isEmpty()) {
                m_exportEnabled->setChecked(false);
                return;
            }
            helper.setFolder(m_workspace.activeProfile(), folder);
        }
        helper.setEnabled(on);
        updateExport();
    });
    connect(choose, &QPushButton::clicked, this, [this, &helper] {
        const QString folder = QFileDialog::getExistingDirectory(
            this, ui(u"Choose the Export Folder"),
            helper.folderPath(m_workspace.activeProfile()).value_or(QString()));
        if (folder.isEmpty())
            return;
        helper.setFolder(m_workspace.activeProfile(), folder);
        updateExport();
    });
    connect(m_exportXml, &QCheckBox::toggled, this, [&helper](bool on) { helper.setXmlEnabled(on); });
    connect(m_exportZugferd, &QCheckBox::toggled, this, [&helper](bool on) { helper.setZugferdEnabled(on); });
    connect(m_exportAll, &QCheckBox::toggled, this, [&helper](bool on) { helper.setExportAllEligible(on); });
    updateExport();
    return box;
}

QWidget* PreferencesDialog::modelSection()
{
    const TextParserSettings current = TextParserSettings::load(m_settings);
    auto* box = new QWidget;
    auto* layout = new QFormLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* intro =
        new QLabel(ui(u"“New Invoice from Text…” can ask a language model server on this computer "
                      u"(llama-server, Ollama or LM Studio). Without one, the offline extractor reads "
                      u"the text."));
    intro->setWordWrap(true);
    layout->addRow(intro);
    m_modelServer = new QLineEdit(current.serverUrl.toString());
    m_modelServer->setObjectName(u"modelServer"_s);
    m_modelServer->setPlaceholderText(QString::fromLatin1(TextParserSettings::defaultServerUrl));
    m_modelServer->setAccessibleName(ui(u"Server Address"));
    layout->addRow(ui(u"Server Address"), m_modelServer);
    m_modelName = new QLineEdit(current.model);
    m_modelName->setObjectName(u"modelName"_s);
    m_modelName->setPlaceholderText(ui(u"The server’s model"));
    m_modelName->setAccessibleName(ui(u"Model"));
    layout->addRow(ui(u"Model"), m_modelName);
    m_modelRemote = new QCheckBox(ui(u"Allow servers outside this computer and the local network"));
    m_modelRemote->setObjectName(u"modelAllowRemote"_s);
    m_modelRemote->setChecked(current.allowRemoteHost);
    layout->addRow(m_modelRemote);
    auto* check = new QPushButton(ui(u"Check Connection"));
    check->setObjectName(u"checkModel"_s);
    m_modelState = new QLabel;
    m_modelState->setObjectName(u"modelCheckResult"_s);
    m_modelState->setWordWrap(true);
    m_modelState->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* row = new QHBoxLayout;
    row->addWidget(check);
    row->addWidget(m_modelState, 1);
    layout->addRow(row);

    const auto store = [this] {
        TextParserSettings settings = TextParserSettings::load(m_settings);
        const QString address = m_modelServer->text().trimmed();
        settings.serverUrl = address.isEmpty()
                                 ? QUrl(QString::fromLatin1(TextParserSettings::defaultServerUrl))
                                 : QUrl::fromUserInput(address);
        settings.model = m_modelName->text().trimmed();
        settings.allowRemoteHost = m_modelRemote->isChecked();
        settings.save(m_settings);
        m_modelState->clear();
    };
    connect(m_modelServer, &QLineEdit::editingFinished, this, store);
    connect(m_modelName, &QLineEdit::editingFinished, this, store);
    connect(m_modelRemote, &QCheckBox::toggled, this, store);
    connect(check, &QPushButton::clicked, this, [this, store] {
        store();
        m_modelState->setText(ui(u"Checking…"));
        auto* parser = new TextParser(TextParserSettings::load(m_settings), this);
        parser->checkAvailability([this, parser](const TextParserAvailability& availability) {
            m_modelState->setText(availability.available ? ui(u"Ready: %1").arg(parser->describe())
                                                         : availability.message);
            parser->deleteLater();
        });
    });
    return box;
}

void PreferencesDialog::updateExport()
{
    const AutoExportHelper& helper = m_services.autoExport();
    const auto folder = helper.folderPath(m_workspace.activeProfile());
    const QSignalBlocker blockEnabled(m_exportEnabled);
    const QSignalBlocker blockXml(m_exportXml);
    const QSignalBlocker blockZugferd(m_exportZugferd);
    const QSignalBlocker blockAll(m_exportAll);
    m_exportEnabled->setChecked(helper.isEnabled());
    m_exportXml->setChecked(helper.xmlEnabled());
    m_exportZugferd->setChecked(helper.zugferdEnabled());
    m_exportAll->setChecked(helper.exportAllEligible());
    m_exportFolder->setText(
        folder ? ui(u"Folder of “%1”: %2")
                     .arg(m_workspace.activeProfile().displayName(), QDir::toNativeSeparators(*folder))
               : ui(u"No folder chosen for “%1”.").arg(m_workspace.activeProfile().displayName()));
    for (QWidget* dependent : {static_cast<QWidget*>(m_exportXml), static_cast<QWidget*>(m_exportZugferd),
                               static_cast<QWidget*>(m_exportAll)})
        dependent->setEnabled(helper.isEnabled());
}
