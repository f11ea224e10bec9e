#include "exchange/VCard.h"

#include "core/plugins/PluginFixture.h"
#include "exchange/ContactDropHandler.h"
#include "support/TestSupport.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray card(const QByteArray& properties)
{
    return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + properties + "END:VCARD\r\n";
}

QString reason(const QByteArray& data)
{
    try {
        VCard::parse(data);
    } catch (const VCardError& error) {
        return error.message();
    }
    return u"(parsed)"_s;
}

Contact contactOf(const QString& fixture)
{
    const auto contact = ContactDropHandler::contact(TestSupport::readData(u"vcard/"_s + fixture));
    EXPECT_TRUE(contact) << qPrintable(fixture);
    return contact.value_or(Contact());
}

} // namespace

TEST(VCard, ParametersInEveryFormGroupsAndEscapes)
{
    const QList<VCard> cards = VCard::parse(card("item1.TEL;TYPE=WORK,VOICE:1\r\n"
                                                 "TEL;type=work;type=voice:2\r\n"
                                                 "TEL;TYPE=\"work,voice\";PREF=1:3\r\n"
                                                 "TEL;WORK;VOICE:4\r\n"
                                                 "tel;Type=Pref:5\r\n"
                                                 "NOTE:a\\, b\\; c\\nd\\Ne\\\\f\\:g\\x\r\n"
                                                 "ADR:;;Hauptstr. 1\\; Hof;Berlin\\, Mitte;;10115;DE\r\n"));
    ASSERT_EQ(cards.size(), 1);
    const QList<VCardProperty> phones = cards[0].all(u"TEL"_s);
    ASSERT_EQ(phones.size(), 5);
    EXPECT_EQ(phones[0].group, u"item1");
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(phones[i].types(), (QStringList{u"work"_s, u"voice"_s})) << i;
        EXPECT_EQ(phones[i].value, QString::number(i + 1));
    }
    EXPECT_EQ(phones[2].parameter(u"PREF"_s), QStringList{u"1"_s});
    EXPECT_TRUE(phones[4].hasType(u"PREF"_s));
    EXPECT_FALSE(phones[4].hasType(u"work"_s));

    EXPECT_EQ(cards[0].first(u"NOTE"_s)->text(), u"a, b; c\nd\ne\\f:g\\x");
    // Escaped semicolons and commas stay inside their component.
    const VCardProperty* address = cards[0].first(u"ADR"_s);
    EXPECT_EQ(address->components(),
              (QStringList{{}, {}, u"Hauptstr. 1; Hof"_s, u"Berlin, Mitte"_s, {}, u"10115"_s, u"DE"_s}));
    EXPECT_EQ(address->component(9), QString());
    EXPECT_EQ(cards[0].first(u"EMAIL"_s), nullptr);
}

TEST(VCard, FoldedLinesLineEndsAndByteOrderMarks)
{
    // Folds after the first byte of "ü", and one continued with a tab.
    const QByteArray folded = TestSupport::readData(u"vcard/folded.vcf"_s);
    ASSERT_TRUE(folded.contains("J\xC3\r\n \xBCrgen"));
    QByteArray lf = folded;
    lf.replace("\r\n", "\n");
    for (const QByteArray& data : {folded, lf, "\xEF\xBB\xBF" + lf}) {
        const QList<VCard> cards = VCard::parse(data);
        ASSERT_EQ(cards.size(), 1);
        EXPECT_EQ(cards[0].version(), u"3.0");
        EXPECT_EQ(cards[0].first(u"FN"_s)->text(), u"Jürgen Müller-Lüdenscheidt");
        EXPECT_EQ(cards[0].first(u"ADR"_s)->component(2),
                  u"Am Überseequartier 12 (Eingang über die Rückseite des Gebäudes)");
    }
    // A card saved as UTF-16 by a Windows address book.
    const QString text = u"BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Jürgen Müller\r\nEND:VCARD\r\n"_s;
    const QByteArray utf16 =
        "\xFF\xFE" + QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    EXPECT_EQ(VCard::parse(utf16).value(0).first(u"FN"_s)->text(), u"Jürgen Müller");
}

