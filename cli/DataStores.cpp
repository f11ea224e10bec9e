#include "DataStores.h"

#include "Commands.h"
#include "numbering/NumberFormat.h"

#include <QRegularExpression>

DataStores::DataStores()
    : m_settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Ledra"),
                 QStringLiteral("Ledra"))
{
    m_profiles = std::make_unique<ProfileManager>(m_settings, ProfileManager::defaultDataFolderPath());
    m_profiles->load();
    m_invoices = std::make_unique<InvoiceManager>(*m_profiles);
    m_invoices->loadInvoices();
}

const Invoice& DataStores::find(const QString& reference) const
{
    const QString wanted = reference.trimmed();
    const QUuid exact = QUuid::fromString(wanted);
    QList<const Invoice*> byPrefix;
    QList<const Invoice*> byNumber;
    const QString prefix = wanted.toUpper();
    static const QRegularExpression hexDigits(QStringLiteral("^[0-9A-Fa-f-]+$"));
    const bool looksLikeId = hexDigits.match(wanted).hasMatch();
    for (const Invoice& invoice : m_invoices->invoices()) {
        if (!exact.isNull() && invoice.id == exact)
            return invoice;
        if (looksLikeId && invoice.id.toString(QUuid::WithoutBraces).toUpper().startsWith(prefix))
            byPrefix.append(&invoice);
        if (NumberFormat::displayNumber(invoice, activeProfile()) == wanted)
            byNumber.append(&invoice);
    }
    // A displayed number such as "2025-001" is made of hex digits too; an exact number wins.
    const QList<const Invoice*>& matches = byNumber.size() == 1 ? byNumber
                                           : byPrefix.isEmpty() ? byNumber
                                                                : byPrefix;
    if (matches.size() == 1)
        return *matches.first();
    if (matches.isEmpty())
        throw CliError(QStringLiteral("no invoice \"%1\" in profile \"%2\"")
                           .arg(reference, activeProfile().displayName()));
    QStringList names;
    for (const Invoice* invoice : matches)
        names.append(NumberFormat::displayNumber(*invoice, activeProfile()) + QStringLiteral(" (") +
                     invoice->id.toString(QUuid::WithoutBraces).toUpper().left(8) + u')');
    throw CliError(
        QStringLiteral("\"%1\" is ambiguous: %2").arg(reference, names.join(QStringLiteral(", "))));
}

DataStores& dataStores()
{
    static DataStores stores;
    return stores;
}
