#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QList>
#include <QString>

// The folder the desktop program shares with a mail-client add-on, and the file through which
// the add-on lists invoices ("MailExtensionSync.json": the active profile and its invoices).
// The file formats are described for add-on authors in docs/mail-extension.md.
namespace MailExtension {

inline constexpr char groupIdentifier[] = "group.com.varnhelm.Ledra";
inline constexpr char syncFileName[] = "MailExtensionSync.json";
inline constexpr char attachmentsFolder[] = "MailAttachments";
inline constexpr char requestFileName[] = "ExportRequest.json";

// "group.com.varnhelm.Ledra" in the user's data home (~/.local/share).
QString containerPath();

// The container with its attachments folder, created when missing; nothing (and the log line that names the
// group) when it cannot be made.
std::optional<QString> container(const QString& path = containerPath());

// The sync file's content: {"activeProfile": …, "invoices": […]} in the record files' JSON.
QByteArray syncPayload(const Profile& activeProfile, const QList<Invoice>& invoices);

// Writes the sync file atomically; false after a logged failure.
bool writeSync(const Profile& activeProfile, const QList<Invoice>& invoices,
               const QString& path = containerPath());

} // namespace MailExtension
