#include "render/ReceivedEInvoiceDocument.h"

#include "calc/Totals.h"
#include "l10n/CodeNames.h"
#include "l10n/Strings.h"
#include "render/InvoiceDocument.h"
#include "validation/EInvoiceValidator.h"

#include <QFile>
#include <QHash>
#include <QLocale>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace ReceivedEInvoiceDocument {

namespace {

struct Context
{
    Language language;
    QString currency;

    QString t(const QString& key) const { return Strings::text(key, language); }
    QLocale locale() const
    {
        return language == Language::german ? QLocale(QLocale::German, QLocale::Germany)
                                            : QLocale(QLocale::English, QLocale::UnitedStates);
    }
    QString money(double amount) const { return Totals::formatMoney(amount, currency, language); }
    // Unit prices keep the decimals the document gives, up to four.
    QString price(double amount) const
    {
        const bool cents = std::abs(amount * 100 - std::round(amount * 100)) < 1e-6;
        return Totals::formatMoney(amount, currency, language, cents ? 2 : 4);
    }
    QString date(const std::optional<QDate>& date) const
    {
        if (!date)
            return {};
        return locale().toString(*date, language == Language::german ? u"d. MMMM yyyy"_s : u"d MMMM yyyy"_s);
    }
    // An amount taken off ("−11,10 €"): a minus sign in front, in every language.
    QString deduction(double amount) const { return u"\u2212"_s + money(std::abs(amount)); }
    QString percent(double rate) const
    {
        return locale().toString(rate, 'f', QLocale::FloatingPointShortest) + u"\u00a0%"_s;
    }
};

// Text of the file, safe in element content and attribute values.
QString esc(const QString& text)
{
    return text.toHtmlEscaped();
}

// Escaped, with the file's line breaks kept.
QString escLines(const QString& text)
{
    return esc(text).replace(u'\n', u"<br>"_s);
}

// "DE02 1203 0000 …" reads and compares better than one run of 22 characters.
QString groupedIban(const QString& iban)
{
    QString compact = iban;
    compact.remove(u' ');
    QStringList groups;
    for (qsizetype i = 0; i < compact.size(); i += 4)
        groups.append(compact.mid(i, 4));
    return groups.join(u' ');
}

QString lookup(const QHash<QString, QString>& table, const QString& code, const Context& c)
{
    const auto it = table.constFind(code);
    return it == table.constEnd() ? esc(code) : esc(c.t(*it));
}

QString vatCategoryName(const QString& code, const Context& c)
{
    static const QHash<QString, QString> names{
        {u"S"_s, u"Standard rate"_s},
        {u"Z"_s, u"Zero rated goods"_s},
        {u"E"_s, u"Exempt from VAT"_s},
        {u"AE"_s, u"Reverse charge"_s},
        {u"K"_s, u"Intra-community supply"_s},
        {u"G"_s, u"Export outside the EU"_s},
        {u"O"_s, u"Not subject to VAT"_s},
        {u"L"_s, u"Canary Islands general indirect tax"_s},
        {u"M"_s, u"Tax for production, services and importation in Ceuta and Melilla"_s},
    };
    return lookup(names, code, c);
}

// Why an allowance or charge was made (UNTDID 5189 and 7161), for entries without a reason text.
QString allowanceReasonName(const QString& code, bool charge, const Context& c)
{
    static const QHash<QString, QString> allowances{
        {u"41"_s, u"Bonus for works ahead of schedule"_s},
        {u"42"_s, u"Other bonus"_s},
        {u"60"_s, u"Manufacturer’s consumer discount"_s},
        {u"64"_s, u"Special agreement"_s},
        {u"65"_s, u"Production error discount"_s},
        {u"66"_s, u"New outlet discount"_s},
        {u"67"_s, u"Sample discount"_s},
        {u"68"_s, u"End-of-range discount"_s},
        {u"95"_s, u"Discount"_s},
        {u"100"_s, u"Special rebate"_s},
        {u"102"_s, u"Fixed long term"_s},
        {u"103"_s, u"Temporary"_s},
        {u"104"_s, u"Standard"_s},
        {u"105"_s, u"Yearly turnover"_s},
    };
    static const QHash<QString, QString> charges{
        {u"ABL"_s, u"Additional packaging"_s},
        {u"ADR"_s, u"Other services"_s},
        {u"FC"_s, u"Freight service"_s},
        {u"FI"_s, u"Financing"_s},
        {u"PC"_s, u"Packing"_s},
        {u"SH"_s, u"Special handling"_s},
        {u"TAC"_s, u"Testing"_s},
    };
    const QHash<QString, QString>& names = charge ? charges : allowances;
    const auto it = names.constFind(code);
    return it == names.constEnd() ? code : c.t(*it);
}

QString paymentMeansName(const QString& code, const Context& c)
{
    static const QHash<QString, QString> names{
        {u"1"_s, u"Payment means not defined"_s},
        {u"10"_s, u"Cash"_s},
        {u"20"_s, u"Cheque"_s},
        {u"30"_s, u"Credit transfer"_s},
        {u"31"_s, u"Debit transfer"_s},
        {u"42"_s, u"Payment to bank account"_s},
        {u"48"_s, u"Bank card"_s},
        {u"49"_s, u"Direct debit"_s},
        {u"54"_s, u"Credit card"_s},
        {u"55"_s, u"Debit card"_s},
        {u"57"_s, u"Standing agreement"_s},
        {u"58"_s, u"SEPA credit transfer"_s},
        {u"59"_s, u"SEPA direct debit"_s},
        {u"97"_s, u"Clearing between partners"_s},
        {u"ZZZ"_s, u"Mutually defined"_s},
    };
    return lookup(names, code, c);
}

// Short unit names after a quantity (UN/ECE Recommendation 20); codes without one show as written.
QString unitName(const QString& code, const Context& c)
{
    static const QHash<QString, QString> names{
        {u"H87"_s, u"unit:pcs"_s},   {u"C62"_s, u"unit:pcs"_s},     {u"XPP"_s, u"unit:pcs"_s},
        {u"EA"_s, u"unit:pcs"_s},    {u"HUR"_s, u"unit:h"_s},       {u"MIN"_s, u"unit:min"_s},
        {u"DAY"_s, u"unit:days"_s},  {u"WEE"_s, u"unit:weeks"_s},   {u"MON"_s, u"unit:months"_s},
        {u"ANN"_s, u"unit:years"_s}, {u"LS"_s, u"unit:lump sum"_s}, {u"SET"_s, u"unit:sets"_s},
        {u"PR"_s, u"unit:pairs"_s},  {u"XPK"_s, u"unit:packs"_s},   {u"XBX"_s, u"unit:boxes"_s},
    };
    static const QHash<QString, QString> symbols{
        {u"KGM"_s, u"kg"_s}, {u"GRM"_s, u"g"_s},   {u"TNE"_s, u"t"_s},  {u"MTR"_s, u"m"_s},
        {u"KMT"_s, u"km"_s}, {u"CMT"_s, u"cm"_s},  {u"MTK"_s, u"m²"_s}, {u"MTQ"_s, u"m³"_s},
        {u"LTR"_s, u"l"_s},  {u"KWH"_s, u"kWh"_s}, {u"SEC"_s, u"s"_s},  {u"P1"_s, u"%"_s},
    };
    if (const auto symbol = symbols.constFind(code); symbol != symbols.constEnd())
        return *symbol;
    return lookup(names, code, c);
}

QString partyHtml(const QString& id, const QString& heading, const ReceivedEInvoice::Party& party,
                  const Context& c)
{
    QString html = u"<div class=\"party\" id=\"%1\"><h2>%2</h2>"_s.arg(id, esc(heading));
    html += u"<div class=\"name\">%1</div>"_s.arg(esc(party.name));
    if (!party.tradingName.isEmpty() && party.tradingName != party.name)
        html += u"<div>%1</div>"_s.arg(esc(party.tradingName));
    QStringList address;
    for (const QString& line : party.addressLines)
        address.append(esc(line));
    const QString city = QStringList{party.postcode, party.city}.join(u' ').trimmed();
    if (!city.isEmpty())
        address.append(esc(city));
    if (!party.subdivision.isEmpty())
        address.append(esc(party.subdivision));
    if (!party.country.isEmpty())
        address.append(esc(CodeNames::countryName(Country{party.country}, c.language)));
    if (!address.isEmpty())
        html += u"<div>%1</div>"_s.arg(address.join(u"<br>"_s));

    QString facts;
    auto fact = [&facts](const QString& label, const QString& value) {
        if (!value.isEmpty())
            facts += u"<dt>%1</dt><dd>%2</dd>"_s.arg(esc(label), esc(value));
    };
    fact(c.t(u"VAT ID"_s), party.vatId);
    fact(c.t(u"Tax Number"_s), party.taxNumber);
    fact(c.t(u"Identifier"_s), party.identifier);
    fact(c.t(u"Registration"_s), party.legalRegistration);
    // Some writers repeat the party's name as its contact person.
    if (party.contactName != party.name)
        fact(c.t(u"Contact"_s), party.contactName);
    fact(c.t(u"Phone"_s), party.contactPhone);
    fact(c.t(u"E-mail"_s), party.contactEmail);
    if (party.electronicAddress != party.contactEmail || party.contactEmail.isEmpty())
        fact(c.t(u"Electronic address"_s),
             party.electronicAddress.isEmpty() || party.electronicAddressScheme.isEmpty() ||
                     party.electronicAddressScheme == u"EM"
                 ? party.electronicAddress
                 : u"%1 (%2)"_s.arg(party.electronicAddress, party.electronicAddressScheme));
    if (!facts.isEmpty())
        html += u"<dl>"_s + facts + u"</dl>"_s;
    if (!party.description.isEmpty())
        html += u"<div class=\"detail\">%1</div>"_s.arg(escLines(party.description));
    return html + u"</div>"_s;
}

QString headerHtml(const ReceivedEInvoice& e, const Context& c)
{
    QString facts;
    auto fact = [&facts](const QString& label, const QString& value) {
        if (!value.isEmpty())
            facts += u"<tr><th>%1</th><td>%2</td></tr>"_s.arg(esc(label), esc(value));
    };
    fact(c.t(u"Issue date"_s), c.date(e.issueDate));
    fact(c.t(u"Due date"_s), c.date(e.dueDate));
    fact(c.t(u"Delivery date"_s), c.date(e.deliveryDate));
    if (e.periodStart || e.periodEnd)
        fact(c.t(u"Billing period"_s), u"%1 – %2"_s.arg(c.date(e.periodStart), c.date(e.periodEnd)));
    fact(c.t(u"Buyer reference"_s), e.buyerReference);
    fact(c.t(u"Order"_s), e.orderReference);
    fact(c.t(u"Contract"_s), e.contractReference);
    fact(c.t(u"Preceding invoice"_s), e.precedingInvoice);
    fact(c.t(u"Currency"_s), e.currency);
    return u"<header class=\"head\" id=\"head\"><h1>%1<span class=\"number\">%2</span></h1>"
           u"<table class=\"facts\">%3</table></header>"_s.arg(esc(typeName(e.typeCode, c.language)),
                                                               esc(e.documentNumber), facts);
}

QString differencesHtml(const ReceivedEInvoice& e, const Context& c)
{
    if (e.differences.isEmpty())
        return {};
    QString items;
    for (const ReceivedEInvoice::Difference& difference : e.differences) {
        QString text;
        switch (difference.kind) {
        case ReceivedEInvoice::Difference::Kind::lineTotal:
            text = c.t(u"Sum of lines: %1 stated, the lines add up to %2."_s);
            break;
        case ReceivedEInvoice::Difference::Kind::taxBasis:
            text = c.t(u"Tax basis: %1 stated, lines less allowances plus charges give %2."_s);
            break;
        case ReceivedEInvoice::Difference::Kind::grandTotal:
            text = c.t(u"Grand total: %1 stated, tax basis plus VAT give %2."_s);
            break;
        }
        items +=
            u"<li>%1</li>"_s.arg(esc(text.arg(c.money(difference.stated), c.money(difference.computed))));
    }
    return u"<div class=\"warning\" id=\"totals-warning\"><strong>%1</strong><ul>%2</ul></div>"_s.arg(
        esc(c.t(u"The totals of this document do not match its lines."_s)), items);
}

QString linesHtml(const ReceivedEInvoice& e, const Context& c)
{
    QString rows;
    int number = 0;
    for (const ReceivedEInvoice::Line& line : e.lines) {
        ++number;
        QStringList details;
        if (!line.description.isEmpty() && line.description != line.name)
            details.append(escLines(line.description));
        if (!line.sellerItemId.isEmpty())
            details.append(esc(c.t(u"Item no. %1"_s).arg(line.sellerItemId)));
        if (line.periodStart || line.periodEnd)
            details.append(esc(u"%1 – %2"_s.arg(c.date(line.periodStart), c.date(line.periodEnd))));
        if (!line.note.isEmpty())
            details.append(escLines(line.note));
        QString price = esc(c.price(line.netPrice));
        if (line.priceBaseQuantity && *line.priceBaseQuantity != 1)
            price += u" / "_s + esc(InvoiceDocument::formatQuantity(*line.priceBaseQuantity, c.language)) +
                     u"\u00a0"_s + unitName(line.unitCode, c);
        QString vat = line.vatRate ? esc(c.percent(*line.vatRate)) : QString();
        if (!line.vatCategory.isEmpty() && line.vatCategory != u"S")
            vat += u" "_s + esc(line.vatCategory);
        rows += u"<tr id=\"line-"_s + QString::number(number) + u"\">"_s;
        rows += u"<td class=\"pos\">%1</td><td><div class=\"item-name\">%2</div>%3</td>"
                u"<td class=\"num\">%4\u00a0%5</td><td class=\"num\">%6</td><td class=\"num\">%7</td>"
                u"<td class=\"num\">%8</td></tr>"_s.arg(
                    esc(line.position), esc(line.name),
                    details.isEmpty() ? QString()
                                      : u"<div class=\"item-detail\">%1</div>"_s.arg(details.join(u"<br>"_s)),
                    esc(InvoiceDocument::formatQuantity(line.quantity, c.language)),
                    unitName(line.unitCode, c), price, vat.trimmed(), esc(c.money(line.lineTotal)));
    }
    return u"<section class=\"lines\"><h2>%1</h2><table class=\"list\" id=\"lines\"><thead><tr>"
           u"<th class=\"pos\">%2</th><th>%3</th><th class=\"num\">%4</th><th class=\"num\">%5</th>"
           u"<th class=\"num\">%6</th><th class=\"num\">%7</th></tr></thead><tbody>%8</tbody></table></section>"_s
               .arg(esc(c.t(u"Items"_s)), esc(c.t(u"Pos."_s)), esc(c.t(u"Description"_s)),
                    esc(c.t(u"Quantity"_s)), esc(c.t(u"Unit price"_s)), esc(c.t(u"VAT"_s)),
                    esc(c.t(u"Amount"_s)), rows);
}

QString allowancesHtml(const ReceivedEInvoice& e, const Context& c)
{
    if (e.allowancesCharges.isEmpty())
        return {};
    QString rows;
    for (const ReceivedEInvoice::AllowanceCharge& entry : e.allowancesCharges) {
        QString reason =
            entry.reason.isEmpty() ? allowanceReasonName(entry.reasonCode, entry.isCharge, c) : entry.reason;
        if (entry.percent && entry.basis)
            reason += u" (%1 × %2)"_s.arg(c.percent(*entry.percent), c.money(*entry.basis));
        QString vat = entry.vatRate ? c.percent(*entry.vatRate) : QString();
        if (!entry.vatCategory.isEmpty() && entry.vatCategory != u"S")
            vat += u" "_s + entry.vatCategory;
        rows += u"<tr><td>%1</td><td>%2</td><td class=\"num\">%3</td><td class=\"num\">%4</td></tr>"_s.arg(
            esc(c.t(entry.isCharge ? u"Charge"_s : u"Allowance"_s)), esc(reason.trimmed()),
            esc(vat.trimmed()), esc(entry.isCharge ? c.money(entry.amount) : c.deduction(entry.amount)));
    }
    return u"<section><h2>%1</h2><table class=\"list\" id=\"allowances\"><thead><tr><th></th><th>%2</th>"
           u"<th class=\"num\">%3</th><th class=\"num\">%4</th></tr></thead><tbody>%5</tbody></table></section>"_s
               .arg(esc(c.t(u"Allowances and charges"_s)), esc(c.t(u"Reason"_s)), esc(c.t(u"VAT"_s)),
                    esc(c.t(u"Amount"_s)), rows);
}

QString vatHtml(const ReceivedEInvoice& e, const Context& c)
{
    QString rows;
    int number = 0;
    for (const ReceivedEInvoice::VatBreakdown& vat : e.vatBreakdown) {
        ++number;
        QString category = vatCategoryName(vat.category, c);
        const QString exemption =
            vat.exemptionReason.isEmpty() ? vat.exemptionReasonCode : vat.exemptionReason;
        if (!exemption.isEmpty())
            category += u"<div class=\"item-detail\">%1</div>"_s.arg(escLines(exemption));
        rows += u"<tr id=\"vat-"_s + QString::number(number) + u"\">"_s;
        rows +=
            u"<td>%1</td><td class=\"num\">%2</td><td class=\"num\">%3</td><td class=\"num\">%4</td></tr>"_s
                .arg(category, vat.rate ? esc(c.percent(*vat.rate)) : QString(), esc(c.money(vat.basis)),
                     esc(c.money(vat.taxAmount)));
    }
    return u"<div><h2>%1</h2><table class=\"list\" id=\"vat\"><thead><tr><th>%2</th><th class=\"num\">%3</th>"
           u"<th class=\"num\">%4</th><th class=\"num\">%5</th></tr></thead><tbody>%6</tbody></table></div>"_s
               .arg(esc(c.t(u"VAT breakdown"_s)), esc(c.t(u"Category"_s)), esc(c.t(u"Rate"_s)),
                    esc(c.t(u"Basis"_s)), esc(c.t(u"VAT"_s)), rows);
}

QString totalsHtml(const ReceivedEInvoice& e, const Context& c)
{
    const ReceivedEInvoice::Totals& t = e.totals;
    QString rows;
    auto row = [&](const QString& key, const std::optional<double>& amount, const QString& rowClass = {},
                   bool negate = false) {
        if (!amount)
            return;
        rows += u"<tr%1><th>%2</th><td>%3</td></tr>"_s.arg(
            rowClass.isEmpty() ? QString() : u" class=\"%1\" id=\"%1-total\""_s.arg(rowClass), esc(c.t(key)),
            esc(negate ? c.deduction(*amount) : c.money(*amount)));
    };
    row(u"Sum of lines"_s, t.lineTotal);
    if (t.allowanceTotal && *t.allowanceTotal != 0)
        row(u"Allowances"_s, t.allowanceTotal, {}, true);
    if (t.chargeTotal && *t.chargeTotal != 0)
        row(u"Charges"_s, t.chargeTotal);
    row(u"Tax basis"_s, t.taxBasis);
    row(u"VAT total"_s, t.taxTotal);
    row(u"Grand total"_s, t.grandTotal, u"grand"_s);
    if (t.prepaid && *t.prepaid != 0)
        row(u"Prepaid"_s, t.prepaid, {}, true);
    if (t.rounding && *t.rounding != 0)
        row(u"Rounding"_s, t.rounding);
    const bool dueDiffers = t.duePayable && t.grandTotal && std::abs(*t.duePayable - *t.grandTotal) > 0.005;
    if (dueDiffers || (t.duePayable && !t.grandTotal))
        row(u"Amount due"_s, t.duePayable, u"due"_s);
    return u"<div><h2>%1</h2><table class=\"totals\" id=\"totals\">%2</table></div>"_s.arg(
        esc(c.t(u"Totals"_s)), rows);
}

QString paymentHtml(const ReceivedEInvoice& e, const Context& c)
{
    QString body;
    if (!e.paymentTerms.isEmpty())
        body += u"<div class=\"terms\">%1</div>"_s.arg(esc(e.paymentTerms));
    QString facts;
    auto fact = [&facts](const QString& label, const QString& value) {
        if (!value.isEmpty())
            facts += u"<dt>%1</dt><dd>%2</dd>"_s.arg(esc(label), esc(value));
    };
    fact(c.t(u"Due date"_s), c.date(e.dueDate));
    if (e.totals.duePayable)
        fact(c.t(u"Amount due"_s), c.money(*e.totals.duePayable));
    fact(c.t(u"Payment reference"_s), e.paymentReference);
    // One list for all, so that the labels line up.
    for (const ReceivedEInvoice::PaymentMeans& means : e.paymentMeans) {
        facts += u"<dt>%1</dt><dd>%2</dd>"_s.arg(esc(c.t(u"Payment means"_s)),
                                                 paymentMeansName(means.typeCode, c));
        fact(c.t(u"Information"_s), means.information);
        fact(c.t(u"Account holder"_s), means.accountName);
        fact(u"IBAN"_s, groupedIban(means.iban));
        fact(u"BIC"_s, means.bic);
        fact(c.t(u"Debited account"_s), groupedIban(means.debitedAccount));
        fact(c.t(u"Card"_s), means.cardNumber);
    }
    if (!facts.isEmpty())
        body += u"<dl>%1</dl>"_s.arg(facts);
    if (body.isEmpty())
        return {};
    return u"<section><h2>%1</h2><div class=\"payment\" id=\"payment\">%2</div></section>"_s.arg(
        esc(c.t(u"Payment"_s)), body);
}

QString notesHtml(const ReceivedEInvoice& e, const Context& c)
{
    if (e.notes.isEmpty())
        return {};
    QString notes;
    for (const QString& note : e.notes)
        notes += u"<p class=\"note\">%1</p>"_s.arg(esc(note));
    return u"<section id=\"notes\"><h2>%1</h2>%2</section>"_s.arg(esc(c.t(u"Remarks"_s)), notes);
}

QString sourceHtml(const ReceivedEInvoice& e, const Context& c)
{
    QStringList parts{e.fileName};
    if (!e.embeddedName.isEmpty())
        parts.append(c.t(u"embedded as %1"_s).arg(e.embeddedName));
    if (!e.guidelineId.isEmpty())
        parts.append(e.guidelineId);
    return u"<footer class=\"source\">%1</footer>"_s.arg(esc(parts.join(u" · "_s)));
}

QString page(const QString& title, const QString& body, Language language)
{
    QFile css(u":/render/ReceivedEInvoice.css"_s);
    const QString style = css.open(QIODevice::ReadOnly) ? QString::fromUtf8(css.readAll()) : QString();
    return u"<!DOCTYPE html><html lang=\"%1\"><head><meta charset=\"utf-8\">"
           u"<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
           // Nothing of a received file may run or reach out, whatever slips through.
           u"<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           u"'unsafe-inline'\">"
           u"<title>%2</title><style>%3</style></head><body><main class=\"sheet\">%4</main></body></html>"_s
               .arg(language == Language::german ? u"de"_s : u"en"_s, esc(title), style, body);
}

} // namespace

