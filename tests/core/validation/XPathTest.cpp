// The XPath 2.0 evaluator on the constructs the official rule sets rely on: typed comparisons,
// exact decimal sums, regular expressions in XPath's dialect, quantifiers and the axes.

#include "validation/XPath.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using namespace xpath;

namespace {

const char* const invoice = R"(<?xml version="1.0"?>
<inv:Invoice xmlns:inv="urn:test:invoice" xmlns:c="urn:test:common">
  <c:ID>  RE-1  </c:ID>
  <c:Line><c:Amount>0.1</c:Amount><c:Code listID="X">A</c:Code></c:Line>
  <c:Line><c:Amount>0.2</c:Amount><c:Code>B</c:Code></c:Line>
  <c:Line><c:Amount>10</c:Amount><c:Code>C</c:Code><c:Line><c:Amount>5</c:Amount></c:Line></c:Line>
  <c:Total currencyID="EUR">10.3</c:Total>
  <c:Note>#SKONTO#TAGE=14#PROZENT=2.00#
</c:Note>
  <c:Empty/>
</inv:Invoice>)";

class XPathTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QString error;
        m_doc = Document::parse(QByteArray(invoice), &error);
        ASSERT_TRUE(m_doc) << error.toStdString();
        m_statics.namespaces.insert(u"inv"_s, u"urn:test:invoice"_s);
        m_statics.namespaces.insert(u"c"_s, u"urn:test:common"_s);
        m_statics.namespaces.insert(u"xs"_s, u"http://www.w3.org/2001/XMLSchema"_s);
    }

    Sequence eval(const QString& expression, const Node* at = nullptr)
    {
        Context c;
        c.root = m_doc->root();
        c.statics = &m_statics;
        c.variables = &m_variables;
        c.item = Item::ofNode(at ? at : m_doc->documentElement());
        c.hasItem = true;
        return Expression::compile(expression, m_statics).evaluate(c);
    }
    bool test(const QString& expression) { return effectiveBooleanValue(eval(expression)); }
    QString string(const QString& expression)
    {
        const Sequence s = eval(expression);
        QStringList parts;
        for (const Item& i : s)
            parts << i.toString();
        return parts.join(u'|');
    }

    std::unique_ptr<Document> m_doc;
    StaticContext m_statics;
    Variables m_variables;
};

TEST_F(XPathTest, DecimalsAreExactWhereTheRulesCastAndDoublesWhereTheyDoNot)
{
    // BR-CO-10 and its kin sum amounts as xs:decimal: 0.1 + 0.2 is 0.3 exactly.
    EXPECT_TRUE(test(u"xs:decimal(c:Total) = sum(c:Line[position() < 3]/xs:decimal(c:Amount)) + 10"_s));
    // Untyped values in arithmetic are doubles, as in any XPath 2.0 processor.
    EXPECT_FALSE(test(u"c:Line[1]/c:Amount + c:Line[2]/c:Amount = 0.3"_s));
    EXPECT_EQ(string(u"xs:decimal('2.50') * 3"_s), u"7.5");
    EXPECT_EQ(string(u"10 div 4"_s), u"2.5");
    EXPECT_EQ(string(u"1 div 3"_s), u"0.333333333333333333");
    EXPECT_EQ(string(u"7 idiv 2"_s), u"3");
    EXPECT_EQ(string(u"-7 mod 3"_s), u"-1");
    // round() takes halves towards positive infinity, on decimals and doubles alike.
    EXPECT_EQ(string(u"round(2.5), round(-2.5), round(xs:decimal('1.005') * 100) div 100"_s), u"3|-2|1.01");
    EXPECT_EQ(string(u"round(2.5e0)"_s), u"3");
    EXPECT_EQ(string(u"abs(-1.50)"_s), u"1.5");
}

