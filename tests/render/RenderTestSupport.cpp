#include "RenderTestSupport.h"

#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryFile>

namespace RenderTest {

namespace {

QByteArray resource(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("resource %s missing", qPrintable(path));
    return file.readAll();
}

} // namespace

Invoice sampleInvoice()
{
    return InvoiceJson::decode(resource(QStringLiteral(":/samples/sample-invoice.json")));
}

Profile sampleProfile()
{
    return ProfileJson::decode(resource(QStringLiteral(":/samples/sample-profile.json")));
}

Styling a4Styling()
{
    return Styling::makeNew(Country{QStringLiteral("DE")});
}

Invoice invoiceWithItems(int count)
{
    Invoice invoice = sampleInvoice();
    const InvoiceItem model = invoice.items.first();
    invoice.items.clear();
    for (int i = 0; i < count; ++i) {
        InvoiceItem item = InvoiceItem::makeNew();
        item.item = QStringLiteral("Item %1: %2").arg(i + 1).arg(model.item);
        item.quantity = 1 + i % 4;
        item.unit = model.unit;
        item.unitPrice = 40 + i;
        item.vatPercentage = 19;
        invoice.items.append(item);
    }
    return invoice;
}

QString pdfText(const QByteArray& pdf)
{
    QTemporaryFile file;
    if (!file.open())
        return {};
    file.write(pdf);
    file.flush();
    QProcess process;
    process.start(QStringLiteral("pdftotext"),
                  {QStringLiteral("-layout"), file.fileName(), QStringLiteral("-")});
    process.waitForFinished(30000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace RenderTest
