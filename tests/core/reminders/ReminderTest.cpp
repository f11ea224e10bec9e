#include "reminders/ReminderJson.h"
#include "reminders/ReminderVariable.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// Invoice 2025-007 of 10 January 2025 over 1,190.00 EUR, due on 24 January, and a reminder of
// 14 March 2025: 49 days late. Dates are calendar dates in Berlin, whatever the machine's zone.
class ReminderVariableTest : public ::testing::Test
{
protected:
    ReminderVariableTest()
    {
        invoice = TestSupport::invoiceWith({{10, 100, 19}});
        invoice.number = 7;
        invoice.name = u"Jana Becker"_s;
        invoice.date = TestSupport::berlinTimestamp(u"2025-01-10T12:00:00"_s);
        reminder = Reminder::makeNew(invoice.id);
        reminder.date = TestSupport::berlinTimestamp(u"2025-03-14T09:30:00"_s);
        reminder.interestPercentage = 9.12;
        reminder.fee = 40;
    }

    QString substitute(const QString& text, Language language)
    {
        invoice.language = language;
        return ReminderVariables::substitute(text, reminder, invoice, profile);
    }

    ScopedClock m_clock{TestSupport::berlin(u"2025-03-14T09:30:00"_s)};
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    Invoice invoice;
    Reminder reminder;
};

TEST(Reminder, TitlesFollowTheNumberInBothLanguages)
{
    const QList<std::tuple<int, QString, QString>> cases{
        {0, u"Friendly Reminder"_s, u"Zahlungserinnerung"_s},
        {1, u"First Payment Reminder"_s, u"1. Mahnung"_s},
        {2, u"Second Payment Reminder"_s, u"2. Mahnung"_s},
        {3, u"Final Payment Reminder"_s, u"Letzte Mahnung"_s},
        {4, u"Payment Reminder"_s, u"Mahnung"_s},
        {17, u"Payment Reminder"_s, u"Mahnung"_s}};
    Reminder reminder;
    for (const auto& [number, english, german] : cases) {
        reminder.number = number;
        EXPECT_EQ(reminder.title(Language::english), english) << number;
        EXPECT_EQ(reminder.title(Language::german), german) << number;
    }
}

TEST(Reminder, JsonRoundTripsReadsOldFilesAndRefusesBrokenOnes)
{
    Reminder reminder = Reminder::makeNew(QUuid::createUuid());
    reminder.text = u"Dear {{name}},\n\"please\" pay."_s;
    reminder.interestPercentage = 9.12;
    const QByteArray encoded = ReminderJson::encode(reminder);
    EXPECT_EQ(ReminderJson::decode(encoded), reminder);
    EXPECT_EQ(ReminderJson::encode(ReminderJson::decode(encoded)), encoded);

    const QByteArray ids =
        R"("id":"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012","invoiceId":"A1B2C3D4-0001-4000-8000-000000000001")";
    const Reminder old = ReminderJson::decode("{" + ids + "}"); // older files may lack keys
    EXPECT_EQ(old.number, 1);
    EXPECT_EQ(old.version, Reminder::currentVersion);
    for (const QByteArray& broken :
         {QByteArray("{"), QByteArray(R"({"id":"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012"})"),
          "{" + ids + R"(,"fee":"forty"})", "{" + ids + R"(,"number":-1})"})
        EXPECT_THROW(ReminderJson::decode(broken), JsonDecodeError) << broken.toStdString();
}

TEST_F(ReminderVariableTest, EveryVariableResolvesInGermanAndEnglish)
{
    QString all;
    for (ReminderVariable variable : allCases<ReminderVariable>()) {
        all += ReminderVariables::placeholder(variable) + u'|';
        // Every label has its German word.
        EXPECT_NE(ReminderVariables::label(variable, Language::german),
                  ReminderVariables::label(variable, Language::english));
    }
    // Interest: 1190 × 9.12 % × 49 / 365 = 14.5695.
    EXPECT_EQ(
        substitute(all, Language::german),
        u"Jana Becker|2025-007|10. Januar 2025|1.190,00|28. März 2025|24. Januar 2025|14,57|9,12|40,00|");
    EXPECT_EQ(
        substitute(all, Language::english),
        u"Jana Becker|2025-007|January 10, 2025|1,190.00|March 28, 2025|January 24, 2025|14.57|9.12|40.00|");
    // Only a business on the invoice: its name is the recipient.
    invoice.name.clear();
    invoice.businessName = u"Becker & Söhne GmbH"_s;
    EXPECT_EQ(substitute(u"{{name}}"_s, Language::german), u"Becker & Söhne GmbH");
}

