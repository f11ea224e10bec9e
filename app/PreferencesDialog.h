#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QSettings;
class Workspace;

// Where the data lives, the interface language, the preview's dark mode and plugin update
// checks. Changes apply at once; the language after a restart.
class PreferencesDialog : public QDialog
{
    Q_OBJECT
public:
    PreferencesDialog(Workspace& workspace, QSettings& settings, QWidget* parent = nullptr);

private:
    void changeDataFolder();
    void resetDataFolder();
    void updateDataFolder();

    Workspace& m_workspace;
    QSettings& m_settings;
    QLabel* m_dataFolder = nullptr;
    QComboBox* m_language = nullptr;
    QCheckBox* m_darkMode = nullptr;
    QCheckBox* m_pluginUpdates = nullptr;
    QLabel* m_restartHint = nullptr;
};
