#pragma once

#include "model/Invoice.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

class Workspace;

// A data folder that a sync engine shares between machines: what `ledra check` and the window
// report (versions in conflict, invoice numbers used twice) and what the user does about it
// (keep one version or both, renumber a draft). Failures throw TaskError.
namespace SyncTasks {

enum class RecordKind
{
    invoice,
    reminder,
    profile,
    styling,
    // A folder in the data folder with records but no profile.json: what remains on one machine
    // of a profile that the other renamed while this one changed it.
    folder
};

// One record with another version of it beside it.
struct Conflict
{
    RecordKind kind = RecordKind::invoice;
    QString profileName;
    // The invoice or reminder; the profile for profile.json and styling.json, and for a folder
    // the profile its files would join.
    QUuid id;
    // "Invoice 2026-002", "Reminder 1 of invoice 2026-002", "Profile", "Styling".
    QString subject;
    QString path;      // the record's file
    QString otherPath; // the other version's file
    QDateTime otherModified;
};

// Invoices of one type whose displayed number is the same.
struct DuplicateNumber
{
    QString profileName;
    InvoiceType type = InvoiceType::invoice;
    QString number;
    QList<QUuid> ids;
    QStringList paths;
};

struct Report
{
    QList<Conflict> conflicts;
    QList<DuplicateNumber> duplicates;
    bool isClean() const { return conflicts.isEmpty() && duplicates.isEmpty(); }
};

// Conflicts of the active profile's invoices and reminders and of every profile's
// profile.json and styling.json; numbers used twice in the active profile.
Report check(Workspace& workspace);

// The conflicts of one record (an invoice or reminder id; null with kind profile or styling).
QList<Conflict> conflictsOf(Workspace& workspace, RecordKind kind, const QUuid& id = {});

// A conflict by the other version's file name or path (as `ledra check` prints it).
Conflict findConflict(Workspace& workspace, const QString& otherFile);

enum class Choice
{
    keepThis,  // the other version is discarded
    keepOther, // the other version replaces the record
    keepBoth   // invoices: the other version becomes its own invoice with the next number;
               // a left-over folder: its files join the profile, as versions in conflict where
               // the profile has the same file
};
// Does what the user chose and says what happened ("Kept the other version of invoice …").
// Only this removes the other version's file.
QString resolve(Workspace& workspace, const Conflict& conflict, Choice choice);

// One field that differs between two versions: its path in the record ("recipient.name",
// "items.0.quantity") with the value of each side as text.
struct FieldDifference
{
    QString field;
    QString thisValue;
    QString otherValue;
};
// Every field of both versions, in the order of the record; `differs` marks those that differ.
struct FieldRow
{
    QString field;
    QString thisValue;
    QString otherValue;
    bool differs = false;
};
QList<FieldRow> compare(Workspace& workspace, const Conflict& conflict);

// The other invoices of the active profile that show the same number as this one.
QList<Invoice> sameNumber(const Workspace& workspace, const QUuid& id);
// "The number 2026-002 is also used by invoice … ." or empty when the number is unique.
QString numberClash(const Workspace& workspace, const Invoice& invoice);
// Throws TaskError with numberClash() when the number is used twice.
void requireUniqueNumber(const Workspace& workspace, const Invoice& invoice);

// Gives a draft whose number is used twice the next free number of its type; returns the new
// displayed number. A sent, paid or cancelled invoice is refused: its number went out already.
QString renumber(Workspace& workspace, const QUuid& id);

// Sets an invoice's status; marking an invoice as sent is refused while its number is used twice.
void setStatus(Workspace& workspace, const QUuid& id, Status status);

} // namespace SyncTasks
