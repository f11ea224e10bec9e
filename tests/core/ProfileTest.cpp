#include "model/ProfileJson.h"
#include "model/Region.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

TEST(Profile, NewProfileDefaultsFollowTheRegion)
{
    const Profile austria = Profile::makeNew(Country{QStringLiteral("AT")});
    EXPECT_EQ(austria.language, Language::german);
    EXPECT_EQ(austria.vatPercentage, 20);
    EXPECT_EQ(austria.cancellationPrefix, u"STO-");
    EXPECT_EQ(austria.quotePrefix, u"AN-");
    EXPECT_EQ(austria.currency.code, u"EUR");
    EXPECT_EQ(austria.taxResidency.code, u"AT");

    const Profile us = Profile::makeNew(Country{QStringLiteral("US")});
    EXPECT_EQ(us.language, Language::english);
    EXPECT_EQ(us.vatPercentage, 0);
    EXPECT_EQ(us.cancellationPrefix, u"CN-");
    EXPECT_EQ(us.quotePrefix, u"QU-");
    EXPECT_EQ(us.currency.code, u"USD");

    EXPECT_EQ(Profile::makeNew(Country{QStringLiteral("CH")}).vatPercentage, 8.1);
    EXPECT_EQ(Profile::makeNew(Country{QStringLiteral("CH")}).currency.code, u"CHF");
    EXPECT_EQ(Profile::makeNew(Country{QStringLiteral("LI")}).language, Language::german);
    EXPECT_EQ(Profile::makeNew(Country{QStringLiteral("FI")}).vatPercentage, 25.5);
    EXPECT_EQ(Profile::makeNew(Country{QStringLiteral("GB")}).currency.code, u"GBP");

    const Profile fresh = Profile::makeNew(Country{QStringLiteral("DE")});
    EXPECT_EQ(fresh.numberFormat, u"{YYYY}-{NNN}");
    EXPECT_EQ(fresh.icon, u"person.fill");
    EXPECT_EQ(fresh.latePaymentFee, 40);
    EXPECT_TRUE(fresh.friendlyReminderEnabled);
    EXPECT_EQ(fresh.resetNumberFrequency, NumberResetFrequency::year);
}

TEST(Profile, SystemRegionIsASupportedCountryOrGermany)
{
    const QByteArray saved = qgetenv("LEDRA_REGION");
    for (const auto& [given, expected] : {std::pair{"ca", "CA"}, std::pair{"PH", "PH"}, std::pair{"XX", "DE"},
                                          std::pair{"001", "DE"}, std::pair{"Deutschland", "DE"}}) {
        qputenv("LEDRA_REGION", given);
        EXPECT_EQ(Region::system().code, QLatin1StringView(expected)) << given;
    }
    qputenv("LEDRA_REGION", saved);
    EXPECT_TRUE(Region::isSupported(Country{QStringLiteral("AT")}));
    EXPECT_FALSE(Region::isSupported(Country{QStringLiteral("EU")}));
    EXPECT_GT(Region::supportedCountries().size(), 200);
}

TEST(Profile, MissingKeysTakeNewProfileValuesButVatIsNineteen)
{
    const Profile p = ProfileJson::decode(TestSupport::readData(QStringLiteral("profiles/minimal.json")),
                                          Country{QStringLiteral("AT")});
    EXPECT_EQ(p.vatPercentage, 19);
    EXPECT_EQ(p.latePaymentFee, 40);
    EXPECT_EQ(p.reminderDaysToPay, 14);
    EXPECT_TRUE(p.friendlyReminderEnabled);
    EXPECT_EQ(p.numberFormat, u"{YYYY}-{NNN}");
    EXPECT_EQ(p.cancellationPrefix, u"STO-");
    EXPECT_EQ(p.icon, u"person.fill");
    EXPECT_FALSE(p.profileName);
    EXPECT_EQ(p.eInvoiceProfile, EInvoiceProfile::automatic);
}

TEST(Profile, LegacyNumberingBecomesAFormatAndIsWrittenAsOne)
{
    const Profile p =
        ProfileJson::decode(TestSupport::readData(QStringLiteral("profiles/legacy-numbering.json")),
                            Country{QStringLiteral("DE")});
    EXPECT_EQ(p.numberFormat, u"RE-{YYYY}/{NNNN}");
    const QByteArray written = ProfileJson::encode(p);
    EXPECT_TRUE(written.contains("\"numberFormat\": \"RE-{YYYY}/{NNNN}\""));
    EXPECT_FALSE(written.contains("numberPrefix"));
    EXPECT_FALSE(written.contains("numberLength"));

    // A number position stored as a number (0 = counter first).
    const Profile numeric =
        ProfileJson::decode(R"({"numberPrefix":"A","numberPosition":0,"numberLength":2,"separator":"-"})",
                            Country{QStringLiteral("DE")});
    EXPECT_EQ(numeric.numberFormat, u"A{NN}-{YYYY}");
    // An explicit format wins over legacy keys.
    const Profile both =
        ProfileJson::decode(R"({"numberFormat":"{N}","numberPrefix":"A"})", Country{QStringLiteral("DE")});
    EXPECT_EQ(both.numberFormat, u"{N}");
}

TEST(Profile, RoundTripsAndRefusesBrokenFiles)
{
    Profile p = Profile::makeNew(Country{QStringLiteral("DE")});
    p.profileName = QStringLiteral("Folder name is not stored");
    p.startNumberYear = 2025;
    p.hourlyRate = 85.5;
    p.reminderTemplate = QStringLiteral("Dear {name},\n\"please\" pay.");
    p.eInvoiceProfile = EInvoiceProfile::en16931;
    const QByteArray encoded = ProfileJson::encode(p);
    EXPECT_FALSE(encoded.contains("profileName"));
    Profile decoded = ProfileJson::decode(encoded, Country{QStringLiteral("US")});
    EXPECT_FALSE(decoded.profileName);
    decoded.profileName = p.profileName;
    EXPECT_EQ(decoded, p);
    EXPECT_EQ(ProfileJson::encode(decoded), encoded);

    EXPECT_TRUE(encoded.contains("\"eInvoiceProfile\": \"en16931\""));
    EXPECT_EQ(ProfileJson::decode(R"({"eInvoiceProfile":"zugferd"})", Country{QStringLiteral("DE")})
                  .eInvoiceProfile,
              EInvoiceProfile::automatic);

    EXPECT_THROW(ProfileJson::decode(R"({"address":{"city":"Wien"}})", Country{QStringLiteral("AT")}),
                 JsonDecodeError);
    EXPECT_THROW(ProfileJson::decode(R"({"language":"fr"})", Country{QStringLiteral("AT")}), JsonDecodeError);
    EXPECT_THROW(ProfileJson::decode("{", Country{QStringLiteral("AT")}), JsonDecodeError);
}

TEST(Profile, DisplayName)
{
    Profile p;
    EXPECT_EQ(p.displayName(), u"Unnamed");
    p.profileName = QStringLiteral("  Studio  ");
    EXPECT_EQ(p.displayName(), u"Studio");
    p.profileName = QStringLiteral("   ");
    EXPECT_EQ(p.displayName(), u"Unnamed");
}