TEST_F(XPathTest, ComparisonsFollowTheOperandTypes)
{
    EXPECT_TRUE(test(u"c:Total = 10.3"_s));         // untyped against a number: numeric
    EXPECT_TRUE(test(u"c:Line/c:Amount = '10'"_s)); // against a string: text
    EXPECT_FALSE(test(u"c:Line/c:Amount = '10.0'"_s));
    EXPECT_TRUE(test(u"c:Line/c:Amount = 10.0"_s));
    EXPECT_TRUE(test(u"c:Line/c:Amount != 10"_s)); // some pair differs
    EXPECT_FALSE(test(u"c:Missing = c:Missing"_s));
    EXPECT_TRUE(test(u"c:Total/@currencyID = ('USD', 'EUR')"_s));
    EXPECT_TRUE(test(u"'abc' lt 'abd'"_s));
    EXPECT_TRUE(test(u"xs:date('2024-02-29') < xs:date('2024-03-01')"_s));
    // A value that does not fit the type it is compared as stops the evaluation, as in the
    // reference processors.
    EXPECT_THROW(eval(u"c:ID = 1"_s), Error);
    EXPECT_THROW(eval(u"xs:decimal(c:Empty)"_s), Error);
    EXPECT_THROW(eval(u"xs:date('2024-02-30')"_s), Error);
    EXPECT_TRUE(test(u"not(c:ID castable as xs:integer) and ('0042' castable as xs:integer)"_s));
    EXPECT_TRUE(test(u"string(number('x')) = 'NaN'"_s));
}

TEST_F(XPathTest, PathsAxesAndPredicates)
{
    EXPECT_EQ(string(u"count(//c:Line)"_s), u"4");
    EXPECT_EQ(string(u"count(c:Line)"_s), u"3");
    // "//x[1]" is the first x of each parent, not the first x of the document.
    EXPECT_EQ(string(u"count(//c:Line[1])"_s), u"2");
    EXPECT_EQ(string(u"(//c:Line)[last()]/c:Amount"_s), u"5");
    EXPECT_EQ(string(u"c:Line[c:Code = 'B']/preceding-sibling::c:Line/c:Code"_s), u"A");
    EXPECT_EQ(string(u"c:Line[2]/following-sibling::*[1]/c:Code"_s), u"C");
    EXPECT_EQ(string(u"count(//c:Amount[ancestor::c:Line[c:Code = 'C']])"_s), u"2");
    EXPECT_EQ(string(u"//c:Code[@listID]/../c:Amount"_s), u"0.1");
    EXPECT_EQ(string(u"name(/*), local-name(c:Total/@currencyID)"_s), u"inv:Invoice|currencyID");
    EXPECT_EQ(string(u"count(c:Line[1]/c:Code | c:Line/c:Code)"_s), u"3");
    EXPECT_EQ(string(u"count(c:Line/c:Code except c:Line[1]/c:Code)"_s), u"2");
    EXPECT_EQ(string(u"count(c:Line[1]/c:Amount/text())"_s), u"1");
    EXPECT_EQ(string(u"c:Line/xs:decimal(c:Amount)"_s), u"0.1|0.2|10");
}

TEST_F(XPathTest, ExpressionsAndFunctions)
{
    EXPECT_TRUE(test(u"every $l in c:Line satisfies $l/c:Code"_s));
    EXPECT_FALSE(test(u"some $l in c:Line satisfies $l/c:Code = 'D'"_s));
    EXPECT_EQ(string(u"sum(for $i in (1 to 4) return $i * $i)"_s), u"30");
    EXPECT_EQ(string(u"if (c:Missing) then 'a' else 'b'"_s), u"b");
    EXPECT_EQ(string(u"normalize-space(c:ID), string-length(c:ID)"_s), u"RE-1|8");
    EXPECT_EQ(string(u"substring('12345', 1.5, 2.6), substring('12345', 0, 3)"_s), u"234|12");
    EXPECT_EQ(string(u"translate('a-b-c', '-b', '+'), upper-case('straße')"_s), u"a++c|STRASSE");
    EXPECT_EQ(string(u"tokenize('a, b,c', ',\\s*')"_s), u"a|b|c");
    EXPECT_EQ(string(u"string-join(reverse(string-to-codepoints('ab')), ',')"_s), u"98,97");
    EXPECT_EQ(string(u"replace('DE 12 34', '([ \\n\\r\\t\\s])', '')"_s), u"DE1234");
    EXPECT_EQ(string(u"replace('abc', '(b)', '[$1]')"_s), u"a[b]c");
    EXPECT_EQ(string(u"substring-before('a=b', '='), substring-after('a=b', '=')"_s), u"a|b");
    EXPECT_EQ(string(u"count(distinct-values(('a', 'b', 'a')))"_s), u"2");
    EXPECT_EQ(string(u"codepoints-to-string((72, 105))"_s), u"Hi");
    EXPECT_EQ(string(u"1 + 1.0e0, 0.000001e0, 1e7"_s), u"2|0.000001|1.0E7");
}

