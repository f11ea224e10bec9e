#include "reminders/ReminderVariable.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"

#include <QLocale>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace ReminderVariables {

namespace {

QLocale localeOf(Language language)
{
    return language == Language::german ? QLocale(QLocale::German, QLocale::Germany)
                                        : QLocale(QLocale::English, QLocale::UnitedStates);
}

QString recipientName(const Invoice& invoice)
{
    return invoice.name.trimmed().isEmpty() ? invoice.businessName.trimmed() : invoice.name.trimmed();
}

} // namespace

QString token(ReminderVariable variable)
{
    return rawValue(variable);
}

QString placeholder(ReminderVariable variable)
{
    return u"{{"_s + token(variable) + u"}}"_s;
}

QString label(ReminderVariable variable, std::optional<Language> language)
{
    return Strings::text(labelKey(variable), language.value_or(Strings::interfaceLanguage()));
}

double amountDue(const Invoice& invoice)
{
    return Totals::round2(Totals::grossTotal(invoice));
}

int daysLate(const Reminder& reminder, const Invoice& invoice)
{
    const qint64 days = invoice.dueDate().localDate().daysTo(reminder.date.localDate());
    return int(std::max<qint64>(0, days));
}

double interestAmount(const Reminder& reminder, const Invoice& invoice)
{
    return Totals::round2(amountDue(invoice) * reminder.interestPercentage / 100.0 *
                          daysLate(reminder, invoice) / 365.0);
}

Timestamp paymentDeadline(const Reminder& reminder, const Profile& profile)
{
    return reminder.date.addingCalendarDays(profile.reminderDaysToPay);
}

QString formatAmount(double amount, Language language)
{
    double rounded = Totals::round2(amount);
    if (rounded == 0)
        rounded = 0; // no "-0,00"
    return localeOf(language).toString(rounded, 'f', 2);
}

QString formatRate(double rate, Language language)
{
    return localeOf(language).toString(rate, 'f', QLocale::FloatingPointShortest);
}

QString formatDate(QDate date, Language language)
{
    return localeOf(language).toString(date,
                                       language == Language::german ? u"d. MMMM yyyy"_s : u"MMMM d, yyyy"_s);
}

QString resolve(ReminderVariable variable, const Reminder& reminder, const Invoice& invoice,
                const Profile& profile)
{
    const Language language = invoice.documentLanguage(profile);
    switch (variable) {
    case ReminderVariable::name:
        return recipientName(invoice);
    case ReminderVariable::invoiceNumber:
        return NumberFormat::displayNumber(invoice, profile);
    case ReminderVariable::invoiceDate:
        return formatDate(invoice.date.localDate(), language);
    case ReminderVariable::amount:
        return formatAmount(amountDue(invoice), language);
    case ReminderVariable::paymentDeadline:
        return formatDate(paymentDeadline(reminder, profile).localDate(), language);
    case ReminderVariable::dueDate:
        return formatDate(invoice.dueDate().localDate(), language);
    case ReminderVariable::interestAmount:
        return formatAmount(interestAmount(reminder, invoice), language);
    case ReminderVariable::interestRate:
        return formatRate(reminder.interestPercentage, language);
    case ReminderVariable::feeAmount:
        return formatAmount(reminder.fee, language);
    }
    return {};
}

QString substitute(const QString& text, const Reminder& reminder, const Invoice& invoice,
                   const Profile& profile)
{
    // One pass over the text: a value that itself looks like a placeholder (a recipient named
    // "{{amount}}") is never replaced again.
    QString result;
    result.reserve(text.size());
    qsizetype position = 0;
    while (position < text.size()) {
        const qsizetype open = text.indexOf(u"{{"_s, position);
        if (open < 0)
            break;
        const qsizetype close = text.indexOf(u"}}"_s, open + 2);
        if (close < 0)
            break;
        const auto variable =
            enumFromRaw<ReminderVariable>(QStringView(text).sliced(open + 2, close - open - 2));
        if (!variable) {
            // Not one of ours: keep it, and look again from the next brace ("{{{amount}}}").
            result += QStringView(text).sliced(position, open + 1 - position);
            position = open + 1;
            continue;
        }
        result += QStringView(text).sliced(position, open - position);
        result += resolve(*variable, reminder, invoice, profile);
        position = close + 2;
    }
    result += QStringView(text).sliced(position);
    return result;
}

