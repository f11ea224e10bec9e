#pragma once

#include "model/Invoice.h"

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace EInvoiceImporter {
struct Document;
}

// A received e-invoice (CII or UBL XML, or a hybrid PDF with the XML inside) as the viewer shows it:
// the invoice record the importer would make of it, and everything else the document says that
// the record has no room for (both parties in full, lines with their own totals, allowances and
// charges, the VAT breakdown, the stated totals, payment). Amounts are those of the document,
// never recomputed; only the check of the totals against the lines computes.
struct ReceivedEInvoice
{
    struct Party
    {
        QString name;
        QString tradingName;
        // The party's identifier (ID, else GlobalID) and its legal registration.
        QString identifier;
        QString legalRegistration;
        // Further legal information (register court, tax number in prose ...).
        QString description;
        QStringList addressLines;
        QString postcode;
        QString city;
        QString subdivision;
        QString country; // ISO 3166-1 alpha-2
        QString vatId;
        QString taxNumber;
        QString contactName;
        QString contactPhone;
        QString contactEmail;
        QString electronicAddress;
        QString electronicAddressScheme; // "EM" for e-mail, "9930" ...

        friend bool operator==(const Party&, const Party&) = default;
    };

    struct Line
    {
        QString position; // LineID as written; not always a number
        QString name;
        QString description;
        QString sellerItemId;
        QString note;
        double quantity = 0;
        QString unitCode; // UN/ECE Recommendation 20
        double netPrice = 0;
        // The quantity the net price is for ("4.00 per 10 pieces"); nullopt means 1.
        std::optional<double> priceBaseQuantity;
        double lineTotal = 0;
        QString vatCategory;
        std::optional<double> vatRate;
        std::optional<QDate> periodStart;
        std::optional<QDate> periodEnd;

        friend bool operator==(const Line&, const Line&) = default;
    };

    // A document-level allowance (a discount) or charge (freight, packaging).
    struct AllowanceCharge
    {
        bool isCharge = false;
        QString reason;
        QString reasonCode;
        double amount = 0;
        std::optional<double> percent;
        std::optional<double> basis;
        QString vatCategory;
        std::optional<double> vatRate;

        friend bool operator==(const AllowanceCharge&, const AllowanceCharge&) = default;
    };

    struct VatBreakdown
    {
        QString category;
        std::optional<double> rate;
        double basis = 0;
        double taxAmount = 0;
        QString exemptionReason;
        QString exemptionReasonCode;

        friend bool operator==(const VatBreakdown&, const VatBreakdown&) = default;
    };

    // The document's header totals as stated; absent ones stay nullopt.
    struct Totals
    {
        std::optional<double> lineTotal;
        std::optional<double> allowanceTotal;
        std::optional<double> chargeTotal;
        std::optional<double> taxBasis;
        std::optional<double> taxTotal;
        std::optional<double> grandTotal;
        std::optional<double> prepaid;
        std::optional<double> rounding;
        std::optional<double> duePayable;

        friend bool operator==(const Totals&, const Totals&) = default;
    };

    struct PaymentMeans
    {
        QString typeCode; // UNTDID 4461: 58 SEPA credit transfer, 59 SEPA direct debit ...
        QString information;
        QString iban; // or the account's proprietary id
        QString accountName;
        QString bic;
        QString debitedAccount; // the buyer's IBAN for a direct debit
        QString cardNumber;     // the last digits of a payment card

        friend bool operator==(const PaymentMeans&, const PaymentMeans&) = default;
    };

    // A stated total that the document's own lines, allowances and charges do not give.
    struct Difference
    {
        enum class Kind
        {
            lineTotal, // the line total against the sum of the lines' totals
            taxBasis,  // the tax basis against lines − allowances + charges
            grandTotal // the grand total against tax basis + VAT
        };
        Kind kind;
        double stated = 0;
        double computed = 0;
    };

    // What the importer would make of the document (seller as sender, buyer as recipient).
    Invoice invoice;
    QString documentNumber;
    QString fileName;
    // For a hybrid PDF, the embedded file the XML came from ("factur-x.xml").
    QString embeddedName;
    // UNTDID 1001: 380 invoice, 381 credit note, 384 corrected invoice, 389 self-billed ...
    QString typeCode;
    // The rule set the document says it follows, BT-24 (CII GuidelineSpecifiedDocumentContextParameter,
    // UBL CustomizationID), e.g. "urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0".
    QString guidelineId;
    std::optional<QDate> issueDate;
    std::optional<QDate> dueDate;
    std::optional<QDate> deliveryDate;
    std::optional<QDate> periodStart;
    std::optional<QDate> periodEnd;
    QString currency;
    QString buyerReference; // the Leitweg-ID of German public buyers
    QString orderReference;
    QString contractReference;
    QString precedingInvoice; // the invoice a credit note or correction refers to
    Party seller;
    Party buyer;
    QList<Line> lines;
    QList<AllowanceCharge> allowancesCharges;
    QList<VatBreakdown> vatBreakdown;
    Totals totals;
    QString paymentTerms;
    QString paymentReference;
    QList<PaymentMeans> paymentMeans;
    QStringList notes;
    QList<Difference> differences;

    // Reads file bytes; `fileName` names the file in messages. Nothing, with `error` set to a
    // message for the user that names the file and what is wrong, when it is no e-invoice.
    static std::optional<ReceivedEInvoice> read(const QByteArray& bytes, const QString& fileName,
                                                QString* error = nullptr);
    // An opened document of either syntax; an empty record for a refused one.
    static ReceivedEInvoice fromDocument(const EInvoiceImporter::Document& document);

    // The sum of the lines' own totals.
    double sumOfLines() const;
    bool isCreditNote() const { return typeCode == u"381" || typeCode == u"261"; }
};
