#pragma once

#include <QString>

// International bank account numbers (ISO 13616) as people type them: grouped, any case.
namespace Iban {

// Without spaces, in upper case: the form machines exchange.
QString compact(const QString& iban);
// Whether the account number has the length of an IBAN and its check digits are right (mod 97).
bool isValid(const QString& iban);

} // namespace Iban
