#include "extraction/TextParser.h"
#include "extraction/PartialJson.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "support/ModelTestServer.h"
#include "util/WaitFor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpServer>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// A model answer for "Rechnung an Becker GmbH, 3 Std. Beratung à 1.234,50 €", cut into the
// pieces a model streams (mid-key, mid-string, mid-number).
const QList<QByteArray> beckerPieces = {
    R"({"recipient":{"busi)",       R"(nessName":"Becker Gm)",
    R"(bH","city":"Ham)",           R"(burg","countryCode":"DE"},"items":[{"description":"Beratung","quan)",
    R"(tity":3,"unit":"ho)",        R"(ur","unitPrice":1234.)",
    R"(5}],"currencyCode":"EUR"})",
};

struct Extraction
{
    std::optional<ExtractedInvoice> result;
    std::optional<QString> error;
    QList<PartiallyGeneratedExtractedInvoice> partials;
};

TextParserSettings settingsFor(const QString& origin)
{
    TextParserSettings settings;
    settings.serverUrl = QUrl(origin);
    settings.stallTimeoutMs = 400;
    settings.probeTimeoutMs = 2000;
    return settings;
}

Extraction extract(const TextParserSettings& settings, const QString& text)
{
    TextParser parser(settings);
    Extraction run;
    QObject::connect(&parser, &TextParser::partiallyGenerated,
                     [&](const auto& partial) { run.partials.append(partial); });
    const auto outcome = waitForReport<bool>(
        [&](auto report) {
            QObject::connect(&parser, &TextParser::finished, [&run, report](const ExtractedInvoice& result) {
                run.result = result;
                report(true);
            });
            QObject::connect(&parser, &TextParser::failed, [&run, report](const QString& message) {
                run.error = message;
                report(false);
            });
            parser.extract(text);
        },
        10000);
    EXPECT_TRUE(outcome.has_value()) << "no answer in time";
    return run;
}

TextParserAvailability availabilityOf(TextParser& parser)
{
    const auto availability =
        waitForReport<TextParserAvailability>([&](auto report) { parser.checkAvailability(report); }, 10000);
    EXPECT_TRUE(availability.has_value()) << "no answer in time";
    return availability.value_or(TextParserAvailability{});
}

TextParserAvailability availabilityOf(const TextParserSettings& settings)
{
    TextParser parser(settings);
    return availabilityOf(parser);
}

// Every "description" in the schema, wherever it is nested.
void collectDescriptions(const QJsonValue& value, QStringList& into)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (it.key() == u"description"_s && it.value().isString())
                into.append(it.value().toString());
            else
                collectDescriptions(it.value(), into);
        }
    } else if (value.isArray()) {
        for (const QJsonValue& entry : value.toArray())
            collectDescriptions(entry, into);
    }
}

int closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort();
}

} // namespace

class TextParserServerTest : public ::testing::TestWithParam<ModelTestServer::Kind>
{};

