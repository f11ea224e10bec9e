#include "numbering/NumberAssignment.h"

#include "util/Clock.h"

#include <limits>
#include <optional>

namespace NumberAssignment {

int nextNumber(InvoiceType kind, const QList<Invoice>& invoices, const Profile& profile)
{
    const bool yearly = profile.resetNumberFrequency == NumberResetFrequency::year;
    const int currentYear = Clock::today().year();

    std::optional<int> largest;
    for (const Invoice& invoice : invoices) {
        if (invoice.type != kind)
            continue;
        if (yearly && invoice.date.localDate().year() != currentYear)
            continue;
        if (!largest || invoice.number > *largest)
            largest = invoice.number;
    }
    if (largest) {
        if (*largest == std::numeric_limits<int>::max())
            qFatal("NumberAssignment: number sequence overflow");
        return *largest + 1;
    }
    if (!yearly)
        return profile.startNumber;
    return profile.startNumberYear == currentYear ? profile.startNumber : 1;
}

} // namespace NumberAssignment