TEST_F(ReminderVariableTest, DeadlineAndInterestFollowTheProfileAndTheDaysLate)
{
    profile.reminderDaysToPay = 7;
    // Across the change to summer time (30 March) the deadline stays on its calendar day.
    reminder.date = TestSupport::berlinTimestamp(u"2025-03-28T00:30:00"_s);
    EXPECT_EQ(ReminderVariables::paymentDeadline(reminder, profile).localDate(), QDate(2025, 4, 4));

    const QList<std::tuple<QString, int, double>> cases{
        {u"2025-01-20T09:00:00"_s, 0, 0},   // before the due date
        {u"2025-01-24T18:00:00"_s, 0, 0},   // on it
        {u"2025-01-25T08:00:00"_s, 1, 0.3}, // 1190 × 9.12 % ÷ 365 = 0.297
        {u"2025-03-14T09:30:00"_s, 49, 14.57}};
    for (const auto& [date, days, interest] : cases) {
        reminder.date = TestSupport::berlinTimestamp(date);
        EXPECT_EQ(ReminderVariables::daysLate(reminder, invoice), days) << date.toStdString();
        EXPECT_EQ(ReminderVariables::interestAmount(reminder, invoice), interest) << date.toStdString();
    }
}

TEST_F(ReminderVariableTest, SubstitutionReplacesEveryKnownPlaceholderAndKeepsTheRest)
{
    EXPECT_EQ(substitute(u"Gebühr {{fee-amount}} EUR, nochmals {{fee-amount}} EUR"_s, Language::german),
              u"Gebühr 40,00 EUR, nochmals 40,00 EUR");
    EXPECT_EQ(substitute(u"{{customer-number}}, {{ name }}, {{Name}}, {{{amount}}}, {{unclosed"_s,
                         Language::german),
              u"{{customer-number}}, {{ name }}, {{Name}}, {1.190,00}, {{unclosed");
    // A value that looks like a placeholder is not replaced a second time.
    invoice.name = u"{{amount}}"_s;
    EXPECT_EQ(substitute(u"Dear {{name}}"_s, Language::english), u"Dear {{amount}}");
}

TEST_F(ReminderVariableTest, DefaultTextsArePoliteFirstAndFirmerLater)
{
    profile.name = u"Mira Lindqvist"_s;
    for (const Language language : {Language::german, Language::english}) {
        invoice.language = language;
        auto text = [&](int number, double interest, double fee) {
            reminder.number = number;
            reminder.interestPercentage = interest;
            reminder.fee = fee;
            return ReminderVariables::defaultText(reminder, invoice, profile);
        };
        const QString friendly = text(0, 9.12, 0), first = text(1, 9.12, 40), free = text(2, 0, 0),
                      final = text(3, 9.12, 40);
        for (const QString& t : {friendly, first, free, final}) {
            const QString filled = ReminderVariables::substitute(t, reminder, invoice, profile);
            EXPECT_FALSE(filled.contains(u"{{"_s)) << filled.toStdString(); // only our placeholders
            EXPECT_TRUE(filled.endsWith(u"\nMira Lindqvist"_s)) << filled.toStdString();
        }
        // Interest and fee are named only when charged, and never in the friendly reminder.
        EXPECT_FALSE(friendly.contains(u"{{fee-amount}}"_s) || friendly.contains(u"{{interest-amount}}"_s));
        EXPECT_TRUE(first.contains(u"{{fee-amount}}"_s) && first.contains(u"{{interest-amount}}"_s));
        EXPECT_FALSE(free.contains(u"{{fee-amount}}"_s) || free.contains(u"{{interest-amount}}"_s));
        const bool german = language == Language::german;
        EXPECT_TRUE(friendly.startsWith(german ? u"Guten Tag {{name}},"_s : u"Dear {{name}},"_s));
        EXPECT_TRUE(first.contains(german ? u"{{amount}} EUR"_s : u"EUR {{amount}}"_s));
        EXPECT_TRUE(final.contains(german ? u"gerichtlich"_s : u"legal action"_s));
    }
    // Without a recipient name the letter is addressed to the firm.
    invoice.name.clear();
    invoice.language = Language::german;
    EXPECT_TRUE(ReminderVariables::defaultText(reminder, invoice, profile)
                    .startsWith(u"Sehr geehrte Damen und Herren,"_s));
}
