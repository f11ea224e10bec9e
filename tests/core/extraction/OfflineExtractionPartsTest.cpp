// The parts of the offline extractor on their own: money and numbers, sentences, and the items
// they yield; then the forms of text they were written for, through the whole extractor.
#include "extraction/OfflineExtractor.h"
#include "extraction/offline/Addresses.h"
#include "extraction/offline/Dates.h"
#include "extraction/offline/ItemLines.h"
#include "extraction/offline/Items.h"
#include "extraction/offline/Money.h"
#include "extraction/offline/Sentences.h"
#include "extraction/offline/Text.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using namespace OfflineExtraction;

namespace {

QList<ExtractedItem> itemsOf(const QString& text)
{
    return OfflineExtractor::extract(text).items.value_or(QList<ExtractedItem>());
}

QStringList sentences(const QString& text)
{
    QStringList parts;
    for (const Span& span : sentencesOf(text))
        parts.append(text.mid(span.from, span.to - span.from).trimmed());
    return parts;
}

} // namespace

TEST(OfflineExtractionMoney, CurrenciesAsWordsCodesAndSymbolsInEitherStyle)
{
    const QList<std::pair<QString, std::pair<double, QString>>> cases = {
        {u"60 pounds"_s, {60, u"GBP"_s}},      {u"289.90 Franken"_s, {289.9, u"CHF"_s}},
        {u"12 500,00 €"_s, {12500, u"EUR"_s}}, {u"CHF 4'800.00"_s, {4800, u"CHF"_s}},
        {u"EUR 1.100,00"_s, {1100, u"EUR"_s}}, {u"$1,200"_s, {1200, u"USD"_s}},
        {u"750 Euro"_s, {750, u"EUR"_s}},      {u"35 dollars"_s, {35, u"USD"_s}},
    };
    for (const auto& [text, expected] : cases) {
        const QList<Money> money = moneyIn(text);
        ASSERT_EQ(money.size(), 1) << qPrintable(text);
        EXPECT_DOUBLE_EQ(money.first().value, expected.first) << qPrintable(text);
        EXPECT_EQ(money.first().currency, expected.second) << qPrintable(text);
    }
    // A space groups thousands only right before a currency: "Pos 1 250,00" stays two numbers.
    EXPECT_EQ(moneyIn(u"Pos 1 250,00"_s).size(), 2);
}

TEST(OfflineExtractionSentences, SplitWhereASentenceEndsNotAfterAbbreviationsOrOrdinals)
{
    EXPECT_EQ(sentences(u"Das Lektorat für Fr. 320.50 pauschal. Danke!"_s),
              (QStringList{u"Das Lektorat für Fr. 320.50 pauschal"_s, u"Danke!"_s}));
    EXPECT_EQ(sentences(u"bitte verrechne uns die Bauaufsicht: 4 Tage je 680 €"_s),
              (QStringList{u"bitte verrechne uns die Bauaufsicht"_s, u"4 Tage je 680 €"_s}));
    EXPECT_EQ(sentences(u"Bahnhofstraße 5, 2. OG links"_s).size(), 1);
    EXPECT_EQ(sentences(u"3 Std. Beratung"_s).size(), 1);
}

TEST(OfflineExtractionSentences, SeveralItemsInOneSentence)
{
    const QList<ExtractedItem> items =
        itemsOf(u"Please bill us for 4 days of consulting at $1,200 per day, plus 6 hours of follow-up "
                "calls at $150 per hour."_s);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].description, u"consulting"_s);
    EXPECT_EQ(items[0].quantity, 4);
    EXPECT_EQ(items[0].unit, ExtractedUnit::day);
    EXPECT_EQ(items[0].unitPrice, 1200);
    EXPECT_EQ(items[1].description, u"follow-up calls"_s);
    EXPECT_EQ(items[1].unit, ExtractedUnit::hour);
    EXPECT_EQ(items[1].unitPrice, 150);

    const QList<ExtractedItem> german =
        itemsOf(u"Bitte abrechnen: 4 Std Elektroinstallation zu 68 € und 2 Std Fehlersuche zu 68 €"_s);
    ASSERT_EQ(german.size(), 2);
    EXPECT_EQ(german[1].description, u"Fehlersuche"_s);
    EXPECT_EQ(german[1].quantity, 2);
    EXPECT_EQ(german[1].unitPrice, 68);

    // Price first, the work after "for"; a conjunction inside parentheses splits nothing.
    const QList<ExtractedItem> priceFirst =
        itemsOf(u"As agreed: $2,000 for the mobile app prototype and $350 for the usability test."_s);
    ASSERT_EQ(priceFirst.size(), 2);
    EXPECT_EQ(priceFirst[0].description, u"mobile app prototype"_s);
    EXPECT_EQ(priceFirst[1].unitPrice, 350);
    const QList<ExtractedItem> material = itemsOf(
        u"Verrechne bitte 5 Stunden Netzwerkinstallation à 130 Franken und das Material (Switch und Kabel) "
        "für 289.90 Franken."_s);
    ASSERT_EQ(material.size(), 2);
    EXPECT_EQ(material[1].description, u"Material (Switch und Kabel)"_s);
    EXPECT_EQ(material[1].unitPrice, 289.9);
}

TEST(OfflineExtractionSentences, PricesSaidInPassingBillNothing)
{
    EXPECT_TRUE(itemsOf(u"Das Hotel hat 120 € die Nacht gekostet, aber es war jeden Cent wert."_s).isEmpty());
    EXPECT_TRUE(itemsOf(u"Ab April kostet die Stunde Support 89 € statt 79 €."_s).isEmpty());
    // Without a word of billing, only time at a rate reads as work done.
    EXPECT_EQ(itemsOf(u"bitte die 3 Stunden Beratung à 110 € an unsere neue Adresse schicken"_s).size(), 1);
    EXPECT_TRUE(itemsOf(u"Die Broschüre war 480 € teurer als gedacht."_s).isEmpty());
}

TEST(OfflineExtractionSentences, RateAndTimeNamedApart)
{
    const QList<ExtractedItem> items =
        itemsOf(u"Hi Leo, your day rate of EUR 650 is fine with us. In total you "
                "worked 7 days on the data pipeline in April. Please invoice."_s);
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].description, u"data pipeline"_s);
    EXPECT_EQ(items[0].quantity, 7);
    EXPECT_EQ(items[0].unit, ExtractedUnit::day);
    EXPECT_EQ(items[0].unitPrice, 650);
    // Two amounts of time leave it open which the rate belongs to.
    EXPECT_TRUE(itemsOf(u"Dein Stundensatz bleibt bei 72 €.\nIm März 12 Stunden Support.\nIm April 9 Stunden "
                        "Schulung.\nBitte Rechnung schicken."_s)
                    .isEmpty());
}

TEST(OfflineExtractionItems, AQuantityWrittenWithTimesPricesEachOne)
{
    const QList<ExtractedItem> items = itemsOf(u"2 x Wartungseinsatz Heizungsanlage 145,00 EUR"_s);
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].quantity, 2);
    EXPECT_EQ(items[0].unitPrice, 145);
    // Without the "x" the price could be for both: left empty.
    EXPECT_FALSE(itemsOf(u"Blogartikel 3 Stück 255 €"_s).value(0).unitPrice.has_value());
}

TEST(OfflineExtractionItems, TablesCopiedFromPdfsAndSpreadsheets)
{
    const QList<ExtractedItem> pdf = itemsOf(u"Pos Beschreibung Menge Einheit Einzelpreis Betrag\n"
                                             "1 Wartung Serverinfrastruktur 6,5 Std 95,00 617,50\n"
                                             "2 Anfahrt 2 pausch. 35,00 70,00\n"
                                             "Summe netto 687,50 EUR\n"_s);
    ASSERT_EQ(pdf.size(), 2);
    EXPECT_EQ(pdf[0].description, u"Wartung Serverinfrastruktur"_s);
    EXPECT_EQ(pdf[0].quantity, 6.5);
    EXPECT_EQ(pdf[0].unit, ExtractedUnit::hour);
    EXPECT_EQ(pdf[0].unitPrice, 95);
    EXPECT_EQ(pdf[1].unit, ExtractedUnit::lumpSum);

    const QList<ExtractedItem> csv =
        itemsOf(u"Service,Hours,Rate\nBackend development,42,125.00\n(all USD)\n"_s);
    ASSERT_EQ(csv.size(), 1);
    EXPECT_EQ(csv[0].quantity, 42);
    EXPECT_EQ(csv[0].unit, ExtractedUnit::hour);
    EXPECT_EQ(csv[0].unitPrice, 125);
    EXPECT_EQ(OfflineExtractor::extract(u"Service,Hours,Rate\nBackend development,42,125.00\n(all USD)\n"_s)
                  .currencyCode,
              u"USD"_s);
}

TEST(OfflineExtractionRecipient, BusinessInASentenceApartFromTheAmountBeforeIt)
{
    const ExtractedInvoice invoice = OfflineExtractor::extract(
        u"Please send the invoice for 1,500 USD to Northwind Traders LLC, attention Kevin Ruiz."_s);
    ASSERT_TRUE(invoice.recipient);
    EXPECT_EQ(invoice.recipient->businessName, u"Northwind Traders LLC"_s);
    EXPECT_EQ(invoice.recipient->name, u"Kevin Ruiz"_s);

    const ExtractedInvoice signedOff = OfflineExtractor::extract(
        u"bitte die Rechnung freigeben: 2 Tage Fotografie zu je EUR 1.100,00.\n\nLG Andrea Hofer\n"_s);
    ASSERT_TRUE(signedOff.recipient);
    EXPECT_EQ(signedOff.recipient->name, u"Andrea Hofer"_s);
}

