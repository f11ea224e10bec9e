#include "model/InvoiceJson.h"

#include "support/TestSupport.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

QByteArray sampleInvoice()
{
    QFile file(QStringLiteral(":/samples/sample-invoice.json"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

Invoice richInvoice()
{
    Invoice invoice = Invoice::makeNew();
    invoice.type = InvoiceType::cancellation;
    invoice.cancelledInvoiceId = QUuid::createUuid();
    invoice.number = 12;
    invoice.numberFormat = QStringLiteral("{YY}/{NNN}");
    invoice.cancellationPrefix = QStringLiteral("STO-");
    invoice.date = Timestamp(763637400.123456789);
    invoice.serviceDateStart = Timestamp(-12.5);
    invoice.serviceDateEnd = Timestamp(763637400.5);
    invoice.name = QString::fromUtf8("Zoë \"Quote\" Müller\\n\ttab 😀");
    invoice.addressCountry = Country{QStringLiteral("AT")};
    invoice.senderAddressCountry = Country{QStringLiteral("DE")};
    invoice.note = QStringLiteral("line one\nline two\u0001");
    invoice.items.append({QUuid::createUuid(), QStringLiteral("a"), 0.1, Unit::lumpSum, -19.99, 7.0000001});
    invoice.items.append({QUuid::createUuid(), QString(), 1e-7, Unit::week, 1e20, 0});
    invoice.discountAmount = 3.3;
    invoice.language = Language::german;
    invoice.status = Status::cancelled;
    invoice.reference = QString();
    return invoice;
}

} // namespace

TEST(InvoiceJson, FilesWeWroteReadBackToTheSameBytes)
{
    const QByteArray original = sampleInvoice();
    EXPECT_EQ(InvoiceJson::encode(InvoiceJson::decode(original)), original);

    const Invoice rich = richInvoice();
    const QByteArray encoded = InvoiceJson::encode(rich);
    const Invoice decoded = InvoiceJson::decode(encoded);
    EXPECT_EQ(decoded, rich);
    EXPECT_EQ(InvoiceJson::encode(decoded), encoded);
    // Other JSON readers agree on what we write.
    EXPECT_FALSE(QJsonDocument::fromJson(encoded).isNull());
}

TEST(InvoiceJson, WritesEveryKeyInOrderWithNullsAndUpperCaseIds)
{
    Invoice invoice = Invoice::makeNew();
    invoice.id = QUuid::fromString(u"3f2a9c10-7b4d-4e21-9a0b-5c6d7e8f9012");
    invoice.date = Timestamp(763637400);
    const QString text = QString::fromUtf8(InvoiceJson::encode(invoice));
    EXPECT_TRUE(text.contains(u"\"id\": \"3F2A9C10-7B4D-4E21-9A0B-5C6D7E8F9012\""));
    EXPECT_TRUE(text.contains(u"\"date\": 763637400,"));
    EXPECT_TRUE(text.contains(u"\"discountPercentage\": null"));
    EXPECT_TRUE(text.contains(u"\"discountAmount\": null"));
    EXPECT_TRUE(text.contains(u"\"language\": null"));
    EXPECT_TRUE(text.contains(u"\"items\": []"));

    const QStringList order{u"\"version\""_qs,
                            u"\"type\""_qs,
                            u"\"id\""_qs,
                            u"\"cancelledInvoiceId\""_qs,
                            u"\"quoteId\""_qs,
                            u"\"number\""_qs,
                            u"\"numberFormat\""_qs,
                            u"\"numberVariable\""_qs,
                            u"\"cancellationPrefix\""_qs,
                            u"\"quotePrefix\""_qs,
                            u"\"date\""_qs,
                            u"\"serviceDateStart\""_qs,
                            u"\"serviceDateEnd\""_qs,
                            u"\"recipient\""_qs,
                            u"\"sender\""_qs,
                            u"\"items\""_qs,
                            u"\"grossPrices\""_qs,
                            u"\"discountPercentage\""_qs,
                            u"\"discountAmount\""_qs,
                            u"\"vatExemptionReason\""_qs,
                            u"\"marginalNote\""_qs,
                            u"\"daysToPay\""_qs,
                            u"\"currency\""_qs,
                            u"\"language\""_qs,
                            u"\"status\""_qs,
                            u"\"statusUpdateDate\""_qs,
                            u"\"note\""_qs,
                            u"\"reference\""_qs};
    qsizetype last = -1;
    for (const QString& key : order) {
        // Top-level keys are indented by two spaces exactly.
        const qsizetype at = text.indexOf(u"\n  "_qs + key);
        EXPECT_GT(at, last) << key.toStdString();
        last = at;
    }
}

TEST(InvoiceJson, Iso8601VariantForEmbeddedRecords)
{
    Invoice invoice = richInvoice();
    invoice.date = Timestamp::fromDateTime(QDateTime(QDate(2025, 3, 14), QTime(9, 30), QTimeZone::utc()));
    const QByteArray encoded = InvoiceJson::encode(invoice, DateEncoding::iso8601);
    EXPECT_TRUE(encoded.contains("\"date\": \"2025-03-14T09:30:00Z\""));
    const Invoice decoded = InvoiceJson::decode(encoded, DateEncoding::iso8601);
    EXPECT_EQ(decoded.date, invoice.date);
    EXPECT_EQ(decoded.items, invoice.items);
    // The two encodings do not mix.
    EXPECT_THROW(InvoiceJson::decode(encoded), JsonDecodeError);
}

TEST(InvoiceJson, OldFilesOpenWithNewRecordDefaults)
{
    ScopedClock clock(TestSupport::berlin(QStringLiteral("2025-06-01T12:00:00")));
    const Invoice invoice =
        InvoiceJson::decode(TestSupport::readData(QStringLiteral("invoices/oldest.json")));
    EXPECT_EQ(invoice.id, QUuid::fromString(u"5D41402A-BC4B-4A76-B971-9D911017C592"));
    EXPECT_EQ(invoice.version, Invoice::currentVersion);
    EXPECT_EQ(invoice.type, InvoiceType::invoice);
    EXPECT_EQ(invoice.number, 3);
    EXPECT_EQ(invoice.name, u"Old Customer");
    EXPECT_EQ(invoice.status, Status::paid);
    EXPECT_EQ(invoice.date, Timestamp(700000000));
    // Missing dates are "now"; missing optionals absent.
    EXPECT_EQ(invoice.statusUpdateDate, Clock::nowTimestamp());
    EXPECT_FALSE(invoice.serviceDateEnd);
    EXPECT_FALSE(invoice.language);
    EXPECT_FALSE(invoice.discountPercentage);
    EXPECT_FALSE(invoice.numberFormat);
    EXPECT_EQ(invoice.daysToPay, 14);
    ASSERT_EQ(invoice.items.size(), 2);
    // The description is read from "description" only.
    EXPECT_EQ(invoice.items[0].item, u"");
    EXPECT_EQ(invoice.items[0].unit, Unit::hour);
    EXPECT_EQ(invoice.items[0].vatPercentage, 0);
    EXPECT_EQ(invoice.items[1].item, u"Travel");
    EXPECT_FALSE(invoice.items[0].id.isNull());
    EXPECT_NE(invoice.items[0].id, invoice.items[1].id);
}

TEST(InvoiceJson, BrokenFilesFailWholeAndSayWhichKeyAndWhy)
{
    struct Case
    {
        const char* file;
        const char* keyPath;
        const char* reasonPart;
    };
    const Case cases[] = {
        {"invalid-json.json", "", "invalid JSON at offset"},
        {"not-an-object.json", "", "not a JSON object"},
        {"missing-currency.json", "currency", "missing"},
        {"null-currency.json", "currency", "missing"},
        {"missing-country.json", "sender.address.country", "missing"},
        {"lowercase-status.json", "status", "unknown value \"draft\""},
        {"unknown-unit.json", "items[1].unit", "unknown value \"Pieces\""},
        {"wrong-type.json", "daysToPay", "expected a number, found a string"},
        {"bad-uuid.json", "id", "not a UUID"},
        {"fractional-number.json", "number", "whole number"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        try {
            InvoiceJson::decode(
                TestSupport::readData(QStringLiteral("broken/") + QString::fromLatin1(c.file)));
            ADD_FAILURE() << "decoded without error";
        } catch (const JsonDecodeError& error) {
            EXPECT_EQ(error.keyPath(), QString::fromLatin1(c.keyPath));
            EXPECT_TRUE(error.reason().contains(QString::fromLatin1(c.reasonPart)))
                << error.message().toStdString();
        }
    }
}

TEST(InvoiceJson, NullReadsAsAbsent)
{
    const QByteArray json = R"({"currency":"EUR","discountPercentage":null,"discountAmount":2.5,
        "language":null,"serviceDateEnd":null,"reference":null,"note":null})";
    const Invoice invoice = InvoiceJson::decode(json);
    EXPECT_FALSE(invoice.discountPercentage);
    EXPECT_EQ(invoice.discountAmount, 2.5);
    EXPECT_FALSE(invoice.language);
    EXPECT_FALSE(invoice.reference);
    EXPECT_EQ(invoice.note, u"");
}

TEST(InvoiceJson, NonFiniteAmountsCannotBeWritten)
{
    Invoice invoice = Invoice::makeNew();
    invoice.items.append({QUuid::createUuid(), QStringLiteral("x"), 1, Unit::piece,
                          std::numeric_limits<double>::quiet_NaN(), 19});
    EXPECT_THROW(InvoiceJson::encode(invoice), JsonEncodeError);
}

// The e-invoice profile is a later key: absent (older files, automatic) it is not written, so
// that those files keep their bytes; an unknown choice reads as automatic rather than losing
// the invoice.
TEST(InvoiceJson, EInvoiceProfileIsWrittenOnlyWhenChosen)
{
    Invoice invoice = richInvoice();
    EXPECT_FALSE(InvoiceJson::encode(invoice).contains("eInvoiceProfile"));
    invoice.eInvoiceProfile = EInvoiceProfile::en16931;
    const QByteArray encoded = InvoiceJson::encode(invoice);
    EXPECT_TRUE(encoded.contains("\"eInvoiceProfile\": \"en16931\""));
    EXPECT_EQ(InvoiceJson::decode(encoded), invoice);
    EXPECT_EQ(InvoiceJson::decode(R"({"currency":"EUR","eInvoiceProfile":"xrechnung"})").eInvoiceProfile,
              EInvoiceProfile::xrechnung);
    EXPECT_EQ(InvoiceJson::decode(R"({"currency":"EUR"})").eInvoiceProfile, EInvoiceProfile::automatic);
    EXPECT_EQ(InvoiceJson::decode(R"({"currency":"EUR","eInvoiceProfile":"peppol"})").eInvoiceProfile,
              EInvoiceProfile::automatic);
}
