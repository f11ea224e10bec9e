#include "tasks/ExtractTasks.h"

#include "extraction/OfflineExtractor.h"
#include "l10n/Strings.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/WaitFor.h"

#include <variant>

using namespace Qt::Literals::StringLiterals;

namespace ExtractTasks {

QString extractorName(ExtractorKind kind, const QString& modelDescription)
{
    if (kind == ExtractorKind::offline)
        return Strings::ui(u"the offline extractor");
    return modelDescription;
}

TextParserAvailability availability(TextParser& parser)
{
    return waitForReport<TextParserAvailability>([&](auto report) { parser.checkAvailability(report); })
        .value_or(TextParserAvailability{});
}

Extraction extract(const QString& text, const TextParserSettings& settings, bool offline,
                   const std::function<void(const PartiallyGeneratedExtractedInvoice&)>& progress)
{
    Extraction extraction;
    if (!offline) {
        TextParser parser(settings);
        const TextParserAvailability available = availability(parser);
        if (available.available) {
            if (progress)
                QObject::connect(&parser, &TextParser::partiallyGenerated, progress);
            using Outcome = std::variant<ExtractedInvoice, QString>;
            const auto outcome = waitForReport<Outcome>([&](auto report) {
                QObject::connect(&parser, &TextParser::finished,
                                 [report](const ExtractedInvoice& result) { report(Outcome(result)); });
                QObject::connect(&parser, &TextParser::failed,
                                 [report](const QString& message) { report(Outcome(message)); });
                parser.extract(text);
            });
            if (!outcome || std::holds_alternative<QString>(*outcome))
                throw TaskError(outcome ? std::get<QString>(*outcome) : QString());
            extraction.result = std::get<ExtractedInvoice>(*outcome);
            extraction.kind = ExtractorKind::model;
            extraction.extractor = parser.describe();
            return extraction;
        }
        extraction.modelUnavailable = available.message;
    }
    extraction.result = OfflineExtractor::extract(text);
    extraction.kind = ExtractorKind::offline;
    extraction.extractor = extractorName(ExtractorKind::offline);
    return extraction;
}

Invoice createInvoice(Workspace& workspace, const ExtractedInvoice& extracted)
{
    InvoiceManager& store = workspace.invoices();
    Invoice invoice = store.createInvoice();
    TextParser::fill(invoice, extracted, workspace.activeProfile());
    if (const auto error = store.saveInvoice(invoice))
        throw TaskError(Strings::ui(u"The invoice could not be saved: %1").arg(*error));
    return invoice;
}

} // namespace ExtractTasks
