#include "Commands.h"
#include "PluginUpdateCommands.h"

#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "plugins/PluginCommands.h"
#include "plugins/PluginManager.h"
#include "tasks/PluginTasks.h"

#include <QCoreApplication>

#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace {

struct PluginContext
{
    const QCommandLineParser& parser;
    PluginManager& manager;
};

// One action of `ledra plugin`. Further actions are one more row in pluginActions().
struct PluginAction
{
    QString name;
    QString usage;
    qsizetype minArguments;
    qsizetype maxArguments; // -1: any number
    std::function<int(PluginContext&, const QStringList&)> run;
};

Plugin findPlugin(const PluginManager& manager, const QString& reference)
{
    if (const auto plugin = manager.plugin(reference))
        return *plugin;
    for (const Plugin& plugin : manager.plugins())
        if (plugin.manifest.name.compare(reference, Qt::CaseInsensitive) == 0)
            return plugin;
    throw CliError(u"no plugin \"%1\" in %2"_s.arg(reference, manager.pluginsDirectory()));
}

// The runtime of an enabled plugin, or a CliError that says why there is none.
PluginRuntime& usableRuntime(const PluginManager& manager, const Plugin& plugin)
{
    if (!manager.isEnabled(plugin.id()))
        throw CliError(u"%1: the plugin is disabled (ledra plugin enable %1)"_s.arg(plugin.id()));
    PluginRuntime* runtime = manager.runtime(plugin.id());
    if (!runtime) {
        if (plugin.manifest.minLedraVersion)
            throw CliError(u"%1: the plugin needs Ledra %2 or later"_s.arg(plugin.id(),
                                                                           *plugin.manifest.minLedraVersion));
        throw CliError(u"%1: %2"_s.arg(plugin.id(), Strings::ui(u"Plugin runtime could not be created.")));
    }
    if (const auto& error = runtime->lastError();
        error && !runtime->hasExportInvoice() && !runtime->hasExportInvoices() &&
        !runtime->hasImportInvoices() && !runtime->hasUpdateInvoices())
        throw CliError(u"%1: %2"_s.arg(plugin.id(), *error));
    return *runtime;
}

QStringList entryPoints(const PluginRuntime* runtime)
{
    QStringList names;
    if (!runtime)
        return names;
    if (runtime->hasExportInvoice())
        names.append(u"exportInvoice"_s);
    if (runtime->hasExportInvoices())
        names.append(u"exportInvoices"_s);
    if (runtime->hasImportInvoices())
        names.append(u"importInvoices"_s);
    if (runtime->hasUpdateInvoices())
        names.append(u"updateInvoices"_s);
    return names;
}

QString state(const PluginManager& manager, const Plugin& plugin)
{
    const PluginRuntime* runtime = manager.runtime(plugin.id());
    if (!runtime)
        return plugin.manifest.minLedraVersion ? u"needs Ledra %1"_s.arg(*plugin.manifest.minLedraVersion)
                                               : u"not loaded"_s;
    if (!manager.isEnabled(plugin.id()))
        return u"disabled"_s;
    if (runtime->lastError() && entryPoints(runtime).isEmpty())
        return u"error: "_s + *runtime->lastError();
    return u"enabled"_s;
}

int list(PluginContext& context, const QStringList&)
{
    const PluginManager& manager = context.manager;
    if (context.parser.isSet(u"json"_s)) {
        JsonWriter w;
        w.beginArray();
        for (const Plugin& plugin : manager.plugins()) {
            const PluginRuntime* runtime = manager.runtime(plugin.id());
            w.beginObject();
            w.field("id"_L1, plugin.id());
            w.field("name"_L1, plugin.manifest.name);
            w.field("version"_L1, plugin.manifest.version);
            w.field("description"_L1, plugin.manifest.description);
            w.field("author"_L1, plugin.manifest.author);
            w.field("url"_L1, plugin.manifest.url);
            w.field("fileExtension"_L1, plugin.manifest.fileExtension);
            w.field("enabled"_L1, manager.isEnabled(plugin.id()));
            w.field("loaded"_L1, runtime != nullptr);
            w.key("entryPoints"_L1);
            w.beginArray();
            for (const QString& name : entryPoints(runtime))
                w.value(name);
            w.endArray();
            w.field("lastError"_L1, runtime ? runtime->lastError() : std::nullopt);
            w.field("directory"_L1, plugin.directory);
            w.endObject();
        }
        w.endArray();
        out() << QString::fromUtf8(w.take());
        return ExitCode::ok;
    }
    if (manager.plugins().isEmpty()) {
        out() << Strings::ui(u"No plugins installed.\nAdd a .ledraplugin folder to get started.") << '\n'
              << "Plugins folder: " << manager.pluginsDirectory() << '\n';
        return ExitCode::ok;
    }
    for (const Plugin& plugin : manager.plugins()) {
        out() << plugin.id();
        if (plugin.manifest.name != plugin.id())
            out() << " (" << plugin.manifest.name << ')';
        if (plugin.manifest.version)
            out() << ' ' << *plugin.manifest.version;
        out() << " [" << state(manager, plugin) << ']';
        const QStringList names = entryPoints(manager.runtime(plugin.id()));
        if (!names.isEmpty())
            out() << ' ' << names.join(u", "_s);
        out() << '\n';
        if (plugin.manifest.description)
            out() << "    " << *plugin.manifest.description << '\n';
    }
    return ExitCode::ok;
}