TEST(OfflineExtractionItems, ItemsOfAQuotedOfferTheReplyAgreesTo)
{
    const QList<ExtractedItem> items =
        itemsOf(u"Passt, danke! Dann bitte so abrechnen.\n\n"
                "Am Mi., 4. März 2026 um 18:20 Uhr schrieb Jonas Beck <jonas@beck-media.de>:\n"
                "> hier mein Vorschlag: 2 Tage Drehtag à 900 €.\n"_s);
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].quantity, 2);
    EXPECT_EQ(items[0].unitPrice, 900);
    // A reply that bills its own items leaves the quoted ones alone.
    EXPECT_EQ(itemsOf(u"Bitte so abrechnen: 3 Std. Beratung à 85 €\n\n"
                      "Am 4. März 2026 schrieb Jonas Beck <jonas@beck-media.de>:\n"
                      "> 2 Tage Drehtag à 900 €\n"_s)
                  .value(0)
                  .unitPrice,
              85);
}

TEST(OfflineExtractionMoney, HundredthsNamedByTheirCoin)
{
    const QList<Money> pence = moneyIn(u"12p a word"_s);
    ASSERT_EQ(pence.size(), 1);
    EXPECT_DOUBLE_EQ(pence.first().value, 0.12);
    EXPECT_EQ(pence.first().currency, u"GBP"_s);
    const QList<Money> rappen = moneyIn(u"80 Rappen pro Stück"_s);
    ASSERT_EQ(rappen.size(), 1);
    EXPECT_DOUBLE_EQ(rappen.first().value, 0.8);
    EXPECT_EQ(rappen.first().currency, u"CHF"_s);
    // Cents belong to whichever currency the text writes.
    EXPECT_TRUE(moneyIn(u"30 Cent pro km"_s).value(0).currency.isEmpty());
    EXPECT_DOUBLE_EQ(moneyIn(u"30 Cent pro km"_s).value(0).value, 0.3);
    // A number run into letters is a size, a code or a quantity, neither pence nor an amount.
    EXPECT_TRUE(moneyIn(u"12pt"_s).isEmpty());
    EXPECT_TRUE(moneyIn(u"Manchester M3 3JE"_s).isEmpty());
    EXPECT_TRUE(moneyIn(u"3h"_s).isEmpty());
}

TEST(OfflineExtractionDates, CalendarWeeksAndRangesByTheirForm)
{
    const QList<DateFound> week = datesIn(u"KW 1/2026"_s);
    ASSERT_EQ(week.size(), 1);
    EXPECT_EQ(week.first().start, QDate(2025, 12, 29));
    EXPECT_EQ(week.first().end, QDate(2026, 1, 4));
    EXPECT_EQ(datesIn(u"calendar week 53, 2026"_s).value(0).start, QDate(2026, 12, 28));
    EXPECT_TRUE(datesIn(u"KW 54/2026"_s).isEmpty());
    // A year from elsewhere goes where a date lacks one; the span stays on the line as written.
    const QString yearless = u"vom 3. bis 7. März, dann KW 12 und am 2. April"_s;
    const QList<DateFound> inYear = datesIn(yearless, 2026);
    ASSERT_EQ(inYear.size(), 3);
    EXPECT_EQ(inYear[0].start, QDate(2026, 3, 3));
    EXPECT_EQ(inYear[0].end, QDate(2026, 3, 7));
    EXPECT_EQ(yearless.mid(inYear[0].span.from, inYear[0].span.to - inYear[0].span.from),
              u"3. bis 7. März"_s);
    EXPECT_EQ(inYear[1].start, QDate(2026, 3, 16));
    EXPECT_EQ(yearless.mid(inYear[2].span.from, inYear[2].span.to - inYear[2].span.from), u"2. April"_s);
    EXPECT_TRUE(datesIn(yearless).isEmpty());
    EXPECT_TRUE(datesIn(u"May 3 days of work"_s, 2026).isEmpty()); // a count, not a day

    // "3 and 4 March" shares its month; "12.03.2026 und 13.03.2026" are two dates.
    EXPECT_EQ(datesIn(u"on 3 and 4 March 2026"_s).value(0).end, QDate(2026, 3, 4));
    EXPECT_EQ(datesIn(u"12.03.2026 und 13.03.2026"_s).size(), 2);
    const QList<DateFound> twoDays = datesIn(u"am 12. und 19. März 2026"_s);
    ASSERT_EQ(twoDays.size(), 2);
    EXPECT_EQ(twoDays[0].start, QDate(2026, 3, 12));
    EXPECT_EQ(twoDays[1].start, QDate(2026, 3, 19));
}