QString defaultText(const Reminder& reminder, const Invoice& invoice, const Profile& profile)
{
    const bool german = invoice.documentLanguage(profile) == Language::german;
    const QString currency = invoice.currency.code;
    // German letters put the currency after the amount, English ones before it.
    const auto money = [&](ReminderVariable variable) {
        return german ? placeholder(variable) + u' ' + currency : currency + u' ' + placeholder(variable);
    };
    const bool hasName = !recipientName(invoice).isEmpty();
    const QString sender =
        profile.name.trimmed().isEmpty() ? profile.businessName.trimmed() : profile.name.trimmed();

    QStringList lines;
    if (german)
        lines << (hasName ? u"Guten Tag {{name}},"_s : u"Sehr geehrte Damen und Herren,"_s) << QString();
    else
        lines << (hasName ? u"Dear {{name}},"_s : u"Dear Sir or Madam,"_s) << QString();

    // The amounts the recipient owes, one per line, for the firmer letters.
    QStringList amounts;
    if (german) {
        amounts << u"Rechnungsbetrag: "_s + money(ReminderVariable::amount);
        if (reminder.interestPercentage > 0)
            amounts << u"Verzugszinsen ({{interest-rate}} % p. a.): "_s +
                           money(ReminderVariable::interestAmount);
        if (reminder.fee > 0)
            amounts << u"Mahngebühr: "_s + money(ReminderVariable::feeAmount);
    } else {
        amounts << u"Invoice amount: "_s + money(ReminderVariable::amount);
        if (reminder.interestPercentage > 0)
            amounts << u"Interest ({{interest-rate}}% per year): "_s +
                           money(ReminderVariable::interestAmount);
        if (reminder.fee > 0)
            amounts << u"Late payment fee: "_s + money(ReminderVariable::feeAmount);
    }

    if (reminder.number == 0) {
        if (german) {
            lines
                << u"sicher ist es im Alltag untergegangen: Für unsere Rechnung {{invoice-number}} vom "
                   u"{{invoice-date}} über "_s +
                       money(ReminderVariable::amount) +
                       u", fällig am {{due-date}}, konnten wir noch keinen Zahlungseingang feststellen."_s
                << QString()
                << u"Wir bitten Sie freundlich, den Betrag bis zum {{payment-deadline}} zu überweisen."_s
                << QString()
                << u"Sollten Sie die Zahlung bereits veranlasst haben, betrachten Sie dieses Schreiben bitte "
                   u"als gegenstandslos. Vielen Dank!"_s;
        } else {
            lines << u"We hope all is well. According to our records, invoice {{invoice-number}} dated "
                     u"{{invoice-date}} for "_s +
                         money(ReminderVariable::amount) +
                         u" was due on {{due-date}}, and we have not received your payment yet."_s
                  << QString()
                  << u"This may simply have been overlooked. We would be grateful if you could transfer the "
                     u"amount by {{payment-deadline}}."_s
                  << QString()
                  << u"If you have already paid, please disregard this reminder. Thank you very much."_s;
        }
    } else if (reminder.number < 3) {
        if (german) {
            lines
                << u"leider konnten wir für unsere Rechnung {{invoice-number}} vom {{invoice-date}}, fällig "
                   u"am {{due-date}}, bis heute keinen Zahlungseingang feststellen."_s
                << QString() << u"Bitte überweisen Sie den offenen Betrag bis zum **{{payment-deadline}}**:"_s
                << QString() << amounts << QString()
                << u"Sollten Sie die Zahlung inzwischen veranlasst haben, betrachten Sie dieses Schreiben "
                   u"bitte als gegenstandslos."_s;
        } else {
            lines << u"Our invoice {{invoice-number}} dated {{invoice-date}} was due on {{due-date}}. "
                     u"Unfortunately, we have not received your payment yet."_s
                  << QString() << u"Please transfer the outstanding amount by **{{payment-deadline}}**:"_s
                  << QString() << amounts << QString()
                  << u"If you have paid in the meantime, please disregard this letter."_s;
        }
    } else {
        if (german) {
            lines
                << u"trotz unserer bisherigen Mahnungen ist unsere Rechnung {{invoice-number}} vom "
                   u"{{invoice-date}}, fällig am {{due-date}}, weiterhin unbezahlt."_s
                << QString()
                << u"Wir fordern Sie letztmalig auf, den offenen Betrag bis zum **{{payment-deadline}}** zu "
                   u"überweisen:"_s
                << QString() << amounts << QString()
                << u"Geht der Betrag bis dahin nicht vollständig bei uns ein, werden wir die Forderung ohne "
                   u"weitere Ankündigung gerichtlich geltend machen. Die dadurch entstehenden Kosten gehen "
                   u"zu Ihren Lasten."_s;
        } else {
            lines
                << u"Despite our previous reminders, our invoice {{invoice-number}} dated {{invoice-date}}, "
                   u"due on {{due-date}}, remains unpaid."_s
                << QString()
                << u"This is our final request to transfer the outstanding amount by "
                   u"**{{payment-deadline}}**:"_s
                << QString() << amounts << QString()
                << u"If we have not received the full amount by then, we will take legal action without "
                   u"further notice. Any costs arising from this will be charged to you."_s;
        }
    }
    lines << QString() << (german ? u"Mit freundlichen Grüßen"_s : u"Kind regards"_s);
    if (!sender.isEmpty())
        lines << sender;
    return lines.join(u'\n');
}

} // namespace ReminderVariables
