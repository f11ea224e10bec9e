// Timesheet Import: one invoice per customer, one line per timesheet entry.
//
//   customer;email;city;country;date;task;hours;rate
//   Acme GmbH;billing@acme.example;Wien;AT;2025-03-03;Workshop;4;120
//
// Empty rates take the hourly rate of the sender profile. The invoices get the profile's
// presets (number, days to pay, currency, notes) like invoices made by hand.
var csv = require('./lib/csv');

exports.importInvoices = function (text, profile) {
    var byCustomer = {}, order = [];
    csv.parse(text).forEach(function (row) {
        if (!row.customer)
            return;
        var invoice = byCustomer[row.customer];
        if (!invoice) {
            invoice = byCustomer[row.customer] = {
                recipient: { name: row.customer, email: row.email || '', address: {} },
                items: []
            };
            if (row.city)
                invoice.recipient.address.city = row.city;
            if (row.country)
                invoice.recipient.address.country = row.country.toUpperCase();
            order.push(row.customer);
        }
        var day = csv.day(row.date || '');
        var rate = row.rate ? csv.amount(row.rate) : profile.hourlyRate;
        invoice.items.push({
            description: (day ? day + ' ' : '') + (row.task || ''),
            quantity: csv.amount(row.hours || '0'),
            unit: 'Hour',
            unitPrice: rate,
            vatPercentage: profile.vatPercentage
        });
        // The service period runs from the first to the last day worked.
        if (day) {
            if (!invoice.serviceDateStart || day < invoice.serviceDateStart)
                invoice.serviceDateStart = day;
            if (!invoice.serviceDateEnd || day > invoice.serviceDateEnd)
                invoice.serviceDateEnd = day;
        }
    });
    return order.map(function (customer) { return byCustomer[customer]; });
};
