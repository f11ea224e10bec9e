#include "plugins/forge/PluginUpdater.h"

#include "l10n/Strings.h"
#include "plugins/PluginArchive.h"
#include "plugins/PluginManager.h"
#include "storage/InvoiceManager.h" // PluginManager.h's inline store accessors need the full types
#include "storage/ProfileManager.h"
#include "util/Files.h"

#include <QDir>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QThread>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcUpdater, "ledra.updater", QtInfoMsg)

QString withoutLeadingV(const QString& version)
{
    const QString trimmed = version.trimmed();
    if (trimmed.size() > 1 && (trimmed[0] == u'v' || trimmed[0] == u'V') && trimmed[1].isDigit())
        return trimmed.mid(1);
    return trimmed;
}

bool isPluginArchive(const QString& name)
{
    return name.toLower().endsWith(QLatin1StringView(Plugin::archiveSuffix));
}

} // namespace

PluginUpdater::PluginUpdater(PluginManager& manager, QObject* parent) : QObject(parent), m_manager(manager) {}

PluginUpdater::~PluginUpdater() = default;

QString PluginUpdater::installedVersion(const Plugin& plugin)
{
    if (std::optional<QString> source = plugin.sourceVersion())
        return *source;
    return plugin.manifest.version.value_or(QString()).trimmed();
}

bool PluginUpdater::isNewer(const QString& candidateText, const QString& installedText)
{
    const QString candidate = withoutLeadingV(candidateText);
    const QString installed = withoutLeadingV(installedText);
    if (candidate == installed)
        return false;
    if (!candidate.contains(u'.') || !installed.contains(u'.'))
        return true;
    return compareVersions(candidate, installed) > 0;
}

// Checking

void PluginUpdater::checkForUpdates(const QList<Plugin>& plugins,
                                    std::function<void(QList<CheckResult>)> done)
{
    if (!m_manager.checkForUpdatesEnabled()) {
        if (done)
            done({});
        return;
    }
    QList<Plugin> linked;
    QSet<QString> linkedIDs;
    for (const Plugin& plugin : plugins) {
        if (!plugin.manifest.url.value_or(QString()).trimmed().isEmpty()) {
            linked.append(plugin);
            linkedIDs.insert(plugin.id());
        }
    }
    // A check of all rebuilds the offers: plugins gone or without a link lose theirs.
    const qsizetype before = m_availableUpdates.size();
    m_availableUpdates.removeIf([&](const auto& entry) { return !linkedIDs.contains(entry.key()); });
    if (m_availableUpdates.size() != before)
        Q_EMIT availableUpdatesChanged();
    if (linked.isEmpty()) {
        if (done)
            done({});
        return;
    }

    beginCheckRun();
    auto results = std::make_shared<QList<CheckResult>>();
    auto remaining = std::make_shared<qsizetype>(linked.size());
    for (const Plugin& plugin : std::as_const(linked)) {
        checkForUpdate(plugin, [this, results, remaining, done](CheckResult result) {
            results->append(std::move(result));
            if (--*remaining > 0)
                return;
            endCheckRun();
            if (done)
                done(*results);
        });
    }
}

void PluginUpdater::checkForUpdate(const Plugin& plugin, std::function<void(CheckResult)> done)
{
    const QString id = plugin.id();
    auto report = [done](CheckResult result) {
        if (done)
            done(std::move(result));
    };
    if (!m_manager.checkForUpdatesEnabled())
        return report({id, std::nullopt, Strings::ui(u"Update checks are switched off.")});
    if (plugin.manifest.url.value_or(QString()).trimmed().isEmpty()) {
        setOffer(id, std::nullopt);
        return report({id, std::nullopt, std::nullopt});
    }
    if (m_checkingIDs.contains(id))
        return report({id, std::nullopt, Strings::ui(u"This plugin is already being checked.")});

    m_checkingIDs.insert(id);
    Q_EMIT checkingIDsChanged();
    auto finish = [this, report](const CheckResult& result) {
        finishCheck(result);
        report(result);
    };
    resolve(plugin, [this, plugin, id, finish](std::optional<Repository> repository, const QString& error) {
        if (!repository)
            return finish({id, std::nullopt, error});
        findSource(*repository, [plugin, id, finish](const ForgeResult<std::optional<PluginSource>>& source) {
            if (!source)
                return finish({id, std::nullopt, source.error().message()});
            if (!source.value())
                return finish({id, std::nullopt, description(PluginUpdateError::noUpdateSource)});
            const QString& version = source.value()->version;
            if (isNewer(version, installedVersion(plugin)))
                return finish({id, version, std::nullopt});
            finish({id, std::nullopt, std::nullopt});
        });
    });
}

void PluginUpdater::finishCheck(const CheckResult& result)
{
    m_checkingIDs.remove(result.id);
    Q_EMIT checkingIDsChanged();
    // A failed check leaves the plugin without an offer, like one that is up to date.
    setOffer(result.id, result.offeredVersion);
    if (result.error) {
        qCInfo(lcUpdater, "PluginUpdater: checking %s failed: %s", qPrintable(result.id),
               qPrintable(*result.error));
        Q_EMIT checkFailed(result.id, *result.error);
    }
}

void PluginUpdater::resolve(const Plugin& plugin,
                            std::function<void(std::optional<Repository>, QString error)> done)
{
    m_client.resolve(plugin.manifest.url.value_or(QString()), [done](const ForgeResult<Repository>& result) {
        if (result)
            return done(result.value(), {});
        switch (result.error().kind()) {
        case ForgeError::Kind::invalidURL:
            return done(std::nullopt, description(PluginUpdateError::invalidRepositoryURL));
        case ForgeError::Kind::unknownForge:
            return done(std::nullopt, description(PluginUpdateError::unsupportedHost));
        default:
            return done(std::nullopt, result.error().message());
        }
    });
}

