#include "payment/GiroCode.h"
#include "payment/Iban.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using TestSupport::invoiceWith;

namespace {

Profile sender()
{
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.name = u"Mira Lindqvist"_s;
    profile.businessName = u"Lindqvist Design"_s;
    profile.iban = u"de02 1203 0000 0000 2020 51"_s;
    profile.bic = u"BYLADEM1001"_s;
    profile.language = Language::german;
    return profile;
}

// Invoice 2026-004: ten hours at 103.74 with 19 % VAT, 1234.51 in all.
Invoice invoice()
{
    Invoice invoice = invoiceWith({{10, 103.74, 19}});
    invoice.number = 4;
    invoice.numberFormat = u"{YYYY}-{NNN}"_s;
    invoice.date = TestSupport::berlinTimestamp(u"2026-03-02T10:00"_s);
    invoice.currency = Currency{u"EUR"_s};
    return invoice;
}

QString payloadOf(const Invoice& invoice, const Profile& profile = sender())
{
    const auto transfer = GiroCode::transferFor(invoice, profile);
    return transfer ? GiroCode::payload(*transfer) : QString();
}

} // namespace

TEST(Iban, ChecksLengthAndCheckDigits)
{
    EXPECT_TRUE(Iban::isValid(u"DE89 3704 0044 0532 0130 00"_s));
    EXPECT_TRUE(Iban::isValid(u"de89370400440532013000"_s));
    EXPECT_FALSE(Iban::isValid(u"DE89 3704 0044 0532 0130 01"_s));
    EXPECT_FALSE(Iban::isValid(u"DE89"_s));
    EXPECT_FALSE(Iban::isValid(u"DE89 3704 0044 0532 0130 0!"_s));
    // Digits of other scripts are no IBAN digits.
    EXPECT_FALSE(Iban::isValid(u"DE89 3704 0044 0532 0130 0\u0660"_s));
    EXPECT_EQ(Iban::compact(u" de89 3704 0044 0532 0130 00"_s), u"DE89370400440532013000"_s);
}

TEST(GiroCodePayload, TypicalInvoiceInTheDocumentLanguage)
{
    EXPECT_EQ(payloadOf(invoice()),
              u"BCD\n002\n1\nSCT\nBYLADEM1001\nLindqvist Design\nDE02120300000000202051\n"
              u"EUR1234.51\n\n\nRechnung 2026-004"_s);
    Invoice english = invoice();
    english.language = Language::english;
    EXPECT_TRUE(payloadOf(english).endsWith(u"\n\n\nInvoice 2026-004"_s));
}

TEST(GiroCodePayload, SenderDetails)
{
    // The BIC is optional in version 002: the element stays, empty.
    Profile noBic = sender();
    noBic.bic.clear();
    EXPECT_TRUE(payloadOf(invoice(), noBic).startsWith(u"BCD\n002\n1\nSCT\n\nLindqvist Design\n"_s));
    // A mistyped BIC is left out rather than sent to the bank.
    Profile badBic = sender();
    badBic.bic = u"BYLA1"_s;
    EXPECT_TRUE(payloadOf(invoice(), badBic).startsWith(u"BCD\n002\n1\nSCT\n\nLindqvist Design\n"_s));

    // Without a business name the person's name is the beneficiary.
    Profile person = sender();
    person.businessName = u"  "_s;
    EXPECT_TRUE(payloadOf(invoice(), person).contains(u"\nMira Lindqvist\nDE02"_s));

    // A long name is cut to 70 characters at a character, with no space left dangling.
    Profile longName = sender();
    longName.businessName =
        u"Lindqvist Gestaltung und Kommunikation für Verlage, Museen und Ver\u00E4nde e.V."_s;
    const auto transfer = GiroCode::transferFor(invoice(), longName);
    ASSERT_TRUE(transfer);
    EXPECT_EQ(transfer->beneficiary,
              u"Lindqvist Gestaltung und Kommunikation für Verlage, Museen und Ver\u00E4nde"_s);
    EXPECT_EQ(transfer->beneficiary.size(), 70);
}

TEST(GiroCodePayload, FittedTextStaysOnOneLineAndKeepsCharactersWhole)
{
    EXPECT_EQ(GiroCode::fitted(u"Lindqvist\nDesign\t GmbH "_s, 70), u"Lindqvist Design GmbH"_s);
    // "e" with a combining acute accent counts as one character and is never split.
    EXPECT_EQ(GiroCode::fitted(u"Cafe\u0301 Noir"_s, 4), u"Caf"_s);
    // A character outside the basic plane counts once, its two halves stay together.
    EXPECT_EQ(GiroCode::fitted(u"ab\U0001F600cd"_s, 3), u"ab\U0001F600"_s);
    EXPECT_EQ(GiroCode::fitted(u"ab cd"_s, 3), u"ab"_s);
}

TEST(GiroCodePayload, AmountHasTwoDecimalsAndAPoint)
{
    CreditTransfer transfer{u""_s, u"A"_s, u"DE02120300000000202051"_s, 1234.5, u"Invoice 1"_s};
    EXPECT_TRUE(GiroCode::payload(transfer).contains(u"\nEUR1234.50\n"_s));
    transfer.amount = 0.01;
    EXPECT_TRUE(GiroCode::payload(transfer).contains(u"\nEUR0.01\n"_s));
    transfer.amount = 999999999.99;
    EXPECT_TRUE(GiroCode::payload(transfer).contains(u"\nEUR999999999.99\n"_s));
    // Trailing empty elements are left out, so a transfer without text ends at the amount.
    transfer.remittance.clear();
    EXPECT_TRUE(GiroCode::payload(transfer).endsWith(u"\nEUR999999999.99"_s));

    Invoice invoice = ::invoice();
    invoice.items = {TestSupport::line(1, 1234.5, 0)};
    EXPECT_TRUE(payloadOf(invoice).contains(u"\nEUR1234.50\n"_s));
}

TEST(GiroCodePayload, OnlyForEuroInvoicesThatCanBePaid)
{
    ASSERT_TRUE(GiroCode::transferFor(invoice(), sender()));
    Invoice quote = invoice();
    quote.type = InvoiceType::quote;
    Invoice cancellation = invoice();
    cancellation.type = InvoiceType::cancellation;
    Invoice dollars = invoice();
    dollars.currency = Currency{u"USD"_s};
    Invoice zero = invoice();
    zero.items = {TestSupport::line(1, 0, 19)};
    Invoice credit = invoice();
    credit.items = {TestSupport::line(1, -50, 19)};
    Invoice tooLarge = invoice();
    tooLarge.items = {TestSupport::line(1, 1e9, 0)};
    for (const Invoice& unpayable : {quote, cancellation, dollars, zero, credit, tooLarge})
        EXPECT_FALSE(GiroCode::transferFor(unpayable, sender()));

    Profile noIban = sender();
    noIban.iban.clear();
    Profile mistyped = sender();
    mistyped.iban = u"DE02 1203 0000 0000 2020 52"_s;
    Profile nameless = sender();
    nameless.name.clear();
    nameless.businessName.clear();
    for (const Profile& profile : {noIban, mistyped, nameless})
        EXPECT_FALSE(GiroCode::transferFor(invoice(), profile));
}