QString sectionOf(const QString& location)
{
    // Each step without its prefix; the position kept for the first line or VAT group met.
    QStringList names;
    std::optional<std::pair<QString, int>> numbered;
    for (const auto& [name, position] : locationSteps(location)) {
        names.append(name);
        if (numbered)
            continue;
        if (name == u"IncludedSupplyChainTradeLineItem" || name == u"InvoiceLine" ||
            name == u"CreditNoteLine")
            numbered = {u"line-"_s, std::max(position, 1)};
        else if (name == u"TaxSubtotal" ||
                 (name == u"ApplicableTradeTax" && names.contains(u"ApplicableHeaderTradeSettlement"_s)))
            numbered = {u"vat-"_s, std::max(position, 1)};
    }
    if (numbered)
        return numbered->first + QString::number(numbered->second);
    if (names.size() < 2)
        return {};
    static const QHash<QString, QString> sections{
        // CII
        {u"SellerTradeParty"_s, u"seller"_s},
        {u"SellerTaxRepresentativeTradeParty"_s, u"seller"_s},
        {u"BuyerTradeParty"_s, u"buyer"_s},
        {u"SpecifiedTradeSettlementHeaderMonetarySummation"_s, u"totals"_s},
        {u"SpecifiedTradeAllowanceCharge"_s, u"allowances"_s},
        {u"SpecifiedTradeSettlementPaymentMeans"_s, u"payment"_s},
        {u"SpecifiedTradePaymentTerms"_s, u"payment"_s},
        {u"PayeeTradeParty"_s, u"payment"_s},
        {u"PaymentReference"_s, u"payment"_s},
        {u"CreditorReferenceID"_s, u"payment"_s},
        {u"IncludedNote"_s, u"notes"_s},
        {u"ExchangedDocument"_s, u"head"_s},
        {u"ExchangedDocumentContext"_s, u"head"_s},
        {u"BuyerReference"_s, u"head"_s},
        {u"ApplicableHeaderTradeDelivery"_s, u"head"_s},
        {u"BuyerOrderReferencedDocument"_s, u"head"_s},
        {u"ContractReferencedDocument"_s, u"head"_s},
        {u"InvoiceReferencedDocument"_s, u"head"_s},
        {u"BillingSpecifiedPeriod"_s, u"head"_s},
        {u"InvoiceCurrencyCode"_s, u"head"_s},
        // UBL
        {u"AccountingSupplierParty"_s, u"seller"_s},
        {u"TaxRepresentativeParty"_s, u"seller"_s},
        {u"AccountingCustomerParty"_s, u"buyer"_s},
        {u"LegalMonetaryTotal"_s, u"totals"_s},
        {u"TaxTotal"_s, u"vat"_s},
        {u"AllowanceCharge"_s, u"allowances"_s},
        {u"PaymentMeans"_s, u"payment"_s},
        {u"PaymentTerms"_s, u"payment"_s},
        {u"PayeeParty"_s, u"payment"_s},
        {u"Note"_s, u"notes"_s},
        {u"ID"_s, u"head"_s},
        {u"IssueDate"_s, u"head"_s},
        {u"DueDate"_s, u"head"_s},
        {u"InvoiceTypeCode"_s, u"head"_s},
        {u"CreditNoteTypeCode"_s, u"head"_s},
        {u"DocumentCurrencyCode"_s, u"head"_s},
        {u"CustomizationID"_s, u"head"_s},
        {u"ProfileID"_s, u"head"_s},
        {u"OrderReference"_s, u"head"_s},
        {u"ContractDocumentReference"_s, u"head"_s},
        {u"BillingReference"_s, u"head"_s},
        {u"Delivery"_s, u"head"_s},
        {u"InvoicePeriod"_s, u"head"_s},
    };
    // A note sits inside the document's header element but has a section of its own.
    if (names.contains(u"IncludedNote"_s))
        return u"notes"_s;
    // The outermost step that names a part wins: a party's identifier ("ID") is the party's.
    for (qsizetype i = 1; i < names.size(); ++i)
        if (const auto it = sections.constFind(names[i]); it != sections.constEnd())
            return *it;
    return {};
}