TEST_P(TextParserServerTest, SendsTheInstructionsAndSchemaAndPublishesTheAnswerAsItGrows)
{
    ModelTestServer server(GetParam());
    server.answer(beckerPieces);
    const QString text = u"Rechnung an Becker GmbH, Hamburg: 3 Std. Beratung à 1.234,50 €"_s;
    const Extraction run = extract(settingsFor(server.origin()), text);
    ASSERT_FALSE(run.error) << run.error->toStdString();
    ASSERT_TRUE(run.result);

    // What the server got: the instructions as they stand, the text as the prompt, a schema.
    const QJsonObject request = server.chatRequest();
    const QJsonArray messages = request.value(u"messages"_s).toArray();
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0].toObject().value(u"role"_s).toString(), u"system"_s);
    EXPECT_EQ(messages[0].toObject().value(u"content"_s).toString(), TextParser::instructions);
    EXPECT_TRUE(TextParser::instructions.startsWith(u"You extract invoice details from free-form text"_s));
    EXPECT_TRUE(TextParser::instructions.contains(u"(e.g. \"1.234,50\" means 1234.50)"_s));
    EXPECT_EQ(messages[1].toObject().value(u"content"_s).toString(), text);
    EXPECT_TRUE(request.value(u"stream"_s).toBool());
    const QJsonObject schema = GetParam() == ModelTestServer::Kind::ollama
                                   ? request.value(u"format"_s).toObject()
                                   : request.value(u"response_format"_s)
                                         .toObject()
                                         .value(u"json_schema"_s)
                                         .toObject()
                                         .value(u"schema"_s)
                                         .toObject();
    QStringList descriptions;
    collectDescriptions(schema, descriptions);
    EXPECT_EQ(descriptions.size(), 21); // 7 invoice, 9 recipient and 5 item fields
    for (const char16_t* guide : {u"The person\u2019s full name, if given.",
                                  u"The unit the quantity is measured in. Fall back to 'Piece'.",
                                  u"Street and house number, e.g. 'Hauptstraße 12'.",
                                  u"End of the service/delivery period as an ISO date, format yyyy-MM-dd. "
                                  u"Omit if the period is a single "
                                  u"day or no end date is given."})
        EXPECT_TRUE(descriptions.contains(QString::fromUtf16(guide)))
            << QString::fromUtf16(guide).toStdString();
    const QJsonArray units = schema.value(u"properties"_s)
                                 .toObject()
                                 .value(u"items"_s)
                                 .toObject()
                                 .value(u"items"_s)
                                 .toObject()
                                 .value(u"properties"_s)
                                 .toObject()
                                 .value(u"unit"_s)
                                 .toObject()
                                 .value(u"enum"_s)
                                 .toArray();
    EXPECT_EQ(units, (QJsonArray{u"piece"_s, u"hour"_s, u"day"_s, u"week"_s, u"lumpSum"_s}));

    // The partial values grow: the business name is seen cut short before it is complete,
    // all under one identity, and the last one equals the result.
    ASSERT_GE(run.partials.size(), 4);
    const QString id = run.partials.first().id;
    bool sawCutName = false;
    for (const auto& partial : run.partials) {
        EXPECT_EQ(partial.id, id);
        if (partial.recipient && partial.recipient->value.businessName == u"Becker Gm"_s)
            sawCutName = true;
    }
    EXPECT_TRUE(sawCutName);
    EXPECT_EQ(run.partials.last().snapshot(), *run.result);

    const ExtractedInvoice& result = *run.result;
    ASSERT_TRUE(result.recipient);
    EXPECT_EQ(result.recipient->businessName, u"Becker GmbH"_s);
    EXPECT_EQ(result.recipient->city, u"Hamburg"_s);
    EXPECT_EQ(result.recipient->countryCode, u"DE"_s);
    ASSERT_TRUE(result.items);
    ASSERT_EQ(result.items->size(), 1);
    EXPECT_EQ(result.items->at(0).unit, ExtractedUnit::hour);
    EXPECT_EQ(result.items->at(0).quantity, 3);
    EXPECT_EQ(result.items->at(0).unitPrice, 1234.5);
    EXPECT_EQ(result.currencyCode, u"EUR"_s);
}

TEST_P(TextParserServerTest, AnAnswerInOnePieceIsReadToo)
{
    ModelTestServer server(GetParam());
    server.answerWhole(R"({"recipient":{"name":"Jana Becker","email":"jana@becker.example"}})");
    const Extraction run = extract(settingsFor(server.origin()), u"Jana Becker <jana@becker.example>"_s);
    ASSERT_TRUE(run.result) << run.error.value_or(QString()).toStdString();
    ASSERT_TRUE(run.result->recipient);
    EXPECT_EQ(run.result->recipient->name, u"Jana Becker"_s);
    EXPECT_FALSE(run.result->items);
}

TEST_P(TextParserServerTest, AnswersOutsideTheSchemaAreErrorsWithTheReason)
{
    ModelTestServer server(GetParam());
    server.answer({R"({"items":[{"description":"Logo","unit":"hours","unitPrice":450}]})"});
    Extraction run = extract(settingsFor(server.origin()), u"Logo 450"_s);
    EXPECT_FALSE(run.result);
    ASSERT_TRUE(run.error);
    EXPECT_TRUE(run.error->contains(u"Unexpected rawValue \"hours\""_s)) << run.error->toStdString();
    EXPECT_TRUE(run.error->contains(u"ExtractedUnit"_s));

    server.answer({R"({"items":[{"description":"Logo","quantity":"two"}]})"});
    run = extract(settingsFor(server.origin()), u"Logo"_s);
    EXPECT_FALSE(run.result);
    ASSERT_TRUE(run.error);
    EXPECT_TRUE(run.error->contains(u"quantity"_s)) << run.error->toStdString();

    server.answer({R"(Sure! Here is the invoice: {"note":)"});
    run = extract(settingsFor(server.origin()), u"Logo"_s);
    EXPECT_FALSE(run.result);
    EXPECT_TRUE(run.error);

    server.failChat(400, u"the request exceeds the available context size"_s);
    run = extract(settingsFor(server.origin()), u"Logo"_s);
    ASSERT_TRUE(run.error);
    EXPECT_TRUE(run.error->contains(u"exceeds the available context size"_s)) << run.error->toStdString();
}

