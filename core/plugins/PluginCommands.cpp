#include "plugins/PluginCommands.h"

#include "l10n/Strings.h"
#include "model/ValueCheck.h"
#include "storage/InvoiceManager.h"
#include "util/Clock.h"
#include "util/Files.h"

using namespace Qt::Literals::StringLiterals;

namespace PluginCommands {

std::optional<QString> exportText(PluginRuntime& runtime, const QList<Invoice>& invoices,
                                  const Profile& profile)
{
    std::optional<QString> text;
    if (invoices.size() == 1 && runtime.hasExportInvoice())
        text = runtime.exportInvoice(invoices.first(), profile);
    else if (runtime.hasExportInvoices())
        text = runtime.exportInvoices(invoices, profile);
    else if (runtime.hasExportInvoice())
        qCWarning(lcPlugins).noquote()
            << u"AppCommands: plugin %1 exports one invoice at a time"_s.arg(runtime.plugin().manifest.name);
    if (!text)
        qCWarning(lcPlugins).noquote()
            << u"AppCommands: plugin %1 returned no output"_s.arg(runtime.plugin().manifest.name);
    return text;
}

std::optional<QString> exportToFile(PluginRuntime& runtime, const QList<Invoice>& invoices,
                                    const Profile& profile, const QString& path)
{
    const auto text = exportText(runtime, invoices, profile);
    if (!text)
        return Strings::ui(u"The plugin returned no output.");
    if (const auto error = Files::writeAtomically(path, text->toUtf8())) {
        qCWarning(lcPlugins).noquote() << u"AppCommands: failed to write plugin output: "_s + *error;
        return *error;
    }
    return std::nullopt;
}

QList<Invoice> applyImport(const QList<ImportPatch>& patches, InvoiceManager& invoices)
{
    QList<Invoice> created;
    for (const ImportPatch& patch : patches) {
        Invoice invoice = invoices.createInvoice();
        patch.applyTo(invoice);
        // A plugin's answer is checked like any file from outside: a refused value, no invoice.
        if (const auto problem = ValueCheck::invoice(invoice)) {
            qWarning().noquote() << u"PluginCommands: an imported invoice was refused: "_s + problem->text();
            continue;
        }
        if (invoices.saveInvoice(invoice))
            continue; // logged by the store
        created.append(invoice);
    }
    return created;
}

int applyUpdates(const QList<StatusUpdate>& updates, InvoiceManager& invoices)
{
    int saved = 0;
    for (const StatusUpdate& update : updates) {
        const Invoice* current = invoices.invoice(update.invoiceId);
        if (!current)
            continue;
        // Update plugins run on timers and report the same state again and again; an invoice
        // that is already paid keeps the day it was paid.
        if (current->status == update.status && (!update.date || current->statusUpdateDate == *update.date))
            continue;
        Invoice changed = *current;
        changed.status = update.status;
        changed.statusUpdateDate = update.date.value_or(Clock::nowTimestamp());
        if (!invoices.saveInvoice(changed))
            ++saved;
    }
    return saved;
}

} // namespace PluginCommands