TEST_F(XPathTest, RegularExpressionsUseXPathSemantics)
{
    // "$" matches only at the very end: a trailing line break does not end the match.
    EXPECT_FALSE(test(u"matches('ab\n', '^ab$')"_s));
    EXPECT_TRUE(test(u"matches('ab', '^ab$')"_s));
    // "." does not cross a line break; "\s" is XML white space.
    EXPECT_FALSE(test(u"matches('a\nb', 'a.b')"_s));
    EXPECT_TRUE(test(u"matches('a\nb', 'a.b', 's')"_s));
    EXPECT_TRUE(test(u"matches('ABC', '^abc$', 'i')"_s));
    // The note ends with a line break after the last '#'.
    EXPECT_FALSE(test(
        u"matches(c:Note, '(^|\\r?\\n)#(SKONTO)#TAGE=([0-9]+#PROZENT=[0-9]+\\.[0-9]{2})(#BASISBETRAG=-?[0-9]+\\.[0-9]{2})?#$')"_s));
    EXPECT_TRUE(
        test(u"matches(normalize-space(c:Note), '#SKONTO#TAGE=[0-9]+#PROZENT=[0-9]+\\.[0-9]{2}#$')"_s));
    EXPECT_THROW(eval(u"tokenize('abc', 'x*')"_s), Error);
}

TEST_F(XPathTest, SyntaxErrorsAreReported)
{
    EXPECT_THROW(eval(u"c:Line["_s), Error);
    EXPECT_THROW(eval(u"unknown:Name"_s), Error);
    EXPECT_THROW(eval(u"no-such-function(1)"_s), Error);
    EXPECT_THROW(eval(u"'unterminated"_s), Error);
}

TEST(XPathDocument, HostileInputIsRefused)
{
    QString error;
    EXPECT_FALSE(Document::parse("<a><b></a>", &error));
    EXPECT_FALSE(error.isEmpty());
    QByteArray deep;
    for (int i = 0; i < 300; ++i)
        deep += "<a>";
    EXPECT_FALSE(Document::parse(deep, &error));
    EXPECT_FALSE(Document::parse("<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>", &error));
}

TEST(XPathDecimal, ParsesAndPrintsCanonically)
{
    EXPECT_EQ(Decimal::parse(u" 001.500 ")->toString(), u"1.5");
    EXPECT_EQ(Decimal::parse(u"-0.0")->toString(), u"0");
    EXPECT_FALSE(Decimal::parse(u"1e3"));
    EXPECT_FALSE(Decimal::parse(u""));
    EXPECT_FALSE(Decimal::parse(u"1.2.3"));
    EXPECT_EQ(Decimal::parse(u"2")->divide(*Decimal::parse(u"3"))->toString(), u"0.666666666666666667");
    EXPECT_EQ(Decimal::parse(u"-1.5")->roundHalfUp().toString(), u"-1");
    EXPECT_EQ(Decimal::parse(u"123456789.123456789")->multiply(*Decimal::parse(u"1000")).toString(),
              u"123456789123.456789");
}

} // namespace
