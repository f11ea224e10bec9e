// The Schematron runner on a small rule file that uses what the official files use: rules that
// shadow each other within a pattern, let variables on three levels, reports, messages with
// <name/> and <value-of/>, an included pattern and xsl:function bodies.

#include "validation/Schematron.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const schema = R"sch(<?xml version="1.0" encoding="UTF-8"?>
<schema xmlns="http://purl.oclc.org/dsdl/schematron" xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
        xmlns:u="utils" queryBinding="xslt2">
  <title>Test rules</title>
  <ns prefix="c" uri="urn:test:common"/>
  <ns prefix="xs" uri="http://www.w3.org/2001/XMLSchema"/>
  <let name="currency" value="/c:Invoice/c:Currency"/>
  <xsl:function name="u:checksum" as="xs:boolean">
    <xsl:param name="val"/>
    <xsl:variable name="digits" select="for $i in string-to-codepoints($val) return $i - 48"/>
    <xsl:value-of select="sum($digits) mod 10 = 0"/>
  </xsl:function>
  <xsl:function name="u:kind" as="xs:string">
    <xsl:param name="code" as="xs:string"/>
    <xsl:choose>
      <xsl:when test="$code = 'A'"><xsl:sequence select="'first'"/></xsl:when>
      <xsl:otherwise><xsl:sequence select="'other'"/></xsl:otherwise>
    </xsl:choose>
  </xsl:function>
  <include href="common.sch"/>
  <pattern id="lines">
    <rule context="c:Line[c:Code = 'A']">
      <let name="amount" value="xs:decimal(c:Amount)"/>
      <assert id="R-A" flag="fatal" test="$amount &gt; 1">Line <value-of select="c:Code"/> of <name/> pays <value-of select="$amount"/> <value-of select="$currency"/>, <value-of select="u:kind(c:Code)"/>.</assert>
    </rule>
    <rule context="c:Line">
      <assert id="R-ANY" flag="warning" test="false()">Any other line: <value-of select="c:Code"/></assert>
    </rule>
  </pattern>
  <pattern id="ids">
    <rule context="/c:Invoice/c:ID">
      <assert id="R-SUM" flag="fatal" test="u:checksum(.)">Bad checksum.</assert>
      <report id="R-LONG" flag="information" test="string-length(.) &gt; $max-length">Long ID.</report>
    </rule>
    <rule context="c:Line | c:ID">
      <assert id="R-SHADOWED" test="false()">Never reached for the ID.</assert>
    </rule>
  </pattern>
</schema>)sch";

const char* const common = R"(<?xml version="1.0" encoding="UTF-8"?>
<pattern xmlns="http://purl.oclc.org/dsdl/schematron" id="variables">
  <let name="max-length" value="3"/>
</pattern>)";

std::unique_ptr<SchematronRuleSet> loadRules(QTemporaryDir& dir, QString* error)
{
    QFile a(dir.filePath(u"rules.sch"_s)), b(dir.filePath(u"common.sch"_s));
    if (!a.open(QIODevice::WriteOnly) || !b.open(QIODevice::WriteOnly))
        return nullptr;
    a.write(schema);
    b.write(common);
    a.close();
    b.close();
    return SchematronRuleSet::load(a.fileName(), error);
}

std::vector<QString> ids(const SchematronResult& r)
{
    std::vector<QString> out;
    for (const auto& f : r.failures)
        out.push_back(f.id);
    std::sort(out.begin(), out.end());
    return out;
}

TEST(Schematron, AppliesRulesAsTheReferenceProcessorsDo)
{
    QTemporaryDir dir;
    QString error;
    auto rules = loadRules(dir, &error);
    ASSERT_TRUE(rules) << error.toStdString();
    EXPECT_EQ(rules->title(), u"Test rules");
    EXPECT_EQ(rules->assertionCount(), 5);

    auto document = xpath::Document::parse(R"(<c:Invoice xmlns:c="urn:test:common">
  <c:ID>1235</c:ID><c:Currency>EUR</c:Currency>
  <c:Line><c:Code>A</c:Code><c:Amount>0.50</c:Amount></c:Line>
  <c:Line><c:Code>B</c:Code><c:Amount>7</c:Amount></c:Line>
</c:Invoice>)");
    ASSERT_TRUE(document);
    const SchematronResult result = rules->apply(*document);
    ASSERT_TRUE(result.abortedBecause.isEmpty()) << result.abortedBecause.toStdString();
    // Line A meets the first rule of "lines" only; line B the second. In "ids" the ID is taken
    // by its own rule, the lines by the union rule.
    EXPECT_EQ(ids(result), (std::vector<QString>{u"R-A"_s, u"R-ANY"_s, u"R-LONG"_s, u"R-SHADOWED"_s,
                                                 u"R-SHADOWED"_s, u"R-SUM"_s}));
    const auto a = std::find_if(result.failures.begin(), result.failures.end(),
                                [](const auto& f) { return f.id == u"R-A"; });
    EXPECT_EQ(a->flag, u"fatal");
    EXPECT_EQ(a->text, u"Line A of c:Line pays 0.5 EUR, first.");
    EXPECT_EQ(a->location, u"/c:Invoice[1]/c:Line[1]");
    EXPECT_EQ(a->line, 3);
    const auto report = std::find_if(result.failures.begin(), result.failures.end(),
                                     [](const auto& f) { return f.id == u"R-LONG"; });
    EXPECT_FALSE(report->isError());
}

TEST(Schematron, AValueTheRulesCannotCastStopsTheWholeRuleSet)
{
    QTemporaryDir dir;
    QString error;
    auto rules = loadRules(dir, &error);
    ASSERT_TRUE(rules) << error.toStdString();
    auto document = xpath::Document::parse(R"(<c:Invoice xmlns:c="urn:test:common">
  <c:ID>19</c:ID><c:Line><c:Code>A</c:Code><c:Amount>lots</c:Amount></c:Line></c:Invoice>)");
    ASSERT_TRUE(document);
    const SchematronResult result = rules->apply(*document);
    EXPECT_TRUE(result.failures.empty());
    EXPECT_TRUE(result.abortedBecause.contains(u"lots")) << result.abortedBecause.toStdString();
}

TEST(Schematron, BrokenRuleFilesAreRefusedWithTheReason)
{
    QTemporaryDir dir;
    QString error;
    EXPECT_FALSE(SchematronRuleSet::load(dir.filePath(u"missing.sch"_s), &error));
    EXPECT_TRUE(error.contains(u"missing.sch")) << error.toStdString();

    QFile bad(dir.filePath(u"bad.sch"_s));
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly));
    bad.write(R"(<schema xmlns="http://purl.oclc.org/dsdl/schematron"><pattern><rule context="a">
      <assert id="X" test="count(">x</assert></rule></pattern></schema>)");
    bad.close();
    EXPECT_FALSE(SchematronRuleSet::load(bad.fileName(), &error));
    EXPECT_TRUE(error.contains(u"line 2")) << error.toStdString();
}

} // namespace
