#include "tasks/SampleData.h"

#include "tasks/Workspace.h"
#include "util/Clock.h"

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

} // namespace SampleData
