#include "model/InvoiceJson.h"

#include "util/Clock.h"

using namespace Qt::Literals::StringLiterals;

namespace InvoiceJson {

namespace {

struct AddressRef
{
    const QString& lineOne;
    const QString& lineTwo;
    const QString& postcode;
    const QString& city;
    const QString& state;
    const Country& country;
};

void writeAddress(JsonWriter& w, const AddressRef& address)
{
    w.key("address"_L1);
    w.beginObject();
    w.field("lineOne"_L1, address.lineOne);
    w.field("lineTwo"_L1, address.lineTwo);
    w.field("postcode"_L1, address.postcode);
    w.field("city"_L1, address.city);
    w.field("state"_L1, address.state);
    w.field("country"_L1, address.country.code);
    w.endObject();
}

void readAddress(const JsonFieldReader& parent, QString& lineOne, QString& lineTwo, QString& postcode,
                 QString& city, QString& state, Country& country)
{
    const auto address = parent.object("address"_L1);
    if (!address)
        return;
    address->require("country"_L1);
    address->read("lineOne"_L1, lineOne);
    address->read("lineTwo"_L1, lineTwo);
    address->read("postcode"_L1, postcode);
    address->read("city"_L1, city);
    address->read("state"_L1, state);
    address->read("country"_L1, country);
}

} // namespace

void writeItem(JsonWriter& w, const InvoiceItem& item)
{
    w.beginObject();
    w.field("id"_L1, item.id);
    w.field("quantity"_L1, item.quantity);
    w.field("unit"_L1, rawValue(item.unit));
    w.field("unitPrice"_L1, item.unitPrice);
    w.field("vatPercentage"_L1, item.vatPercentage);
    w.field("description"_L1, item.item);
    w.endObject();
}

void write(JsonWriter& w, const Invoice& inv)
{
    w.beginObject();
    w.field("version"_L1, inv.version);
    w.field("type"_L1, rawValue(inv.type));
    w.field("id"_L1, inv.id);
    w.field("cancelledInvoiceId"_L1, inv.cancelledInvoiceId);
    w.field("quoteId"_L1, inv.quoteId);
    w.field("number"_L1, inv.number);
    w.field("numberFormat"_L1, inv.numberFormat);
    w.field("numberVariable"_L1, inv.numberVariable);
    w.field("cancellationPrefix"_L1, inv.cancellationPrefix);
    w.field("quotePrefix"_L1, inv.quotePrefix);
    w.field("date"_L1, inv.date);
    w.field("serviceDateStart"_L1, inv.serviceDateStart);
    w.field("serviceDateEnd"_L1, inv.serviceDateEnd);

    w.key("recipient"_L1);
    w.beginObject();
    w.field("name"_L1, inv.name);
    w.field("businessName"_L1, inv.businessName);
    writeAddress(w, {inv.addressLineOne, inv.addressLineTwo, inv.addressPostcode, inv.addressCity,
                     inv.addressState, inv.addressCountry});
    w.field("email"_L1, inv.email);
    // Written only when used, so that other invoices keep exactly the common keys.
    for (const auto& [key, value] : {std::pair{"vatNumber"_L1, &inv.vatNumber},
                                     std::pair{"electronicAddress"_L1, &inv.electronicAddress},
                                     std::pair{"electronicAddressScheme"_L1, &inv.electronicAddressScheme},
                                     std::pair{"leitwegId"_L1, &inv.leitwegId}})
        if (!value->isEmpty())
            w.field(key, *value);
    w.endObject();

    w.key("sender"_L1);
    w.beginObject();
    w.field("name"_L1, inv.senderName);
    w.field("businessName"_L1, inv.senderBusinessName);
    writeAddress(w, {inv.senderAddressLineOne, inv.senderAddressLineTwo, inv.senderAddressPostcode,
                     inv.senderAddressCity, inv.senderAddressState, inv.senderAddressCountry});
    w.field("email"_L1, inv.senderEmail);
    w.field("phone"_L1, inv.senderPhone);
    w.field("web"_L1, inv.senderWeb);
    w.field("additional"_L1, inv.senderAdditional);
    w.field("iban"_L1, inv.senderIban);
    w.field("bic"_L1, inv.senderBic);
    w.field("taxNumber"_L1, inv.senderTaxNumber);
    w.field("vatNumber"_L1, inv.senderVatNumber);
    w.field("additionalNumbers"_L1, inv.senderAdditionalNumbers);
    w.endObject();

    w.key("items"_L1);
    w.beginArray();
    for (const InvoiceItem& item : inv.items)
        writeItem(w, item);
    w.endArray();

    w.field("grossPrices"_L1, inv.grossPrices);
    w.field("discountPercentage"_L1, inv.discountPercentage);
    w.field("discountAmount"_L1, inv.discountAmount);
    w.field("vatExemptionReason"_L1, rawValue(inv.vatExemptionReason));
    if (inv.vatExemptionNote)
        w.field("vatExemptionNote"_L1, *inv.vatExemptionNote);
    if (inv.vatExemptionCode)
        w.field("vatExemptionCode"_L1, *inv.vatExemptionCode);
    if (inv.skontoPercentage)
        w.field("skontoPercentage"_L1, *inv.skontoPercentage);
    if (inv.skontoDays)
        w.field("skontoDays"_L1, *inv.skontoDays);
    w.field("marginalNote"_L1, inv.marginalNote);
    w.field("daysToPay"_L1, inv.daysToPay);
    w.field("currency"_L1, inv.currency.code);
    w.key("language"_L1);
    if (inv.language)
        w.value(rawValue(*inv.language));
    else
        w.null();
    w.field("status"_L1, rawValue(inv.status));
    w.field("statusUpdateDate"_L1, inv.statusUpdateDate);
    w.field("note"_L1, inv.note);
    w.field("reference"_L1, inv.reference);
    // Written only when chosen, like the other later keys.
    if (inv.eInvoiceProfile != EInvoiceProfile::automatic)
        w.field("eInvoiceProfile"_L1, rawValue(inv.eInvoiceProfile));
    w.endObject();
}

QByteArray encode(const Invoice& invoice, DateEncoding dates)
{
    JsonWriter writer(dates);
    write(writer, invoice);
    return writer.take();
}

InvoiceItem readItem(const JsonFieldReader& r)
{
    InvoiceItem item;
    r.read("id"_L1, item.id);
    if (item.id.isNull())
        item.id = QUuid::createUuid();
    r.read("quantity"_L1, item.quantity);
    r.read("unit"_L1, item.unit);
    r.read("unitPrice"_L1, item.unitPrice);
    r.read("vatPercentage"_L1, item.vatPercentage);
    r.read("description"_L1, item.item);
    return item;
}

Invoice read(const JsonFieldReader& r)
{
    // Like a new invoice, but without drawing an id that the file will replace.
    Invoice inv;
    const Timestamp now = Clock::nowTimestamp();
    inv.date = inv.serviceDateStart = inv.statusUpdateDate = now;
    r.require("currency"_L1);
    r.read("version"_L1, inv.version);
    r.read("type"_L1, inv.type);
    r.read("id"_L1, inv.id);
    r.read("cancelledInvoiceId"_L1, inv.cancelledInvoiceId);
    r.read("quoteId"_L1, inv.quoteId);
    r.read("number"_L1, inv.number);
    r.read("numberFormat"_L1, inv.numberFormat);
    r.read("numberVariable"_L1, inv.numberVariable);
    r.read("cancellationPrefix"_L1, inv.cancellationPrefix);
    r.read("quotePrefix"_L1, inv.quotePrefix);
    r.read("date"_L1, inv.date);
    r.read("serviceDateStart"_L1, inv.serviceDateStart);
    r.read("serviceDateEnd"_L1, inv.serviceDateEnd);

    if (const auto recipient = r.object("recipient"_L1)) {
        recipient->read("name"_L1, inv.name);
        recipient->read("businessName"_L1, inv.businessName);
        readAddress(*recipient, inv.addressLineOne, inv.addressLineTwo, inv.addressPostcode, inv.addressCity,
                    inv.addressState, inv.addressCountry);
        recipient->read("email"_L1, inv.email);
        recipient->read("vatNumber"_L1, inv.vatNumber);
        recipient->read("electronicAddress"_L1, inv.electronicAddress);
        recipient->read("electronicAddressScheme"_L1, inv.electronicAddressScheme);
        recipient->read("leitwegId"_L1, inv.leitwegId);
    }
    if (const auto sender = r.object("sender"_L1)) {
        sender->read("name"_L1, inv.senderName);
        sender->read("businessName"_L1, inv.senderBusinessName);
        readAddress(*sender, inv.senderAddressLineOne, inv.senderAddressLineTwo, inv.senderAddressPostcode,
                    inv.senderAddressCity, inv.senderAddressState, inv.senderAddressCountry);
        sender->read("email"_L1, inv.senderEmail);
        sender->read("phone"_L1, inv.senderPhone);
        sender->read("web"_L1, inv.senderWeb);
        sender->read("additional"_L1, inv.senderAdditional);
        sender->read("iban"_L1, inv.senderIban);
        sender->read("bic"_L1, inv.senderBic);
        sender->read("taxNumber"_L1, inv.senderTaxNumber);
        sender->read("vatNumber"_L1, inv.senderVatNumber);
        sender->read("additionalNumbers"_L1, inv.senderAdditionalNumbers);
    }

    inv.items.reserve(r.arraySize("items"_L1));
    r.forEachObject("items"_L1, [&](const JsonFieldReader& item) { inv.items.append(readItem(item)); });

    r.read("grossPrices"_L1, inv.grossPrices);
    r.read("discountPercentage"_L1, inv.discountPercentage);
    r.read("discountAmount"_L1, inv.discountAmount);
    r.read("vatExemptionReason"_L1, inv.vatExemptionReason);
    r.read("vatExemptionNote"_L1, inv.vatExemptionNote);
    r.read("vatExemptionCode"_L1, inv.vatExemptionCode);
    r.read("skontoPercentage"_L1, inv.skontoPercentage);
    r.read("skontoDays"_L1, inv.skontoDays);
    r.read("marginalNote"_L1, inv.marginalNote);
    r.read("daysToPay"_L1, inv.daysToPay);
    r.read("currency"_L1, inv.currency);
    r.read("language"_L1, inv.language);
    r.read("status"_L1, inv.status);
    r.read("statusUpdateDate"_L1, inv.statusUpdateDate);
    r.read("note"_L1, inv.note);
    r.read("reference"_L1, inv.reference);
    QString eInvoiceProfile;
    r.read("eInvoiceProfile"_L1, eInvoiceProfile);
    inv.eInvoiceProfile = enumFromRaw<EInvoiceProfile>(eInvoiceProfile).value_or(EInvoiceProfile::automatic);
    if (inv.id.isNull())
        inv.id = QUuid::createUuid();
    return inv;
}

Invoice decode(const QByteArray& bytes, DateEncoding dates)
{
    const JsonDocument document(bytes);
    return read(JsonFieldReader(document, dates));
}

} // namespace InvoiceJson
