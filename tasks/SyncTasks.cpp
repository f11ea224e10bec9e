#include "tasks/SyncTasks.h"

#include "l10n/Strings.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "numbering/NumberFormat.h"
#include "reminders/ReminderJson.h"
#include "render/Styling.h"
#include "storage/SyncFiles.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"
#include "util/Files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace SyncTasks {

namespace {

constexpr qint64 maxRecordBytes = 16 * 1024 * 1024;

QString shortId(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper().left(8);
}

QString invoiceSubject(const Invoice& invoice, const Profile& profile)
{
    return Strings::ui(u"%1 %2").arg(labelText(invoice.type), NumberFormat::displayNumber(invoice, profile));
}

Conflict makeConflict(RecordKind kind, const QString& profileName, const QUuid& id, const QString& subject,
                      const QString& path, const QString& otherPath)
{
    return {kind, profileName, id, subject, path, otherPath, QFileInfo(otherPath).lastModified()};
}

// Records are small; a file far larger than any record is not read whole.
QByteArray readRecord(const QString& path)
{
    if (QFileInfo(path).size() > maxRecordBytes)
        throw TaskError(Strings::ui(u"%1: the file is too large for a record").arg(path));
    QString error;
    const auto bytes = SyncFiles::readSettled(path, &error);
    if (!bytes)
        throw TaskError(u"%1: %2"_s.arg(path, error));
    return *bytes;
}

// The record as a flat list of "path" -> text, in the file's own key order.
void flatten(const QJsonValue& value, const QString& prefix, QList<std::pair<QString, QString>>& rows)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            flatten(it.value(), prefix.isEmpty() ? it.key() : prefix + u'.' + it.key(), rows);
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (qsizetype i = 0; i < array.size(); ++i)
            flatten(array.at(i), prefix + u'.' + QString::number(i + 1), rows);
    } else if (value.isString()) {
        rows.append({prefix, value.toString()});
    } else if (value.isDouble()) {
        rows.append({prefix, QString::number(value.toDouble(), 'g', 15)});
    } else if (value.isBool()) {
        rows.append({prefix, value.toBool() ? u"true"_s : u"false"_s});
    } else {
        rows.append({prefix, QString()});
    }
}

QList<std::pair<QString, QString>> flatRecord(const QByteArray& bytes, const QString& path)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (!document.isObject())
        throw TaskError(u"%1: %2"_s.arg(path, error.errorString()));
    QList<std::pair<QString, QString>> rows;
    flatten(document.object(), {}, rows);
    return rows;
}

// Record files of a profile folder (not hidden files, not sync engines' own folders).
QStringList recordFiles(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, {u"*.json"_s}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(folder).relativeFilePath(path);
        if (!relative.startsWith(u'.') && !relative.contains(u"/."_s) &&
            !SyncFiles::isTemporary(it.fileName()))
            files.append(relative);
    }
    files.sort();
    return files;
}

bool holdsRecords(const QString& folder)
{
    return !recordFiles(folder).isEmpty();
}

// The profile that a left-over folder belongs to: the one holding the same invoice files,
// else the active one.
const Profile* likelyOwner(Workspace& workspace, const QString& folder)
{
    const QStringList files = recordFiles(folder);
    const Profile* best = &workspace.activeProfile();
    int bestShared = 0;
    for (const Profile& profile : workspace.profiles().profiles()) {
        const QString profileFolder = workspace.profiles().profileFolder(profile);
        int shared = 0;
        for (const QString& file : files)
            if (file.startsWith(u"Invoices/"_s) && QFileInfo::exists(profileFolder + u'/' + file))
                ++shared;
        if (shared > bestShared) {
            bestShared = shared;
            best = &profile;
        }
    }
    return best;
}

// Moves the records of a left-over folder into a profile's folder: a file the profile lacks
// goes in as it is, one it has goes in as a version in conflict. Then the folder goes.
void takeIntoProfile(const QString& folder, const QString& profileFolder)
{
    const QString tag = QFileInfo(folder).fileName();
    for (const QString& relative : recordFiles(folder)) {
        const QString source = folder + u'/' + relative;
        QString target = profileFolder + u'/' + relative;
        QDir().mkpath(QFileInfo(target).path());
        if (QFileInfo::exists(target)) {
            if (Files::read(source) == Files::read(target)) {
                QFile::remove(source);
                continue;
            }
            target = QFileInfo(target).path() + u'/' +
                     SyncFiles::makeConflictName(QFileInfo(target).fileName(), tag);
        }
        if (!QFile::rename(source, target))
            throw TaskError(Strings::ui(u"%1 could not be moved to %2").arg(source, target));
    }
    // Only empty folders and files of no use (sync engines' temporary files) remain.
    if (recordFiles(folder).isEmpty())
        QDir(folder).removeRecursively();
}

} // namespace

