#include "plugins/PluginManager.h"

#include "l10n/Strings.h"
#include "plugins/PluginArchive.h"
#include "plugins/PluginCommands.h"
#include "plugins/forge/PluginUpdater.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "util/Files.h"
#include "util/JsonReader.h"

#include <QCollator>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUuid>

#include <algorithm>
#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace {

QString pathIn(const QString& folder, const char* name)
{
    return folder + u'/' + QLatin1StringView(name);
}

} // namespace

PluginManager::PluginManager(QSettings& settings, QString appVersion, QString pluginsFolder, QObject* parent)
    : QObject(parent), m_settings(settings), m_appVersion(std::move(appVersion)),
      m_pluginsFolder(QDir::cleanPath(QFileInfo(pluginsFolder).absoluteFilePath()))
{
    const QStringList disabled = m_settings.value(QLatin1StringView(disabledIDsKey)).toStringList();
    m_disabledIDs = QSet<QString>(disabled.begin(), disabled.end());
    if (m_settings.contains(QLatin1StringView(checkForUpdatesEnabledKey)))
        m_checkForUpdatesEnabled = m_settings.value(QLatin1StringView(checkForUpdatesEnabledKey)).toBool();

    // A copy or an unzip touches the folder many times; reload once it has settled.
    m_reloadTimer.setSingleShot(true);
    m_reloadTimer.setInterval(200);
    connect(&m_reloadTimer, &QTimer::timeout, this, &PluginManager::reloadPlugins);
    connect(&m_watcher, &FileWatcherManager::directoryChanged, &m_reloadTimer, qOverload<>(&QTimer::start));
    connect(&m_watcher, &FileWatcherManager::fileChanged, &m_reloadTimer, qOverload<>(&QTimer::start));

    m_updater = std::make_unique<PluginUpdater>(*this);
    for (auto changed : {&PluginUpdater::availableUpdatesChanged, &PluginUpdater::isCheckingChanged,
                         &PluginUpdater::checkingIDsChanged, &PluginUpdater::updatingIDsChanged})
        connect(m_updater.get(), changed, this, &PluginManager::updatesChanged);
}

PluginManager::PluginManager(QSettings& settings, QString appVersion, QObject* parent)
    : PluginManager(settings, std::move(appVersion), defaultPluginsDirectory(), parent)
{}

PluginManager::~PluginManager() = default;

QString PluginManager::defaultPluginsDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u"/Plugins"_s;
}

QString PluginManager::pluginsDirectory() const
{
    QDir().mkpath(m_pluginsFolder);
    return m_pluginsFolder;
}

void PluginManager::start()
{
    m_watching = true;
    reloadPlugins();
    if (!m_didRunOnOpen) {
        m_didRunOnOpen = true;
        QTimer::singleShot(m_runOnOpenDelayMs, this, &PluginManager::runOnOpen);
    }
}

void PluginManager::stopWatching()
{
    m_watching = false;
    m_watcher.stopAll();
    m_reloadTimer.stop();
}

void PluginManager::reloadPlugins()
{
    m_reloadTimer.stop();
    const QDir folder(pluginsDirectory());
    QList<Plugin> plugins;
    const QFileInfoList entries = folder.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& entry : entries) {
        if (entry.suffix() != QLatin1StringView(Plugin::folderExtension))
            continue;
        if (auto plugin = Plugin::load(entry.absoluteFilePath()))
            plugins.append(*plugin);
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(plugins.begin(), plugins.end(), [&](const Plugin& a, const Plugin& b) {
        return collator.compare(a.manifest.name, b.manifest.name) < 0;
    });

    // The old contexts go first: each is a virtual machine of its own.
    m_runtimes.clear();
    m_plugins = plugins;
    for (const Plugin& plugin : std::as_const(m_plugins)) {
        const auto& minimum = plugin.manifest.minLedraVersion;
        if (minimum && !minimum->trimmed().isEmpty() && compareVersions(m_appVersion, *minimum) < 0) {
            qCInfo(lcPlugins).noquote() << u"PluginManager: %1 needs version %2; this is %3"_s.arg(
                plugin.id(), *minimum, m_appVersion);
            continue;
        }
        auto runtime = PluginRuntime::create(plugin, m_runtimeLimits);
        if (!runtime)
            continue;
        runtime->load();
        m_runtimes[plugin.id()] = std::move(runtime);
    }
    rebuildTimers();
    if (m_watching)
        watchFolder();
    Q_EMIT pluginsChanged();
}