TEST(OfflineExtractionSentences, TheFormsItemsAreWrittenInWithinASentence)
{
    // One rate after two amounts of the same unit prices both.
    const QList<ExtractedItem> shared =
        itemsOf(u"@dan quick one for your invoice: 3 hrs design review + 2 hrs QA at $95/hr."_s);
    ASSERT_EQ(shared.size(), 2);
    EXPECT_EQ(shared[0].description, u"design review"_s);
    EXPECT_EQ(shared[1].description, u"QA"_s);
    EXPECT_EQ(shared[1].quantity, 2);
    EXPECT_EQ(shared[1].unit, ExtractedUnit::hour);
    EXPECT_EQ(shared[1].unitPrice, 95);
    // Hours and days do not share an hourly rate.
    for (const ExtractedItem& item : itemsOf(u"Please invoice 3 hrs design review + 2 days QA at $95/hr."_s))
        EXPECT_FALSE(item.unit == ExtractedUnit::day && item.unitPrice)
            << qPrintable(item.description.value_or(u""_s));

    // A count in words brings its unit along.
    const QList<ExtractedItem> words = itemsOf(
        u"Could you invoice three days of copywriting at £420 a day, plus £60 for the stock images?"_s);
    ASSERT_EQ(words.size(), 2);
    EXPECT_EQ(words[0].description, u"copywriting"_s);
    EXPECT_EQ(words[0].quantity, 3);
    EXPECT_EQ(words[0].unit, ExtractedUnit::day);
    EXPECT_EQ(words[1].description, u"stock images"_s);

    // A lump sum names the work before it, not "flat fee".
    const QList<ExtractedItem> flat = itemsOf(
        u"Please invoice 40 hours of QA testing at 65 EUR/h and the test report as a flat fee of 300 EUR."_s);
    ASSERT_EQ(flat.size(), 2);
    EXPECT_EQ(flat[1].description, u"test report"_s);
    EXPECT_EQ(flat[1].unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(itemsOf(u"Please invoice the logo design we agreed on, flat fee $600."_s).value(0).description,
              u"logo design"_s);

    // A total for a counted number of things is no price for each.
    const QList<ExtractedItem> total = itemsOf(
        u"für die drei Workshops im Februar überweisen wir insgesamt 2.850 €. Bitte eine Rechnung darüber."_s);
    ASSERT_EQ(total.size(), 1);
    EXPECT_EQ(total[0].quantity, 3);
    EXPECT_FALSE(total[0].unitPrice.has_value());

    // Things ordered at a price each need no word of billing; the words after the count name them.
    const QList<ExtractedItem> each =
        itemsOf(u"We'd like 250 printed catalogues at 4.20 EUR each and 2 roll-up banners at 89 EUR each."_s);
    ASSERT_EQ(each.size(), 2);
    EXPECT_EQ(each[0].description, u"printed catalogues"_s);
    EXPECT_EQ(each[0].quantity, 250);
    EXPECT_EQ(each[0].unitPrice, 4.2);

    // A verb between the work and its count is no part of the name; nor is whom it is billed to.
    EXPECT_EQ(
        itemsOf(u"die Übersetzung des Frühjahrskatalogs umfasste 2.400 Wörter, bitte rechnen Sie 0,12 € "
                "pro Wort ab."_s)
            .value(0)
            .description,
        u"Übersetzung des Frühjahrskatalogs"_s);
    EXPECT_EQ(itemsOf(u"Please invoice $4,800 for the Q1 strategy sessions to Bright Path Consulting LLC."_s)
                  .value(0)
                  .description,
              u"Q1 strategy sessions"_s);
    EXPECT_EQ(itemsOf(u"Rechnung bitte für 14 Std. Programmierung (je 92,50 €)."_s).value(0).unitPrice, 92.5);
    EXPECT_EQ(
        itemsOf(u"Invoice please: 2 x Website audit 450.00 EUR, 1 x Report 120.00 EUR"_s).value(0).unitPrice,
        450);
    EXPECT_EQ(itemsOf(u"We agreed on 5 days of onsite work at EUR 1,100 per day plus EUR 240 travel."_s)
                  .value(1)
                  .description,
              u"travel"_s);

    EXPECT_EQ(itemsOf(u"6 hours of IT support at $110/hr"_s).value(0).description, u"IT support"_s);
    EXPECT_EQ(itemsOf(u"We will also need 10 extra hours of copywriting at £60 per hour, please invoice."_s)
                  .value(0)
                  .description,
              u"copywriting"_s);
    EXPECT_EQ(itemsOf(u"Wir beauftragen hiermit den Webshop zum Festpreis von 4.800 € netto."_s)
                  .value(0)
                  .description,
              u"Webshop"_s);
    EXPECT_EQ(itemsOf(u"Bitte eine Rechnung über 2 Übersetzungen à 180 EUR."_s).value(0).description,
              u"Übersetzungen"_s);
    EXPECT_EQ(itemsOf(u"Honorar: 1.800 € netto für den Vortrag am 12.05.2026"_s).value(0).description,
              u"Vortrag"_s);
    EXPECT_EQ(itemsOf(u"Bitte die Rechnung über 3.450,00 € für den Relaunch an folgende Adresse:"_s)
                  .value(0)
                  .description,
              u"Relaunch"_s);
    // The day a period starts with is no price ("01.–" reads like "120,–").
    for (const ExtractedItem& item :
         itemsOf(u"Die Wartung im Zeitraum 01.–31.03.2026 in Rechnung: 6 Std. à 75 €."_s))
        EXPECT_NE(item.unitPrice, 1);

    // The work named in the sentence beside the price; thanks for a reply name no work.
    EXPECT_EQ(
        itemsOf(u"Thanks for the logo redesign. Please invoice EUR 1,200 as agreed."_s).value(0).description,
        u"logo redesign"_s);
    EXPECT_EQ(itemsOf(u"Please invoice 1,500 USD. It covers the website audit we discussed."_s)
                  .value(0)
                  .description,
              u"website audit"_s);
    EXPECT_EQ(
        itemsOf(u"danke für das tolle Fotoshooting gestern! Wir haben 4 Stunden vereinbart, zu je 120 €. "
                "Schick mir bitte die Rechnung."_s)
            .value(0)
            .description,
        u"Fotoshooting"_s);
    EXPECT_FALSE(itemsOf(u"Thanks for your quick reply. Please invoice 3 hours at 90 EUR."_s)
                     .value(0)
                     .description.has_value());
    EXPECT_FALSE(itemsOf(u"Bitte stell uns 850 € in Rechnung."_s).value(0).description.has_value());

    // The sentence with the mail address for the invoice does not hide the item before it.
    EXPECT_EQ(itemsOf(u"Can you send an invoice for $4,800 for the Q1 strategy sessions? Their AP email is "
                      "invoices@brightpathco.com."_s)
                  .size(),
              1);
}

TEST(OfflineExtractionRecipient, AddressesInSentencesForwardsAndQuotes)
{
    const ExtractedInvoice inline_ = OfflineExtractor::extract(
        u"Hey Sam, can you send the invoice to Brightwater Labs LLC: USD 2,500.00 for the brand workshop. "
        "Address is 815 Pine Street, Seattle, WA 98101. Thanks!"_s);
    ASSERT_TRUE(inline_.recipient);
    EXPECT_EQ(inline_.recipient->businessName, u"Brightwater Labs LLC"_s);
    EXPECT_EQ(inline_.recipient->addressLineOne, u"815 Pine Street"_s);
    EXPECT_EQ(inline_.recipient->state, u"WA"_s);
    EXPECT_EQ(inline_.recipient->postcode, u"98101"_s);
    EXPECT_EQ(inline_.items.value_or(QList<ExtractedItem>()).size(), 1);

    const ExtractedInvoice german = OfflineExtractor::extract(
        u"bitte stellen Sie die Rechnung an die Schreinerei Holzwurm GmbH, Talstraße 9, 79100 Freiburg. Es "
        "geht um 1 Tag Montage für 640 €.\n\nGruß\nUwe Maier"_s);
    ASSERT_TRUE(german.recipient);
    EXPECT_EQ(german.recipient->city, u"Freiburg"_s);
    EXPECT_EQ(german.recipient->name, u"Uwe Maier"_s);
    EXPECT_EQ(german.items.value_or(QList<ExtractedItem>()).value(0).unitPrice, 640);

    // A note that passes a mail on: the mail is what is read.
    const ExtractedInvoice forwarded = OfflineExtractor::extract(
        u"FYI, see below - can you do this one today?\n\n-----Original Message-----\nFrom: Priya Shah "
        "<priya@maplewood-events.co.uk>\nSent: 12 March 2026 09:14\n\nPlease invoice us:\n2 x Event "
        "photography 380.00 GBP\n\nKind regards,\nPriya Shah\nMaplewood Events Ltd\n14 Clerkenwell "
        "Green\nLondon EC1R 0DP"_s);
    ASSERT_TRUE(forwarded.recipient);
    EXPECT_EQ(forwarded.recipient->businessName, u"Maplewood Events Ltd"_s);
    EXPECT_EQ(forwarded.recipient->postcode, u"EC1R 0DP"_s);
    EXPECT_EQ(forwarded.items.value_or(QList<ExtractedItem>()).value(0).unitPrice, 380);
    // A reply above the same marker quotes the user's own words: nothing of them is read.
    const ExtractedInvoice reply = OfflineExtractor::extract(
        u"Thanks, see you Monday.\n\n-----Original Message-----\nFrom: Mira <mira@lindqvist-studio.de>\n"
        "Sent: 12 March 2026 09:14\n\nMira Lindqvist\nKastanienallee 5\n10435 Berlin"_s);
    EXPECT_FALSE(reply.recipient && reply.recipient->city);

    // Quoted twice, the writer's own earlier signature; quoted once, the user's.
    const QString answer =
        u"Passt so, bitte verrechne 8 Stunden Fotobearbeitung à CHF 120.–.\n\nGruss\nSimone\n\n"
        "> Am 10.03.2026 schrieb Reto Baumann <reto@baumann-bild.ch>:\n"_s;
    const ExtractedInvoice ownQuote = OfflineExtractor::extract(
        answer + u">> Simone Keller\n>> Keller Kommunikation AG\n>> Bahnhofstrasse 21\n>> CH-8001 Zürich"_s);
    ASSERT_TRUE(ownQuote.recipient);
    EXPECT_EQ(ownQuote.recipient->businessName, u"Keller Kommunikation AG"_s);
    EXPECT_EQ(ownQuote.recipient->city, u"Zürich"_s);
    EXPECT_EQ(ownQuote.recipient->countryCode, u"CH"_s);
    const ExtractedInvoice usersQuote = OfflineExtractor::extract(
        answer + u"> Reto Baumann\n> Baumann Bild GmbH\n> Seestrasse 2\n> CH-8002 Zürich"_s);
    EXPECT_FALSE(usersQuote.recipient && usersQuote.recipient->city);
}

TEST(OfflineExtractionRecipient, SignaturesAndTheBusinessAskedFor)
{
    // A business named right after "invoice".
    EXPECT_EQ(
        OfflineExtractor::extract(u"Please invoice Fabrikam Inc. for 8 hours of support at USD 110/hr."_s)
            .recipient.value_or(ExtractedRecipient{})
            .businessName,
        u"Fabrikam Inc."_s);
    // Names with "&", several legal forms or "Firma" before them, after the words that send the invoice.
    const struct
    {
        QString text;
        QString business;
    } sent[] = {
        {u"Please make the invoice out to Smith & Sons Ltd for 3 days of joinery at £220 per day."_s,
         u"Smith & Sons Ltd"_s},
        {u"Rechnung für 2 Tage Schulung à 800 € bitte an die Kanzlei Roth & Partner mbB."_s,
         u"Kanzlei Roth & Partner mbB"_s},
        {u"Die Rechnung geht an die Firma Müller Bau GmbH, 4 Std. Beratung à 95 €."_s, u"Müller Bau GmbH"_s},
        {u"bitte schreib die Rechnung für das Fotoshooting (650 €) auf die Agentur Blaupause GmbH."_s,
         u"Agentur Blaupause GmbH"_s},
    };
    for (const auto& [text, business] : sent)
        EXPECT_EQ(OfflineExtractor::extract(text).recipient.value_or(ExtractedRecipient{}).businessName,
                  business)
            << qPrintable(text);
    EXPECT_FALSE(OfflineExtractor::extract(u"Please invoice 3 hours to Tom and Partner at 90 EUR."_s)
                     .recipient.value_or(ExtractedRecipient{})
                     .businessName.has_value());

    // A billing address added below the signature is passed on, not the signer's.
    const ExtractedInvoice passedOn = OfflineExtractor::extract(
        u"anbei meine Stunden: 9.5 Stunden Penetrationstest à 140.00 EUR.\n\nGruß\nFabian Scholz\n"
        "(für die Rechnung: SecureBank Nord AG, Domshof 17, 28195 Bremen)"_s);
    ASSERT_TRUE(passedOn.recipient);
    EXPECT_EQ(passedOn.recipient->businessName, u"SecureBank Nord AG"_s);
    EXPECT_EQ(passedOn.recipient->name, std::nullopt);
    // Titles stay with the name; a British street may go without a number.
    const ExtractedRecipient signature =
        OfflineExtractor::extract(
            u"Danke & liebe Grüße\nDI Sabine Lechner\nLechner Bau GmbH\nTriester Straße "
            "190\n1230 Wien"_s)
            .recipient.value_or(ExtractedRecipient{});
    EXPECT_EQ(signature.name, u"DI Sabine Lechner"_s);
    const ExtractedRecipient leeds =
        OfflineExtractor::extract(
            u"Many thanks,\n\nOllie Brooks\nFenwick & Gray Ltd\nUnit 4, Tower Works\nGlobe "
            "Road\nLeeds LS11 5QG"_s)
            .recipient.value_or(ExtractedRecipient{});
    EXPECT_EQ(leeds.addressLineOne, u"Globe Road"_s);
    EXPECT_EQ(leeds.addressLineTwo, u"Unit 4, Tower Works"_s);
    EXPECT_EQ(leeds.city, u"Leeds"_s);
    // A form with the town, state and ZIP in fields of their own.
    const ExtractedRecipient form =
        OfflineExtractor::extract(
            u"Name: Ethan Brooks\nCompany: Brooks Landscaping LLC\nStreet: 77 Elm Road\n"
            "City: Denver\nState: CO\nZIP: 80203\nCountry: United States"_s)
            .recipient.value_or(ExtractedRecipient{});
    EXPECT_EQ(form.name, u"Ethan Brooks"_s);
    EXPECT_EQ(form.businessName, u"Brooks Landscaping LLC"_s);
    EXPECT_EQ(form.addressLineOne, u"77 Elm Road"_s);
    EXPECT_EQ(form.city, u"Denver"_s);
    EXPECT_EQ(form.countryCode, u"US"_s);
    EXPECT_EQ(OfflineExtractor::extract(u"Rasen mähen, 3 Std, 35 pro Std. Danke, Gerda Fink"_s)
                  .recipient.value_or(ExtractedRecipient{})
                  .name,
              u"Gerda Fink"_s);
}

TEST(OfflineExtractionItems, DescriptionsNameWorkNotLabelsOrPiecesOfSentences)
{
    for (const QString& description :
         {u"at the Lamb"_s, u"went down"_s, u"like"_s, u"flat"_s, u"Zwischensumme"_s, u"Subtotal"_s,
          u"MwSt"_s, u"vereinbarten Satz"_s, u"the usual rate"_s, u"unseren Stundensatz"_s, u"now"_s,
          u"mit Anfahrt"_s})
        EXPECT_FALSE(isWorkDescription(description)) << qPrintable(description);
    for (const QString& description : {u"Logo design"_s, u"Site survey"_s, u"Satzarbeiten"_s, u"Lektorat"_s,
                                       u"Flat rate hosting setup"_s, u"Totalsanierung Bad"_s})
        EXPECT_TRUE(isWorkDescription(description)) << qPrintable(description);

    EXPECT_EQ(tidyDescription(u"Moderation zum Tagsatz von"_s), u"Moderation"_s);
    EXPECT_EQ(tidyDescription(u"copy editing at the agreed rate of"_s), u"copy editing"_s);
    EXPECT_EQ(tidyDescription(u"include the travel costs"_s), u"travel costs"_s);
    EXPECT_EQ(tidyDescription(u"Rate card review"_s), u"Rate card review"_s);
    // What dates were read out of goes with them; words in an open parenthesis stay.
    EXPECT_EQ(withParenthesesMended(u"site visits (4, 11 and"_s), u"site visits"_s);
    EXPECT_EQ(withParenthesesMended(u"Nachtrag (Umbau Lager im"_s), u"Nachtrag Umbau Lager im"_s);
    EXPECT_EQ(withParenthesesMended(u"Hosting (annual)"_s), u"Hosting (annual)"_s);

    // "fürs" is "für das": the work follows it.
    const QList<ExtractedItem> contracted = itemsOf(u"Bitte 320 € fürs Plakat berechnen, danke!"_s);
    ASSERT_EQ(contracted.size(), 1);
    EXPECT_EQ(contracted[0].description, u"Plakat"_s);
    EXPECT_EQ(contracted[0].unitPrice, 320);

    // Small talk with amounts and hours in it bills nothing, even where someone charged the writer.
    EXPECT_TRUE(itemsOf(u"The train was late, a 2 hour wait, and the taxi charged us £35 to get home. "
                        "Dinner is at 8 at Luigi's, I owe you €15 from last time."_s)
                    .isEmpty());
}

TEST(OfflineExtractionItems, TableRowsByTheirColumns)
{
    // Quoted CSV fields may hold the separator; sum rows carry their label in any column.
    EXPECT_EQ(csvFields(u"\"Logo, two variants\",2,\"$1,200.00\""_s, u','),
              QStringList({u"Logo, two variants"_s, u"2"_s, u"$1,200.00"_s}));
    EXPECT_EQ(csvFields(u"Menge;\"Text mit \"\"Zitat\"\"\";9,50"_s, u';'),
              QStringList({u"Menge"_s, u"Text mit \"Zitat\""_s, u"9,50"_s}));
    EXPECT_FALSE(csvFields(u"Thanks, Anna, see you soon"_s, u','));
    EXPECT_FALSE(csvFields(u"a,\"open,b"_s, u','));

    const QList<ExtractedItem> csv = itemsOf(u"Item,Qty,Unit Price,Amount\n"
                                             "\"Brochure, 8 pages\",1,\"$2,400.00\",\"$2,400.00\"\n"
                                             "Photo retouching (hours),6,$70.00,$420.00\n"
                                             ",,Subtotal,\"$2,820.00\"\n"
                                             ",,Total,\"$2,820.00\"\n"_s);
    ASSERT_EQ(csv.size(), 2);
    EXPECT_EQ(csv[0].description, u"Brochure, 8 pages"_s);
    EXPECT_EQ(csv[0].unitPrice, 2400);
    EXPECT_EQ(csv[1].description, u"Photo retouching"_s);
    EXPECT_EQ(csv[1].quantity, 6);
    EXPECT_EQ(csv[1].unit, ExtractedUnit::hour);
    EXPECT_EQ(csv[1].unitPrice, 70);

    // A timesheet: the weekday column is no part of the work, the total row no item.
    const QList<ExtractedItem> sheet = itemsOf(u"Tag\tTätigkeit\tStunden\tSatz (EUR)\n"
                                               "Mo\tAufmaß Küche\t3,5\t52,00\n"
                                               "Di\tMontage Oberschränke\t8\t52,00\n"
                                               "\tSumme\t11,5\t598,00\n"_s);
    ASSERT_EQ(sheet.size(), 2);
    EXPECT_EQ(sheet[0].description, u"Aufmaß Küche"_s);
    EXPECT_EQ(sheet[0].quantity, 3.5);
    EXPECT_EQ(sheet[0].unit, ExtractedUnit::hour);
    EXPECT_EQ(sheet[1].description, u"Montage Oberschränke"_s);
    EXPECT_EQ(sheet[1].unitPrice, 52);

    // "Artikel / Leistung" heads one column; the position number stays out of the description.
    const QList<ExtractedItem> pdf =
        itemsOf(u"Pos  Produkt / Leistung        Menge    Einzelpreis     Gesamt\n"
                "1    Messestand Planung          1 psch.  € 1.800,00   € 1.800,00\n"
                "2    Leihmöbel                   8 Stk.   €    45,00   €   360,00\n"_s);
    ASSERT_EQ(pdf.size(), 2);
    EXPECT_EQ(pdf[0].description, u"Messestand Planung"_s);
    EXPECT_EQ(pdf[1].description, u"Leihmöbel"_s);
    EXPECT_EQ(pdf[1].quantity, 8);
    EXPECT_EQ(pdf[1].unitPrice, 45);
}

TEST(OfflineExtractionRecipient, RoomsAndBuildingsAreAddressLinesNotNames)
{
    for (const QString& line : {u"Studio 12"_s, u"Office 4B"_s, u"Riverbank House"_s, u"Old Mill Court"_s})
        EXPECT_TRUE(isLineTwo(line)) << qPrintable(line);
    for (const QString& line : {u"Studio Nord GmbH"_s, u"Household Goods Ltd"_s, u"Courtney Adams"_s})
        EXPECT_FALSE(isLineTwo(line)) << qPrintable(line);

    const ExtractedInvoice invoice =
        OfflineExtractor::extract(u"Hi Tom,\n\nplease invoice the 3 days of photography at £450 per day.\n\n"
                                  "Thanks\nMaya Green\nHarbour Lights Media Ltd\nStudio 7\nWestgate House\n"
                                  "22 Quay Street\nBristol BS1 4DJ\n"_s);
    ASSERT_TRUE(invoice.recipient);
    EXPECT_EQ(invoice.recipient->businessName, u"Harbour Lights Media Ltd"_s);
    EXPECT_NE(invoice.recipient->name, u"Studio 7"_s);
    EXPECT_NE(invoice.recipient->name, u"Westgate House"_s);
}

TEST(OfflineExtractionReference, TheCustomersOwnReferenceWinsOverTheOneItAnswers)
{
    EXPECT_EQ(OfflineExtractor::extract(u"Ihr Zeichen: AB-17\nUnser Zeichen: KD/2026-5\n"_s).reference,
              u"KD/2026-5"_s);
    EXPECT_EQ(OfflineExtractor::extract(u"Your ref: Q-88\nOur ref: PUR-1203\n"_s).reference, u"PUR-1203"_s);
    // Alone, the reference answered is still the one to quote.
    EXPECT_EQ(OfflineExtractor::extract(u"Ihr Zeichen: AB-17\n"_s).reference, u"AB-17"_s);
}

TEST(OfflineExtractionRecipient, TheSignatureOfWhoeverBillsNamesNoRecipient)
{
    const ExtractedInvoice own =
        OfflineExtractor::extract(u"Hallo Herr Brandt,\n\n2 x Fensterreinigung 85,00 EUR\n\nPasst das? Dann "
                                  u"schreibe ich die Rechnung.\n\n"
                                  "Viele Grüße\nJonas Weber\n"_s);
    EXPECT_FALSE(own.recipient && own.recipient->name) << qPrintable(own.recipient->name.value_or(QString()));
    const ExtractedInvoice ownEnglish = OfflineExtractor::extract(
        u"Hi Ann,\n\n3 hours of tutoring at £30 per hour. I'll send the invoice tomorrow.\n\nBest\nTom Reid\n"_s);
    EXPECT_FALSE(ownEnglish.recipient && ownEnglish.recipient->name);
    // Nor is the address in that signature the customer's.
    const ExtractedInvoice ownAddress = OfflineExtractor::extract(
        u"Hallo Frau Kramer,\n\n12 Stunden Gartenpflege à 38 €. Ich schicke Ihnen die Rechnung per Post.\n\n"
        "Viele Grüße\nJan Hoffmann\nGartenservice Hoffmann\nAm Bach 3\n31134 Hildesheim"_s);
    EXPECT_FALSE(ownAddress.recipient && ownAddress.recipient->city);
    // Asked for an invoice, the one who signs is the customer.
    const ExtractedInvoice asked = OfflineExtractor::extract(
        u"Hi Tom,\n\ncould you send me the invoice for 3 hours of tutoring at £30 per hour?\n\nBest\nAnn Field\n"_s);
    ASSERT_TRUE(asked.recipient);
    EXPECT_EQ(asked.recipient->name, u"Ann Field"_s);
}

TEST(OfflineExtractionSentences, AnAmountEndsASentenceWhereAnOrdinalDoesNot)
{
    EXPECT_EQ(sentences(u"We agreed on a day rate of $1,800. On top of that the licence."_s).size(), 2);
    EXPECT_EQ(sentences(u"Der Satz liegt bei 95.00. Danke"_s).size(), 2);
    EXPECT_EQ(sentences(u"Montage am 3. März und am 12. April"_s).size(), 1);
}

TEST(OfflineExtractionSentences, WordsAroundTheWorkAreNoPartOfItsName)
{
    const struct
    {
        QString text;
        QString description;
    } cases[] = {
        // whom the work was for
        {u"Hi, maths tutoring for Oliver, 5 hours at £30/hr - please invoice me."_s, u"maths tutoring"_s},
        // a relative clause or a participle after the name
        {u"Please invoice the hosting for one year, which we settled at $900."_s, u"hosting for one year"_s},
        {u"Please invoice the copy editing, quoted at £240 as a fixed fee."_s, u"copy editing"_s},
        // the words that open the clause, a count of things before the work, a pair of names
        {u"Please invoice it: as agreed it's £80 call-out."_s, u"call-out"_s},
        {u"Please invoice 4 sessions of sports massage at £55 each."_s, u"sports massage"_s},
        {u"Please invoice $2,000 for the website, plus $90 for the logo and favicon setup."_s, u"website"_s},
        // "inkl." inside a name is part of it
        {u"Bitte abrechnen:\n- Lichttechnik inkl. Pult und 4 Scheinwerfer: 980,00 €"_s,
         u"Lichttechnik inkl. Pult und 4 Scheinwerfer"_s},
        // a count of those the work is for, a count that repeats the work named before it
        {u"Bitte abrechnen: das Catering für 40 Gäste zu je 28,00 €."_s, u"Catering"_s},
        {u"Piano lessons for Noah - 6 lessons in May @ $50 each. Invoice is fine."_s, u"Piano lessons"_s},
        // a count after "for" that counts the goods themselves, the work before the day it was done
        {u"We confirm the order for 250 tote bags (printed) at EUR 4.80 each."_s, u"tote bags (printed)"_s},
        {u"Liebe Anja, wie besprochen für das Fotoshooting am Samstag: 3 Stunden à 120 € netto."_s,
         u"Fotoshooting"_s},
        // one name in two halves
        {u"Bitte abrechnen: Standbau 3 Tage à € 640,–, Auf- und Abbau pauschal € 480,–."_s, u"Standbau"_s},
        // the verb that ends the clause before the amount
        {u"Die Fahrtkosten bleiben bei 45 € pauschal, bitte so abrechnen."_s, u"Fahrtkosten"_s},
    };
    for (const auto& c : cases) {
        const QList<ExtractedItem> items = itemsOf(c.text);
        ASSERT_FALSE(items.isEmpty()) << qPrintable(c.text);
        EXPECT_EQ(items.first().description, c.description) << qPrintable(c.text);
    }
    EXPECT_EQ(itemsOf(u"Please invoice $2,000 for the website, plus $90 for the logo and favicon setup."_s)
                  .value(1)
                  .description,
              u"logo and favicon setup"_s);
    EXPECT_EQ(itemsOf(u"Please invoice 4 sessions of sports massage at £55 each."_s).value(0).quantity, 4);
    // The work and its count asked for in one sentence, the price for each in the next.
    const QList<ExtractedItem> asked =
        itemsOf(u"could you invoice me for the 3 yoga classes last month? £20 each "
                "like we said."_s);
    ASSERT_EQ(asked.size(), 1);
    EXPECT_EQ(asked[0].description, u"yoga classes"_s);
    EXPECT_EQ(asked[0].quantity, 3);
    EXPECT_EQ(asked[0].unitPrice, 20);
    const QList<ExtractedItem> flat = itemsOf(u"Please invoice the stage design as a flat $700."_s);
    ASSERT_EQ(flat.size(), 1);
    EXPECT_EQ(flat[0].description, u"stage design"_s);
    EXPECT_EQ(flat[0].unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(itemsOf(u"Bitte abrechnen: Standbau 3 Tage à € 640,–, Auf- und Abbau pauschal € 480,–."_s)
                  .value(1)
                  .description,
              u"Auf- und Abbau"_s);
    // "zusätzlich" right before a price says more of it, and opens no clause.
    EXPECT_EQ(itemsOf(u"Bitte abrechnen: für das Logo 950 €, die Visitenkarten zusätzlich 180 €."_s)
                  .value(1)
                  .description,
              u"Visitenkarten"_s);
    // The work asked for in the sentence before goes to the first of several prices; "in" names
    // what an amount went on, with its parenthesis whole.
    const QList<ExtractedItem> tiling =
        itemsOf(u"Can you send me an invoice for the kitchen tiling? It was 2 days "
                "at $400/day, plus $180 in materials (grout, trim)."_s);
    ASSERT_EQ(tiling.size(), 2);
    EXPECT_EQ(tiling[0].description, u"kitchen tiling"_s);
    EXPECT_EQ(tiling[0].quantity, 2);
    EXPECT_EQ(tiling[1].description, u"materials (grout, trim)"_s);
    EXPECT_EQ(tiling[1].unitPrice, 180);
    // So many times so much time: the quantity is their product.
    const QList<ExtractedItem> moving =
        itemsOf(u"Bitte abrechnen: Umzugshilfe 3 Mann à 8 Stunden zum Stundensatz von 38 €."_s);
    ASSERT_EQ(moving.size(), 1);
    EXPECT_EQ(moving[0].description, u"Umzugshilfe"_s);
    EXPECT_EQ(moving[0].quantity, 24);
    EXPECT_EQ(moving[0].unit, ExtractedUnit::hour);
    EXPECT_EQ(moving[0].unitPrice, 38);
    EXPECT_EQ(itemsOf(u"For the invoice: bartending 5 hrs x 2 bartenders @ $40/hr."_s).value(0).quantity, 10);
    // "flat" before the price in a line.
    const QList<ExtractedItem> proofreading = itemsOf(u"Please invoice:\nProofreading – flat €60"_s);
    ASSERT_EQ(proofreading.size(), 1);
    EXPECT_EQ(proofreading[0].description, u"Proofreading"_s);
    EXPECT_EQ(proofreading[0].unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(itemsOf(u"Please invoice:\n15 hampers at £42.50\nDelivery to our office (one drop) £25"_s)
                  .value(1)
                  .description,
              u"Delivery to our office (one drop)"_s);
    // A possessive after a noun or "of" is part of the name.
    EXPECT_EQ(
        itemsOf(u"Hiermit beauftragen wir Sie mit der Wartung unserer Klimaanlagen zum Pauschalpreis von "
                "1.980,00 € netto."_s)
            .value(0)
            .description,
        u"Wartung unserer Klimaanlagen"_s);
    // A total followed by what it is made of: the parts are the items.
    const QList<ExtractedItem> fence = itemsOf(
        u"Thanks for fixing the fence. Total as discussed was £780 (£600 labour + £180 materials). Can "
        "you pop an invoice over?"_s);
    ASSERT_EQ(fence.size(), 2);
    EXPECT_EQ(fence[0].description, u"labour"_s);
    EXPECT_EQ(fence[0].unitPrice, 600);
    EXPECT_EQ(fence[1].description, u"materials"_s);
    EXPECT_EQ(fence[1].unitPrice, 180);
    // "3 Mann à 8 Stunden": a number before what it counts is no price.
    for (const ExtractedItem& item : itemsOf(
             u"Die Umzugsarbeiten rechnen Sie bitte mit 3 Mann à 8 Stunden zum Stundensatz von 38 € ab."_s))
        EXPECT_NE(item.unitPrice, 8);
    // A note in brackets after the price says what the price is; the label before it names the work.
    EXPECT_EQ(itemsOf(u"For March please bill:\n- Newsletter design: £400 (monthly retainer)"_s)
                  .value(0)
                  .description,
              u"Newsletter design"_s);
    // "the two-day workshop": the count and its unit in one word.
    const QList<ExtractedItem> workshop =
        itemsOf(u"We'd like to go ahead with the three-day workshop at €900 per day, as quoted."_s);
    ASSERT_EQ(workshop.size(), 1);
    EXPECT_EQ(workshop[0].description, u"workshop"_s);
    EXPECT_EQ(workshop[0].quantity, 3);
    EXPECT_EQ(workshop[0].unit, ExtractedUnit::day);
    // "KW 14 (…)" says when, not what.
    EXPECT_FALSE(itemsOf(u"Invoice: KW 14 (on site) at USD 1,400/day"_s).value(0).description.has_value());
    // "flat" and "Pauschalpreis" after the price make it a lump sum.
    EXPECT_EQ(itemsOf(u"Please bill the van hire at £150 flat."_s).value(0).unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(
        itemsOf(u"Für die Moderation bitten wir um Rechnung über 900,00 € (Pauschalpreis)."_s).value(0).unit,
        ExtractedUnit::lumpSum);
}

TEST(OfflineExtractionSentences, PricesOfOtherTimesOrLimitsBillNothing)
{
    // An old price, a threshold: the text prices nothing with them.
    const QList<ExtractedItem> items =
        itemsOf(u"Please invoice the garden design at €1,600 as quoted. (Your first quote said €1,400, but "
                "that was before the pond.) Anything over €1,000 needs our PO number."_s);
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].unitPrice, 1600);
    EXPECT_EQ(itemsOf(u"Bitte 2 Tage Montage zu 640 € abrechnen (bisher 590 €)."_s).size(), 1);
    // "over" is a limit only before an amount.
    EXPECT_EQ(itemsOf(u"Please invoice: Voice-over recording, 2 hours at £150/hr."_s).value(0).description,
              u"Voice-over recording"_s);
    // An option turned down.
    EXPECT_EQ(itemsOf(u"Wir nehmen Variante B zum Festpreis von 6.800 €, bitte so abrechnen. Die Variante A "
                      "(4.900 €) kommt für uns nicht in Frage."_s)
                  .size(),
              1);
}

TEST(OfflineExtractionSentences, RateAndTimeApartBesideOtherItems)
{
    // A timesheet without prices and the one rate stated below it.
    const QList<ExtractedItem> sheet = itemsOf(
        u"Date        Project            Hours\n01.10.2026  Relaunch           6,5\n05.10.2026  SEO-Audit   "
        "       4\n\nStundensatz wie vereinbart 85 €. Rechnung bitte an die Agentur."_s);
    ASSERT_EQ(sheet.size(), 2);
    EXPECT_EQ(sheet[0].description, u"Relaunch"_s);
    EXPECT_EQ(sheet[0].quantity, 6.5);
    EXPECT_EQ(sheet[0].unitPrice, 85);
    EXPECT_EQ(sheet[1].unitPrice, 85);
    // Things the customer bought themselves are not billed.
    EXPECT_EQ(itemsOf(u"Your invoice should show: demolition $1,200. Don't include the appliances, we bought "
                      "those ourselves ($3,400)."_s)
                  .size(),
              1);
    // The time in one sentence, the rate in the next, and a further item after it.
    const QList<ExtractedItem> items = itemsOf(
        u"Hallo Tom,\n\nfür März sind es insgesamt 12,5 Stunden Bildbearbeitung geworden. Abgerechnet wird "
        "mit dem vereinbarten Satz von 70 Euro pro Stunde, dazu kommen noch die 2 Drucke zu je 45 Euro.\n\n"
        "Gruß\nJana"_s);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].description, u"Bildbearbeitung"_s);
    EXPECT_EQ(items[0].quantity, 12.5);
    EXPECT_EQ(items[0].unit, ExtractedUnit::hour);
    EXPECT_EQ(items[0].unitPrice, 70);
    EXPECT_EQ(items[1].quantity, 2);
    EXPECT_EQ(items[1].unitPrice, 45);
    // A count of days in words before the rate of the same sentence.
    const QList<ExtractedItem> shoot =
        itemsOf(u"Quick recap for your invoice. The product shoot ran two days, and we agreed on your day "
                "rate of $1,500."_s);
    ASSERT_EQ(shoot.size(), 1);
    EXPECT_EQ(shoot[0].description, u"product shoot"_s);
    EXPECT_EQ(shoot[0].quantity, 2);
    EXPECT_EQ(shoot[0].unit, ExtractedUnit::day);
    EXPECT_EQ(shoot[0].unitPrice, 1500);
}

