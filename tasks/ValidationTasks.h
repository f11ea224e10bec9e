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
QJsonObject json(const CheckedFile& file);

} // namespace ValidationTasks
