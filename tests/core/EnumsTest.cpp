#include "model/Enums.h"
#include "l10n/Strings.h"

#include <gtest/gtest.h>

TEST(Enums, RawValuesAndOrder)
{
    EXPECT_EQ(rawValue(Status::draft), u"Draft");
    EXPECT_EQ(enumFromRaw<Status>(u"Cancelled"), Status::cancelled);
    // Raw values are exact: the lower-case status of no version of the files.
    EXPECT_FALSE(enumFromRaw<Status>(u"draft"));
    EXPECT_EQ(enumFromRaw<Unit>(u"Lump Sum"), Unit::lumpSum);
    EXPECT_EQ(enumFromRaw<VATExemptionReason>(u"insuranceFinancial"), VATExemptionReason::insuranceFinancial);
    EXPECT_EQ(enumFromRaw<Language>(u"de"), Language::german);
    EXPECT_EQ(allCases<Unit>(), (QList<Unit>{Unit::piece, Unit::hour, Unit::day, Unit::week, Unit::lumpSum}));
    EXPECT_EQ(allCases<VATExemptionReason>().size(), 11);
    EXPECT_EQ(enumFromRaw<VATExemptionReason>(u"intraCommunitySupply"), VATExemptionReason::intraCommunitySupply);
    EXPECT_EQ(allCases<VATExemptionReason>().first(), VATExemptionReason::none);
}

TEST(Enums, LabelsUseNarrowNoBreakSpaceAndTranslate)
{
    EXPECT_EQ(labelKey(VATExemptionReason::smallBusiness),
              QString::fromUtf8("Small Business (§\u202F19 UStG)"));
    EXPECT_EQ(labelText(VATExemptionReason::smallBusiness, Language::german),
              QString::fromUtf8("Kleinunternehmer (§\u202F19 UStG)"));
    EXPECT_EQ(labelText(Status::sent, Language::english), u"Sent");
    EXPECT_EQ(labelText(Status::sent, Language::german), u"Versendet");
    EXPECT_EQ(labelText(Unit::lumpSum, Language::german), u"Pauschale");

    Strings::setInterfaceLanguage(Language::german);
    EXPECT_EQ(labelText(Status::paid), u"Bezahlt");
    Strings::setInterfaceLanguage(Language::english);
    EXPECT_EQ(labelText(Status::paid), u"Paid");
    Strings::setInterfaceLanguage(std::nullopt);
}

TEST(Enums, EveryLabelAndNoteHasAGermanText)
{
    QStringList keys;
    for (auto s : allCases<Status>())
        keys << labelKey(s);
    for (auto t : allCases<InvoiceType>())
        keys << labelKey(t);
    for (auto u : allCases<Unit>())
        keys << labelKey(u);
    for (auto r : allCases<VATExemptionReason>()) {
        keys << labelKey(r);
        // Zero-rated documents state no reason, and noted exemptions carry their own words.
        if (const QString note = documentNoteKey(r); !note.isEmpty())
            keys << note;
    }
    for (auto f : allCases<NumberResetFrequency>())
        keys << labelKey(f);
    for (const QString& key : keys)
        EXPECT_NE(Strings::text(key, Language::german), key) << key.toStdString();
    // Note keys are sentences in both languages, not the bare key.
    EXPECT_TRUE(documentNoteKey(VATExemptionReason::none).isEmpty());
    EXPECT_NE(Strings::text(documentNoteKey(VATExemptionReason::reverseCharge), Language::english),
              u"VAT Reverse Charge");
}
