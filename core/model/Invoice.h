#pragma once

#include "model/Codes.h"
#include "model/Enums.h"
#include "util/Timestamp.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

struct Profile;

struct InvoiceItem
{
    QUuid id;     // null until makeNew() or a file gives one
    QString item; // the line's description
    double quantity = 1;
    Unit unit = Unit::piece;
    double unitPrice = 0;
    double vatPercentage = 0;

    // A new line with a fresh id.
    static InvoiceItem makeNew();

    friend bool operator==(const InvoiceItem&, const InvoiceItem&) = default;
};

// One invoice, cancellation invoice or quote. A plain value: the stores own the copies
// that are shown and saved. Totals are computed by calc/Totals, never stored.
struct Invoice
{
    // Format generation written into new files. Generation 1 is the first one with "version".
    static constexpr int currentVersion = 1;

    int version = currentVersion;
    InvoiceType type = InvoiceType::invoice;
    QUuid id; // null until makeNew() or a file gives one
    std::optional<QUuid> cancelledInvoiceId;
    std::optional<QUuid> quoteId;
    int number = 0;
    std::optional<QString> numberFormat;
    QString numberVariable;
    std::optional<QString> cancellationPrefix;
    std::optional<QString> quotePrefix;
    Timestamp date;
    Timestamp serviceDateStart;
    std::optional<Timestamp> serviceDateEnd;

    QString name;
    QString businessName;
    QString addressLineOne;
    QString addressLineTwo;
    QString addressPostcode;
    QString addressCity;
    QString addressState;
    Country addressCountry;
    QString email;
    // The buyer's VAT identifier, needed for reverse charge and intra-community supplies.
    QString vatNumber;
    // Where the buyer receives e-invoices, when not at `email`: a Peppol participant id, a
    // Leitweg-ID ... with its scheme (EAS code, such as "0204" or "9930"); empty means the e-mail.
    QString electronicAddress;
    QString electronicAddressScheme;
    // The routing id of a German public customer; it becomes the buyer reference, and the
    // order reference then travels as the order number.
    QString leitwegId;

    QString senderName;
    QString senderBusinessName;
    QString senderAddressLineOne;
    QString senderAddressLineTwo;
    QString senderAddressPostcode;
    QString senderAddressCity;
    QString senderAddressState;
    Country senderAddressCountry;
    QString senderEmail;
    QString senderPhone;
    QString senderWeb;
    QString senderAdditional;
    QString senderIban;
    QString senderBic;
    QString senderTaxNumber;
    QString senderVatNumber;
    QString senderAdditionalNumbers;

    QList<InvoiceItem> items;
    bool grossPrices = false;
    std::optional<double> discountPercentage;
    std::optional<double> discountAmount;
    VATExemptionReason vatExemptionReason = VATExemptionReason::none;
    // The exemption in a received e-invoice's own words and code (otherExemption), kept so
    // that writing it again says the same.
    std::optional<QString> vatExemptionNote;
    std::optional<QString> vatExemptionCode;
    // Early-payment discount: this percentage off when paid within these days.
    std::optional<double> skontoPercentage;
    std::optional<int> skontoDays;
    QString marginalNote;
    int daysToPay = 14;
    Currency currency{QStringLiteral("EUR")};
    std::optional<Language> language;
    Status status = Status::draft;
    Timestamp statusUpdateDate;
    QString note;
    std::optional<QString> reference;
    // The rules its e-invoice follows; automatic leaves it to the profile and the customer.
    EInvoiceProfile eInvoiceProfile = EInvoiceProfile::automatic;

    // A fresh record: new id, every date set to now (by the Clock).
    static Invoice makeNew();

    // `date` plus `daysToPay` calendar days in the calendar's time zone, time of day kept.
    Timestamp dueDate() const;
    // Only a sent invoice can be overdue, from the moment its due date has passed.
    bool isOverdue(Timestamp now) const;
    bool isOverdue() const;
    // The prefix in front of the displayed number: cancellation and quote prefixes
    // (the invoice's own, else the profile's); none for an ordinary invoice.
    QString numberPrefix(const Profile& profile) const;
    // The document language: the invoice's own, else the profile's.
    Language documentLanguage(const Profile& profile) const;

    friend bool operator==(const Invoice&, const Invoice&) = default;
};
