#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "plugins/PluginRuntime.h"

#include <QList>
#include <QString>

#include <optional>

class InvoiceManager;

// What the menu commands "Export Invoices…", "Import Invoices…" and "Update Invoices…" do
// with a plugin's results: write the export, create the imported invoices in the store, set
// the statuses asked for.
namespace PluginCommands {

// One invoice goes to exportInvoice when the plugin has it; otherwise all go to
// exportInvoices. nullopt (and a log line) when the plugin returned nothing usable.
std::optional<QString> exportText(PluginRuntime& runtime, const QList<Invoice>& invoices,
                                  const Profile& profile);

// Exports and writes the result as UTF-8 to `path`. Returns the error text: the plugin
// returned no output, or the file could not be written.
std::optional<QString> exportToFile(PluginRuntime& runtime, const QList<Invoice>& invoices,
                                    const Profile& profile, const QString& path);

// Each patch becomes a new invoice of the active profile (numbered and preset as a new invoice
// made by hand) with the patch's fields in place. Returns the invoices as saved.
QList<Invoice> applyImport(const QList<ImportPatch>& patches, InvoiceManager& invoices);

// Sets status and status date of each invoice named; ids that are not in the store are
// skipped, and an update that changes nothing is not saved. Returns the number saved.
int applyUpdates(const QList<StatusUpdate>& updates, InvoiceManager& invoices);

} // namespace PluginCommands