QList<Conflict> conflictsOf(Workspace& workspace, RecordKind kind, const QUuid& id)
{
    QList<Conflict> found;
    const Profile& active = workspace.activeProfile();
    const QString folder = workspace.invoices().invoicesFolder().value_or(QString());
    if (kind == RecordKind::invoice) {
        InvoiceManager& invoices = workspace.invoices();
        if (const Invoice* invoice = invoices.invoice(id))
            for (const QString& name : invoices.conflictFiles(id))
                found.append(makeConflict(kind, active.displayName(), id, invoiceSubject(*invoice, active),
                                          invoices.filePath(id).value_or(QString()), folder + u'/' + name));
    } else if (kind == RecordKind::reminder) {
        ReminderManager& reminders = workspace.reminders();
        if (const Reminder* reminder = reminders.reminder(id)) {
            const Invoice* invoice = workspace.invoices().invoice(reminder->invoiceId);
            const QString subject = Strings::ui(u"Reminder %1 of %2")
                                        .arg(QString::number(reminder->number),
                                             invoice ? invoiceSubject(*invoice, active)
                                                     : reminder->invoiceId.toString(QUuid::WithoutBraces));
            for (const QString& name : reminders.conflictFiles(id))
                found.append(makeConflict(kind, active.displayName(), id, subject,
                                          reminders.filePath(id).value_or(QString()), folder + u'/' + name));
        }
    } else if (kind == RecordKind::folder) {
        ProfileManager& profiles = workspace.profiles();
        const QDir root(profiles.dataFolder());
        for (const QString& name : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            const QString path = root.filePath(name);
            if (profiles.profileNamed(name) || QFileInfo::exists(path + u"/profile.json"_s) ||
                !holdsRecords(path))
                continue;
            const Profile* target = likelyOwner(workspace, path);
            found.append(makeConflict(kind, target->displayName(), target->id,
                                      Strings::ui(u"Folder “%1”").arg(name), profiles.profileFolder(*target),
                                      path));
        }
    } else {
        const QString fileName = kind == RecordKind::profile ? u"profile.json"_s : u"styling.json"_s;
        const QString subject =
            kind == RecordKind::profile ? Strings::ui(u"Profile") : Strings::ui(u"Styling");
        for (const Profile& profile : workspace.profiles().profiles()) {
            const QString profileFolder = workspace.profiles().profileFolder(profile);
            for (const QString& name : SyncFiles::conflictCopies(profileFolder, fileName))
                found.append(makeConflict(kind, profile.displayName(), profile.id, subject,
                                          profileFolder + u'/' + fileName, profileFolder + u'/' + name));
        }
        if (!id.isNull())
            found.removeIf([&](const Conflict& conflict) { return conflict.id != id; });
    }
    return found;
}

Report check(Workspace& workspace)
{
    Report report;
    InvoiceManager& invoices = workspace.invoices();
    for (const QUuid& id : invoices.conflictedIds())
        report.conflicts += conflictsOf(workspace, RecordKind::invoice, id);
    for (const QUuid& id : workspace.reminders().conflictedIds())
        report.conflicts += conflictsOf(workspace, RecordKind::reminder, id);
    report.conflicts += conflictsOf(workspace, RecordKind::profile);
    report.conflicts += conflictsOf(workspace, RecordKind::styling);
    report.conflicts += conflictsOf(workspace, RecordKind::folder);
    std::stable_sort(report.conflicts.begin(), report.conflicts.end(),
                     [](const Conflict& a, const Conflict& b) { return a.otherPath < b.otherPath; });

    const Profile& profile = workspace.activeProfile();
    QSet<QUuid> seen;
    for (const Invoice& invoice : invoices.invoices()) {
        const QList<QUuid> others = invoices.sameNumberAs(invoice.id);
        if (others.isEmpty() || seen.contains(invoice.id))
            continue;
        DuplicateNumber duplicate{profile.displayName(),
                                  invoice.type,
                                  NumberFormat::displayNumber(invoice, profile),
                                  {invoice.id},
                                  {invoices.filePath(invoice.id).value_or(QString())}};
        seen.insert(invoice.id);
        for (const QUuid& other : others) {
            seen.insert(other);
            duplicate.ids.append(other);
            duplicate.paths.append(invoices.filePath(other).value_or(QString()));
        }
        report.duplicates.append(duplicate);
    }
    std::stable_sort(report.duplicates.begin(), report.duplicates.end(),
                     [](const DuplicateNumber& a, const DuplicateNumber& b) {
                         return std::pair(int(a.type), a.number) < std::pair(int(b.type), b.number);
                     });
    return report;
}

