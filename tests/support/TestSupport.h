#pragma once

#include "model/Invoice.h"
#include "util/Clock.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QTemporaryDir>

#include <initializer_list>

namespace TestSupport {

// A file under tests/data.
QString dataPath(const QString& relative);
QByteArray readData(const QString& relative);

// A moment given as local wall-clock time in Europe/Berlin ("2025-03-01T10:00").
QDateTime berlin(const QString& localDateTime);
Timestamp berlinTimestamp(const QString& localDateTime);

struct Line
{
    double quantity;
    double unitPrice;
    double vatPercentage;
};

InvoiceItem line(double quantity, double unitPrice, double vatPercentage);

// An invoice with just the given lines; everything else as a new record.
Invoice invoiceWith(std::initializer_list<Line> lines, bool grossPrices = false);

} // namespace TestSupport
