#pragma once

#include "validation/EInvoiceValidator.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// Checking e-invoices against the official rules, for `ledra validate` and the desktop program.
namespace ValidationTasks {

struct CheckedFile
{
    QString path;
    ValidationReport report;
};

// "en16931", "xrechnung" or empty (automatic); nullopt for anything else.
std::optional<EInvoiceValidator::Rules> parseRules(const QString& name);

std::vector<CheckedFile> validateFiles(const QStringList& paths,
                                       EInvoiceValidator::Rules rules = EInvoiceValidator::Rules::Automatic);

// One file's verdict as text: a line per failed rule ("  ERROR BR-CO-10 at /rsm:…: text"),
// then "FILE: VALID|INVALID (N errors, M warnings)".
QString text(const CheckedFile& file);
// The rule's own text without the id that most rule sets put in front ("[BR-CO-10]-…").
QString ruleText(const ValidationFailure& failure);
QJsonObject json(const CheckedFile& file);

} // namespace ValidationTasks
