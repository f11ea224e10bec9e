#include "einvoice/XMLElement.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

XMLElement tree(const char* xml)
{
    QString error;
    std::optional<XMLElement> root = XMLElement::parse(QByteArray(xml), &error);
    EXPECT_TRUE(root.has_value()) << error.toStdString();
    return root ? std::move(*root) : XMLElement();
}

const char* party = R"(<rsm:Doc xmlns:rsm="urn:r" xmlns:ram="urn:a">
  <ram:BuyerTradeParty><ram:Name>Buyer</ram:Name></ram:BuyerTradeParty>
  <ram:SellerTradeParty>
    <ram:Name>Seller</ram:Name>
    <ram:SpecifiedTaxRegistration><ram:ID schemeID="FC">12/345</ram:ID></ram:SpecifiedTaxRegistration>
    <ram:SpecifiedTaxRegistration><ram:ID schemeID="VA">DE1</ram:ID></ram:SpecifiedTaxRegistration>
  </ram:SellerTradeParty>
</rsm:Doc>)";

} // namespace

TEST(XMLElement, KeepsQualifiedNamesAndAttributeOrder)
{
    const XMLElement root = tree(R"(<rsm:Doc xmlns:rsm="urn:r" b="2" a="1"><rsm:X/></rsm:Doc>)");
    EXPECT_EQ(root.name(), u"rsm:Doc");
    EXPECT_EQ(root.localName(), u"Doc");
    ASSERT_EQ(root.attributes().size(), 3u);
    EXPECT_EQ(root.attributes()[0].name, u"xmlns:rsm");
    EXPECT_EQ(root.attributes()[1].name, u"b");
    EXPECT_EQ(root.attributes()[2].name, u"a");
}

TEST(XMLElement, PathsUseLocalNamesFiltersAndBacktracking)
{
    XMLElement root = tree(party);
    EXPECT_EQ(root.textAt(u"SellerTradeParty/Name"), u"Seller"_s);
    EXPECT_EQ(root.textAt(u"Name"), u"Buyer"_s); // depth first, first match
    // The first registration does not carry VA: the search backtracks to the second.
    EXPECT_EQ(root.textAt(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]"), u"DE1"_s);
    EXPECT_EQ(root.textAt(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=FC]"), u"12/345"_s);
    EXPECT_FALSE(root.textAt(u"SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=XX]").has_value());
    EXPECT_FALSE(root.textAt(u"BuyerTradeParty/SpecifiedTaxRegistration").has_value());

    EXPECT_TRUE(root.setText(u"BuyerTradeParty/Name", u"New"_s));
    EXPECT_FALSE(root.setText(u"Nowhere/Name", u"x"_s));
    EXPECT_TRUE(root.setAttribute(u"SellerTradeParty/Name", u"lang"_s, u"de"_s));
    EXPECT_EQ(root.find(u"SellerTradeParty/Name")->attribute(u"lang"), u"de"_s);
    EXPECT_EQ(root.textAt(u"BuyerTradeParty/Name"), u"New"_s);
}

TEST(XMLElement, FragmentsReplaceOrRemoveThePlaceholder)
{
    XMLElement root =
        tree(R"(<rsm:Doc xmlns:rsm="urn:r" xmlns:ram="urn:a"><ram:A/><ram:P>x</ram:P><ram:B/></rsm:Doc>)");
    EXPECT_TRUE(root.replaceWithFragment(u"P", "  <ram:Q>1</ram:Q>\n<ram:Q><udt:I>2</udt:I></ram:Q>  "));
    ASSERT_EQ(root.children().size(), 4u);
    EXPECT_EQ(root.children()[1].element->name(), u"ram:Q");
    EXPECT_EQ(root.textAt(u"Q/I"), u"2"_s);
    EXPECT_EQ(root.children()[3].element->name(), u"ram:B");

    // A fragment that does not parse leaves the placeholder; a blank one removes it.
    EXPECT_FALSE(root.replaceWithFragment(u"B", "<ram:C>&</ram:C>"));
    EXPECT_NE(root.find(u"B"), nullptr);
    EXPECT_TRUE(root.replaceWithFragment(u"B", " \n "));
    EXPECT_EQ(root.find(u"B"), nullptr);
}

// PEPPOL-EN16931-R008: no element may be empty; parents left empty go too.
TEST(XMLElement, PEPPOL_EN16931_R008_EmptyElementsAreRemoved)
{
    XMLElement root = tree(R"(<d><a><b></b><c> </c></a><e x="1"/><f>v</f></d>)");
    root.removeEmptyElements();
    EXPECT_EQ(root.serialize(), u"<d>\n    <f>v</f>\n</d>");
}

TEST(XMLElement, SerialisesIndentedAndEscaped)
{
    XMLElement root = tree(R"(<d a="q&quot;&lt;"><n>  M&#252;ller &amp; S&#246;hne  </n></d>)");
    EXPECT_EQ(root.textAt(u"n"), u"Müller & Söhne"_s);
    EXPECT_EQ(root.serialize(), u"<d a=\"q&quot;&lt;\">\n    <n>Müller &amp; Söhne</n>\n</d>");
    // What is written reads back as it was.
    const XMLElement again = tree(root.serialize().toUtf8().constData());
    EXPECT_EQ(again.textAt(u"n"), u"Müller & Söhne"_s);
    EXPECT_EQ(again.attribute(u"a"), u"q\"<"_s);
}
