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

// Writes an invoice as an e-invoice in the UN/CEFACT CII syntax, by the rules of XRechnung 3.0
// or of EN 16931 alone (the Factur-X/ZUGFeRD profile EN 16931), as chosenProfile() says. The document
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

    // What the invoice lacks for a valid e-invoice in the chosen profile, in the order of the
    // form; empty when it can be exported. XRechnung also asks for the seller's phone and
    // e-mail and the buyer's electronic address.
    // Without a profile, the invoice's own choice or its customer decide.
    static QList<MissingField> missingFieldList(const Invoice& invoice, const Profile& profile = Profile());
    static QList<MissingField> missingFieldList(const Invoice& invoice, EInvoiceProfile chosen);
    // The same as texts in the interface language.
    static QStringList missingFields(const Invoice& invoice, const Profile& profile = Profile());

    // The profile an invoice's e-invoice follows, never automatic: the invoice's own choice,
    // else the profile's, else XRechnung for a public customer (a Leitweg-ID, in its field or
    // as the buyer reference) and EN 16931 for everyone else.
    static EInvoiceProfile chosenProfile(const Invoice& invoice, const Profile& profile);
    // The guideline id (BT-24) written for a profile.
    static QString guidelineId(EInvoiceProfile chosen);
    // The profile of ours nearest to a received document's identifier: XRechnung for every
    // XRechnung identifier (extension and variants included), EN 16931 for EN 16931 itself and
    // its other profiles and CIUS (Factur-X MINIMUM to EXTENDED, Peppol); automatic when the
    // identifier is unknown or missing.
    static EInvoiceProfile profileOfGuideline(const QString& guidelineId);

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
    static constexpr const char* xrechnungGuideline =
        "urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0";
    static constexpr const char* en16931Guideline = "urn:cen.eu:en16931:2017";

private:
    static std::optional<QByteArray> write(XMLElement document, const Invoice& invoice,
                                           const Profile& profile, const QList<Invoice>& invoices);
};
