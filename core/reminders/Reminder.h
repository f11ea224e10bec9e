#pragma once

#include "model/Enums.h"
#include "util/Timestamp.h"

#include <QString>
#include <QUuid>

// A payment reminder (dunning letter) for one unpaid invoice. Reminders of an invoice form a
// chain numbered from 0 (the friendly reminder) upward; the number picks the letter's title.
// A plain value: the ReminderManager owns the copies that are shown and saved.
struct Reminder
{
    static constexpr int currentVersion = 1;

    QUuid id; // null until makeNew() or a file gives one
    int version = currentVersion;
    QUuid invoiceId;
    Timestamp date;
    int number = 1;
    // The body text; holds variable placeholders such as "{{amount}}".
    QString text;
    double interestPercentage = 0; // per year
    double fee = 0;                // in the invoice's currency

    // A fresh record for an invoice: new id, dated now (by the Clock).
    static Reminder makeNew(const QUuid& invoiceId);

    // The English key of the title of a reminder with this number ("First Payment Reminder").
    static QString titleKey(int number);
    QString title(Language language) const;

    friend bool operator==(const Reminder&, const Reminder&) = default;
};
