#pragma once

#include "model/Enums.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "reminders/Reminder.h"

#include <QDate>
#include <QList>
#include <QString>

// The facts of an invoice and its reminder that a reminder text refers to. The text stores
// each as a placeholder ("{{amount}}"); the editor shows it as a labelled token, and the
// letter shows its value.
enum class ReminderVariable
{
    name,
    invoiceNumber,
    invoiceDate,
    amount,
    paymentDeadline,
    dueDate,
    interestAmount,
    interestRate,
    feeAmount
};

// The raw value is the token; the order is the order of the variable menu.
template <>
struct EnumTraits<ReminderVariable>
{
    static constexpr std::string_view typeName = "ReminderVariable";
    static constexpr std::array<EnumCase<ReminderVariable>, 9> cases{{
        {ReminderVariable::name, "name", "Recipient"},
        {ReminderVariable::invoiceNumber, "invoice-number", "Invoice Number"},
        {ReminderVariable::invoiceDate, "invoice-date", "Invoice Date"},
        {ReminderVariable::amount, "amount", "Amount Due"},
        {ReminderVariable::paymentDeadline, "payment-deadline", "Payment Deadline"},
        {ReminderVariable::dueDate, "due-date", "Due Date"},
        {ReminderVariable::interestAmount, "interest-amount", "Interest Amount"},
        {ReminderVariable::interestRate, "interest-rate", "Interest Rate"},
        {ReminderVariable::feeAmount, "fee-amount", "Late Payment Fee"},
    }};
};

namespace ReminderVariables {

QString token(ReminderVariable variable);
// "{{" token "}}"
QString placeholder(ReminderVariable variable);
// In the given language, else the interface language.
QString label(ReminderVariable variable, std::optional<Language> language = std::nullopt);

// The computed facts. The amount due is the invoice's gross total in cents.
double amountDue(const Invoice& invoice);
// Whole calendar days from the due date to the reminder's date; 0 before the due date.
int daysLate(const Reminder& reminder, const Invoice& invoice);
// amount due × rate ÷ 100 × days late ÷ 365, in cents.
double interestAmount(const Reminder& reminder, const Invoice& invoice);
// The reminder's date plus the profile's reminderDaysToPay calendar days.
Timestamp paymentDeadline(const Reminder& reminder, const Profile& profile);

// Formats of the document language: "1.234,50" / "1,234.50" and "14. März 2025" / "March 14, 2025".
QString formatAmount(double amount, Language language);
QString formatRate(double rate, Language language);
QString formatDate(QDate date, Language language);

// The value of a variable in the invoice's document language.
QString resolve(ReminderVariable variable, const Reminder& reminder, const Invoice& invoice,
                const Profile& profile);
// Every placeholder of the nine replaced by its value; any other text, unknown placeholders
// included, stays as it is.
QString substitute(const QString& text, const Reminder& reminder, const Invoice& invoice,
                   const Profile& profile);

// The text a new reminder gets when the profile has no reminderTemplate: polite for the
// friendly reminder (number 0), firmer for later ones and firmest for the final one. Lines
// for interest and fee appear only when the reminder charges them.
QString defaultText(const Reminder& reminder, const Invoice& invoice, const Profile& profile);

} // namespace ReminderVariables
