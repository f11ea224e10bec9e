#include "exchange/MailExtensionSync.h"

#include "exchange/ProfileExchange.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "util/Files.h"
#include "util/JsonWriter.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::Literals::StringLiterals;

namespace MailExtension {

QString containerPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u'/' +
           QLatin1StringView(groupIdentifier);
}

std::optional<QString> container(const QString& path)
{
    // The add-on drops its requests into the attachments folder: there from the start.
    if (path.isEmpty() || !QDir().mkpath(path + u'/' + QLatin1StringView(attachmentsFolder))) {
        qCWarning(lcExchange).noquote() << "MailExtensionSync: No app group container for" << groupIdentifier;
        return std::nullopt;
    }
    return path;
}

QByteArray syncPayload(const Profile& activeProfile, const QList<Invoice>& invoices)
{
    // The records as their files hold them, one below the other.
    QByteArray payload =
        "{\n  \"activeProfile\": " + ProfileJson::encode(activeProfile).trimmed() + ",\n  \"invoices\": [";
    for (qsizetype i = 0; i < invoices.size(); ++i) {
        payload += i == 0 ? "\n" : ",\n";
        payload += InvoiceJson::encode(invoices[i]).trimmed();
    }
    payload += invoices.isEmpty() ? "]\n}\n" : "\n  ]\n}\n";
    return payload;
}

bool writeSync(const Profile& activeProfile, const QList<Invoice>& invoices, const QString& path)
{
    const auto folder = container(path);
    if (!folder)
        return false;
    QByteArray payload;
    try {
        payload = syncPayload(activeProfile, invoices);
    } catch (const std::exception& error) {
        qCWarning(lcExchange).noquote()
            << "MailExtensionSync: Failed to encode:" << QString::fromUtf8(error.what());
        return false;
    }
    if (const auto error = Files::writeAtomically(*folder + u'/' + QLatin1StringView(syncFileName), payload,
                                                  Files::FolderLink::refused)) {
        qCWarning(lcExchange).noquote() << "MailExtensionSync: Failed to write sync file:" << *error;
        return false;
    }
    return true;
}

} // namespace MailExtension
