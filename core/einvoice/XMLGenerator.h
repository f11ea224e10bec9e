#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

class XMLElement;

// How a line or a VAT group is taxed in an e-invoice: the category code ("S", "Z", "E", "AE",
// "K", "G", "O") with the exemption text and code that exempt categories carry.
struct TaxCategory
{
    QString code;
    QString reason;
    QString reasonCode;

    friend bool operator==(const TaxCategory&, const TaxCategory&) = default;
};

// One thing an e-invoice needs that the invoice lacks. `key` is the English text key of the
// field ("Recipient email"), so that an editor can take the user to it; `item` is the 0-based
// line of the per-line entries.
struct MissingField
{
    QString key;
    QString text; // in the interface language
    std::optional<int> item;

    friend bool operator==(const MissingField&, const MissingField&) = default;
};

// Writes an invoice as an XRechnung 3.0 e-invoice in the UN/CEFACT CII syntax. The document
// is the template resource with the invoice's values set by path and the lines, VAT groups,
// discount allowances and the cancelled invoice's reference put in as fragments.
class XMLGenerator
{
public:
    // The XML as UTF-8, or nullopt when the template cannot be loaded. `invoices` are those of
    // the profile; a cancellation finds the invoice it cancels among them.
    static std::optional<QByteArray> generate(const Invoice& invoice, const Profile& profile,
                                              const QList<Invoice>& invoices = {});
    // The same from a given template document.
    static std::optional<QByteArray> generate(const QByteArray& templateXml, const Invoice& invoice,
                                              const Profile& profile, const QList<Invoice>& invoices);

    // What the invoice lacks for a valid e-invoice, in the order of the form; empty when it can
    // be exported.
    static QList<MissingField> missingFieldList(const Invoice& invoice);
    // The same as texts in the interface language.
    static QStringList missingFields(const Invoice& invoice);

    // UN/ECE Recommendation 20 codes; unknown codes read back as pieces.
    static QString unitCode(Unit unit);
    static Unit unitFromCode(QStringView code);

    // The exemption sentence in the document language, empty for none.
    static QString exemptionText(const Invoice& invoice, const Profile& profile);
    // The category of a rate on this invoice: a rate above zero is standard ("S"); at zero the
    // invoice's tax situation decides: reverse charge "AE", intra-community supply "K", export
    // "G", zero-rated "Z", the exemptions "E".
    static TaxCategory taxCategory(const Invoice& invoice, const Profile& profile, double rate);
    // "#SKONTO#TAGE=14#PROZENT=2.00#" and a line break, the payment terms syntax that German
    // receivers read the early-payment discount from; empty without one.
    static QString skontoTerms(const Invoice& invoice);
    // True for a German public customer's routing id with the right check digits
    // ("04011000-12345-03").
    static bool isValidLeitwegId(const QString& id);
    static bool isEuCountry(const QString& code);
    // "**bold**" and "*italic*" markers removed, the words kept.
    static QString withoutEmphasis(const QString& text);
    // The shortest plain decimal that reads back as the same double, with at least one
    // fraction digit ("1.0", "2.5", "0.00001").
    static QString formatQuantity(double quantity);
    // "%.2f", never "-0.00".
    static QString formatAmount(double amount);

    static constexpr const char* templatePath = ":/einvoice/faktur-x.xml";
    // The buyer reference written when the invoice has none.
    static constexpr const char* noReference = "Keine Bestellnummer";

private:
    static std::optional<QByteArray> write(XMLElement document, const Invoice& invoice,
                                           const Profile& profile, const QList<Invoice>& invoices);
};