TEST(OfflineExtractionItems, TablesWithTheirTaxRowAndMarkedLumpSums)
{
    const QList<ExtractedItem> items = itemsOf(
        u"Item\tQty\tUnit Price\tTotal\nSandwich platters\t10\t$22.00\t$220.00\nSetup (fixed)\t1\t$60.00"
        "\t$60.00\nSubtotal\t\t\t$280.00\nSales tax (6.625%)\t\t\t$18.55\nTotal\t\t\t$298.55"_s);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].vatPercentage, 6.625);
    EXPECT_EQ(items[1].description, u"Setup"_s);
    EXPECT_EQ(items[1].unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(items[1].vatPercentage, 6.625);
    // Columns set with spaces under "Preis/Stk"; a line read with an amount left in its name is none.
    const QList<ExtractedItem> order = itemsOf(
        u"Pos. Artikel              Menge  Preis/Stk  Betrag\n1    Visitenkarten 500 St.   2     49,00      "
        "98,00\n\nSumme netto 98,00 EUR"_s);
    ASSERT_EQ(order.size(), 1);
    EXPECT_EQ(order[0].description, u"Visitenkarten 500 St."_s);
    EXPECT_EQ(order[0].quantity, 2);
    EXPECT_EQ(order[0].unitPrice, 49);
    EXPECT_TRUE(itemsOf(u"Bitte abrechnen:\nFlyer 2 19,00 38,00 €"_s).isEmpty());
    // Lettered lists, a word counted after the name, a tax to be added for all.
    const QList<ExtractedItem> lettered = itemsOf(u"Bitte in Rechnung stellen:\na) Jahresabschluss 2025: "
                                                  u"2.400,00 €\nb) Workshop, 2 Termine – je 300,00 €"_s);
    ASSERT_EQ(lettered.size(), 2);
    EXPECT_EQ(lettered[0].description, u"Jahresabschluss 2025"_s);
    EXPECT_EQ(lettered[1].description, u"Workshop"_s);
    EXPECT_EQ(lettered[1].quantity, 2);
    EXPECT_EQ(
        itemsOf(u"Our order: 12 x Oak brackets @ £14.50. VAT to be added at 20%."_s).value(0).vatPercentage,
        20);
    // "1/2 Tag" is no quantity of two days; a counted word names the work when nothing else does.
    const QList<ExtractedItem> march = itemsOf(
        u"Die Rechnung bitte wie folgt:\n• Fotoshooting, 1/2 Tag: 480 €\n• 12 Reels-Schnitt à 35 €"_s);
    ASSERT_EQ(march.size(), 2);
    EXPECT_EQ(march[0].description, u"Fotoshooting, 1/2 Tag"_s);
    EXPECT_FALSE(march[0].quantity);
    EXPECT_EQ(march[1].description, u"Reels-Schnitt"_s);
    EXPECT_EQ(march[1].quantity, 12);
    // A heading before the item; the word after "8 x" is the work itself.
    EXPECT_EQ(itemsOf(u"Auftrag: Reinigung\nLeistung: 8 x Unterhaltsreinigung à 65,00 € netto"_s)
                  .value(0)
                  .description,
              u"Unterhaltsreinigung"_s);
    // Words in parentheses stay as written.
    EXPECT_EQ(itemsOf(u"For October:\n- 3 blog posts (1,500 words each) @ $275/post"_s).value(0).description,
              u"blog posts (1,500 words each)"_s);
    // "(x4)" after the name counts it.
    EXPECT_EQ(itemsOf(u"Invoice please:\nBridesmaid bouquets (x4) $65 each"_s).value(0).quantity, 4);
    // Dot leaders of a price list are a gap between the columns.
    const QList<ExtractedItem> listed =
        itemsOf(u"Rechnungsposten:\nWebseitenpflege ....... 180,00 €\nNewsletter 2x ........ je 75,00 €"_s);
    ASSERT_EQ(listed.size(), 2);
    EXPECT_EQ(listed[0].description, u"Webseitenpflege"_s);
    EXPECT_EQ(listed[1].description, u"Newsletter"_s);
    EXPECT_EQ(listed[1].quantity, 2);
    EXPECT_EQ(listed[1].unitPrice, 75);
    // Measures count like pieces, and leave the name.
    const QList<ExtractedItem> measured = itemsOf(u"Bitte abrechnen:\nErdaushub   12 m³ à 35,00 €"_s);
    ASSERT_EQ(measured.size(), 1);
    EXPECT_EQ(measured[0].description, u"Erdaushub"_s);
    EXPECT_EQ(measured[0].quantity, 12);
    EXPECT_FALSE(measured[0].unit);
}

