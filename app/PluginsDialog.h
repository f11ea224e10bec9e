#pragma once

#include <QDialog>

class PluginManager;
class QLabel;
class QPushButton;
class QSettings;
class QTreeWidget;

// The installed plugins: name, version, author and whether each runs; installing from a file or
// by drop, uninstalling, and looking for newer versions on the forges the plugins come from.
class PluginsDialog : public QDialog
{
    Q_OBJECT
public:
    PluginsDialog(PluginManager& plugins, QWidget* parent = nullptr);

    // Installs a plugin folder or ".ledraplugin.zip"; the error is shown in the dialog.
    bool install(const QString& location);
    void checkForUpdates();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void chooseAndInstall();
    void uninstallSelected();
    void updateSelected();
    void refresh();
    void showMessage(const QString& text);
    QString selectedId() const;

    PluginManager& m_plugins;
    QTreeWidget* m_list;
    QLabel* m_description;
    QLabel* m_message;
    QPushButton* m_uninstall;
    QPushButton* m_check;
    QPushButton* m_update;
    bool m_refreshing = false;
};
