#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QList>
#include <QString>

class InvoiceManager;
class PluginManager;
struct Plugin;

// Running a plugin's export and import entry points on the user's behalf: files in and out,
// and the plugin's own error when it fails. Throws TaskError with a message naming the
// plugin or the file.
namespace PluginTasks {

// "Invoice 2026-004.csv" for one invoice, "Invoices.csv" for several; the extension is the
// plugin's own ("txt" when it names none).
QString suggestedExportName(const Plugin& plugin, const QList<Invoice>& invoices, const Profile& profile);

void exportToFile(PluginManager& plugins, const QString& id, const QList<Invoice>& invoices,
                  const Profile& profile, const QString& path);

// Reads the file as UTF-8, hands it to the plugin and creates the invoices it returns in the
// store (numbered and preset like new invoices). Returns them as saved.
QList<Invoice> importFile(PluginManager& plugins, const QString& id, const QString& path,
                          InvoiceManager& store, const Profile& profile);

} // namespace PluginTasks
