#include "tasks/SampleData.h"

#include "einvoice/XMLGenerator.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"

#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace {

struct Customer
{
    QString name;
    QString business;
    QString street;
    QString postcode;
    QString city;
    QString email;
};

InvoiceItem line(const QString& text, double quantity, Unit unit, double price, double vat = 19)
{
    InvoiceItem item = InvoiceItem::makeNew();
    item.item = text;
    item.quantity = quantity;
    item.unit = unit;
    item.unitPrice = price;
    item.vatPercentage = vat;
    return item;
}

} // namespace

namespace SampleData {

void populate(Workspace& workspace)
{
    ProfileManager& profiles = workspace.profiles();
    Profile profile = workspace.activeProfile();
    profile.name = u"Mira Lindqvist"_s;
    profile.businessName = u"Lindqvist Design"_s;
    profile.addressLineOne = u"Gartenweg 3"_s;
    profile.addressPostcode = u"10115"_s;
    profile.addressCity = u"Berlin"_s;
    profile.addressCountry = Country{u"DE"_s};
    profile.email = u"mira@lindqvist-design.example"_s;
    profile.phone = u"+49 30 1234567"_s;
    profile.website = u"lindqvist-design.example"_s;
    profile.iban = u"DE02 1203 0000 0000 2020 51"_s;
    profile.bic = u"BYLADEM1001"_s;
    profile.taxNumber = u"30/123/45678"_s;
    profile.vatNumber = u"DE123456789"_s;
    profile.language = Language::german;
    profile.currency = Currency{u"EUR"_s};
    profile.taxResidency = Country{u"DE"_s};
    profile.vatPercentage = 19;
    profile.hourlyRate = 85;
    profile.dailyRate = 640;
    profiles.saveProfile(profile);
    // Shown in the profile switcher; "Default" says nothing about whose data it is.
    profiles.renameProfile(profile.id, u"Lindqvist Design"_s);

    const QList<Customer> customers{
        {u"Jana Becker"_s, u"Becker & Söhne GmbH"_s, u"Hafenstraße 12"_s, u"20457"_s, u"Hamburg"_s,
         u"buchhaltung@becker-soehne.example"_s},
        {u"Tom Nordlicht"_s, u"Nordlicht Media"_s, u"Schanzenstraße 7"_s, u"50823"_s, u"Köln"_s,
         u"rechnungen@nordlicht.example"_s},
        {u"Anna Keller"_s, u"Alpenblick AG"_s, u"Seestraße 40"_s, u"80802"_s, u"München"_s,
         u"finance@alpenblick.example"_s},
        {u"Lukas Wagner"_s, QString(), u"Lindenallee 5"_s, u"04109"_s, u"Leipzig"_s,
         u"lukas.wagner@mail.example"_s},
        {u"Sofia Richter"_s, u"Kaffeerösterei Richter"_s, u"Marktplatz 2"_s, u"69117"_s, u"Heidelberg"_s,
         u"hallo@roesterei-richter.example"_s},
    };
    const QList<QList<InvoiceItem>> work{
        {line(u"Redesign of the product catalogue"_s, 12.5, Unit::hour, 85),
         line(u"Image licences"_s, 1, Unit::lumpSum, 240),
         line(u"Printed proof copies"_s, 3, Unit::piece, 19.99, 7)},
        {line(u"Logo refresh and style guide"_s, 3, Unit::day, 640)},
        {line(u"Trade fair stand graphics"_s, 18, Unit::hour, 85),
         line(u"Large format print handling"_s, 1, Unit::lumpSum, 150)},
        {line(u"Wedding invitations, layout"_s, 6, Unit::hour, 85),
         line(u"Paper samples"_s, 1, Unit::piece, 24.5, 7)},
        {line(u"Packaging design, three varieties"_s, 4, Unit::day, 640),
         line(u"Mock-ups"_s, 3, Unit::piece, 45)},
    };

    InvoiceManager& invoices = workspace.invoices();
    const QDate today = Clock::today();
    // Oldest first, so that numbers rise with the dates.
    struct Plan
    {
        int daysAgo;
        int customer;
        Status status;
        InvoiceType type = InvoiceType::invoice;
    };
    const QList<Plan> plans{
        {118, 0, Status::paid},
        {96, 1, Status::paid},
        {81, 2, Status::paid},
        {63, 3, Status::paid},
        {47, 4, Status::paid},
        {33, 1, Status::sent},
        {24, 0, Status::sent},
        {12, 2, Status::sent},
        {6, 4, Status::sent},
        {3, 3, Status::draft},
        {1, 0, Status::draft},
        {9, 2, Status::sent, InvoiceType::quote},
        {2, 1, Status::draft, InvoiceType::quote},
    };
    QUuid toCancel;
    for (const Plan& plan : plans) {
        Invoice invoice = plan.type == InvoiceType::quote ? invoices.createQuote() : invoices.createInvoice();
        const Customer& customer = customers[plan.customer];
        invoice.name = customer.name;
        invoice.businessName = customer.business;
        invoice.addressLineOne = customer.street;
        invoice.addressPostcode = customer.postcode;
        invoice.addressCity = customer.city;
        invoice.addressCountry = Country{u"DE"_s};
        invoice.email = customer.email;
        const Timestamp date =
            Timestamp::fromDateTime(QDateTime(today.addDays(-plan.daysAgo), QTime(10, 0), Clock::timeZone()));
        invoice.date = date;
        invoice.serviceDateStart = date.addingCalendarDays(-10);
        invoice.serviceDateEnd = date.addingCalendarDays(-1);
        invoice.items = work[(plan.customer + plan.daysAgo) % work.size()];
        for (InvoiceItem& item : invoice.items)
            item.id = QUuid::createUuid();
        invoice.status = plan.status;
        invoice.statusUpdateDate = date;
        invoice.reference =
            plan.customer == 2 ? std::optional(u"PO-%1"_s.arg(4400 + plan.daysAgo)) : std::nullopt;
        invoice.note = u"Vielen Dank für die gute Zusammenarbeit!"_s;
        if (plan.customer == 2)
            invoice.discountPercentage = 5;
        invoices.saveInvoice(invoice);
        if (plan.daysAgo == 96)
            toCancel = invoice.id;
    }
    // The second invoice was issued twice by mistake.
    if (!toCancel.isNull())
        invoices.cancelInvoice(toCancel);
}

QByteArray receivedEInvoice(const Profile& buyer)
{
    Invoice invoice = Invoice::makeNew();
    invoice.number = 2318;
    invoice.numberFormat = u"RE-{YYYY}-{N}"_s;
    const Timestamp date =
        Timestamp::fromDateTime(QDateTime(Clock::today().addDays(-1), QTime(9, 0), Clock::timeZone()));
    invoice.date = date;
    invoice.serviceDateStart = date.addingCalendarDays(-3);
    invoice.serviceDateEnd = date.addingCalendarDays(-3);
    invoice.status = Status::sent;
    invoice.daysToPay = 14;
    invoice.reference = u"PO-2026-118"_s;
    invoice.senderName = u"Druckerei Hansen GmbH"_s;
    invoice.senderBusinessName = u"Hansen Print & Papier"_s;
    invoice.senderAddressLineOne = u"Am Hafen 12"_s;
    invoice.senderAddressPostcode = u"20457"_s;
    invoice.senderAddressCity = u"Hamburg"_s;
    invoice.senderAddressCountry = Country{u"DE"_s};
    invoice.senderEmail = u"rechnung@druckerei-hansen.example"_s;
    invoice.senderPhone = u"+49 40 5551234"_s;
    invoice.senderIban = u"DE89 3704 0044 0532 0130 00"_s;
    invoice.senderBic = u"COBADEFFXXX"_s;
    invoice.senderVatNumber = u"DE287654321"_s;
    invoice.senderTaxNumber = u"47/123/04567"_s;
    invoice.name = buyer.businessName.isEmpty() ? buyer.name : buyer.businessName;
    invoice.businessName = buyer.businessName;
    invoice.addressLineOne = buyer.addressLineOne;
    invoice.addressPostcode = buyer.addressPostcode;
    invoice.addressCity = buyer.addressCity;
    invoice.addressCountry = buyer.addressCountry;
    invoice.email = buyer.email;
    invoice.items = {
        line(u"Visitenkarten, 4/4-farbig, 350 g/m² matt"_s, 500, Unit::piece, 0.12),
        line(u"Flyer DIN A5, 135 g/m² Bilderdruck"_s, 2000, Unit::piece, 0.085),
        line(u"Satz und Druckvorstufe"_s, 1.5, Unit::hour, 68),
        line(u"Katalog „Formen des Nordens“, 48 Seiten"_s, 25, Unit::piece, 14.8, 7),
    };
    invoice.discountPercentage = 3;
    invoice.note = u"Vielen Dank für Ihren Auftrag. Die Ware wurde am Vortag ausgeliefert."_s;
    invoice.language = Language::german;
    Profile seller;
    seller.language = Language::german;
    return XMLGenerator::generate(invoice, seller).value_or(QByteArray());
}

QByteArray faultyReceivedEInvoice(const Profile& buyer)
{
    QByteArray xml = receivedEInvoice(buyer);
    // The second line's unit: the word on the print shop's order form.
    const qsizetype first = xml.indexOf("unitCode=\"");
    const qsizetype second = first < 0 ? -1 : xml.indexOf("unitCode=\"", first + 1);
    if (second >= 0)
        xml.replace(second, xml.indexOf('"', second + 10) - second + 1, "unitCode=\"Stk\"");
    // The VAT total a few euros off the breakdown.
    static const QRegularExpression taxTotal(u"(<ram:TaxTotalAmount currencyID=\"[A-Z]+\">)([0-9.]+)<"_s);
    QString text = QString::fromUtf8(xml);
    const QRegularExpressionMatch match = taxTotal.match(text);
    if (match.hasMatch())
        text.replace(match.capturedStart(2), match.capturedLength(2),
                     QString::number(match.captured(2).toDouble() + 4.75, 'f', 2));
    return text.toUtf8();
}

} // namespace SampleData