TEST(OfflineExtractionRecipient, SignOffsLabelsAndNamesAsPeopleWriteThem)
{
    const struct
    {
        QString text;
        QString name;
    } signedTexts[] = {
        {u"Nachhilfe Mathe Mai 2026: 6 Stunden à 30 €. Danke! Grüße, Sabine Vogt"_s, u"Sabine Vogt"_s},
        {u"could you invoice me for the 3 massages? £50 each – Emma Clarke 🙂"_s, u"Emma Clarke"_s},
        {u"Hoi, bitte d Rächnig für 4 Lektione à Fr. 80.–. Gruess Nina Frei"_s, u"Nina Frei"_s},
        {u"Bitte verrechnen: 4 Stunden à CHF 180.–\n\nLiebe Grüess\nCorinne Frei"_s, u"Corinne Frei"_s},
        // a name alone on the last line, set apart from the text
        {u"Thanks Kim! 6 lessons at $60 each, please email the invoice to me.\n\nRosa Garcia"_s,
         u"Rosa Garcia"_s},
        // a surname that is also a word
        {u"Please invoice 2 hours at £40 per hour.\n\nThanks\nOliver Price"_s, u"Oliver Price"_s},
        {u"Thanks for Saturday! Bill it to me: Mia Lopez, 12 Oak Ave, Austin, TX 78701"_s, u"Mia Lopez"_s},
    };
    for (const auto& c : signedTexts)
        EXPECT_EQ(OfflineExtractor::extract(c.text).recipient.value_or(ExtractedRecipient{}).name, c.name)
            << qPrintable(c.text);

    const struct
    {
        QString text;
        QString business;
    } businesses[] = {
        {u"Send it to:\nCarter & Lane Architects\n5 Mill Street\nLeeds LS1 4AB"_s,
         u"Carter & Lane Architects"_s},
        {u"Invoice to: Greenfield Organics, 1450 Market St, Denver, CO 80202."_s, u"Greenfield Organics"_s},
        {u"Invoice address:\nSt Mary's Primary School\nChurch Lane\nYork YO1 7HH"_s,
         u"St Mary's Primary School"_s},
        {u"bitte 2 Tage Aufbau zu je 400 € abrechnen – Rechnungsadresse: Nordwind Events GmbH, Hafenstraße "
         u"3, "
         "20457 Hamburg. Danke!"_s,
         u"Nordwind Events GmbH"_s},
        {u"Rechnungsanschrift wie immer:\nZahnarztpraxis Dr. Roth\nRingstraße 4\n50667 Köln"_s,
         u"Zahnarztpraxis Dr. Roth"_s},
    };
    for (const auto& c : businesses)
        EXPECT_EQ(OfflineExtractor::extract(c.text).recipient.value_or(ExtractedRecipient{}).businessName,
                  c.business)
            << qPrintable(c.text);

    // A chat copied with its speakers; a profession before the name; a unit of a business park.
    const ExtractedInvoice chat =
        OfflineExtractor::extract(u"Mia: danke für gestern!\nMia: schreib mir ne Rechnung, Gartenhilfe 6 "
                                  u"Std. à 25 €\nMia: Adresse: Mia Roth, "
                                  "Lindenweg 2, 34117 Kassel"_s);
    ASSERT_TRUE(chat.recipient);
    EXPECT_EQ(chat.recipient->name, u"Mia Roth"_s);
    EXPECT_EQ(chat.items.value_or(QList<ExtractedItem>()).value(0).description, u"Gartenhilfe"_s);
    const ExtractedInvoice letterhead = OfflineExtractor::extract(
        u"Kanzlei Dr. Roth\nSteuerberaterin Dr. Ute Roth\nAm Markt 3\n30159 Hannover\n\nBeratung 2 Std. à 90,00 €"_s);
    ASSERT_TRUE(letterhead.recipient);
    EXPECT_EQ(letterhead.recipient->businessName, u"Kanzlei Dr. Roth"_s);
    EXPECT_EQ(letterhead.recipient->name, u"Dr. Ute Roth"_s);
    EXPECT_EQ(OfflineExtractor::extract(
                  u"Invoice to:\nBrightwell Ltd\nUnit 4, Meadow Business Park\nDerby\nDE24 8HY"_s)
                  .recipient.value_or(ExtractedRecipient{})
                  .addressLineOne,
              u"Unit 4, Meadow Business Park"_s);

    // A trade's place before the owner's name is a business; the one who signs is the person.
    const ExtractedInvoice florist = OfflineExtractor::extract(
        u"Bitte 3 Stunden à 120 € abrechnen. LG Katrin Vogel, Blumenhaus Vogel, Marktplatz 1, 97070 Würzburg"_s);
    ASSERT_TRUE(florist.recipient);
    EXPECT_EQ(florist.recipient->businessName, u"Blumenhaus Vogel"_s);
    EXPECT_EQ(florist.recipient->name, u"Katrin Vogel"_s);
    // Whoever forwards another business's billing address is not reached at their own.
    const ExtractedInvoice passed = OfflineExtractor::extract(
        u"---------- Forwarded message ---------\nFrom: Ellen Park <ellen@parkstudio.com>\nTo: Chris "
        "<chris@mooredesign.co>\n\nChris - can you invoice my client directly?\n\nBill to:\nHarbor Realty "
        "LLC\n77 "
        "Commercial St\nPortland, ME 04101\n\nLogo design: $1,800"_s);
    ASSERT_TRUE(passed.recipient);
    EXPECT_EQ(passed.recipient->businessName, u"Harbor Realty LLC"_s);
    EXPECT_FALSE(passed.recipient->email);
    // A business signing below its own address names no person.
    const ExtractedInvoice kita = OfflineExtractor::extract(
        u"Bitte 4 Stunden zu je 45 € abrechnen.\nViele Grüße\nKita Sonnenschein\nBirkenweg 5\n01307 Dresden"_s);
    ASSERT_TRUE(kita.recipient);
    EXPECT_EQ(kita.recipient->businessName, u"Kita Sonnenschein"_s);
    EXPECT_FALSE(kita.recipient->name);
    // A British postcode ends the sentence it is written in.
    EXPECT_EQ(OfflineExtractor::extract(
                  u"Please invoice Hartley Homes Ltd, 21 Station Road, Bath BA1 1AA. Thanks"_s)
                  .recipient.value_or(ExtractedRecipient{})
                  .postcode,
              u"BA1 1AA"_s);

    // A department between the person and the business names neither.
    const ExtractedInvoice clinic = OfflineExtractor::extract(
        u"Bitte 120 Prüfpunkte à 4,50 € abrechnen.\n\nMit freundlichen Grüßen\ni. A. Jana Koch\nFacility "
        "Management\nKlinikum Nord gGmbH\nAm Klinikum 1\n30659 Hannover"_s);
    ASSERT_TRUE(clinic.recipient);
    EXPECT_EQ(clinic.recipient->name, u"Jana Koch"_s);
    EXPECT_EQ(clinic.recipient->businessName, u"Klinikum Nord gGmbH"_s);
    // A form: name and company fields above the address field.
    const ExtractedInvoice form =
        OfflineExtractor::extract(u"Here's the info for the invoice:\n\nName: Daniel O'Connor\nCompany: "
                                  u"Brightwave Media Ltd\nAddress: 5th "
                                  "Floor, 20 Lime Street, London EC3M 7AN\n\nEditing £90."_s);
    ASSERT_TRUE(form.recipient);
    EXPECT_EQ(form.recipient->name, u"Daniel O'Connor"_s);
    EXPECT_EQ(form.recipient->businessName, u"Brightwave Media Ltd"_s);
    EXPECT_EQ(form.recipient->postcode, u"EC3M 7AN"_s);

    // Staircase and door of an Austrian address.
    EXPECT_EQ(OfflineExtractor::extract(u"Auftraggeber: Leitner GmbH, Hauptstraße 71/2/14, 1030 Wien"_s)
                  .recipient.value_or(ExtractedRecipient{})
                  .addressLineOne,
              u"Hauptstraße 71/2/14"_s);
}