TEST(VCard, QuotedPrintableValuesWithSoftBreaksAndCharacterSets)
{
    const QList<VCard> cards = VCard::parse(TestSupport::readData(u"vcard/quoted-printable-2.1.vcf"_s));
    ASSERT_EQ(cards.size(), 1);
    EXPECT_EQ(cards[0].version(), u"2.1");
    EXPECT_EQ(cards[0].first(u"FN"_s)->text(), u"Günther Jäger");
    // Latin-1, continued over two soft line breaks; the blank after the first one is data.
    const VCardProperty* address = cards[0].first(u"ADR"_s);
    EXPECT_TRUE(address->hasType(u"work"_s));
    EXPECT_EQ(address->components(),
              (QStringList{{}, {}, u"Königstraße 5 (Große Einfahrt)"_s, u"Köln"_s, {}, u"50667"_s, {}}));
    EXPECT_EQ(cards[0].all(u"TEL"_s).size(), 2);

    // Without a character set, UTF-8 where it is valid, else Latin-1; "=3D" is an equals sign.
    const QList<VCard> guessed = VCard::parse("BEGIN:VCARD\nVERSION:2.1\n"
                                              "FN;ENCODING=QUOTED-PRINTABLE:M=C3=BCller =3D 1\n"
                                              "N;QUOTED-PRINTABLE:M=FCller;;;;\n"
                                              "END:VCARD\n");
    EXPECT_EQ(guessed[0].first(u"FN"_s)->text(), u"Müller = 1");
    EXPECT_EQ(guessed[0].first(u"N"_s)->component(0), u"Müller");
}

TEST(VCard, SeveralCardsAndNestedAgentCards)
{
    EXPECT_EQ(VCard::parse(TestSupport::readData(u"vcard/two-contacts.vcf"_s)).size(), 2);
    const QList<VCard> cards = VCard::parse("BEGIN:VCARD\nVERSION:2.1\nFN:Boss\nAGENT:\n"
                                            "BEGIN:VCARD\nVERSION:2.1\nFN:Assistant\nEND:VCARD\n"
                                            "TEL:1\nEND:VCARD\n\n");
    ASSERT_EQ(cards.size(), 1);
    EXPECT_EQ(cards[0].all(u"FN"_s).size(), 1);
    EXPECT_EQ(cards[0].first(u"FN"_s)->text(), u"Boss");
    EXPECT_NE(cards[0].first(u"TEL"_s), nullptr);
}

TEST(VCard, DataThatIsNoVCardIsRefusedWithTheReason)
{
    EXPECT_EQ(reason(""), u"The data is empty.");
    EXPECT_EQ(reason(" \r\n\r\n"), u"The data is empty.");
    EXPECT_EQ(reason("Jana Becker, Berlin"), u"Line 1: BEGIN:VCARD expected, found \"Jana Becker, Berlin\".");
    EXPECT_EQ(reason("\nFN:Jana Becker\n"), u"Line 2: BEGIN:VCARD expected, found \"FN:Jana Becker\".");
    EXPECT_EQ(reason(TestSupport::readData(u"vcard/unterminated.vcf"_s)),
              u"The card that begins on line 1 has no END:VCARD.");
    EXPECT_EQ(reason(card("FN:Jana\r\n") + "END:VCARD\r\n"),
              u"Line 5: BEGIN:VCARD expected, found \"END:VCARD\".");
    EXPECT_EQ(reason(card("FN:Jana\r\nBerlin\r\n")),
              u"Line 4: \"Berlin\" is no property (it lacks a colon).");
    EXPECT_EQ(reason("BEGIN:VCALENDAR\nEND:VCALENDAR\n"),
              u"Line 1: BEGIN:VCARD expected, found \"BEGIN:VCALENDAR\".");
}

