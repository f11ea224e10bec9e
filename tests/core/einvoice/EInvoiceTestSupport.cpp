#include "EInvoiceTestSupport.h"

#include "einvoice/XMLGenerator.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace EInvoiceTest {

Invoice completeInvoice()
{
    Invoice invoice = TestSupport::invoiceWith({{12.5, 85, 19}, {1, 240, 19}, {3, 19.99, 7}});
    invoice.items[0].item = u"Redesign of the product catalogue"_s;
    invoice.items[0].unit = Unit::hour;
    invoice.items[1].item = u"Image licences"_s;
    invoice.items[1].unit = Unit::lumpSum;
    invoice.items[2].item = u"Printed proof copies"_s;
    invoice.number = 7;
    invoice.numberFormat = u"{YYYY}-{NNN}"_s;
    invoice.date = TestSupport::berlinTimestamp(u"2025-03-14T10:30"_s);
    invoice.serviceDateStart = TestSupport::berlinTimestamp(u"2025-03-01T10:00"_s);
    invoice.serviceDateEnd = TestSupport::berlinTimestamp(u"2025-03-13T10:00"_s);
    invoice.name = u"Jana Becker"_s;
    invoice.businessName = u"Becker GmbH"_s;
    invoice.addressLineOne = u"Hafenstraße 12"_s;
    invoice.addressPostcode = u"20457"_s;
    invoice.addressCity = u"Hamburg"_s;
    invoice.addressCountry = {u"DE"_s};
    invoice.email = u"buchhaltung@becker.example"_s;
    invoice.senderName = u"Mira Lindqvist"_s;
    invoice.senderBusinessName = u"Lindqvist Design"_s;
    invoice.senderAddressLineOne = u"Gartenweg 3"_s;
    invoice.senderAddressPostcode = u"10115"_s;
    invoice.senderAddressCity = u"Berlin"_s;
    invoice.senderAddressCountry = {u"DE"_s};
    invoice.senderEmail = u"mira@lindqvist.example"_s;
    invoice.senderPhone = u"+49 30 1234567"_s;
    invoice.senderIban = u"DE89 3704 0044 0532 0130 00"_s;
    invoice.senderBic = u"COBADEFFXXX"_s;
    invoice.senderTaxNumber = u"30/123/45678"_s;
    invoice.senderVatNumber = u"DE123456789"_s;
    invoice.currency = {u"EUR"_s};
    invoice.language = Language::german;
    invoice.reference = u"PO-2025-0042"_s;
    invoice.note = u"Thank you."_s;
    invoice.eInvoiceProfile = EInvoiceProfile::xrechnung;
    return invoice;
}

Profile profileFor(const Invoice& invoice)
{
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.name = invoice.senderName;
    profile.language = Language::german;
    return profile;
}

QByteArray generate(const Invoice& invoice, const QList<Invoice>& invoices)
{
    const std::optional<QByteArray> xml = XMLGenerator::generate(invoice, profileFor(invoice), invoices);
    EXPECT_TRUE(xml.has_value());
    return xml.value_or(QByteArray());
}

XMLElement parse(const QByteArray& xml)
{
    QString error;
    std::optional<XMLElement> root = XMLElement::parse(xml, &error);
    EXPECT_TRUE(root.has_value()) << error.toStdString();
    return root ? std::move(*root) : XMLElement();
}

namespace {

// The schema is fetched into the build tree at configure time, beside the tests folder.
QString schemaPath()
{
    const QString binary = QFileInfo(u"/proc/self/exe"_s).canonicalFilePath();
    return QFileInfo(binary).dir().filePath(u"../test-schemas/cii/Factur-X_1.07.3_EN16931.xsd"_s);
}

} // namespace

std::optional<QString> schemaErrors(const QByteArray& xml, bool* skipped)
{
    const QString xmllint = QStandardPaths::findExecutable(u"xmllint"_s);
    const QString schema = schemaPath();
    *skipped = xmllint.isEmpty() || !QFileInfo::exists(schema);
    if (*skipped)
        return std::nullopt;
    QProcess process;
    process.start(xmllint, {u"--noout"_s, u"--schema"_s, schema, u"-"_s});
    process.write(xml);
    process.closeWriteChannel();
    process.waitForFinished(60000);
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return std::nullopt;
    return QString::fromUtf8(process.readAllStandardError());
}

} // namespace EInvoiceTest