TEST(OfflineExtractionRecipient, ANoteThatPassesOnAMailLetsItBeRead)
{
    const ExtractedInvoice invoice = OfflineExtractor::extract(
        u"Hallo Frau Berg,\n\nunten die Freigabe von Herrn Lang, Sie können damit abrechnen.\n\nBeste Grüße\n"
        "Eva Roth\n\nVon: Jonas Lang <j.lang@kanzlei-lang.de>\nGesendet: Montag, 5. Oktober 2026 10:12\nAn: "
        "Eva Roth <e.roth@kanzlei-lang.de>\nBetreff: Übersetzung\n\nHallo Eva,\n\nfreigegeben: 20 Normseiten "
        "Übersetzung à 30,00 €.\n\nRechnungsanschrift wie immer:\nKanzlei Lang PartGmbB\nz. Hd. Jonas "
        "Lang\nMaximilianstraße 8\n80539 München\n\nGruß\nJonas"_s);
    ASSERT_TRUE(invoice.recipient);
    EXPECT_EQ(invoice.recipient->businessName, u"Kanzlei Lang PartGmbB"_s);
    EXPECT_EQ(invoice.recipient->name, u"Jonas Lang"_s);
    EXPECT_EQ(invoice.recipient->city, u"München"_s);
    ASSERT_EQ(invoice.items.value_or(QList<ExtractedItem>()).size(), 1);
    EXPECT_EQ(invoice.items->first().quantity, 20);
    // The note's writer passes on a priced mail of their own: the mail below is older and stays unread.
    const ExtractedInvoice own = OfflineExtractor::extract(
        u"See below – please invoice 3 hours at €90.\n\n-----Original Message-----\nFrom: Tim <tim@x.de>\n"
        "Sent: 1 March 2026\n\nCan we do 5 hours at €80?"_s);
    ASSERT_EQ(own.items.value_or(QList<ExtractedItem>()).size(), 1);
    EXPECT_EQ(own.items->first().unitPrice, 90);
}