TEST_P(TextParserServerTest, AServerThatStallsIsGivenUp)
{
    ModelTestServer server(GetParam());
    server.stallAfter({R"({"recipient":{"name":"Jana)"});
    const Extraction run = extract(settingsFor(server.origin()), u"Jana"_s);
    EXPECT_FALSE(run.result);
    ASSERT_TRUE(run.error);
    EXPECT_TRUE(run.error->contains(u"stopped answering"_s)) << run.error->toStdString();
    // What had arrived was shown meanwhile.
    ASSERT_FALSE(run.partials.isEmpty());
    EXPECT_EQ(run.partials.last().recipient->value.name, u"Jana"_s);
}

INSTANTIATE_TEST_SUITE_P(Servers, TextParserServerTest,
                         ::testing::Values(ModelTestServer::Kind::llamaServer, ModelTestServer::Kind::ollama),
                         [](const auto& param) {
                             return param.param == ModelTestServer::Kind::ollama ? "Ollama" : "LlamaServer";
                         });

TEST(TextParserAvailabilityTest, SaysWhyTheModelCannotBeUsed)
{
    ModelTestServer llama(ModelTestServer::Kind::llamaServer);
    TextParser parser(settingsFor(llama.origin()));
    EXPECT_TRUE(availabilityOf(parser).available);
    // A server just found ready is not asked again before the extraction.
    llama.answer({R"({"note":"Danke"})"});
    const int probes = int(llama.requests().size());
    const auto finished = waitForReport<ExtractedInvoice>(
        [&](auto report) {
            QObject::connect(&parser, &TextParser::finished, report);
            parser.extract(u"Danke"_s);
        },
        10000);
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->note, u"Danke"_s);
    EXPECT_EQ(llama.requests().size(), probes + 1) << "only the chat request";
    EXPECT_EQ(parser.describe(),
              u"llama-server with the model \u201Cqwen2.5-7b-instruct-q4_k_m.gguf\u201D at "_s +
                  llama.origin());

    ModelTestServer ollama(ModelTestServer::Kind::ollama);
    TextParserSettings wrongModel = settingsFor(ollama.origin());
    wrongModel.model = u"mistral"_s;
    TextParserAvailability availability = availabilityOf(wrongModel);
    EXPECT_FALSE(availability.available);
    EXPECT_TRUE(availability.message.contains(u"ollama pull mistral"_s))
        << availability.message.toStdString();
    wrongModel.model = u"llama3.2"_s; // ":latest" is implied
    EXPECT_TRUE(availabilityOf(wrongModel).available);

    llama.setLoading(true);
    availability = availabilityOf(settingsFor(llama.origin()));
    EXPECT_FALSE(availability.available);
    EXPECT_EQ(availability.message,
              u"The language model server is still loading its model. Try again in a little while."_s);
    // Nothing is sent for extraction while the model loads.
    const int chats = llama.chatRequests();
    const Extraction run = extract(settingsFor(llama.origin()), u"Becker GmbH"_s);
    EXPECT_EQ(run.error, availability.message);
    EXPECT_EQ(llama.chatRequests(), chats);

    const QString nobody = u"http://127.0.0.1:%1"_s.arg(closedPort());
    availability = availabilityOf(settingsFor(nobody));
    EXPECT_FALSE(availability.available);
    EXPECT_TRUE(availability.message.startsWith(u"No language model server answers at "_s + nobody))
        << availability.message.toStdString();
    EXPECT_TRUE(availability.message.contains(u"llama-server"_s));
    EXPECT_FALSE(availability.message.contains(u"Apple"_s));

    EXPECT_FALSE(availabilityOf(settingsFor(u"not a url"_s)).available);

    // Something else answers on the port.
    ModelTestServer other(ModelTestServer::Kind::llamaServer);
    other.route("GET /v1/models", {500, "text/html", {"<h1>Internal Server Error</h1>"}, false});
    availability = availabilityOf(settingsFor(other.origin()));
    EXPECT_FALSE(availability.available);
    EXPECT_TRUE(availability.message.startsWith(u"The local language model isn’t available right now."_s))
        << availability.message.toStdString();
    EXPECT_TRUE(availability.message.contains(u"status 500"_s));
}