void PluginUpdater::findSource(const Repository& repository, ForgeCallback<std::optional<PluginSource>> done)
{
    m_client.latestRelease(
        repository, [this, repository, done](const ForgeResult<std::optional<Release>>& release) {
            if (!release)
                return done(release.error());
            if (const std::optional<Release>& latest = release.value()) {
                QUrl download = latest->sourceArchiveURL;
                for (const Release::Asset& asset : latest->assets) {
                    if (isPluginArchive(asset.name)) {
                        download = asset.url;
                        break;
                    }
                }
                return done(std::optional(PluginSource{latest->tag, download}));
            }
            m_client.latestCommit(repository, [done](const ForgeResult<std::optional<Commit>>& commit) {
                if (!commit)
                    return done(commit.error());
                if (!commit.value())
                    return done(std::optional<PluginSource>());
                done(std::optional(PluginSource{commit.value()->sha, commit.value()->sourceArchiveURL}));
            });
        });
}

// Updating

void PluginUpdater::update(const Plugin& plugin, std::function<void(std::optional<QString>)> done)
{
    const QString id = plugin.id();
    if (m_updatingIDs.contains(id)) {
        if (done)
            done(Strings::ui(u"Failed to update plugin: ") +
                 Strings::ui(u"An update of this plugin is already running."));
        return;
    }
    m_updatingIDs.insert(id);
    Q_EMIT updatingIDsChanged();

    resolve(plugin, [this, plugin, id, done](std::optional<Repository> repository, const QString& error) {
        if (!repository)
            return finishUpdate(id, error, done);
        findSource(*repository,
                   [this, plugin, id, done](const ForgeResult<std::optional<PluginSource>>& source) {
                       if (!source)
                           return finishUpdate(id, source.error().message(), done);
                       if (!source.value())
                           return finishUpdate(id, description(PluginUpdateError::noUpdateSource), done);
                       const PluginSource found = *source.value();
                       install(plugin, found, [this, id, found, done](std::optional<QString> failure) {
                           if (failure)
                               return finishUpdate(id, failure, done);
                           setOffer(id, std::nullopt);
                           m_manager.reloadPlugins();
                           Q_EMIT pluginUpdated(id, found.version);
                           finishUpdate(id, std::nullopt, done);
                       });
                   });
    });
}

void PluginUpdater::install(const Plugin& plugin, const PluginSource& source,
                            std::function<void(std::optional<QString>)> done)
{
    // One folder per update holds the download and what it unpacks to; it goes when the
    // last step that needs it is done.
    auto workspace = std::make_shared<QTemporaryDir>(QDir::tempPath() + u"/ledraplugin-update-XXXXXX"_s);
    if (!workspace->isValid())
        return done(workspace->errorString());
    const QString archive = workspace->filePath(u"download.zip"_s);

    m_client.download(source.downloadURL, archive,
                      [this, plugin, source, workspace, archive, done](const ForgeResult<Done>& downloaded) {
                          if (!downloaded)
                              return done(downloaded.error().message());
                          auto failure = std::make_shared<std::optional<QString>>();
                          QThread* worker = QThread::create([plugin, source, workspace, archive, failure] {
                              try {
                                  const QString unpacked = workspace->filePath(u"unpacked"_s);
                                  PluginArchive::extractZip(archive, unpacked);
                                  const QString root = PluginManager::findPluginRoot(unpacked);
                                  // Written into the download before it is copied, so the installed copy
                                  // never stands without the version it came from.
                                  const QString versionFile =
                                      QDir(root).filePath(QLatin1StringView(Plugin::sourceVersionFile));
                                  if (std::optional<QString> error =
                                          Files::writeAtomically(versionFile, source.version.toUtf8() + '\n'))
                                      throw PluginError(*error);
                                  PluginManager::replacePlugin(plugin, root);
                              } catch (const PluginError& error) {
                                  *failure = error.message();
                              }
                          });
                          connect(worker, &QThread::finished, worker, &QObject::deleteLater);
                          connect(worker, &QThread::finished, this, [failure, done] { done(*failure); });
                          worker->start();
                      });
}

void PluginUpdater::finishUpdate(const QString& id, const std::optional<QString>& error,
                                 const std::function<void(std::optional<QString>)>& done)
{
    m_updatingIDs.remove(id);
    Q_EMIT updatingIDsChanged();
    std::optional<QString> shown;
    if (error) {
        shown = Strings::ui(u"Failed to update plugin: ") + *error;
        qCInfo(lcUpdater, "PluginUpdater: %s: %s", qPrintable(id), qPrintable(*shown));
        Q_EMIT updateFailed(id, *shown);
    }
    if (done)
        done(shown);
}

void PluginUpdater::setOffer(const QString& id, const std::optional<QString>& version)
{
    if (version) {
        if (m_availableUpdates.value(id) == *version && m_availableUpdates.contains(id))
            return;
        m_availableUpdates.insert(id, *version);
    } else if (!m_availableUpdates.remove(id)) {
        return;
    }
    Q_EMIT availableUpdatesChanged();
}

void PluginUpdater::beginCheckRun()
{
    if (m_checkRuns++ == 0)
        Q_EMIT isCheckingChanged();
}

void PluginUpdater::endCheckRun()
{
    if (--m_checkRuns == 0)
        Q_EMIT isCheckingChanged();
}
