#include "reminders/ReminderManager.h"

#include "reminders/ReminderJson.h"
#include "reminders/ReminderVariable.h"
#include "storage/SyncFiles.h"
#include "util/Files.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstring>

#include <dirent.h>

using namespace Qt::Literals::StringLiterals;

ReminderManager::ReminderManager(ProfileManager& profiles, InvoiceManager& invoices, QObject* parent)
    : QObject(parent), m_profiles(profiles), m_invoices(invoices),
      m_watcher([this] { return m_invoices.invoicesFolder(); })
{
    connect(&m_profiles, &ProfileManager::activeProfileChanged, this, &ReminderManager::loadReminders);
    connect(&m_watcher, &ProfileDirectoryWatcher::changed, this, &ReminderManager::reloadIfChanged);
    // Saving an invoice under a new name moves its reminder files, deleting it removes them.
    connect(&m_invoices, &InvoiceManager::invoicesChanged, this, &ReminderManager::reloadIfChanged);
}

QHash<QString, ReminderManager::Stamp> ReminderManager::reminderFilesOnDisk() const
{
    // Runs after every invoice save: read the directory alone and stat only reminder files,
    // so a folder of thousands of invoices costs no more than a directory listing.
    QHash<QString, Stamp> files;
    if (!m_folder)
        return files;
    DIR* dir = ::opendir(QFile::encodeName(*m_folder).constData());
    if (!dir)
        return files;
    while (const dirent* entry = ::readdir(dir)) {
        if (!std::strstr(entry->d_name, "-reminder") || entry->d_name[0] == '.' || entry->d_name[0] == '~')
            continue;
        const QString name = QFile::decodeName(entry->d_name);
        if (InvoiceManager::isReminderFileName(name))
            files.insert(name, stampOf(*m_folder + u'/' + name));
    }
    ::closedir(dir);
    return files;
}

void ReminderManager::changed()
{
    ++m_refreshTrigger;
    Q_EMIT refreshTriggerChanged(m_refreshTrigger);
    Q_EMIT remindersChanged();
}

void ReminderManager::loadReminders()
{
    m_reminders.clear();
    m_fileNames.clear();
    m_loadErrors.clear();
    m_conflicts.clear();
    m_folder = m_invoices.invoicesFolder();
    m_stamps = reminderFilesOnDisk();
    if (!m_folder)
        qCWarning(lcStorage) << "ReminderManager: Error loading reminders: no active profile";

    QStringList names = m_stamps.keys();
    // A stable order; plain files before conflict copies, so the plain file is the record.
    std::sort(names.begin(), names.end(), [](const QString& a, const QString& b) {
        return std::pair(SyncFiles::isConflictCopy(a), a) < std::pair(SyncFiles::isConflictCopy(b), b);
    });
    QHash<QString, QUuid> idByName;
    QHash<QUuid, qsizetype> indexById;
    for (const QString& name : std::as_const(names)) {
        const QString path = *m_folder + u'/' + name;
        QString problem;
        if (const auto bytes = SyncFiles::readSettled(path, &problem)) {
            try {
                const Reminder reminder = ReminderJson::decode(*bytes);
                // A conflict copy belongs to the reminder in its original file, whatever id it
                // has (both machines may have written the same reminder of an invoice).
                std::optional<QUuid> owner;
                if (const auto original = SyncFiles::conflictOriginal(name);
                    original && idByName.contains(*original))
                    owner = idByName.value(*original);
                else if (indexById.contains(reminder.id))
                    owner = reminder.id;
                if (owner) {
                    qCInfo(lcStorage).noquote()
                        << "ReminderManager: Two files for reminder" << owner->toString() + u':'
                        << m_fileNames.value(*owner) << "and" << name;
                    m_conflicts[*owner].append(name);
                    continue;
                }
                idByName.insert(name, reminder.id);
                indexById.insert(reminder.id, m_reminders.size());
                m_reminders.append(reminder);
                m_fileNames.insert(reminder.id, name);
                continue;
            } catch (const JsonDecodeError& error) {
                problem = error.message();
            }
        }
        qCWarning(lcStorage).noquote()
            << "ReminderManager: Error loading reminder from" << path + u':' << problem;
        m_loadErrors.append(path + u": "_s + problem);
    }
    m_watcher.refresh();
    changed();
}