TEST(TextParserAvailabilityTest, InvoiceTextStaysOnThisComputerOrNetworkUnlessAllowed)
{
    for (const char16_t* local :
         {u"http://127.0.0.1:8080", u"http://localhost:11434", u"http://[::1]:8080",
          u"http://192.168.1.20:8080", u"http://10.0.0.5", u"http://172.20.1.1:1234", u"http://gpu-box:8080",
          u"http://gpu-box.local:8080", u"http://169.254.3.4", u"http://[fd12::1]:8080"})
        EXPECT_TRUE(TextParser::isPermittedHost(QUrl(QString::fromUtf16(local)), false))
            << QString::fromUtf16(local).toStdString();
    for (const char16_t* remote : {u"http://8.8.8.8:8080", u"https://api.example.com", u"http://172.32.0.1",
                                   u"http://models.example.org:11434"})
        EXPECT_FALSE(TextParser::isPermittedHost(QUrl(QString::fromUtf16(remote)), false))
            << QString::fromUtf16(remote).toStdString();
    EXPECT_TRUE(TextParser::isPermittedHost(QUrl(u"https://api.example.com"_s), true));

    // Refused before any connection is made.
    const TextParserAvailability availability = availabilityOf(settingsFor(u"http://8.8.8.8:8080"_s));
    EXPECT_FALSE(availability.available);
    EXPECT_TRUE(availability.message.contains(u"allow other hosts"_s)) << availability.message.toStdString();
}

TEST(TextParserFillTest, TheResultReplacesPresetsAndLeavesTheRest)
{
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.vatPercentage = 19;
    Invoice preset = Invoice::makeNew();
    preset.addressCountry = Country{u"DE"_s};
    preset.currency = Currency{u"EUR"_s};
    preset.note = u"Vielen Dank!"_s;
    preset.grossPrices = true;

    // An address alone: a recipient and no items; the rest stays as preset.
    ExtractedInvoice addressOnly;
    addressOnly.recipient = ExtractedRecipient{};
    addressOnly.recipient->businessName = u"Nordlicht Design UG"_s;
    addressOnly.recipient->addressLineOne = u"Am Markt 3a"_s;
    addressOnly.recipient->postcode = u"24103"_s;
    addressOnly.recipient->city = u"Kiel"_s;
    Invoice invoice = preset;
    TextParser::fill(invoice, addressOnly, profile);
    EXPECT_EQ(invoice.businessName, u"Nordlicht Design UG"_s);
    EXPECT_EQ(invoice.addressLineOne, u"Am Markt 3a"_s);
    EXPECT_EQ(invoice.addressPostcode, u"24103"_s);
    EXPECT_TRUE(invoice.items.isEmpty());
    EXPECT_EQ(invoice.addressCountry.code, u"DE"_s);
    EXPECT_EQ(invoice.note, u"Vielen Dank!"_s);
    EXPECT_TRUE(invoice.grossPrices);

    ExtractedInvoice full = ExtractionSchema::decode(QJsonDocument::fromJson(R"({
        "recipient": {"name": "Ann Smith", "countryCode": "gb"},
        "items": [{"description": "Workshop", "quantity": 2, "unit": "day", "unitPrice": 1234.5},
                  {"description": "Hosting", "unit": "lumpSum", "unitPrice": 120, "vatPercentage": 7}],
        "currencyCode": "GBP", "reference": "PO 4711", "note": "Thanks",
        "serviceDateStart": "2026-03-01", "serviceDateEnd": "2026-03-15"})")
                                                         .object());
    invoice = preset;
    TextParser::fill(invoice, full, profile);
    EXPECT_EQ(invoice.name, u"Ann Smith"_s);
    EXPECT_EQ(invoice.addressCountry.code, u"GB"_s);
    EXPECT_EQ(invoice.currency.code, u"GBP"_s);
    EXPECT_EQ(invoice.reference, u"PO 4711"_s);
    EXPECT_EQ(invoice.note, u"Thanks"_s);
    EXPECT_EQ(invoice.serviceDateStart.localDate(), QDate(2026, 3, 1));
    ASSERT_TRUE(invoice.serviceDateEnd);
    EXPECT_EQ(invoice.serviceDateEnd->localDate(), QDate(2026, 3, 15));
    ASSERT_EQ(invoice.items.size(), 2);
    EXPECT_EQ(invoice.items[0].item, u"Workshop"_s);
    EXPECT_EQ(invoice.items[0].unit, Unit::day);
    EXPECT_EQ(invoice.items[0].unitPrice, 1234.5);
    EXPECT_EQ(invoice.items[0].vatPercentage, 19); // the profile's rate
    EXPECT_EQ(invoice.items[1].quantity, 1);       // not stated: one
    EXPECT_EQ(invoice.items[1].unit, Unit::lumpSum);
    EXPECT_EQ(invoice.items[1].vatPercentage, 7);
    EXPECT_FALSE(invoice.items[0].id.isNull());
    EXPECT_NE(invoice.items[0].id, invoice.items[1].id);
    EXPECT_FALSE(invoice.grossPrices); // the text's prices are net

    // Dates that don't parse, an end before the start and odd codes are left alone.
    ExtractedInvoice odd;
    odd.serviceDateStart = u"1. März"_s;
    odd.currencyCode = u"Euro"_s;
    odd.recipient = ExtractedRecipient{};
    odd.recipient->countryCode = u"Germany"_s;
    invoice = preset;
    TextParser::fill(invoice, odd, profile);
    EXPECT_EQ(invoice.serviceDateStart, preset.serviceDateStart);
    EXPECT_EQ(invoice.currency.code, u"EUR"_s);
    EXPECT_EQ(invoice.addressCountry.code, u"DE"_s);
    odd.serviceDateStart = u"2026-03-15"_s;
    odd.serviceDateEnd = u"2026-03-01"_s;
    TextParser::fill(invoice, odd, profile);
    EXPECT_EQ(invoice.serviceDateStart.localDate(), QDate(2026, 3, 15));
    EXPECT_FALSE(invoice.serviceDateEnd);
}

