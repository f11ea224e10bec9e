// JSON Export: one compact object per invoice.
var dates = require('./lib/dates');

function cents(x) {
    return Math.round(x * 100) / 100;
}

function lineNet(item, grossPrices) {
    var net = item.quantity * item.unitPrice;
    if (grossPrices && item.vatPercentage > 0)
        net = net / (1 + item.vatPercentage / 100);
    return cents(net);
}

function convert(invoice) {
    var net = 0, vat = 0;
    var items = invoice.items.map(function (item) {
        var lineNetAmount = lineNet(item, invoice.grossPrices);
        net += lineNetAmount;
        vat += lineNetAmount * item.vatPercentage / 100;
        return {
            description: item.description,
            quantity: item.quantity,
            unit: item.unit,
            unitPrice: item.unitPrice,
            vatPercentage: item.vatPercentage,
            net: lineNetAmount
        };
    });
    // Sums of the lines; a discount is passed on as it is (the program applies it per VAT rate).
    return {
        id: invoice.id,
        type: invoice.type,
        number: invoice.number,
        date: dates.day(invoice.date),
        dueDays: invoice.daysToPay,
        status: invoice.status,
        reference: invoice.reference,
        customer: {
            name: invoice.recipient.name,
            businessName: invoice.recipient.businessName,
            email: invoice.recipient.email,
            address: invoice.recipient.address
        },
        currency: invoice.currency,
        items: items,
        discountPercentage: invoice.discountPercentage,
        discountAmount: invoice.discountAmount,
        itemsNet: cents(net),
        itemsVat: cents(vat),
        itemsGross: cents(net + vat)
    };
}

module.exports = {
    exportInvoice: function (invoice, profile) {
        return JSON.stringify(convert(invoice), null, 2) + '\n';
    },
    exportInvoices: function (invoices, profile) {
        return JSON.stringify({
            sender: profile.businessName || profile.name,
            invoices: invoices.map(convert)
        }, null, 2) + '\n';
    }
};
