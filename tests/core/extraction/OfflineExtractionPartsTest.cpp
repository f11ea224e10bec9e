// The parts of the offline extractor on their own: money and numbers, sentences, and the items
// they yield; then the forms of text they were written for, through the whole extractor.
#include "extraction/OfflineExtractor.h"
#include "extraction/offline/Money.h"
#include "extraction/offline/Sentences.h"

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
