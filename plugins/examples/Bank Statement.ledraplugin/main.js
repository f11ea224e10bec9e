// Bank Statement: marks sent invoices paid from the bookings of a CSV bank statement.
//
// The statement has a header line and the columns "date", "amount" and "purpose" (other
// columns are ignored), for example:
//
//   date;amount;purpose
//   03.03.2025;1.190,00;Invoice 2025-001 Acme GmbH
//
// A booking pays an invoice when its purpose contains the invoice's number as printed and its
// amount is at least the invoice total.
var csv = require('./lib/csv');

function bookings() {
    var text = ledra.command.run('bank-statement', '');
    if (!text)
        return [];
    return csv.parse(text).map(function (row) {
        return { day: csv.day(row.date), amount: csv.amount(row.amount), purpose: (row.purpose || '').toLowerCase() };
    }).filter(function (b) { return b.amount > 0; });
}

// The number as a word of its own: "2025-001" is not found in "2025-0012".
function mentions(purpose, number) {
    var escaped = number.replace(/[.*+?^${}()|[\]\\\/-]/g, '\\$&');
    return new RegExp('(^|[^0-9a-z])' + escaped + '($|[^0-9a-z])').test(purpose);
}

exports.updateInvoices = function (invoices, profile) {
    var paid = {};
    var list = bookings();
    invoices.forEach(function (invoice) {
        if (invoice.status !== 'Sent' || !invoice.formattedNumber)
            return;
        var number = invoice.formattedNumber.toLowerCase();
        for (var i = 0; i < list.length; i++) {
            var booking = list[i];
            if (mentions(booking.purpose, number) && booking.amount + 0.005 >= invoice.total) {
                paid[invoice.id] = booking.day ? { status: 'Paid', date: booking.day } : { status: 'Paid' };
                console.log('paid: ' + invoice.formattedNumber);
                return;
            }
        }
    });
    return paid;
};