void ReminderManager::reloadIfChanged()
{
    if (m_invoices.invoicesFolder() != m_folder || reminderFilesOnDisk() != m_stamps)
        loadReminders();
}

const Reminder* ReminderManager::reminder(const QUuid& id) const
{
    for (const Reminder& r : m_reminders)
        if (r.id == id)
            return &r;
    return nullptr;
}

QList<Reminder> ReminderManager::remindersOf(const QUuid& invoiceId) const
{
    QList<Reminder> chain;
    for (const Reminder& r : m_reminders)
        if (r.invoiceId == invoiceId)
            chain.append(r);
    std::stable_sort(chain.begin(), chain.end(),
                     [](const Reminder& a, const Reminder& b) { return a.number < b.number; });
    return chain;
}

int ReminderManager::nextNumber(const QUuid& invoiceId) const
{
    const QList<Reminder> chain = remindersOf(invoiceId);
    if (!chain.isEmpty())
        return chain.last().number + 1;
    const Profile* profile = m_profiles.activeProfile();
    return profile && !profile->friendlyReminderEnabled ? 1 : 0;
}

std::optional<Reminder> ReminderManager::nextReminder(const QUuid& invoiceId, QString* error) const
{
    const Invoice* invoice = m_invoices.invoice(invoiceId);
    const Profile* profile = m_profiles.activeProfile();
    if (!invoice || !profile) {
        if (error)
            *error = u"no invoice %1 in the active profile"_s.arg(invoiceId.toString(QUuid::WithoutBraces));
        return std::nullopt;
    }
    Reminder reminder = Reminder::makeNew(invoiceId);
    reminder.number = nextNumber(invoiceId);
    reminder.interestPercentage = profile->latePaymentInterestRate;
    // The friendly reminder is a courtesy and charges no fee.
    reminder.fee = reminder.number == 0 ? 0 : profile->latePaymentFee;
    reminder.text = profile->reminderTemplate.trimmed().isEmpty()
                        ? ReminderVariables::defaultText(reminder, *invoice, *profile)
                        : profile->reminderTemplate;
    return reminder;
}

std::optional<QString> ReminderManager::createReminder(const QUuid& invoiceId, Reminder* created)
{
    QString error;
    const auto reminder = nextReminder(invoiceId, &error);
    if (!reminder)
        return error;
    if (const auto saveError = saveReminder(*reminder))
        return saveError;
    if (created)
        *created = *reminder;
    return std::nullopt;
}

std::optional<QString> ReminderManager::fileNameFor(const Reminder& reminder) const
{
    const auto invoicePath = m_invoices.filePath(reminder.invoiceId);
    if (!invoicePath)
        return std::nullopt;
    // The stem of the file the invoice really has: on a clash of ids it is longer than usual.
    return InvoiceManager::reminderFileName(QFileInfo(*invoicePath).completeBaseName(), reminder.number);
}

std::optional<QString> ReminderManager::filePath(const QUuid& id) const
{
    const auto name = m_fileNames.constFind(id);
    if (!m_folder || name == m_fileNames.constEnd())
        return std::nullopt;
    return *m_folder + u'/' + *name;
}

