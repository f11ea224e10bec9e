#include "tasks/Workspace.h"

#include "numbering/NumberFormat.h"
#include "tasks/TaskError.h"

#include <QCoreApplication>
#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

Workspace::Workspace(QSettings& settings, const QString& defaultDataFolder, QObject* parent)
    : QObject(parent), m_settings(settings)
{
    m_profiles = std::make_unique<ProfileManager>(m_settings, defaultDataFolder);
    m_profiles->load();
    m_invoices = std::make_unique<InvoiceManager>(*m_profiles);
    m_invoices->loadInvoices();
    m_shownProfile = activeProfile().id;
    connect(m_profiles.get(), &ProfileManager::activeProfileChanged, this, &Workspace::followActiveProfile);
    // The data moved to another folder: the same profile, read from its new place.
    connect(m_profiles.get(), &ProfileManager::customDataPathChanged, this, [this] {
        m_shownProfile = QUuid();
        followActiveProfile();
    });
}

Workspace::~Workspace() = default;

std::unique_ptr<QSettings> Workspace::userSettings()
{
    // No organisation folder: ~/.config/Ledra/Ledra.conf, beside ~/.local/share/Ledra.
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, u"Ledra"_s, u"Ledra"_s);
}

ReminderManager& Workspace::reminders()
{
    if (!m_reminders) {
        m_reminders = std::make_unique<ReminderManager>(*m_profiles, *m_invoices);
        m_reminders->loadReminders();
    }
    return *m_reminders;
}

StylingManager& Workspace::styling()
{
    if (!m_styling)
        m_styling = std::make_unique<StylingManager>(m_profiles->activeProfileFolder().value_or(QString()));
    return *m_styling;
}

void Workspace::followActiveProfile()
{
    // The profile store also says "changed" when the active profile's own file was reloaded.
    const Profile* active = m_profiles->activeProfile();
    if (!active || active->id == m_shownProfile)
        return;
    m_shownProfile = active->id;
    m_invoices->loadInvoices();
    if (m_reminders)
        m_reminders->loadReminders();
    if (m_styling)
        m_styling->setProfileFolder(m_profiles->activeProfileFolder().value_or(QString()));
    Q_EMIT activeProfileSwitched();
}

const Invoice& Workspace::find(const QString& reference) const
{
    const QString wanted = reference.trimmed();
    const QUuid exact = QUuid::fromString(wanted);
    QList<const Invoice*> byPrefix;
    QList<const Invoice*> byNumber;
    const QString prefix = wanted.toUpper();
    static const QRegularExpression hexDigits(u"^[0-9A-Fa-f-]+$"_s);
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
        throw TaskError(
            u"no invoice \"%1\" in profile \"%2\""_s.arg(reference, activeProfile().displayName()));
    QStringList names;
    for (const Invoice* invoice : matches)
        names.append(NumberFormat::displayNumber(*invoice, activeProfile()) + u" ("_s +
                     invoice->id.toString(QUuid::WithoutBraces).toUpper().left(8) + u')');
    throw TaskError(u"\"%1\" is ambiguous: %2"_s.arg(reference, names.join(u", "_s)));
}

QList<Invoice> Workspace::related(const Invoice& invoice) const
{
    QList<Invoice> found;
    for (const std::optional<QUuid>& id : {invoice.cancelledInvoiceId, invoice.quoteId})
        if (id)
            if (const Invoice* other = m_invoices->invoice(*id))
                found.append(*other);
    return found;
}

Styling Workspace::activeStyling()
{
    if (const auto& current = styling().styling())
        return *current;
    return Styling::makeNew(activeProfile().addressCountry);
}
