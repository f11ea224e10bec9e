#include "model/ProfileJson.h"

#include "model/Region.h"
#include "numbering/NumberFormat.h"

using namespace Qt::Literals::StringLiterals;

namespace ProfileJson {

void write(JsonWriter& w, const Profile& p)
{
    w.beginObject();
    w.field("id"_L1, p.id);
    w.field("icon"_L1, p.icon);
    w.field("name"_L1, p.name);
    w.field("businessName"_L1, p.businessName);
    w.key("address"_L1);
    w.beginObject();
    w.field("lineOne"_L1, p.addressLineOne);
    w.field("lineTwo"_L1, p.addressLineTwo);
    w.field("postcode"_L1, p.addressPostcode);
    w.field("city"_L1, p.addressCity);
    w.field("state"_L1, p.addressState);
    w.field("country"_L1, p.addressCountry.code);
    w.endObject();
    w.field("email"_L1, p.email);
    w.field("phone"_L1, p.phone);
    w.field("website"_L1, p.website);
    w.field("additional"_L1, p.additional);
    w.field("iban"_L1, p.iban);
    w.field("bic"_L1, p.bic);
    w.field("taxNumber"_L1, p.taxNumber);
    w.field("vatNumber"_L1, p.vatNumber);
    w.field("additionalNumbers"_L1, p.additionalNumbers);
    w.field("language"_L1, rawValue(p.language));
    w.field("currency"_L1, p.currency.code);
    w.field("taxResidency"_L1, p.taxResidency.code);
    w.field("vatPercentage"_L1, p.vatPercentage);
    w.field("hideVat"_L1, p.hideVat);
    w.field("vatExemptionReason"_L1, rawValue(p.vatExemptionReason));
    w.field("marginalNote"_L1, p.marginalNote);
    w.field("numberFormat"_L1, p.numberFormat);
    w.field("cancellationPrefix"_L1, p.cancellationPrefix);
    w.field("quotePrefix"_L1, p.quotePrefix);
    w.field("startNumber"_L1, p.startNumber);
    w.field("startNumberYear"_L1, p.startNumberYear);
    w.field("resetNumberFrequency"_L1, rawValue(p.resetNumberFrequency));
    w.field("daysToPay"_L1, p.daysToPay);
    w.field("hourlyRate"_L1, p.hourlyRate);
    w.field("dailyRate"_L1, p.dailyRate);
    w.field("weeklyRate"_L1, p.weeklyRate);
    w.field("invoiceDarkMode"_L1, p.invoiceDarkMode);
    w.field("reminderTemplate"_L1, p.reminderTemplate);
    w.field("friendlyReminderEnabled"_L1, p.friendlyReminderEnabled);
    w.field("latePaymentInterestRate"_L1, p.latePaymentInterestRate);
    w.field("latePaymentFee"_L1, p.latePaymentFee);
    w.field("reminderDaysToPay"_L1, p.reminderDaysToPay);
    w.field("eInvoiceFormat"_L1, rawValue(p.eInvoiceFormat));
    w.field("eInvoiceProfile"_L1, rawValue(p.eInvoiceProfile));
    w.endObject();
}

QByteArray encode(const Profile& profile)
{
    JsonWriter writer;
    write(writer, profile);
    return writer.take();
}

Profile read(const JsonFieldReader& r, const Country& region)
{
    Profile p = Profile::makeNew(region);
    r.read("id"_L1, p.id);
    r.read("icon"_L1, p.icon);
    r.read("name"_L1, p.name);
    r.read("businessName"_L1, p.businessName);
    if (const auto address = r.object("address"_L1)) {
        address->require("country"_L1);
        address->read("lineOne"_L1, p.addressLineOne);
        address->read("lineTwo"_L1, p.addressLineTwo);
        address->read("postcode"_L1, p.addressPostcode);
        address->read("city"_L1, p.addressCity);
        address->read("state"_L1, p.addressState);
        address->read("country"_L1, p.addressCountry);
    }
    r.read("email"_L1, p.email);
    r.read("phone"_L1, p.phone);
    r.read("website"_L1, p.website);
    r.read("additional"_L1, p.additional);
    r.read("iban"_L1, p.iban);
    r.read("bic"_L1, p.bic);
    r.read("taxNumber"_L1, p.taxNumber);
    r.read("vatNumber"_L1, p.vatNumber);
    r.read("additionalNumbers"_L1, p.additionalNumbers);
    r.read("language"_L1, p.language);
    r.read("currency"_L1, p.currency);
    r.read("taxResidency"_L1, p.taxResidency);
    // Files from before the rate became a setting were written for Germany.
    p.vatPercentage = 19;
    r.read("vatPercentage"_L1, p.vatPercentage);
    r.read("hideVat"_L1, p.hideVat);
    r.read("vatExemptionReason"_L1, p.vatExemptionReason);
    r.read("marginalNote"_L1, p.marginalNote);
    if (r.has("numberFormat"_L1)) {
        r.read("numberFormat"_L1, p.numberFormat);
    } else if (r.has("numberPrefix"_L1) || r.has("numberLength"_L1) || r.has("separator"_L1) ||
               r.has("numberPosition"_L1)) {
        QString prefix, separator = QStringLiteral("-"), position;
        int length = 3;
        r.read("numberPrefix"_L1, prefix);
        r.read("separator"_L1, separator);
        r.read("numberLength"_L1, length);
        // The position was stored as text in some generations and as a number in others.
        if (const auto stored = r.raw("numberPosition"_L1)) {
            std::string_view text;
            int64_t number = 0;
            if (stored->get_string().get(text) == simdjson::SUCCESS)
                position = QString::fromUtf8(text.data(), qsizetype(text.size()));
            else if (stored->get_int64().get(number) == simdjson::SUCCESS)
                position = QString::number(number);
        }
        p.numberFormat = NumberFormat::fromLegacySettings(prefix, separator, position, length);
    }
    r.read("cancellationPrefix"_L1, p.cancellationPrefix);
    r.read("quotePrefix"_L1, p.quotePrefix);
    r.read("startNumber"_L1, p.startNumber);
    r.read("startNumberYear"_L1, p.startNumberYear);
    r.read("resetNumberFrequency"_L1, p.resetNumberFrequency);
    r.read("daysToPay"_L1, p.daysToPay);
    r.read("hourlyRate"_L1, p.hourlyRate);
    r.read("dailyRate"_L1, p.dailyRate);
    r.read("weeklyRate"_L1, p.weeklyRate);
    r.read("invoiceDarkMode"_L1, p.invoiceDarkMode);
    r.read("reminderTemplate"_L1, p.reminderTemplate);
    r.read("friendlyReminderEnabled"_L1, p.friendlyReminderEnabled);
    r.read("latePaymentInterestRate"_L1, p.latePaymentInterestRate);
    r.read("latePaymentFee"_L1, p.latePaymentFee);
    r.read("reminderDaysToPay"_L1, p.reminderDaysToPay);
    // Any value but "xrechnung" and "zugferd" means the plain PDF.
    QString format;
    r.read("eInvoiceFormat"_L1, format);
    p.eInvoiceFormat = enumFromRaw<EInvoiceFormat>(format).value_or(EInvoiceFormat::pdf);
    // Older files have none, and an unknown choice is left to the customer as well.
    QString eInvoiceProfile;
    r.read("eInvoiceProfile"_L1, eInvoiceProfile);
    p.eInvoiceProfile = enumFromRaw<EInvoiceProfile>(eInvoiceProfile).value_or(EInvoiceProfile::automatic);
    return p;
}

Profile decode(const QByteArray& bytes, const Country& region)
{
    const JsonDocument document(bytes);
    return read(JsonFieldReader(document, DateEncoding::referenceSeconds), region);
}

Profile decode(const QByteArray& bytes)
{
    return decode(bytes, Region::system());
}

} // namespace ProfileJson