Conflict findConflict(Workspace& workspace, const QString& otherFile)
{
    const QString wanted = QFileInfo(QDir::cleanPath(otherFile)).fileName();
    for (const Conflict& conflict : check(workspace).conflicts)
        if (QFileInfo(conflict.otherPath).fileName() == wanted &&
            (!otherFile.contains(u'/') || QFileInfo(conflict.otherPath) == QFileInfo(otherFile)))
            return conflict;
    throw TaskError(Strings::ui(u"%1 is no other version of a record in conflict").arg(otherFile));
}

QString resolve(Workspace& workspace, const Conflict& conflict, Choice choice)
{
    const QString otherName = QFileInfo(conflict.otherPath).fileName();
    if (conflict.kind == RecordKind::folder) {
        if (choice == Choice::keepThis) {
            if (!QDir(conflict.otherPath).removeRecursively())
                throw TaskError(Strings::ui(u"%1 could not be removed").arg(conflict.otherPath));
            return Strings::ui(u"Removed %1.").arg(conflict.subject);
        }
        takeIntoProfile(conflict.otherPath, conflict.path);
        workspace.invoices().loadInvoices();
        if (workspace.reminders().conflictedIds().isEmpty())
            workspace.reminders().loadReminders();
        return Strings::ui(
                   u"Moved the files of %1 into profile “%2”; run the check again for versions in conflict.")
            .arg(conflict.subject, conflict.profileName);
    }
    if (choice == Choice::keepBoth && conflict.kind != RecordKind::invoice)
        throw TaskError(
            Strings::ui(u"Only invoices can be kept both; choose one version of %1.").arg(conflict.subject));
    switch (conflict.kind) {
    case RecordKind::invoice: {
        Invoice created;
        const auto resolution = choice == Choice::keepThis    ? InvoiceManager::Resolution::keepThis
                                : choice == Choice::keepOther ? InvoiceManager::Resolution::keepOther
                                                              : InvoiceManager::Resolution::keepBoth;
        if (const auto error =
                workspace.invoices().resolveConflict(conflict.id, otherName, resolution, &created))
            throw TaskError(u"%1: %2"_s.arg(conflict.subject, *error));
        if (choice == Choice::keepBoth)
            return Strings::ui(u"Kept both versions of %1; the other one is now %2.")
                .arg(conflict.subject, invoiceSubject(created, workspace.activeProfile()));
        break;
    }
    case RecordKind::reminder:
        if (const auto error =
                workspace.reminders().resolveConflict(conflict.id, otherName, choice == Choice::keepOther))
            throw TaskError(u"%1: %2"_s.arg(conflict.subject, *error));
        break;
    case RecordKind::folder: // handled above
        break;
    case RecordKind::profile:
    case RecordKind::styling: {
        if (choice == Choice::keepOther) {
            const QByteArray bytes = readRecord(conflict.otherPath);
            // Only a readable record replaces the current one.
            try {
                if (conflict.kind == RecordKind::profile)
                    ProfileJson::decode(bytes);
                else
                    StylingJson::decode(bytes);
            } catch (const JsonDecodeError& error) {
                throw TaskError(u"%1: %2"_s.arg(conflict.otherPath, error.message()));
            }
            if (const auto error = Files::writeAtomically(conflict.path, bytes))
                throw TaskError(u"%1: %2"_s.arg(conflict.path, *error));
        }
        if (QFileInfo::exists(conflict.otherPath) && !QFile::remove(conflict.otherPath))
            throw TaskError(Strings::ui(u"%1 could not be removed").arg(conflict.otherPath));
        if (choice == Choice::keepOther) {
            if (conflict.kind == RecordKind::profile)
                workspace.profiles().load();
            else
                workspace.styling().load();
        }
        break;
    }
    }
    return choice == Choice::keepThis
               ? Strings::ui(u"Kept this version of %1; the other one was discarded.").arg(conflict.subject)
               : Strings::ui(u"Kept the other version of %1.").arg(conflict.subject);
}