TEST(PartialJsonTest, ClosesWhatHasArrivedSoFar)
{
    const auto completed = [](const char* prefix) {
        const auto object = PartialJson::complete(prefix);
        return object ? QString::fromUtf8(QJsonDocument(*object).toJson(QJsonDocument::Compact)) : u"none"_s;
    };
    EXPECT_EQ(completed(""), u"none"_s);
    EXPECT_EQ(completed("```json\n"), u"none"_s);
    EXPECT_EQ(completed("{"), u"{}"_s);
    EXPECT_EQ(completed(R"({"no)"), u"{}"_s);
    EXPECT_EQ(completed(R"({"note")"), u"{}"_s);
    EXPECT_EQ(completed(R"({"note": )"), u"{}"_s);
    EXPECT_EQ(completed(R"({"note": "Dan)"), uR"({"note":"Dan"})"_s);
    EXPECT_EQ(completed(R"({"note": "a \"b\" c\)"), uR"({"note":"a \"b\" c"})"_s);
    EXPECT_EQ(completed(R"({"note": "Gr\u00)"), uR"({"note":"Gr"})"_s);
    EXPECT_EQ(completed(R"({"note": "x", )"), uR"({"note":"x"})"_s);
    EXPECT_EQ(completed(R"({"items": [{"quantity": 12)"), uR"({"items":[{"quantity":12}]})"_s);
    EXPECT_EQ(completed(R"({"items": [{"quantity": 12.)"), uR"({"items":[{"quantity":12}]})"_s);
    EXPECT_EQ(completed(R"({"a": tru)"), u"{}"_s);
    EXPECT_EQ(completed(R"({"a": true, "b": [1, 2)"), uR"({"a":true,"b":[1,2]})"_s);
    EXPECT_EQ(completed(R"({"note": "x"} trailing words)"), uR"({"note":"x"})"_s);
}

TEST(TextParserCancelTest, ACancelledExtractionReportsNothing)
{
    ModelTestServer server(ModelTestServer::Kind::llamaServer);
    server.stallAfter({R"({"note":"a)"});
    TextParser parser(settingsFor(server.origin()));
    int reports = 0;
    QObject::connect(&parser, &TextParser::finished, [&] { ++reports; });
    QObject::connect(&parser, &TextParser::failed, [&] { ++reports; });
    // Cancelled while the server is asked whether it runs, and again while it answers.
    parser.extract(u"first"_s);
    parser.cancel();
    parser.extract(u"second"_s);
    waitForReport<bool>(
        [&](auto report) {
            QObject::connect(&parser, &TextParser::partiallyGenerated, [report] { report(true); });
        },
        5000);
    EXPECT_TRUE(parser.isRunning());
    parser.cancel();
    EXPECT_FALSE(parser.isRunning());
    waitForReport<bool>([](auto) {}, 700); // longer than the stall time
    EXPECT_EQ(reports, 0);
    EXPECT_EQ(server.chatRequests(), 1);
    EXPECT_EQ(server.chatRequest()[u"messages"_s].toArray()[1][u"content"_s].toString(), u"second"_s);
}
