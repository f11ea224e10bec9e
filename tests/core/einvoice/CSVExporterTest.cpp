#include "einvoice/CSVExporter.h"

#include "l10n/Strings.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using Column = CSVExporter::Column;

namespace {

Invoice recipient(const QString& name, std::initializer_list<TestSupport::Line> lines)
{
    Invoice invoice = TestSupport::invoiceWith(lines);
    invoice.name = name;
    invoice.number = 7;
    invoice.numberFormat = u"RE-{NNN}"_s;
    return invoice;
}

} // namespace

TEST(CSVExporter, AmountsHaveOneFixedFormat)
{
    EXPECT_EQ(CSVExporter::formatAmount(1234.5), u"1.234,50");
    EXPECT_EQ(CSVExporter::formatAmount(-0.001), u"0,00");
    EXPECT_EQ(CSVExporter::formatAmount(-1234567.891), u"-1.234.567,89");
    EXPECT_EQ(CSVExporter::formatAmount(0.5), u"0,50");
}

TEST(CSVExporter, ColumnsCellsQuotingAndSumRow)
{
    Strings::setInterfaceLanguage(Language::english);
    Invoice first = recipient(u"Becker; Söhne"_s, {{1, 1000, 19}});
    first.addressLineOne = u"Hafenstraße \"12\""_s;
    first.addressPostcode = u"20457"_s;
    first.addressCity = u"Hamburg"_s;
    first.addressCountry = {u"DE"_s};
    Invoice second = recipient(u"Jana \"JB\""_s, {{3, 19.99, 7}});
    second.status = Status::paid;
    const Profile profile = Profile::makeNew(Country{u"DE"_s});

    const QString csv = CSVExporter::text({first, second},
                                          {Column::status, Column::name, Column::address,
                                           Column::invoiceNumber, Column::net, Column::vat, Column::gross},
                                          profile);
    const QStringList expected{
        u"Name;Address;Invoice Number;Net;VAT;Gross;Status"_s,
        u"\"Becker  Söhne\";\"Hafenstraße \"\"12\"\"\n20457 Hamburg\nDE\";RE-007;1.000,00;190,00;1.190,00;"_s +
            labelText(Status::draft),
        u"\"Jana \"\"JB\"\"\";\"\";RE-007;59,97;4,20;64,17;"_s + labelText(Status::paid),
        u"Sum:;;;1.059,97;194,20;1.254,17;"_s,
    };
    EXPECT_EQ(csv, expected.join(u'\n'));
    Strings::setInterfaceLanguage(std::nullopt);
}

TEST(CSVExporter, SumLabelGoesIntoTheFirstLabelColumn)
{
    Strings::setInterfaceLanguage(Language::german);
    const QList<Invoice> invoices{recipient(u"A"_s, {{1, 10, 19}}), recipient(u"B"_s, {{1, 5, 19}})};
    const Profile profile = Profile::makeNew(Country{u"DE"_s});
    QStringList lines = CSVExporter::text(invoices, {Column::gross, Column::date}, profile).split(u'\n');
    EXPECT_EQ(lines.first(), u"Datum;Brutto");
    EXPECT_EQ(lines.last(), u"Summe:;17,85");
    lines = CSVExporter::text(invoices, {Column::net, Column::currency}, profile).split(u'\n');
    EXPECT_EQ(lines.last(), u"15,00;");
    Strings::setInterfaceLanguage(std::nullopt);
}

TEST(CSVExporter, WritesAtomicallyAsUtf8)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"Invoices.csv"_s);
    const Profile profile = Profile::makeNew(Country{u"DE"_s});
    const QList<Invoice> invoices{recipient(u"Müller"_s, {{1, 10, 19}})};
    EXPECT_FALSE(CSVExporter::write(path, invoices, CSVExporter::allColumns(), profile).has_value());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_FALSE(bytes.startsWith("\xEF\xBB\xBF"));
    EXPECT_TRUE(bytes.contains("\"Müller\""));
    EXPECT_FALSE(bytes.endsWith('\n'));
    const auto error =
        CSVExporter::write(dir.filePath(u"missing/folder/x.csv"_s), invoices, {Column::net}, profile);
    EXPECT_TRUE(error.has_value());
}
