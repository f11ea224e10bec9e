#pragma once

#include "Commands.h"

#include <QByteArray>
#include <QStringList>

// An invoice that lacks fields an e-invoice requires; receivers would reject its XML.
class IncompleteEInvoice : public CliError
{
public:
    IncompleteEInvoice(const QString& argument, QStringList missing);
    const QString& argument() const { return m_argument; }
    const QStringList& missing() const { return m_missing; }

private:
    QString m_argument;
    QStringList m_missing;
};

// The CII XML of the invoice named by `argument`. A cancellation refers to the invoice it
// cancels, found beside an invoice file or in the data folder. Throws IncompleteEInvoice or
// CliError.
QByteArray eInvoiceXml(const QString& argument, const InvoiceContext& context);

// "ARG: the e-invoice lacks:" and one missing field per line, on stderr.
void printMissingFields(const QString& command, const IncompleteEInvoice& incomplete);