TEST(OfflineExtractionItems, TablesWhoseCurrencyOnlyTheHeadingsName)
{
    // Spaced columns with an abbreviated unit heading and the currency after each price heading.
    const QList<ExtractedItem> spaced = itemsOf(
        u"Pos.  Leistung                 Menge  Einh.    EP €    Gesamt €\n"
        "1     Fliesen verlegen           14  m²      38,00     532,00\n"
        "2     Silikonfugen erneuern       1  pausch. 120,00     120,00\n\nAlle Preise zzgl. 19 % MwSt."_s);
    ASSERT_EQ(spaced.size(), 2);
    EXPECT_EQ(spaced[0].description, u"Fliesen verlegen"_s);
    EXPECT_EQ(spaced[0].unitPrice, 38);
    EXPECT_EQ(spaced[1].unit, ExtractedUnit::lumpSum);
    EXPECT_EQ(spaced[1].unitPrice, 120);
    EXPECT_EQ(OfflineExtractor::extract(u"Pos  Leistung  Menge  Einh.  EP €  Gesamt €\n"
                                        "1  Beratung  2  Std.  90,00  180,00"_s)
                  .currencyCode,
              u"EUR"_s);
    // A spreadsheet export with a column nobody bills by: that column is passed over.
    const QList<ExtractedItem> runs =
        itemsOf(u"Date,Service,Vehicle,Qty,Rate (USD)\n03/02/2026,Airport transfer,Sedan,2,85.00\n"
                "03/09/2026,Hourly charter,Van,4,95.00\n"_s);
    ASSERT_EQ(runs.size(), 2);
    EXPECT_EQ(runs[0].description, u"Airport transfer"_s);
    EXPECT_EQ(runs[0].quantity, 2);
    EXPECT_EQ(runs[0].unitPrice, 85);
    EXPECT_EQ(runs[1].unitPrice, 95);
    // Two headings nobody knows make it no table at all.
    EXPECT_TRUE(itemsOf(u"Name,Team,Shirt,Qty,Rate\nAnna,Blue,M,2,15.00\n"_s).size() <= 1);
}

