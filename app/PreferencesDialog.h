#pragma once

#include <QDialog>

class BackgroundServices;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSettings;
class Workspace;

// Where the data lives, the interface language, the preview's dark mode, plugin update checks,
// backups, the automatic export, the mail add-on and the language model, a page each. Changes apply at once;
// the language after a restart.
class PreferencesDialog : public QDialog
{
    Q_OBJECT
public:
    PreferencesDialog(Workspace& workspace, QSettings& settings, BackgroundServices& services,
                      QWidget* parent = nullptr);

Q_SIGNALS:
    // The user chose to restore this backup: its profiles are to be added beside the others.
    void restoreRequested(const QString& path);

private:
    void changeDataFolder();
    void resetDataFolder();
    void updateDataFolder();
    QWidget* backupSection();
    QWidget* exportSection();
    QWidget* modelSection();
    QWidget* mailSection();
    static QWidget* pageOf(QWidget* section);
    void updateExport();

    Workspace& m_workspace;
    QSettings& m_settings;
    BackgroundServices& m_services;
    QLabel* m_exportFolder = nullptr;
    QCheckBox* m_exportEnabled = nullptr;
    QCheckBox* m_exportXml = nullptr;
    QCheckBox* m_exportZugferd = nullptr;
    QCheckBox* m_exportAll = nullptr;
    QLabel* m_dataFolder = nullptr;
    QComboBox* m_language = nullptr;
    QCheckBox* m_darkMode = nullptr;
    QCheckBox* m_pluginUpdates = nullptr;
    QLabel* m_restartHint = nullptr;
    QLineEdit* m_modelServer = nullptr;
    QLineEdit* m_modelName = nullptr;
    QCheckBox* m_modelRemote = nullptr;
    QLabel* m_modelState = nullptr;
    QComboBox* m_mailFormat = nullptr;
    QLabel* m_mailState = nullptr;
};