int install(PluginContext& context, const QStringList& arguments)
{
    const Plugin plugin = context.manager.install(arguments[0]);
    out() << "Installed \"" << plugin.manifest.name << "\" as " << plugin.id() << " in " << plugin.directory
          << '\n';
    if (const PluginRuntime* runtime = context.manager.runtime(plugin.id()); runtime && runtime->lastError())
        err() << "ledra plugin: warning: " << plugin.id() << ": " << *runtime->lastError() << Qt::endl;
    return ExitCode::ok;
}

int uninstall(PluginContext& context, const QStringList& arguments)
{
    const Plugin plugin = findPlugin(context.manager, arguments[0]);
    context.manager.uninstall(plugin);
    out() << "Uninstalled " << plugin.id() << '\n';
    return ExitCode::ok;
}

int setEnabled(PluginContext& context, const QStringList& arguments, bool enabled)
{
    const Plugin plugin = findPlugin(context.manager, arguments[0]);
    context.manager.setEnabled(plugin.id(), enabled);
    out() << plugin.id() << (enabled ? ": enabled\n" : ": disabled\n");
    return ExitCode::ok;
}

int exportInvoices(PluginContext& context, const QStringList& arguments)
{
    const Plugin plugin = findPlugin(context.manager, arguments[0]);
    PluginRuntime& runtime = usableRuntime(context.manager, plugin);
    if (!runtime.hasExportInvoice() && !runtime.hasExportInvoices())
        throw CliError(u"%1: the plugin does not export invoices"_s.arg(plugin.id()));

    QList<Invoice> invoices;
    Profile profile;
    if (arguments.size() > 1) {
        for (const QString& argument : arguments.mid(1)) {
            DocumentSource resolved = DocumentSource::resolve(argument, workspace);
            if (invoices.isEmpty())
                profile = resolved.profile;
            invoices.append(resolved.invoice);
        }
    } else {
        Workspace& stores = workspace();
        profile = stores.activeProfile();
        invoices = stores.invoices().invoices();
        std::sort(invoices.begin(), invoices.end(), [](const Invoice& a, const Invoice& b) {
            return std::pair(a.date, a.number) < std::pair(b.date, b.number);
        });
    }

    const QString output = context.parser.value(u"output"_s);
    if (!output.isEmpty()) {
        if (const auto error = PluginCommands::exportToFile(runtime, invoices, profile, output))
            throw CliError(u"%1: %2"_s.arg(plugin.id(), runtime.lastError().value_or(*error)));
        err() << "Exported " << invoices.size() << " invoice(s) to " << output << Qt::endl;
        return ExitCode::ok;
    }
    const auto text = PluginCommands::exportText(runtime, invoices, profile);
    if (!text)
        throw CliError(u"%1: %2"_s.arg(
            plugin.id(), runtime.lastError().value_or(Strings::ui(u"The plugin returned no output."))));
    out() << *text;
    return ExitCode::ok;
}

int importInvoices(PluginContext& context, const QStringList& arguments)
{
    const Plugin plugin = findPlugin(context.manager, arguments[0]);
    PluginRuntime& runtime = usableRuntime(context.manager, plugin);
    if (!runtime.hasImportInvoices())
        throw CliError(u"%1: the plugin does not import invoices"_s.arg(plugin.id()));
    Workspace& stores = workspace();
    const QList<Invoice> created = PluginTasks::importFile(context.manager, plugin.id(), arguments[1],
                                                           stores.invoices(), stores.activeProfile());
    out() << "Imported " << created.size() << " invoice(s) into profile \""
          << stores.activeProfile().displayName() << "\"\n";
    for (const Invoice& invoice : created)
        out() << "  " << NumberFormat::displayNumber(invoice, stores.activeProfile()) << "  " << invoice.name
              << '\n';
    return ExitCode::ok;
}

