#include "model/ValueCheck.h"
#include "exchange/ContactDropHandler.h"
#include "exchange/VCard.h"
#include "l10n/CodeNames.h"
#include "model/Invoice.h"
#include "model/Region.h"

#include <gtest/gtest.h>

#include <limits>

using namespace Qt::Literals::StringLiterals;

TEST(ValueCheck, CodesComeFromTheirLists)
{
    for (const QString& code : {u"EUR"_s, u"USD"_s, u"CHF"_s, u"JPY"_s, u"SEK"_s})
        EXPECT_TRUE(ValueCheck::isCurrency(code)) << code.toStdString();
    for (const QString& code : {u"eur"_s, u"EU"_s, u"EURO"_s, u"XYZ"_s, u"<im"_s, u"E\u00A0R"_s, QString()})
        EXPECT_FALSE(ValueCheck::isCurrency(code)) << code.toStdString();
    for (const QString& code : {u"DE"_s, u"AT"_s, u"US"_s, u"GB"_s, u"CH"_s})
        EXPECT_TRUE(ValueCheck::isCountry(code)) << code.toStdString();
    for (const QString& code : {u"de"_s, u"UK"_s, u"D<"_s, u"DEU"_s, u"QQ"_s})
        EXPECT_FALSE(ValueCheck::isCountry(code)) << code.toStdString();
    // Whatever the pickers offer is accepted back.
    for (const Currency& currency : CodeNames::currencies())
        EXPECT_TRUE(ValueCheck::isCurrency(currency.code)) << currency.code.toStdString();
    for (const Country& country : Region::supportedCountries())
        EXPECT_TRUE(ValueCheck::isCountry(country.code)) << country.code.toStdString();
    EXPECT_TRUE(ValueCheck::isUnitCode(u"HUR"_s));
    EXPECT_TRUE(ValueCheck::isUnitCode(u"C62"_s));
    EXPECT_FALSE(ValueCheck::isUnitCode(u"h<r"_s));
    EXPECT_TRUE(ValueCheck::isVatCategory(u"AE"_s));
    EXPECT_FALSE(ValueCheck::isVatCategory(u"X"_s));
}

TEST(ValueCheck, AnInvoiceNamesItsFirstRefusedField)
{
    Invoice invoice = Invoice::makeNew();
    invoice.items.append(InvoiceItem::makeNew());
    EXPECT_FALSE(ValueCheck::invoice(invoice));

    Invoice bad = invoice;
    bad.currency = Currency{u"<svg onload=alert(1)>"_s};
    auto problem = ValueCheck::invoice(bad);
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->field, u"currency"_s);
    EXPECT_TRUE(problem->text().contains(u"ISO 4217"_s));

    bad = invoice;
    bad.name = QString(ValueCheck::maxLineLength + 1, u'x');
    EXPECT_EQ(ValueCheck::invoice(bad)->field, u"name"_s);
    bad = invoice;
    bad.note = u"line\nline\u0000"_s;
    EXPECT_EQ(ValueCheck::invoice(bad)->field, u"note"_s);
    bad = invoice;
    bad.items[0].unitPrice = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(ValueCheck::invoice(bad)->field, u"items[0].unitPrice"_s);
    bad = invoice;
    bad.addressCountry = Country{u"XX"_s};
    EXPECT_EQ(ValueCheck::invoice(bad)->field, u"addressCountry"_s);
    bad.addressCountry = Country{};
    EXPECT_FALSE(ValueCheck::invoice(bad)) << "no country is no wrong country";
}

TEST(ValueCheck, AContactCardWithAnOverlongFieldIsRefused)
{
    const QByteArray card =
        "BEGIN:VCARD\r\nVERSION:3.0\r\nN:" + QByteArray(5000, 'A') + ";Eve;;;\r\nFN:Eve\r\nEND:VCARD\r\n";
    try {
        ContactDropHandler::readContacts(card);
        ADD_FAILURE() << "the card was taken";
    } catch (const VCardError& error) {
        EXPECT_TRUE(error.message().contains(u"N: longer than"_s)) << error.message().toStdString();
    }
}
