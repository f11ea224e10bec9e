#include "PluginUpdateCommands.h"

#include "Commands.h"

#include "plugins/PluginManager.h"
#include "plugins/forge/PluginUpdater.h"
#include "util/WaitFor.h"

using namespace Qt::Literals::StringLiterals;

int checkPluginUpdates(PluginManager& manager)
{
    if (!manager.checkForUpdatesEnabled())
        throw CliError(u"update checks are switched off (setting \"%1\")"_s.arg(
            QLatin1StringView(PluginManager::checkForUpdatesEnabledKey)));
    PluginUpdater& updater = manager.updater();
    const QList<Plugin> plugins = manager.plugins();
    const QList<PluginUpdater::CheckResult> results = *waitForReport<QList<PluginUpdater::CheckResult>>(
        [&](auto done) { updater.checkForUpdates(plugins, done); });
    if (results.isEmpty()) {
        out() << "No installed plugin has a repository link.\n";
        return ExitCode::ok;
    }

    QHash<QString, PluginUpdater::CheckResult> byID;
    for (const PluginUpdater::CheckResult& result : results)
        byID.insert(result.id, result);
    bool failed = false;
    // Answers arrive in any order; print them in the order of the plugin list.
    for (const Plugin& plugin : plugins) {
        const auto it = byID.constFind(plugin.id());
        if (it == byID.constEnd())
            continue;
        const QString installed = PluginUpdater::installedVersion(plugin);
        if (it->error) {
            err() << "ledra plugin: " << plugin.id() << ": " << *it->error << Qt::endl;
            failed = true;
        } else if (it->offeredVersion) {
            out() << plugin.id() << ": update available: " << (installed.isEmpty() ? u"-"_s : installed)
                  << " -> " << *it->offeredVersion << '\n';
        } else {
            out() << plugin.id() << ": up to date (" << installed << ")\n";
        }
    }
    return failed ? ExitCode::failure : ExitCode::ok;
}

int updatePlugin(PluginManager& manager, const QString& id)
{
    if (!manager.plugin(id))
        throw CliError(u"%1: no such plugin"_s.arg(id));
    PluginUpdater& updater = manager.updater();
    const std::optional<QString> error =
        *waitForReport<std::optional<QString>>([&](auto done) { updater.update(*manager.plugin(id), done); });
    if (error)
        throw CliError(*error);
    const std::optional<Plugin> updated = manager.plugin(id);
    out() << id << ": updated to " << (updated ? PluginUpdater::installedVersion(*updated) : QString())
          << '\n';
    return ExitCode::ok;
}