QString sectionName(const QString& section, Language language)
{
    if (section.startsWith(u"line-"))
        return Strings::text(u"Item %1"_s, language).arg(section.mid(5));
    if (section.startsWith(u"vat"))
        return Strings::text(u"VAT breakdown"_s, language);
    static const QHash<QString, QString> names{
        {u"seller"_s, u"Seller"_s},
        {u"buyer"_s, u"Buyer"_s},
        {u"allowances"_s, u"Allowances and charges"_s},
        {u"totals"_s, u"Totals"_s},
        {u"payment"_s, u"Payment"_s},
        {u"notes"_s, u"Remarks"_s},
        {u"head"_s, u"Document"_s},
    };
    const auto it = names.constFind(section);
    return it == names.constEnd() ? QString() : Strings::text(*it, language);
}

QString typeName(const QString& typeCode, Language language)
{
    static const QHash<QString, QString> names{
        {u"380"_s, u"Invoice"_s},
        {u"381"_s, u"Credit Note"_s},
        {u"383"_s, u"Debit Note"_s},
        {u"384"_s, u"Corrected Invoice"_s},
        {u"386"_s, u"Prepayment Invoice"_s},
        {u"389"_s, u"Self-billed Invoice"_s},
        {u"261"_s, u"Self-billed Credit Note"_s},
        {u"326"_s, u"Partial Invoice"_s},
        {u"751"_s, u"Invoice Information for Accounting"_s},
        {u"875"_s, u"Partial Construction Invoice"_s},
        {u"876"_s, u"Partial Final Construction Invoice"_s},
        {u"877"_s, u"Final Construction Invoice"_s},
    };
    const auto it = names.constFind(typeCode);
    if (it != names.constEnd())
        return Strings::text(*it, language);
    return Strings::text(u"Invoice"_s, language);
}

