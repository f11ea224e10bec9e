#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QString>

#include <optional>

// A SEPA credit transfer as the EPC QR code ("GiroCode") carries it: banking apps read it
// and fill in the transfer, so the customer types neither the IBAN nor the amount.
struct CreditTransfer
{
    QString bic;         // optional since version 002 of the code
    QString beneficiary; // at most 70 characters
    QString iban;        // compact, upper case
    double amount = 0;   // euros, from 0.01 to 999999999.99
    QString remittance;  // unstructured, at most 140 characters

    friend bool operator==(const CreditTransfer&, const CreditTransfer&) = default;
};

namespace GiroCode {

inline constexpr int maxBeneficiaryLength = 70;
inline constexpr int maxRemittanceLength = 140;
inline constexpr double minAmount = 0.01;
inline constexpr double maxAmount = 999999999.99;

// The transfer that pays `invoice` to `sender`, the profile whose bank details the document
// prints. None unless the invoice is an ordinary invoice in euros, the sender's IBAN is valid
// and the grand total lies within what the code can carry.
std::optional<CreditTransfer> transferFor(const Invoice& invoice, const Profile& sender);

// The text of the code (version 002, UTF-8, SEPA credit transfer): one element per line,
// trailing empty elements left out.
QString payload(const CreditTransfer& transfer);

// `text` on one line with its white space collapsed, cut to at most `maxLength` characters
// between two characters (never inside a surrogate pair or before a combining mark).
QString fitted(const QString& text, int maxLength);

} // namespace GiroCode
