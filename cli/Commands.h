#pragma once

#include "Command.h"

#include "calc/Totals.h"
#include "model/Invoice.h"
#include "util/JsonWriter.h"

std::unique_ptr<Command> makeTotalsCommand();
std::unique_ptr<Command> makeNumberCommand();
std::unique_ptr<Command> makeDemoCommand();

// Shared by the commands that read record files.
class CliError : public std::runtime_error
{
public:
    explicit CliError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromStdString(what()); }
};

// Reads and decodes an invoice file; the error names the file and what is wrong with it.
Invoice readInvoiceFile(const QString& path);

// "1234.50" — amounts on the command line are plain, locale-independent, two decimals.
QString formatAmount(double amount);
void printTotals(QTextStream& stream, const Totals::Summary& summary, const QString& currency);
void writeTotals(JsonWriter& writer, const Totals::Summary& summary, const QString& currency);
