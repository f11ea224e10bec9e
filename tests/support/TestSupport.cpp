#include "support/TestSupport.h"

#include <QFile>
#include <QTimeZone>

namespace TestSupport {

QString dataPath(const QString& relative)
{
    return QStringLiteral(LEDRA_TEST_DATA) + u'/' + relative;
}

QByteArray readData(const QString& relative)
{
    QFile file(dataPath(relative));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("test data %s missing", qPrintable(relative));
    return file.readAll();
}

QDateTime berlin(const QString& localDateTime)
{
    QDateTime local = QDateTime::fromString(localDateTime, Qt::ISODate);
    local.setTimeZone(QTimeZone("Europe/Berlin"));
    return local;
}

Timestamp berlinTimestamp(const QString& localDateTime)
{
    return Timestamp::fromDateTime(berlin(localDateTime));
}

InvoiceItem line(double quantity, double unitPrice, double vatPercentage)
{
    InvoiceItem item = InvoiceItem::makeNew();
    item.quantity = quantity;
    item.unitPrice = unitPrice;
    item.vatPercentage = vatPercentage;
    return item;
}

Invoice invoiceWith(std::initializer_list<Line> lines, bool grossPrices)
{
    Invoice invoice = Invoice::makeNew();
    invoice.grossPrices = grossPrices;
    for (const Line& l : lines)
        invoice.items.append(line(l.quantity, l.unitPrice, l.vatPercentage));
    return invoice;
}

} // namespace TestSupport