TEST(Contact, WorkAddressPhoneAndEmailWinOverTheFirst)
{
    const Contact contact = contactOf(u"work-and-home-3.0.vcf"_s);
    EXPECT_EQ(contact.name, u"Jana Maria Becker");
    EXPECT_EQ(contact.organization, u"Lindqvist Design GmbH");
    EXPECT_EQ(contact.street, u"Friedrichstraße 112\nHinterhaus\n3. OG");
    EXPECT_EQ(contact.postcode, u"10117");
    EXPECT_EQ(contact.city, u"Berlin");
    EXPECT_EQ(contact.state, u"Berlin");
    EXPECT_EQ(contact.country, u"Germany");
    EXPECT_EQ(contact.phone, u"+49 30 1234567");
    EXPECT_EQ(contact.email, u"j.becker@lindqvist.example");
    EXPECT_EQ(contact.website, u"http://www.lindqvist.example");

    const Contact v4 = contactOf(u"work-4.0.vcf"_s);
    EXPECT_EQ(v4.name, u"Tomasz Nowak");
    EXPECT_EQ(v4.phone, u"+49-89-555-0199");
    EXPECT_EQ(v4.email, u"tomasz.nowak@firma.example");
    EXPECT_EQ(v4.street, u"Leopoldstr. 7");
    EXPECT_EQ(v4.city, u"München");
    EXPECT_EQ(v4.country, u"DE");
    EXPECT_EQ(v4.website, u"https://nowak.example/kontakt");

    // Without a work label the first one counts.
    const Contact phone = contactOf(u"quoted-printable-2.1.vcf"_s);
    EXPECT_EQ(phone.name, u"Günther Jäger");
    EXPECT_EQ(phone.phone, u"+49 40 222222");
    EXPECT_EQ(phone.email, u"guenther@jaeger.example");
    EXPECT_EQ(phone.street, u"Königstraße 5 (Große Einfahrt)");
    const Contact home =
        ContactDropHandler::contacts(TestSupport::readData(u"vcard/two-contacts.vcf"_s)).value(1);
    EXPECT_EQ(home.street, u"Getreidegasse 9");
    EXPECT_EQ(home.email, u"alois@huber.example");
}

TEST(Contact, NamesFallBackToTheFormattedNameButNotToTheOrganization)
{
    const Contact company = contactOf(u"organization-only.vcf"_s);
    EXPECT_EQ(company.name, QString());
    EXPECT_EQ(company.organization, u"Kaffeerösterei Hanse KG");
    EXPECT_EQ(company.website, u"https://roesterei.example");

    auto nameOf = [](const QByteArray& properties) {
        return ContactDropHandler::contact(card(properties)).value_or(Contact()).name;
    };
    EXPECT_EQ(nameOf("FN:Jana Becker\r\nORG:Lindqvist Design\r\n"), u"Jana Becker");
    EXPECT_EQ(nameOf("N:;;;;\r\nFN:LINDQVIST DESIGN\r\nORG:Lindqvist Design\r\n"), QString());
    EXPECT_EQ(nameOf("N:Becker;;;Dr.;\r\nFN:Dr. Jana Becker\r\n"), u"Becker");
    EXPECT_EQ(nameOf("N: Becker ; Jana ;;;\r\n"), u"Jana Becker");
}

TEST(Contact, WebsitesGetASchemeOnlyWhenTheyHaveNone)
{
    auto websiteOf = [](const QByteArray& url) {
        return ContactDropHandler::contact(card("FN:X\r\nURL:" + url + "\r\nURL:second.example\r\n"))
            .value_or(Contact())
            .website;
    };
    EXPECT_EQ(websiteOf("example.com/shop"), u"https://example.com/shop");
    EXPECT_EQ(websiteOf("http://example.com"), u"http://example.com");
    EXPECT_EQ(websiteOf("https://example.com"), u"https://example.com");
    EXPECT_EQ(websiteOf("HTTPS://EXAMPLE.COM"), u"HTTPS://EXAMPLE.COM");
    EXPECT_EQ(websiteOf("ftp://example.com"), u"https://ftp://example.com");
    EXPECT_EQ(ContactDropHandler::contact(card("FN:X\r\n"))->website, QString());
}