std::optional<QString> ReminderManager::saveReminder(const Reminder& reminder)
{
    const auto fail = [](const QString& message) -> std::optional<QString> {
        qCWarning(lcStorage).noquote() << "ReminderManager: Error saving reminder:" << message;
        return message;
    };
    // The folder may have changed under us (another profile became active).
    reloadIfChanged();
    if (!m_folder)
        return fail(u"no active profile folder"_s);
    if (reminder.id.isNull())
        return fail(u"the reminder has no id"_s);
    if (reminder.number < 0)
        return fail(u"number: must not be negative"_s);
    const auto name = fileNameFor(reminder);
    if (!name)
        return fail(
            u"no invoice %1 in the active profile"_s.arg(reminder.invoiceId.toString(QUuid::WithoutBraces)));
    for (const Reminder& other : std::as_const(m_reminders))
        if (other.id != reminder.id && other.invoiceId == reminder.invoiceId &&
            other.number == reminder.number)
            return fail(u"the invoice already has a reminder with number %1"_s.arg(reminder.number));

    const QString path = *m_folder + u'/' + *name;
    // Never write over a file this store has not placed there: it may be a reminder it could
    // not read, which the user still wants back.
    if (m_stamps.contains(*name) && m_fileNames.key(*name) != reminder.id)
        return fail(u"%1 holds another reminder or one that cannot be read; move it away first"_s.arg(path));

    QByteArray bytes;
    try {
        bytes = ReminderJson::encode(reminder);
    } catch (const JsonEncodeError& error) {
        return fail(QString::fromUtf8(error.what()));
    }
    if (const auto error = Files::writeAtomically(path, bytes))
        return fail(*error);
    m_stamps.insert(*name, stampOf(path));

    const QString previous = m_fileNames.value(reminder.id);
    if (!previous.isEmpty() && previous != *name) {
        QFile::remove(*m_folder + u'/' + previous);
        m_stamps.remove(previous);
    }
    m_fileNames.insert(reminder.id, *name);
    const auto existing = std::find_if(m_reminders.begin(), m_reminders.end(),
                                       [&](const Reminder& r) { return r.id == reminder.id; });
    if (existing != m_reminders.end())
        *existing = reminder;
    else
        m_reminders.append(reminder);
    changed();
    return std::nullopt;
}

std::optional<Reminder> ReminderManager::conflictVersion(const QUuid& id, const QString& fileName,
                                                         QString* error) const
{
    if (!m_folder || !m_conflicts.value(id).contains(fileName)) {
        if (error)
            *error = u"%1 is no other version of this reminder"_s.arg(fileName);
        return std::nullopt;
    }
    const QString path = *m_folder + u'/' + fileName;
    QString problem;
    try {
        const auto bytes = SyncFiles::readSettled(path, &problem);
        if (!bytes)
            throw JsonDecodeError({}, problem);
        return ReminderJson::decode(*bytes);
    } catch (const JsonDecodeError& decodeError) {
        if (error)
            *error = path + u": "_s + decodeError.message();
        return std::nullopt;
    }
}

std::optional<QString> ReminderManager::resolveConflict(const QUuid& id, const QString& fileName,
                                                        bool keepOther)
{
    QString error;
    const auto other = conflictVersion(id, fileName, &error);
    if (!other)
        return error;
    const QString path = *m_folder + u'/' + fileName;
    if (keepOther) {
        if (other->id != id)
            if (const auto deleteError = deleteReminder(id))
                return deleteError;
        if (const auto saveError = saveReminder(*other))
            return saveError;
    }
    if (QFileInfo::exists(path) && !QFile::remove(path))
        return u"cannot remove %1"_s.arg(path);
    m_stamps.remove(fileName);
    for (auto entry = m_conflicts.begin(); entry != m_conflicts.end();) {
        entry->removeAll(fileName);
        entry = entry->isEmpty() ? m_conflicts.erase(entry) : std::next(entry);
    }
    changed();
    return std::nullopt;
}

std::optional<QString> ReminderManager::deleteReminder(const QUuid& id)
{
    reloadIfChanged();
    const auto path = filePath(id);
    if (!reminder(id) || !path)
        return u"no reminder %1 in the active profile"_s.arg(id.toString(QUuid::WithoutBraces));
    if (QFileInfo::exists(*path) && !QFile::remove(*path))
        return u"cannot remove %1"_s.arg(*path);
    const QString name = m_fileNames.take(id);
    m_stamps.remove(name);
    m_reminders.removeIf([&](const Reminder& r) { return r.id == id; });
    changed();
    return std::nullopt;
}
