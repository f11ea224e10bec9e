#pragma once

#include "plugins/PluginError.h"
#include "plugins/PluginManifest.h"
#include "plugins/PluginRuntime.h"
#include "storage/FileWatcherManager.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSettings>
#include <QString>
#include <QTimer>

#include <functional>
#include <map>
#include <memory>
#include <optional>

// Finds the plugins in the application data's "Plugins" folder, keeps them sorted by name,
// gives each one a script runtime, remembers which are switched off, installs and removes
// them, and runs the update entry points on their timers and once after start.
// Lives on the main thread; the static file operations may run on any thread.
class PluginUpdater;

class PluginManager : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* disabledIDsKey = "Plugins.disabledIDs";
    static constexpr const char* checkForUpdatesEnabledKey = "Plugins.checkForUpdatesEnabled";

    // `appVersion` is what `minLedraVersion` is compared with; `pluginsFolder` is normally
    // defaultPluginsDirectory(). Reads the settings; loads nothing until start() or reloadPlugins().
    PluginManager(QSettings& settings, QString appVersion, QString pluginsFolder, QObject* parent = nullptr);
    PluginManager(QSettings& settings, QString appVersion, QObject* parent = nullptr);
    ~PluginManager() override;

    // The folder "Plugins" in the application data location.
    static QString defaultPluginsDirectory();

    // The plugins folder, created with intermediate folders when missing.
    QString pluginsDirectory() const;

    // Loads the plugins, watches the folder and schedules the one run of the update plugins.
    void start();
    void stopWatching();

    // Rescans the folder and rebuilds plugins, runtimes and timers. Main thread only.
    void reloadPlugins();

    // All valid plugins, sorted by name (locale-aware, case-insensitive).
    const QList<Plugin>& plugins() const { return m_plugins; }
    std::optional<Plugin> plugin(const QString& id) const;
    // Nullptr for a plugin that has none (too new for this version, or failed to set up).
    PluginRuntime* runtime(const QString& id) const;

    const QSet<QString>& disabledIDs() const { return m_disabledIDs; }
    bool isEnabled(const QString& id) const { return !m_disabledIDs.contains(id); }
    void setEnabled(const QString& id, bool enabled);
    bool checkForUpdatesEnabled() const { return m_checkForUpdatesEnabled; }
    void setCheckForUpdatesEnabled(bool enabled);

    // The enabled plugins whose runtime has the entry point, in the order of plugins().
    QList<Plugin> exportPlugins() const;
    QList<Plugin> importPlugins() const;
    QList<Plugin> updatePlugins() const;

    // Finds and installs newer versions of the plugins; its changes are re-published as
    // updatesChanged().
    PluginUpdater& updater() { return *m_updater; }

    // The stores that imports and updates work on; set by the application after start.
    void setStores(InvoiceManager* invoices, ProfileManager* profiles);
    InvoiceManager* invoiceManager() const { return m_invoiceManager; }
    ProfileManager* profileManager() const { return m_profileManager; }

    // Runs a plugin's update entry point over the invoices of the active profile and applies
    // the result. Returns how many invoices changed; nullopt when it could not run (no stores,
    // disabled, no entry point, already running, or the script failed).
    std::optional<int> runUpdate(const QString& id);
    // What a plugin needs that is missing (PluginRuntime::missingRequirement), for the plugin
    // list. The runs after start and on the plugin's timer leave such a plugin out, instead of
    // failing in its script at every start; a run the user asks for still runs and reports.
    std::optional<QString> missingRequirement(const QString& id) const;

    // Installs a plugin folder or a ".ledraplugin.zip" archive, replacing an installed copy
    // of the same name, and reloads. Throws PluginError whose message is the text to show:
    // "The selected plugin is missing a plugin.json manifest." or "Failed to install plugin: …".
    Plugin install(const QString& location);
    // Removes the plugin's folder and reloads. Throws PluginError.
    void uninstall(const Plugin& plugin);

    // The folder itself when it holds "plugin.json", else the first immediate subfolder
    // (by name) that does. Throws PluginError(manifestNotFound).
    static QString findPluginRoot(const QString& folder);
    // Replaces an installed plugin's folder with `newFolder` (an unpacked, root-found copy):
    // the old folder is moved aside, the new one copied in and checked for "main.js"; on any
    // failure the old folder is put back and the first error thrown (PluginError, with
    // invalidPlugin for a missing "main.js"). Does not reload.
    static void replacePlugin(const Plugin& plugin, const QString& newFolder);

    // Test and tool hooks: limits of the runtimes made by the next reload, the delay of the
    // run after start (5 s) and of the reload after a change in the folder (0.2 s).
    void setRuntimeLimits(const RuntimeLimits& limits) { m_runtimeLimits = limits; }
    void setRunOnOpenDelay(int milliseconds) { m_runOnOpenDelayMs = milliseconds; }
    void setReloadDelay(int milliseconds) { m_reloadTimer.setInterval(milliseconds); }
    // The timer intervals in milliseconds, by plugin id.
    QHash<QString, qint64> timerIntervals() const;
    // The timer interval for a manifest's `timer`; nullopt for none (below 1 or too long).
    static std::optional<qint64> timerInterval(const std::optional<int>& minutes);

Q_SIGNALS:
    void pluginsChanged();
    void disabledIDsChanged();
    void checkForUpdatesEnabledChanged();
    // The updater's offers or progress changed.
    void updatesChanged();
    // A plugin's update entry point ran and changed `changed` invoices.
    void updateFinished(const QString& id, int changed);

private:
    // The enabled plugins whose runtime `accepts`, in the order of plugins().
    QList<Plugin> pluginsWhere(const std::function<bool(const PluginRuntime&)>& accepts) const;
    void rebuildTimers();
    void watchFolder();
    void runOnOpen();
    void runScheduledUpdate(const QString& id);
    QString installedFolderName(const QString& selected, const QString& root, bool isArchive) const;

    QSettings& m_settings;
    QString m_appVersion;
    QString m_pluginsFolder;
    QList<Plugin> m_plugins;
    QSet<QString> m_disabledIDs;
    bool m_checkForUpdatesEnabled = true;
    QPointer<InvoiceManager> m_invoiceManager;
    QPointer<ProfileManager> m_profileManager;
    std::map<QString, std::unique_ptr<PluginRuntime>> m_runtimes;
    FileWatcherManager m_watcher;
    bool m_watching = false;
    QTimer m_reloadTimer; // the debounced reload
    std::map<QString, std::unique_ptr<QTimer>> m_timers;
    bool m_didRunOnOpen = false;
    int m_runOnOpenDelayMs = 5000;
    QSet<QString> m_runningUpdaters;
    RuntimeLimits m_runtimeLimits;
    std::unique_ptr<PluginUpdater> m_updater;
};
