#include "reminders/Reminder.h"

#include "l10n/Strings.h"
#include "util/Clock.h"

Reminder Reminder::makeNew(const QUuid& invoiceId)
{
    Reminder reminder;
    reminder.id = QUuid::createUuid();
    reminder.invoiceId = invoiceId;
    reminder.date = Clock::nowTimestamp();
    return reminder;
}

QString Reminder::titleKey(int number)
{
    switch (number) {
    case 0:
        return QStringLiteral("Friendly Reminder");
    case 1:
        return QStringLiteral("First Payment Reminder");
    case 2:
        return QStringLiteral("Second Payment Reminder");
    case 3:
        return QStringLiteral("Final Payment Reminder");
    default:
        return QStringLiteral("Payment Reminder");
    }
}

QString Reminder::title(Language language) const
{
    return Strings::text(titleKey(number), language);
}