void PluginManager::watchFolder()
{
    // inotify watches one folder at a time: watch each plugin folder too, so that a file
    // added to a plugin (its main.js arriving last) is noticed as well.
    m_watcher.stopAll();
    const QString folder = pluginsDirectory();
    m_watcher.watchDirectory(folder);
    const QFileInfoList entries = QDir(folder).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (entry.suffix() != QLatin1StringView(Plugin::folderExtension))
            continue;
        const QString path = entry.absoluteFilePath();
        m_watcher.watchDirectory(path);
        for (const char* name : {PluginManifest::fileName, Plugin::mainScript})
            if (QFileInfo(pathIn(path, name)).isFile())
                m_watcher.watchFile(pathIn(path, name));
        // Module folders ("lib"), bounded so a stray huge folder cannot exhaust the watches.
        QDirIterator it(path, QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        for (int count = 0; it.hasNext() && count < 64; ++count)
            m_watcher.watchDirectory(it.next());
    }
}

std::optional<qint64> PluginManager::timerInterval(const std::optional<int>& minutes)
{
    if (!minutes || *minutes < 1)
        return std::nullopt;
    qint64 milliseconds = 0;
    // QTimer counts in int milliseconds (about 24 days); anything longer is a manifest error.
    if (qMulOverflow(qint64(*minutes), qint64(60'000), &milliseconds) ||
        milliseconds > std::numeric_limits<int>::max())
        return std::nullopt;
    return milliseconds;
}

void PluginManager::rebuildTimers()
{
    m_timers.clear();
    for (const Plugin& plugin : std::as_const(m_plugins)) {
        if (!plugin.manifest.timer || *plugin.manifest.timer < 1)
            continue;
        const auto interval = timerInterval(plugin.manifest.timer);
        if (!interval) {
            qCWarning(lcPlugins).noquote() << u"PluginManager: timer of %1 minutes of plugin %2 is too long"_s
                                                  .arg(*plugin.manifest.timer)
                                                  .arg(plugin.id());
            continue;
        }
        auto timer = std::make_unique<QTimer>();
        timer->setInterval(int(*interval));
        connect(timer.get(), &QTimer::timeout, this, [this, id = plugin.id()] { runScheduledUpdate(id); });
        timer->start();
        m_timers[plugin.id()] = std::move(timer);
    }
}

QHash<QString, qint64> PluginManager::timerIntervals() const
{
    QHash<QString, qint64> intervals;
    for (const auto& [id, timer] : m_timers)
        intervals.insert(id, timer->interval());
    return intervals;
}

void PluginManager::runOnOpen()
{
    for (const Plugin& plugin : updatePlugins())
        runScheduledUpdate(plugin.id());
}

void PluginManager::runScheduledUpdate(const QString& id)
{
    if (const auto missing = missingRequirement(id)) {
        qCInfo(lcPlugins).noquote() << u"PluginManager: %1 not run: %2"_s.arg(id, *missing);
        return;
    }
    runUpdate(id);
}

std::optional<QString> PluginManager::missingRequirement(const QString& id) const
{
    const PluginRuntime* runtime = this->runtime(id);
    return runtime ? runtime->missingRequirement() : std::nullopt;
}

std::optional<Plugin> PluginManager::plugin(const QString& id) const
{
    for (const Plugin& plugin : m_plugins)
        if (plugin.id() == id)
            return plugin;
    return std::nullopt;
}

PluginRuntime* PluginManager::runtime(const QString& id) const
{
    const auto found = m_runtimes.find(id);
    return found == m_runtimes.end() ? nullptr : found->second.get();
}

void PluginManager::setEnabled(const QString& id, bool enabled)
{
    if (enabled == isEnabled(id))
        return;
    if (enabled)
        m_disabledIDs.remove(id);
    else
        m_disabledIDs.insert(id);
    QStringList ids(m_disabledIDs.begin(), m_disabledIDs.end());
    ids.sort();
    m_settings.setValue(QLatin1StringView(disabledIDsKey), ids);
    Q_EMIT disabledIDsChanged();
}

void PluginManager::setCheckForUpdatesEnabled(bool enabled)
{
    m_checkForUpdatesEnabled = enabled;
    m_settings.setValue(QLatin1StringView(checkForUpdatesEnabledKey), enabled);
    Q_EMIT checkForUpdatesEnabledChanged();
}

QList<Plugin> PluginManager::pluginsWhere(const std::function<bool(const PluginRuntime&)>& accepts) const
{
    QList<Plugin> result;
    for (const Plugin& plugin : m_plugins)
        if (const PluginRuntime* r = runtime(plugin.id()); r && isEnabled(plugin.id()) && accepts(*r))
            result.append(plugin);
    return result;
}

QList<Plugin> PluginManager::exportPlugins() const
{
    return pluginsWhere([](const PluginRuntime& r) { return r.hasExportInvoice() || r.hasExportInvoices(); });
}

QList<Plugin> PluginManager::importPlugins() const
{
    return pluginsWhere([](const PluginRuntime& r) { return r.hasImportInvoices(); });
}

QList<Plugin> PluginManager::updatePlugins() const
{
    return pluginsWhere([](const PluginRuntime& r) { return r.hasUpdateInvoices(); });
}

void PluginManager::setStores(InvoiceManager* invoices, ProfileManager* profiles)
{
    m_invoiceManager = invoices;
    m_profileManager = profiles;
}

std::optional<int> PluginManager::runUpdate(const QString& id)
{
    PluginRuntime* runtime = this->runtime(id);
    if (!runtime || !runtime->hasUpdateInvoices() || !isEnabled(id) || !m_invoiceManager ||
        !m_profileManager || !m_profileManager->activeProfile() || m_runningUpdaters.contains(id))
        return std::nullopt;
    m_runningUpdaters.insert(id);
    const auto done = qScopeGuard([&] { m_runningUpdaters.remove(id); });
    const QList<Invoice> invoices = m_invoiceManager->invoices();
    const auto updates = runtime->updateInvoices(invoices, *m_profileManager->activeProfile());
    if (!updates)
        return std::nullopt;
    const int changed = PluginCommands::applyUpdates(*updates, *m_invoiceManager);
    Q_EMIT updateFinished(id, changed);
    return changed;
}

QString PluginManager::findPluginRoot(const QString& folder)
{
    const QDir dir(folder);
    if (QFileInfo(dir.filePath(QLatin1StringView(PluginManifest::fileName))).isFile())
        return QDir::cleanPath(dir.absolutePath());
    const QFileInfoList subfolders = dir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo& subfolder : subfolders)
        if (QFileInfo(pathIn(subfolder.absoluteFilePath(), PluginManifest::fileName)).isFile())
            return QDir::cleanPath(subfolder.absoluteFilePath());
    throw PluginError(PluginUpdateError::manifestNotFound);
}

void PluginManager::replacePlugin(const Plugin& plugin, const QString& newFolder)
{
    const QString target = plugin.directory;
    const QString backup = QDir::tempPath() + u"/ledraplugin-backup-"_s +
                           QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    PluginArchive::moveFolder(target, backup); // when this fails, nothing has changed

    std::optional<PluginError> failure;
    try {
        PluginArchive::copyFolder(newFolder, target);
        if (!QFileInfo(pathIn(target, Plugin::mainScript)).isFile())
            failure = PluginError(PluginUpdateError::invalidPlugin);
    } catch (const PluginError& error) {
        failure = error;
    }
    if (!failure) {
        PluginArchive::removeFolder(backup); // the new copy stands even when this fails
        return;
    }
    // Put the old copy back; errors of the clean-up would hide the one that matters.
    try {
        PluginArchive::removeFolder(target);
    } catch (const PluginError&) {
    }
    try {
        PluginArchive::moveFolder(backup, target);
    } catch (const PluginError&) {
    }
    throw *failure;
}

QString PluginManager::installedFolderName(const QString& selected, const QString& root, bool isArchive) const
{
    const QString extension = u'.' + QLatin1StringView(Plugin::folderExtension);
    QString name = QFileInfo(root).fileName();
    if (name.endsWith(extension) && name.size() > extension.size())
        return name;
    // An archive's top folder or an unpacked forge archive ("owner-repo-1a2b3c") says
    // nothing; the name the user picked does.
    name = QFileInfo(QDir::cleanPath(selected)).fileName();
    if (isArchive) // the suffix in any case: "Bank Sync.LEDRAPLUGIN.ZIP"
        name = name.chopped(qsizetype(qstrlen(Plugin::archiveSuffix))) + extension;
    if (!name.endsWith(extension))
        name += extension;
    return name;
}

Plugin PluginManager::install(const QString& location)
{
    const QString selected = QDir::cleanPath(QFileInfo(location).absoluteFilePath());
    const bool isArchive = selected.toLower().endsWith(QLatin1StringView(Plugin::archiveSuffix));
    try {
        std::optional<QTemporaryDir> unpacked;
        QString folder = selected;
        if (isArchive) {
            unpacked.emplace(QDir::tempPath() + u"/ledraplugin-install-XXXXXX"_s);
            if (!unpacked->isValid())
                throw PluginError(unpacked->errorString());
            PluginArchive::extractZip(selected, unpacked->path());
            folder = unpacked->path();
        } else if (!QFileInfo(selected).isDir()) {
            throw PluginError(Strings::ui(u"%1 is neither a plugin folder nor a .ledraplugin.zip archive.")
                                  .arg(QDir::toNativeSeparators(location)));
        }
        QString root;
        try {
            root = findPluginRoot(folder);
        } catch (const PluginError&) {
            throw PluginError(PluginUpdateError::manifestNotFound,
                              Strings::ui(u"The selected plugin is missing a plugin.json manifest."));
        }
        // Refuse what could never load before touching an installed copy.
        try {
            PluginManifest::decode(
                Files::read(pathIn(root, PluginManifest::fileName)).value_or(QByteArray()));
        } catch (const JsonDecodeError& error) {
            throw PluginError(Strings::ui(u"plugin.json is not valid: ") + error.message());
        }
        if (!QFileInfo(pathIn(root, Plugin::mainScript)).isFile())
            throw PluginError(PluginUpdateError::invalidPlugin);

        const QString destination =
            pluginsDirectory() + u'/' + installedFolderName(selected, root, isArchive);
        const QFileInfo existing(destination);
        if (existing.exists() && existing.canonicalFilePath() == QFileInfo(root).canonicalFilePath()) {
            // Already in place (picked from the plugins folder itself).
        } else if (existing.exists()) {
            // Installing again replaces the old copy, which comes back should the copy fail.
            replacePlugin(Plugin{{}, destination}, root);
        } else {
            PluginArchive::copyFolder(root, destination);
        }
        reloadPlugins();
        for (const Plugin& plugin : std::as_const(m_plugins))
            if (plugin.directory == destination)
                return plugin;
        throw PluginError(PluginUpdateError::invalidPlugin);
    } catch (const PluginError& error) {
        if (error.errorCase() == PluginUpdateError::manifestNotFound)
            throw;
        throw PluginError(Strings::ui(u"Failed to install plugin: ") + error.message());
    }
}

void PluginManager::uninstall(const Plugin& plugin)
{
    // Only ever delete inside the plugins folder, whatever the caller passes.
    const QString directory = QDir::cleanPath(QFileInfo(plugin.directory).absoluteFilePath());
    if (QFileInfo(directory).absolutePath() != pluginsDirectory())
        throw PluginError(
            Strings::ui(u"%1 is not in the plugins folder.").arg(QDir::toNativeSeparators(directory)));
    PluginArchive::removeFolder(directory);
    reloadPlugins();
}
