#include "payment/GiroCode.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "payment/Iban.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTextBoundaryFinder>

using namespace Qt::Literals::StringLiterals;

namespace GiroCode {

QString fitted(const QString& text, int maxLength)
{
    // Line breaks would end the element early; every other control character is noise to a bank.
    QString line = text;
    for (QChar& c : line)
        if (c.category() == QChar::Other_Control)
            c = u' ';
    line = line.simplified();
    if (line.toUcs4().size() <= maxLength)
        return line;
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, line);
    qsizetype end = 0;
    int characters = 0;
    for (qsizetype next = graphemes.toNextBoundary(); next > 0; next = graphemes.toNextBoundary()) {
        characters += int(QStringView(line).mid(end, next - end).toUcs4().size());
        if (characters > maxLength)
            break;
        end = next;
    }
    return line.left(end).trimmed();
}

std::optional<CreditTransfer> transferFor(const Invoice& invoice, const Profile& sender)
{
    if (invoice.type != InvoiceType::invoice || invoice.currency.code != u"EUR")
        return std::nullopt;
    if (!Iban::isValid(sender.iban))
        return std::nullopt;
    const double amount = Totals::round2(Totals::grossTotal(invoice));
    if (amount < minAmount || amount > maxAmount)
        return std::nullopt;

    CreditTransfer transfer;
    transfer.iban = Iban::compact(sender.iban);
    // A malformed BIC would make the bank refuse the transfer; without one the IBAN suffices.
    static const QRegularExpression bicPattern(u"^[A-Z]{6}[A-Z0-9]{2}([A-Z0-9]{3})?$"_s);
    const QString bic = Iban::compact(sender.bic);
    if (bicPattern.match(bic).hasMatch())
        transfer.bic = bic;
    transfer.beneficiary = fitted(sender.businessName.trimmed().isEmpty() ? sender.name : sender.businessName,
                                  maxBeneficiaryLength);
    transfer.amount = amount;
    const Language language = invoice.documentLanguage(sender);
    transfer.remittance =
        fitted(Strings::text(u"Invoice", language) + u' ' + NumberFormat::displayNumber(invoice, sender),
               maxRemittanceLength);
    if (transfer.beneficiary.isEmpty())
        return std::nullopt;
    return transfer;
}

QString payload(const CreditTransfer& transfer)
{
    QStringList elements{u"BCD"_s,
                         u"002"_s,
                         u"1"_s, // UTF-8
                         u"SCT"_s,
                         transfer.bic,
                         transfer.beneficiary,
                         transfer.iban,
                         u"EUR"_s + QString::number(Totals::round2(transfer.amount), 'f', 2),
                         QString(), // purpose code
                         QString(), // structured creditor reference
                         transfer.remittance};
    while (elements.last().isEmpty())
        elements.removeLast();
    return elements.join(u'\n');
}

} // namespace GiroCode
