#pragma once

#include "plugins/PluginError.h"
#include "plugins/PluginManifest.h"
#include "plugins/forge/ForgeClient.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class PluginManager;

// What a repository offers to install: a release tag or, without releases, a commit id, and
// the zip archive to fetch.
struct PluginSource
{
    QString version;
    QUrl downloadURL;
};

// Finds newer versions of installed plugins on the forges that host them and installs them
// through the manager's guarded replacement. All published state changes on the thread the
// updater lives on (the main thread); downloads run in the network layer and unpacking and
// copying on a worker thread.
class PluginUpdater : public QObject
{
    Q_OBJECT
public:
    // The outcome of checking one plugin: the version offered, or the reason there is no offer
    // because something failed. Neither means the plugin is up to date.
    struct CheckResult
    {
        QString id;
        std::optional<QString> offeredVersion;
        std::optional<QString> error;
    };

    explicit PluginUpdater(PluginManager& manager, QObject* parent = nullptr);
    ~PluginUpdater() override;

    ForgeClient& forgeClient() { return m_client; }

    // Plugin id to the version offered. In memory only; each check rebuilds its entries.
    const QHash<QString, QString>& availableUpdates() const { return m_availableUpdates; }
    bool isChecking() const { return m_checkRuns > 0; }
    const QSet<QString>& checkingIDs() const { return m_checkingIDs; }
    const QSet<QString>& updatingIDs() const { return m_updatingIDs; }

    // Checks every plugin with a `url`; `done` gets one result per plugin checked. Does
    // nothing while update checks are switched off.
    void checkForUpdates(const QList<Plugin>& plugins, std::function<void(QList<CheckResult>)> done = {});
    void checkForUpdate(const Plugin& plugin, std::function<void(CheckResult)> done = {});
    // Installs what the repository offers now. `done` gets nullopt on success, else the text
    // to show: "Failed to update plugin: " and the error's description.
    void update(const Plugin& plugin, std::function<void(std::optional<QString>)> done = {});

    // The repository's latest release (an asset ending in ".ledraplugin.zip" before the
    // source archive), else its latest commit; nullopt when it has neither.
    void findSource(const Repository& repository, ForgeCallback<std::optional<PluginSource>> done);

    // The trimmed ".ledra-source-version", else the manifest's version, else empty.
    static QString installedVersion(const Plugin& plugin);
    // Equal texts are not newer; when either lacks a "." (commit ids, plain tags) any
    // difference is; otherwise the numeric parts decide. A leading "v" is ignored on both
    // sides, so the tag "v1.2.0" matches the manifest version "1.2.0".
    static bool isNewer(const QString& candidate, const QString& installed);

Q_SIGNALS:
    void availableUpdatesChanged();
    void isCheckingChanged();
    void checkingIDsChanged();
    void updatingIDsChanged();
    void checkFailed(const QString& id, const QString& message);
    void updateFailed(const QString& id, const QString& message);
    void pluginUpdated(const QString& id, const QString& version);

private:
    // The repository of a plugin's `url`, with the forge errors in the updater's words.
    void resolve(const Plugin& plugin, std::function<void(std::optional<Repository>, QString error)> done);
    void install(const Plugin& plugin, const PluginSource& source,
                 std::function<void(std::optional<QString>)> done);
    void finishCheck(const CheckResult& result);
    void finishUpdate(const QString& id, const std::optional<QString>& error,
                      const std::function<void(std::optional<QString>)>& done);
    void setOffer(const QString& id, const std::optional<QString>& version);
    // Checks of all plugins may overlap; isChecking holds until the last one ends.
    void beginCheckRun();
    void endCheckRun();

    PluginManager& m_manager;
    ForgeClient m_client;
    QHash<QString, QString> m_availableUpdates;
    int m_checkRuns = 0;
    QSet<QString> m_checkingIDs;
    QSet<QString> m_updatingIDs;
};