int updateInvoices(PluginContext& context, const QStringList& arguments)
{
    const Plugin plugin = findPlugin(context.manager, arguments[0]);
    const PluginRuntime& runtime = usableRuntime(context.manager, plugin);
    if (!runtime.hasUpdateInvoices())
        throw CliError(u"%1: the plugin does not update invoices"_s.arg(plugin.id()));
    Workspace& stores = workspace();
    context.manager.setStores(&stores.invoices(), &stores.profiles());
    const auto changed = context.manager.runUpdate(plugin.id());
    if (!changed)
        throw CliError(
            u"%1: %2"_s.arg(plugin.id(), runtime.lastError().value_or(u"the plugin returned no changes"_s)));
    out() << "Updated " << *changed << " invoice(s)\n";
    return ExitCode::ok;
}

QList<PluginAction> pluginActions()
{
    return {
        {u"list"_s, u"list"_s, 0, 0, &list},
        {u"install"_s, u"install PATH"_s, 1, 1, &install},
        {u"uninstall"_s, u"uninstall ID"_s, 1, 1, &uninstall},
        {u"enable"_s, u"enable ID"_s, 1, 1,
         [](PluginContext& c, const QStringList& a) { return setEnabled(c, a, true); }},
        {u"disable"_s, u"disable ID"_s, 1, 1,
         [](PluginContext& c, const QStringList& a) { return setEnabled(c, a, false); }},
        {u"export"_s, u"export ID [INVOICE...] [-o FILE]"_s, 1, -1, &exportInvoices},
        {u"import"_s, u"import ID FILE"_s, 2, 2, &importInvoices},
        {u"update-invoices"_s, u"update-invoices ID"_s, 1, 1, &updateInvoices},
        {u"check-updates"_s, u"check-updates"_s, 0, 0,
         [](PluginContext& c, const QStringList&) { return checkPluginUpdates(c.manager); }},
        {u"update"_s, u"update ID"_s, 1, 1,
         [](PluginContext& c, const QStringList& a) {
             return updatePlugin(c.manager, findPlugin(c.manager, a[0]).id());
         }},
    };
}

class PluginCommand : public Command
{
public:
    QString name() const override { return u"plugin"_s; }
    QString summary() const override { return u"List, install, switch and run script plugins."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output (list)."_s});
        parser.addOption(
            {{u"o"_s, u"output"_s}, u"Write the export to FILE instead of standard output."_s, u"FILE"_s});
        QStringList usages;
        for (const PluginAction& action : pluginActions())
            usages.append(action.usage);
        parser.addPositionalArgument(
            u"action"_s,
            usages.join(u" | "_s) + u" (ID: the plugin's folder name without .ledraplugin, or its name)"_s,
            u"ACTION [ARGS...]"_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        QStringList arguments = parser.positionalArguments();
        if (arguments.isEmpty())
            return usageError(u"no action given"_s);
        const QString name = arguments.takeFirst();
        const QList<PluginAction> actions = pluginActions();
        const auto action = std::find_if(actions.begin(), actions.end(),
                                         [&](const PluginAction& a) { return a.name == name; });
        if (action == actions.end())
            return usageError(u"unknown action \"%1\""_s.arg(name));
        if (arguments.size() < action->minArguments ||
            (action->maxArguments >= 0 && arguments.size() > action->maxArguments))
            return usageError(u"usage: ledra plugin %1"_s.arg(action->usage));
        try {
            // Settings as the desktop application keeps them; the data folder is opened only by
            // the actions that need invoices.
            QSettings settings(QSettings::NativeFormat, QSettings::UserScope, u"Ledra"_s, u"Ledra"_s);
            PluginManager manager(settings, QCoreApplication::applicationVersion());
            manager.reloadPlugins();
            PluginContext context{parser, manager};
            return action->run(context, arguments);
        } catch (const TaskError& error) {
            return fail(error.message());
        } catch (const PluginError& error) {
            return fail(error.message());
        }
    }
};

} // namespace

std::unique_ptr<Command> makePluginCommand()
{
    return std::make_unique<PluginCommand>();
}
