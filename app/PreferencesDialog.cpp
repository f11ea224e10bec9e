#include "PreferencesDialog.h"

#include "AppSettings.h"
#include "AppText.h"
#include "tasks/Workspace.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

PreferencesDialog::PreferencesDialog(Workspace& workspace, QSettings& settings, QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_settings(settings)
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

    layout->addLayout(form);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);
    layout->addWidget(buttons);
    updateDataFolder();
    resize(600, sizeHint().height());
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
