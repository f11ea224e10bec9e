#include "tasks/PluginTasks.h"

#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "plugins/PluginCommands.h"
#include "plugins/PluginManager.h"
#include "tasks/TaskError.h"
#include "util/Files.h"

#include <QFileInfo>
#include <QStringDecoder>

using namespace Qt::Literals::StringLiterals;

namespace PluginTasks {

namespace {

// The plugin that is asked to run: installed, switched on, and able to do it.
PluginRuntime& usable(PluginManager& plugins, const QString& id, bool (*able)(const PluginRuntime&))
{
    const auto plugin = plugins.plugin(id);
    PluginRuntime* runtime = plugins.runtime(id);
    if (!plugin || !runtime)
        throw TaskError(Strings::ui(u"The plugin “%1” is not installed.").arg(id));
    if (!plugins.isEnabled(id))
        throw TaskError(Strings::ui(u"The plugin “%1” is switched off.").arg(plugin->manifest.name));
    if (!able(*runtime))
        throw TaskError(Strings::ui(u"The plugin “%1” cannot do this.").arg(plugin->manifest.name));
    return *runtime;
}

QString pluginName(PluginManager& plugins, const QString& id)
{
    const auto plugin = plugins.plugin(id);
    return plugin ? plugin->manifest.name : id;
}

} // namespace

QString suggestedExportName(const Plugin& plugin, const QList<Invoice>& invoices, const Profile& profile)
{
    const QString extension = plugin.manifest.fileExtension.value_or(u"txt"_s);
    const QString base = invoices.size() == 1 ? Strings::ui(u"Invoice") + u' ' +
                                                    NumberFormat::displayNumber(invoices.first(), profile)
                                              : Strings::ui(u"Invoices");
    QString name = base + u'.' + extension;
    return name.replace(u'/', u'-'); // a number format may hold slashes
}

void exportToFile(PluginManager& plugins, const QString& id, const QList<Invoice>& invoices,
                  const Profile& profile, const QString& path)
{
    PluginRuntime& runtime = usable(
        plugins, id, [](const PluginRuntime& r) { return r.hasExportInvoice() || r.hasExportInvoices(); });
    if (const auto error = PluginCommands::exportToFile(runtime, invoices, profile, path)) {
        // The script's own complaint says more than "no output".
        throw TaskError(Strings::ui(u"The plugin “%1” could not export: %2")
                            .arg(pluginName(plugins, id), runtime.lastError().value_or(*error)));
    }
}

QList<Invoice> importFile(PluginManager& plugins, const QString& id, const QString& path,
                          InvoiceManager& store, const Profile& profile)
{
    PluginRuntime& runtime =
        usable(plugins, id, [](const PluginRuntime& r) { return r.hasImportInvoices(); });
    QString error;
    const auto bytes = Files::read(path, &error);
    if (!bytes)
        throw TaskError(u"%1: %2"_s.arg(QFileInfo(path).fileName(), error));
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(*bytes);
    if (decoder.hasError())
        throw TaskError(Strings::ui(u"%1: the file is not UTF-8 text.").arg(QFileInfo(path).fileName()));
    const auto patches = runtime.importInvoices(text, profile);
    if (!patches)
        throw TaskError(Strings::ui(u"The plugin “%1” could not import %2: %3")
                            .arg(pluginName(plugins, id), QFileInfo(path).fileName(),
                                 runtime.lastError().value_or(Strings::ui(u"it returned no invoices."))));
    return PluginCommands::applyImport(*patches, store);
}

} // namespace PluginTasks
