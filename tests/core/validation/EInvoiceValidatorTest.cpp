// The validator with the official rule files built into the program, on documents Ledra writes
// and on the damage a received document can show.

#include "validation/EInvoiceValidator.h"

#include "core/einvoice/EInvoiceTestSupport.h"
#include "support/TestSupport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList ruleIds(const ValidationReport& report)
{
    QStringList ids;
    for (const auto& f : report.failures)
        ids << f.ruleId;
    return ids;
}

const ValidationFailure* failure(const ValidationReport& report, const QString& id)
{
    const auto it = std::find_if(report.failures.begin(), report.failures.end(),
                                 [&](const ValidationFailure& f) { return f.ruleId == id; });
    return it == report.failures.end() ? nullptr : &*it;
}

QByteArray written()
{
    return EInvoiceTest::generate(EInvoiceTest::completeInvoice());
}

TEST(EInvoiceValidator, AWrittenXRechnungPassesEveryRuleSet)
{
    const ValidationReport report = EInvoiceValidator::shared().validateXml(written());
    EXPECT_TRUE(report.valid()) << ruleIds(report).join(u' ').toStdString() << report.problem.toStdString();
    EXPECT_EQ(report.syntax, ValidationReport::Syntax::CII);
    // The document declares XRechnung, so its rules apply without being asked for.
    EXPECT_TRUE(report.xrechnungRules);
    EXPECT_EQ(report.ruleSets, (QStringList{u"CII D16B schema"_s, u"EN 16931"_s, u"XRechnung"_s}));
}

TEST(EInvoiceValidator, BrokenRulesAreNamedWithTextAndPlace)
{
    QByteArray xml = written();
    // BR-DE-15: the buyer reference (Leitweg-ID) is required by XRechnung only.
    xml = QString::fromUtf8(xml)
              .remove(QRegularExpression(u"<ram:BuyerReference>[^<]*</ram:BuyerReference>"_s))
              .toUtf8();
    // BR-CO-10: the sum of the line totals no longer matches the stated line total.
    const qsizetype at = xml.indexOf("<ram:LineTotalAmount>", xml.indexOf("ApplicableHeaderTradeSettlement"));
    ASSERT_GT(at, 0);
    xml.insert(at + qsizetype(strlen("<ram:LineTotalAmount>")), "1");

    const ValidationReport report = EInvoiceValidator::shared().validateXml(xml);
    EXPECT_FALSE(report.valid());
    const ValidationFailure* leitwegId = failure(report, u"BR-DE-15"_s);
    ASSERT_TRUE(leitwegId) << ruleIds(report).join(u' ').toStdString();
    EXPECT_TRUE(leitwegId->isError());
    EXPECT_EQ(leitwegId->ruleSet, u"XRechnung");
    EXPECT_TRUE(leitwegId->text.contains(u"Buyer reference"_s)) << leitwegId->text.toStdString();
    const ValidationFailure* sum = failure(report, u"BR-CO-10"_s);
    ASSERT_TRUE(sum);
    EXPECT_EQ(sum->flag, u"fatal");
    EXPECT_TRUE(sum->location.startsWith(u"/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]"))
        << sum->location.toStdString();
    EXPECT_GT(sum->line, 1);

    // Asked for EN 16931 only, the XRechnung rule stays silent.
    const ValidationReport en =
        EInvoiceValidator::shared().validateXml(xml, EInvoiceValidator::Rules::EN16931);
    EXPECT_FALSE(failure(en, u"BR-DE-15"_s));
    EXPECT_TRUE(failure(en, u"BR-CO-10"_s));
}

TEST(EInvoiceValidator, SchemaViolationsOfCiiAreReported)
{
    QByteArray xml = written();
    xml.replace("<ram:BuyerReference>", "<ram:Unexpected>x</ram:Unexpected><ram:BuyerReference>");
    const ValidationReport report = EInvoiceValidator::shared().validateXml(xml);
    const ValidationFailure* schema = failure(report, u"XSD"_s);
    ASSERT_TRUE(schema) << ruleIds(report).join(u' ').toStdString();
    EXPECT_TRUE(schema->text.contains(u"Unexpected"_s)) << schema->text.toStdString();
    EXPECT_GT(schema->line, 1);
    EXPECT_FALSE(report.valid());
}

TEST(EInvoiceValidator, UblDocumentsAreCheckedWithTheUblRules)
{
    const auto xml = TestSupport::readData(u"einvoice/ubl-invoice.xml"_s);
    const ValidationReport report =
        EInvoiceValidator::shared().validateXml(xml, EInvoiceValidator::Rules::EN16931);
    EXPECT_EQ(report.syntax, ValidationReport::Syntax::UBL);
    EXPECT_EQ(report.ruleSets, QStringList{u"EN 16931"_s});
    EXPECT_TRUE(report.problem.isEmpty()) << report.problem.toStdString();
}

TEST(EInvoiceValidator, WhatIsNoEInvoiceIsInvalidWithAReason)
{
    const EInvoiceValidator& validator = EInvoiceValidator::shared();
    ValidationReport r = validator.validateBytes("not xml at all");
    EXPECT_FALSE(r.valid());
    EXPECT_TRUE(r.problem.contains(u"well-formed"_s)) << r.problem.toStdString();

    r = validator.validateBytes("<Order xmlns=\"urn:other\"/>");
    EXPECT_FALSE(r.valid());
    EXPECT_TRUE(r.problem.contains(u"Order"_s)) << r.problem.toStdString();

    r = validator.validateBytes("%PDF-1.7\nthis is no PDF");
    EXPECT_FALSE(r.valid());
    EXPECT_TRUE(r.embeddedInPdf);

    r = validator.validateFile(u"/nonexistent/invoice.xml"_s);
    EXPECT_FALSE(r.valid());
    EXPECT_FALSE(r.problem.isEmpty());
}

} // namespace
