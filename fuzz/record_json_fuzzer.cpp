// The record files of a data folder (invoice, profile, styling, reminder), which sync engines,
// other machines and Ledra Data files put there, and the manifests of plugin folders. Each input
// is decoded as every kind; a record that decodes must survive being written and read again
// unchanged.
#include "FuzzSupport.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "plugins/PluginManifest.h"
#include "reminders/ReminderJson.h"
#include "render/Styling.h"
#include "util/JsonReader.h"

#include <stdexcept>

namespace {

// A record, once written, reads back to the same file.
template <typename Decode, typename Encode>
void roundTrip(const QByteArray& bytes, Decode decode, Encode encode, const char* what)
{
    QByteArray written;
    try {
        written = encode(decode(bytes));
    } catch (const JsonDecodeError&) {
        return;
    } catch (const std::runtime_error&) {
        // Encoding refused (a value JSON cannot hold); nothing is written then.
        return;
    }
    QByteArray again;
    try {
        again = encode(decode(written));
    } catch (const std::exception&) {
        FuzzSupport::fail(what);
    }
    FuzzSupport::check(again == written, what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 1024 * 1024))
        return 0;
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    const Country de{QStringLiteral("DE")};
    roundTrip(
        bytes, [](const QByteArray& b) { return InvoiceJson::decode(b); },
        [](const Invoice& i) { return InvoiceJson::encode(i); }, "an invoice file reads back as written");
    // The invoice record inside PDFs carries ISO 8601 dates.
    roundTrip(
        bytes, [](const QByteArray& b) { return InvoiceJson::decode(b, DateEncoding::iso8601); },
        [](const Invoice& i) { return InvoiceJson::encode(i, DateEncoding::iso8601); },
        "an invoice record with ISO dates reads back as written");
    roundTrip(
        bytes, [&](const QByteArray& b) { return ProfileJson::decode(b, de); },
        [](const Profile& p) { return ProfileJson::encode(p); }, "a profile file reads back as written");
    roundTrip(
        bytes, [&](const QByteArray& b) { return StylingJson::decode(b, de); },
        [](const Styling& s) { return StylingJson::encode(s); }, "a styling file reads back as written");
    roundTrip(
        bytes, [](const QByteArray& b) { return ReminderJson::decode(b); },
        [](const Reminder& r) { return ReminderJson::encode(r); }, "a reminder file reads back as written");
    try {
        (void)PluginManifest::decode(bytes);
    } catch (const std::runtime_error&) {
    }
    return 0;
}