TEST(OfflineExtractionItems, RowsThePdfBrokeOverTwoLines)
{
    const QList<ExtractedItem> items = itemsOf(
        u"Pos Bezeichnung Menge Einh. EP € GP €\n1 Bühnenpodest\naus Aluminium 4 Stk 65,00 260,00\n"
        "2 Aufbau und\nAbbau 6 Std. 48,00 288,00\n3 Anfahrt 1 pausch. 40,00 40,00\nSumme netto 588,00"_s);
    ASSERT_EQ(items.size(), 3);
    EXPECT_EQ(items[0].description, u"Bühnenpodest aus Aluminium"_s);
    EXPECT_EQ(items[0].quantity, 4);
    EXPECT_EQ(items[0].unitPrice, 65);
    EXPECT_EQ(items[1].description, u"Aufbau und Abbau"_s);
    EXPECT_EQ(items[1].unit, ExtractedUnit::hour);
    EXPECT_EQ(items[1].unitPrice, 48);
    EXPECT_EQ(items[2].description, u"Anfahrt"_s);
    // A row with its amount stays a row of its own: the next line is not glued to it.
    const QList<ExtractedItem> whole = itemsOf(
        u"Pos Bezeichnung Menge Einh. EP € GP €\n1 Beratung 2 Std. 90,00 180,00\nvor Ort in Linz\n"_s);
    ASSERT_EQ(whole.size(), 1);
    EXPECT_EQ(whole[0].description, u"Beratung"_s);
    EXPECT_EQ(whole[0].unitPrice, 90);
}

TEST(OfflineExtractionDates, ChatStampsDateTheMessageNotTheWork)
{
    // The stamp of the message names no day of work; the month worked does.
    const ExtractedInvoice monthly = OfflineExtractor::extract(
        u"[03.03.26, 08:15] Jana Wolf: Guten Morgen! Im Februar waren es 6 Stunden Gitarrenunterricht "
        "à 30 €, bitte schick mir die Rechnung."_s);
    EXPECT_EQ(monthly.serviceDateStart, u"2026-02-01"_s);
    EXPECT_EQ(monthly.serviceDateEnd, u"2026-02-28"_s);
    // Another app's stamp, with nothing else to date the work: no date at all.
    const ExtractedInvoice unstamped = OfflineExtractor::extract(
        u"4/12/26, 6:05 PM - Dana: Please invoice me for the 3 window cleanings at $45 each."_s);
    EXPECT_FALSE(unstamped.serviceDateStart);
    EXPECT_FALSE(unstamped.serviceDateEnd);
}

TEST(OfflineExtractionDates, MovesFittingAndACrewOnSiteDateTheWork)
{
    EXPECT_EQ(OfflineExtractor::extract(u"Danke für den Umzug am Freitag, 6. März 2026. Bitte abrechnen: "
                                        "Umzugshelfer 12 Stunden à 45 €."_s)
                  .serviceDateStart,
              u"2026-03-06"_s);
    const ExtractedInvoice crew = OfflineExtractor::extract(
        u"Your team was here from May 4 to May 6, 2026. Please bill the gutter cleaning, flat $380."_s);
    EXPECT_EQ(crew.serviceDateStart, u"2026-05-04"_s);
    EXPECT_EQ(crew.serviceDateEnd, u"2026-05-06"_s);
    // A delivery still to come is no date of service.
    EXPECT_FALSE(OfflineExtractor::extract(u"Liefertermin voraussichtlich 14. Mai 2026. Bitte abrechnen: "
                                           "Schrank 1 Stk. à 900 €."_s)
                     .serviceDateStart);
}

TEST(OfflineExtractionItems, TheTaxRowBelowATableRatesItsRows)
{
    const QList<ExtractedItem> items = itemsOf(u"Pos  Leistung             Menge  Einh.  EP €    GP €\n"
                                               "1    Dachrinne reinigen      12  lfm    8,50   102,00\n"
                                               "2    Anfahrt                  1  pausch. 45,00  45,00\n"
                                               "Summe netto 147,00\n10 % MwSt. 14,70\nGesamt 161,70"_s);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].vatPercentage, 10);
    EXPECT_EQ(items[1].vatPercentage, 10);
    EXPECT_EQ(items[1].unitPrice, 45);
    // Two rates below the table: which row bears which is not said, so none gets one.
    const QList<ExtractedItem> mixed =
        itemsOf(u"Item  Qty  Price\nBooks  2  12.00\nPoster  1  8.00\nVAT 0% 0.00\nVAT 20% 1.60\n"_s);
    for (const ExtractedItem& item : mixed)
        EXPECT_FALSE(item.vatPercentage) << qPrintable(item.description.value_or(QString()));
}

TEST(OfflineExtractionRecipient, ASentenceAskingForWordsOnTheInvoiceGivesTheNote)
{
    EXPECT_EQ(OfflineExtractor::extract(u"Bitte abrechnen: Hausaufgabenhilfe 10 Stunden à 18 €.\n"
                                        "Schreiben Sie bitte auf die Rechnung: Gefördert durch das "
                                        "Bildungspaket der Stadt Kiel"_s)
                  .note,
              u"Gefördert durch das Bildungspaket der Stadt Kiel"_s);
    EXPECT_EQ(OfflineExtractor::extract(u"3 hours of tutoring at £30/h please.\nTom wants this line on the "
                                        "invoice: \"Paid from the school hardship fund\""_s)
                  .note,
              u"Paid from the school hardship fund"_s);
    // A number or an address asked for on the invoice is no note.
    for (const QString& text :
         {u"Bitte abrechnen: Beratung 2 Std. à 90 €.\nBitte auf der Rechnung unsere Bestellnummer "
          "angeben: BN-2026/118"_s,
          u"Design work, flat £400.\nPlease put our PO number on the invoice: 88213"_s,
          u"Design work, flat £400.\nPlease write on the invoice: 88213"_s})
        EXPECT_FALSE(OfflineExtractor::extract(text).note) << qPrintable(text);
}

TEST(OfflineExtractionRecipient, FormLabelsInAColumnOfTheirOwn)
{
    const ExtractedInvoice invoice = OfflineExtractor::extract(
        u"Rechnungsadresse\tGärtnerei Brandl GmbH\nStraße\tAm Anger 4\nPLZ\t93047\nOrt\tRegensburg\n\n"
        "Leistung: Baumschnitt 6 Std. à 52,00 €"_s);
    ASSERT_TRUE(invoice.recipient);
    EXPECT_EQ(invoice.recipient->businessName, u"Gärtnerei Brandl GmbH"_s);
    EXPECT_EQ(invoice.recipient->addressLineOne, u"Am Anger 4"_s);
    EXPECT_EQ(invoice.recipient->postcode, u"93047"_s);
    EXPECT_EQ(invoice.recipient->city, u"Regensburg"_s);
    // Set apart by spaces, the label never ends up in the value it names.
    const ExtractedInvoice spaced =
        OfflineExtractor::extract(u"Firma     Hoffmann Druck KG\nAnschrift    Kirchweg 12, 34117 Kassel\n\n"
                                  "Bitte abrechnen: Plakate 50 Stk. à 3,20 €"_s);
    if (spaced.recipient) {
        EXPECT_FALSE(spaced.recipient->businessName.value_or(QString()).startsWith(u"Firma"_s));
        EXPECT_FALSE(spaced.recipient->addressLineOne.value_or(QString()).startsWith(u"Anschrift"_s));
    }
}

TEST(OfflineExtractionSentences, AmountsTheTextSaysNotToBillBillNothing)
{
    const QList<ExtractedItem> items = itemsOf(
        u"Please invoice the kitchen install, flat $1,200. The pizza ($45) is on us, leave it off."_s);
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].unitPrice, 1200);
    EXPECT_TRUE(itemsOf(u"Die Parkgebühren von 18 € bitte nicht verrechnen."_s).isEmpty());
    EXPECT_TRUE(
        itemsOf(
            u"Die Gäste zahlen ihren Eintritt von 15 € an der Kasse, das hat mit Ihrer Rechnung nichts zu tun."_s)
            .isEmpty());
    // Said of another amount, the words leave the item alone.
    EXPECT_EQ(
        itemsOf(u"Bitte abrechnen: Bühnenaufbau pauschal 450 €.\nDas Catering bitte nicht verrechnen."_s)
            .value(0)
            .unitPrice,
        450);
}
