#include "Commands.h"

#include "model/InvoiceJson.h"
#include "numbering/NumberFormat.h"
#include "tasks/ExtractTasks.h"

#include <QJsonDocument>

using namespace Qt::Literals::StringLiterals;

namespace {

// Drafts an invoice from pasted text: the local language model when one runs, else (or with
// --offline) the rule-based extractor.
class ExtractCommand : public Command
{
public:
    QString name() const override { return u"extract"_s; }
    QString summary() const override
    {
        return u"Read recipient, items, dates and reference from a text (e-mail, note, address) and "
               u"optionally create the draft invoice."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output."_s});
        parser.addOption({u"create"_s, u"Create a draft invoice of the active profile from the result."_s});
        parser.addOption({u"offline"_s, u"Use the offline extractor even when a language model runs."_s});
        parser.addOption({u"status"_s, u"Say whether the language model server can be used, and exit."_s});
        parser.addOption({u"server"_s,
                          u"Address of the language model server (default: the setting, else "
                          u"http://127.0.0.1:8080)."_s,
                          u"URL"_s});
        parser.addOption({u"model"_s, u"Name of the model to ask (default: the server's)."_s, u"NAME"_s});
        parser.addOption(
            {u"allow-remote"_s, u"Send the text to a server outside this computer and the local network."_s});
        parser.addPositionalArgument(u"file"_s, u"Text file to read; - or nothing for standard input."_s,
                                     u"[FILE|-]"_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        TextParserSettings settings = TextParserSettings::load(*Workspace::userSettings());
        if (parser.isSet(u"server"_s)) {
            settings.serverUrl = QUrl::fromUserInput(parser.value(u"server"_s));
            if (!settings.serverUrl.isValid())
                return usageError(u"--server is not an address: %1"_s.arg(parser.value(u"server"_s)));
        }
        if (parser.isSet(u"model"_s))
            settings.model = parser.value(u"model"_s);
        if (parser.isSet(u"allow-remote"_s))
            settings.allowRemoteHost = true;

        if (parser.isSet(u"status"_s))
            return status(settings, parser.isSet(u"json"_s));

        const QStringList files = parser.positionalArguments();
        if (files.size() > 1)
            return usageError(u"give one FILE at most"_s);
        const QString file = files.value(0, u"-"_s);
        const QString shownName = inputName(file);
        QByteArray data;
        try {
            data = readInputArgument(file);
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        const QString text = QString::fromUtf8(data);
        if (text.trimmed().isEmpty())
            return fail(u"%1: there is no text"_s.arg(shownName));

        try {
            const ExtractTasks::Extraction extraction =
                ExtractTasks::extract(text, settings, parser.isSet(u"offline"_s));
            if (!extraction.modelUnavailable.isEmpty())
                err() << extraction.modelUnavailable << Qt::endl
                      << "Using the offline extractor." << Qt::endl;
            if (extraction.result.isEmpty()) {
                if (parser.isSet(u"json"_s))
                    printJson(extraction, nullptr);
                return fail(
                    u"%1: %2 found nothing to put on an invoice"_s.arg(shownName, extraction.extractor));
            }
            std::optional<Invoice> created;
            if (parser.isSet(u"create"_s))
                created = ExtractTasks::createInvoice(workspace(), extraction.result);
            if (parser.isSet(u"json"_s))
                printJson(extraction, created ? &*created : nullptr);
            else
                printText(extraction, created ? &*created : nullptr);
            return ExitCode::ok;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
    }

private:
    static int status(const TextParserSettings& settings, bool json)
    {
        TextParser parser(settings);
        const TextParserAvailability availability = ExtractTasks::availability(parser);
        if (json) {
            QJsonObject object{{u"available"_s, availability.available},
                               {u"server"_s, settings.serverUrl.toString()}};
            if (availability.available)
                object.insert(u"model"_s, parser.modelName());
            else
                object.insert(u"message"_s, availability.message);
            out() << QJsonDocument(object).toJson(QJsonDocument::Indented);
        } else if (availability.available) {
            out() << "Available: " << parser.describe() << Qt::endl;
        } else {
            out() << availability.message << Qt::endl
                  << "The offline extractor is available (ledra extract --offline)." << Qt::endl;
        }
        return availability.available ? ExitCode::ok : ExitCode::failure;
    }

    static QString number(double value) { return QString::number(value, 'f', 2); }

    static void printText(const ExtractTasks::Extraction& extraction, const Invoice* created)
    {
        const ExtractedInvoice& r = extraction.result;
        out() << "Extracted by " << extraction.extractor << "." << Qt::endl;
        const auto line = [](const char* label, const std::optional<QString>& value) {
            if (value)
                out() << "  " << QString::fromLatin1(label).leftJustified(18) << *value << Qt::endl;
        };
        if (r.recipient) {
            out() << "Recipient:" << Qt::endl;
            line("Name", r.recipient->name);
            line("Business name", r.recipient->businessName);
            line("E-mail", r.recipient->email);
            line("Address", r.recipient->addressLineOne);
            line("Address line 2", r.recipient->addressLineTwo);
            line("Postcode", r.recipient->postcode);
            line("City", r.recipient->city);
            line("State", r.recipient->state);
            line("Country", r.recipient->countryCode);
        }
        if (r.items) {
            out() << "Items:" << Qt::endl;
            for (const ExtractedItem& item : *r.items) {
                out() << "  - " << item.description.value_or(u"(no description)"_s);
                out() << " | " << QString::number(item.quantity.value_or(1)) << " "
                      << ExtractionSchema::unitName(item.unit.value_or(ExtractedUnit::piece));
                out() << " | " << (item.unitPrice ? number(*item.unitPrice) : u"no price"_s);
                if (item.vatPercentage)
                    out() << " | VAT " << QString::number(*item.vatPercentage) << " %";
                out() << Qt::endl;
            }
        }
        const auto field = [](const char* label, const std::optional<QString>& value) {
            if (value)
                out() << QString::fromLatin1(label).leftJustified(20) << *value << Qt::endl;
        };
        field("Reference:", r.reference);
        field("Currency:", r.currencyCode);
        field("Service from:", r.serviceDateStart);
        field("Service to:", r.serviceDateEnd);
        field("Note:", r.note);
        if (created)
            out() << "Created invoice " << NumberFormat::displayNumber(*created, workspace().activeProfile())
                  << "  (id " << created->id.toString(QUuid::WithoutBraces).toUpper() << ")" << Qt::endl;
    }

    static void printJson(const ExtractTasks::Extraction& extraction, const Invoice* created)
    {
        QJsonObject object{
            {u"extractor"_s, extraction.kind == ExtractorKind::model ? u"model"_s : u"offline"_s},
            {u"extractorDescription"_s, extraction.extractor},
            {u"extracted"_s, ExtractionSchema::toJson(extraction.result)},
        };
        if (!extraction.modelUnavailable.isEmpty())
            object.insert(u"modelUnavailable"_s, extraction.modelUnavailable);
        if (created)
            object.insert(u"invoice"_s, QJsonDocument::fromJson(InvoiceJson::encode(*created)).object());
        out() << QJsonDocument(object).toJson(QJsonDocument::Indented);
    }
};

} // namespace

std::unique_ptr<Command> makeExtractCommand()
{
    return std::make_unique<ExtractCommand>();
}