QString html(const ReceivedEInvoice& einvoice, Language language)
{
    const Context c{language,
                    einvoice.currency.isEmpty() ? einvoice.invoice.currency.code : einvoice.currency};
    QString body = headerHtml(einvoice, c);
    body += differencesHtml(einvoice, c);
    body += u"<section class=\"parties\">%1%2</section>"_s.arg(
        partyHtml(u"seller"_s, c.t(u"Seller"_s), einvoice.seller, c),
        partyHtml(u"buyer"_s, c.t(u"Buyer"_s), einvoice.buyer, c));
    body += linesHtml(einvoice, c);
    body += allowancesHtml(einvoice, c);
    body += u"<section class=\"summary\">%1%2</section>"_s.arg(vatHtml(einvoice, c), totalsHtml(einvoice, c));
    body += paymentHtml(einvoice, c);
    body += notesHtml(einvoice, c);
    body += sourceHtml(einvoice, c);
    return page(typeName(einvoice.typeCode, language) + u' ' + einvoice.documentNumber, body, language);
}

QString errorHtml(const QString& message, Language language)
{
    const QString title = Strings::text(u"This file cannot be shown"_s, language);
    return page(
        title,
        u"<div class=\"error\" id=\"error\"><strong>%1</strong>%2</div>"_s.arg(esc(title), esc(message)),
        language);
}

} // namespace ReceivedEInvoiceDocument