TEST(Contact, BrokenDataIsLoggedAndGivesNothingLikeACardWithoutContact)
{
    {
        LogCapture log;
        EXPECT_FALSE(ContactDropHandler::contact(TestSupport::readData(u"vcard/unterminated.vcf"_s)));
        EXPECT_TRUE(ContactDropHandler::contacts("not a card").isEmpty());
        EXPECT_EQ(
            log.lines(),
            (QStringList{u"Error parsing vCard: The card that begins on line 1 has no END:VCARD."_s,
                         u"Error parsing vCard: Line 1: BEGIN:VCARD expected, found \"not a card\"."_s}));
    }
    LogCapture log;
    EXPECT_FALSE(ContactDropHandler::contact(card("PRODID:-//Export//EN\r\nNOTE:nothing else\r\n")));
    EXPECT_TRUE(log.lines().isEmpty());
    const QList<Contact> two =
        ContactDropHandler::contacts(TestSupport::readData(u"vcard/two-contacts.vcf"_s));
    ASSERT_EQ(two.size(), 2);
    EXPECT_EQ(ContactDropHandler::contact(TestSupport::readData(u"vcard/two-contacts.vcf"_s)), two[0]);
    EXPECT_EQ(two[1].name, u"Alois Huber");
}

TEST(Contact, TheRecipientTakesTheContactAndItsCountryWhenNamed)
{
    Invoice invoice = Invoice::makeNew();
    invoice.addressCountry = Country{u"DE"_s};
    ContactDropHandler::fillRecipient(invoice, contactOf(u"work-and-home-3.0.vcf"_s));
    EXPECT_EQ(invoice.name, u"Jana Maria Becker");
    EXPECT_EQ(invoice.businessName, u"Lindqvist Design GmbH");
    EXPECT_EQ(invoice.addressLineOne, u"Friedrichstraße 112");
    EXPECT_EQ(invoice.addressLineTwo, u"Hinterhaus, 3. OG");
    EXPECT_EQ(invoice.addressPostcode, u"10117");
    EXPECT_EQ(invoice.addressCity, u"Berlin");
    EXPECT_EQ(invoice.addressState, u"Berlin");
    EXPECT_EQ(invoice.email, u"j.becker@lindqvist.example");
    EXPECT_EQ(invoice.addressCountry.code, u"DE");

    for (const auto& [text, code] :
         std::initializer_list<std::pair<QString, QString>>{{u"Österreich"_s, u"AT"_s},
                                                            {u"austria"_s, u"AT"_s},
                                                            {u" ch "_s, u"CH"_s},
                                                            {u"Schweiz"_s, u"CH"_s},
                                                            {u"France"_s, u"FR"_s},
                                                            {u"Frankreich"_s, u"FR"_s},
                                                            {u"Niederlande"_s, u"NL"_s},
                                                            {u"United States"_s, u"US"_s},
                                                            {u"USA"_s, u"US"_s}}) {
        EXPECT_EQ(ContactDropHandler::countryNamed(text).value_or(Country()).code, code) << qPrintable(text);
    }
    for (const QString& unknown : {u""_s, u"Atlantis"_s, u"XK"_s, u"EU"_s})
        EXPECT_FALSE(ContactDropHandler::countryNamed(unknown)) << qPrintable(unknown);

    // A country nobody knows leaves the profile's; the rest of the recipient is replaced.
    Contact elsewhere;
    elsewhere.name = u"Kim"_s;
    elsewhere.country = u"Atlantis"_s;
    ContactDropHandler::fillRecipient(invoice, elsewhere);
    EXPECT_EQ(invoice.addressCountry.code, u"DE");
    EXPECT_EQ(invoice.businessName, QString());
    EXPECT_EQ(invoice.addressLineTwo, QString());
}