QList<FieldRow> compare(Workspace& workspace, const Conflict& conflict)
{
    Q_UNUSED(workspace);
    const auto mine = flatRecord(readRecord(conflict.path), conflict.path);
    const auto theirs = flatRecord(readRecord(conflict.otherPath), conflict.otherPath);
    QHash<QString, QString> theirValues;
    for (const auto& [field, value] : theirs)
        theirValues.insert(field, value);
    QList<FieldRow> rows;
    QSet<QString> seen;
    for (const auto& [field, value] : mine) {
        seen.insert(field);
        const bool present = theirValues.contains(field);
        const QString other = theirValues.value(field);
        rows.append({field, value, other, !present || other != value});
    }
    for (const auto& [field, value] : theirs)
        if (!seen.contains(field))
            rows.append({field, QString(), value, true});
    return rows;
}

QList<Invoice> sameNumber(const Workspace& workspace, const QUuid& id)
{
    QList<Invoice> others;
    for (const QUuid& other : workspace.invoices().sameNumberAs(id))
        if (const Invoice* invoice = workspace.invoices().invoice(other))
            others.append(*invoice);
    return others;
}

QString numberClash(const Workspace& workspace, const Invoice& invoice)
{
    const QList<Invoice> others = sameNumber(workspace, invoice.id);
    if (others.isEmpty())
        return {};
    const Profile& profile = workspace.activeProfile();
    QStringList names;
    for (const Invoice& other : others) {
        const QString recipient = !other.businessName.trimmed().isEmpty() ? other.businessName : other.name;
        names.append(recipient.trimmed().isEmpty()
                         ? Strings::ui(u"%1 (id %2)").arg(invoiceSubject(other, profile), shortId(other.id))
                         : Strings::ui(u"%1 for %2 (id %3)")
                               .arg(invoiceSubject(other, profile), recipient.trimmed(), shortId(other.id)));
    }
    return Strings::ui(u"The number %1 is also used by %2. Give one of them a new number first.")
        .arg(NumberFormat::displayNumber(invoice, profile), names.join(u", "_s));
}

void requireUniqueNumber(const Workspace& workspace, const Invoice& invoice)
{
    if (const QString clash = numberClash(workspace, invoice); !clash.isEmpty())
        throw TaskError(clash);
}

QString renumber(Workspace& workspace, const QUuid& id)
{
    InvoiceManager& invoices = workspace.invoices();
    const Invoice* found = invoices.invoice(id);
    if (!found)
        throw TaskError(Strings::ui(u"No invoice %1 in this profile.").arg(shortId(id)));
    const Profile& profile = workspace.activeProfile();
    if (found->status != Status::draft)
        throw TaskError(
            Strings::ui(u"%1 was sent with this number and keeps it; give the other invoice a new number.")
                .arg(invoiceSubject(*found, profile)));
    Invoice changed = *found;
    changed.number = invoices.nextFreeNumber(changed);
    if (const auto error = invoices.saveInvoice(changed))
        throw TaskError(u"%1: %2"_s.arg(invoiceSubject(*found, profile), *error));
    return NumberFormat::displayNumber(changed, profile);
}

void setStatus(Workspace& workspace, const QUuid& id, Status status)
{
    InvoiceManager& invoices = workspace.invoices();
    const Invoice* found = invoices.invoice(id);
    if (!found)
        throw TaskError(Strings::ui(u"No invoice %1 in this profile.").arg(shortId(id)));
    if (found->status == status)
        return;
    if (status == Status::sent)
        requireUniqueNumber(workspace, *found);
    Invoice changed = *found;
    changed.status = status;
    changed.statusUpdateDate = Clock::nowTimestamp();
    if (const auto error = invoices.saveInvoice(changed))
        throw TaskError(*error);
}

} // namespace SyncTasks
