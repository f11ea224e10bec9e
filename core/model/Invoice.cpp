#include "model/Invoice.h"

#include "model/Profile.h"
#include "util/Clock.h"

InvoiceItem InvoiceItem::makeNew()
{
    InvoiceItem item;
    item.id = QUuid::createUuid();
    return item;
}

Invoice Invoice::makeNew()
{
    Invoice invoice;
    invoice.id = QUuid::createUuid();
    const Timestamp now = Clock::nowTimestamp();
    invoice.date = now;
    invoice.serviceDateStart = now;
    invoice.statusUpdateDate = now;
    return invoice;
}

Timestamp Invoice::dueDate() const
{
    return date.addingCalendarDays(daysToPay);
}

bool Invoice::isOverdue(Timestamp now) const
{
    return status == Status::sent && now > dueDate();
}

bool Invoice::isOverdue() const
{
    return isOverdue(Clock::nowTimestamp());
}

QString Invoice::numberPrefix(const Profile& profile) const
{
    switch (type) {
    case InvoiceType::cancellation:
        return cancellationPrefix.value_or(profile.cancellationPrefix);
    case InvoiceType::quote:
        return quotePrefix.value_or(profile.quotePrefix);
    case InvoiceType::invoice:
        break;
    }
    return {};
}

Language Invoice::documentLanguage(const Profile& profile) const
{
    return language.value_or(profile.language);
}
