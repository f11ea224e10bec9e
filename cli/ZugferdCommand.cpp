#include "Commands.h"
#include "DocumentInputs.h"
#include "EInvoiceXml.h"

#include "einvoice/ZUGFeRDGenerator.h"
#include "render/DocumentExport.h"
#include "util/Files.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class ZugferdCommand : public Command
{
public:
    QString name() const override { return u"zugferd"_s; }
    QString summary() const override
    {
        return u"Write an invoice as a hybrid e-invoice: a PDF/A-3 with its XRechnung XML inside (ZUGFeRD, "
               u"Factur-X)."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({{u"o"_s, u"output"_s},
                          u"The PDF file to write (default: the invoice file's name with -zugferd.pdf)."_s,
                          u"FILE"_s});
        parser.addOption({u"pdf"_s,
                          u"Use this PDF of the invoice instead of rendering it (for example one made by "
                          u"another program)."_s,
                          u"FILE"_s});
        addDocumentInputOptions(parser);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one invoice"_s);
        DocumentInputs inputs;
        QByteArray xml;
        try {
            inputs = documentInputs(parser, arguments[0]);
            // Checked before rendering: an incomplete invoice gets its list at once.
            xml = eInvoiceXml(arguments[0], inputs.context);
        } catch (const IncompleteEInvoice& incomplete) {
            printMissingFields(name(), incomplete);
            return ExitCode::incomplete;
        } catch (const CliError& error) {
            return fail(error.message());
        }
        const InvoiceContext& context = inputs.context;
        QString output = parser.value(u"output"_s);
        if (output.isEmpty())
            output = defaultOutputPath(arguments[0], context, u"-zugferd.pdf"_s);

        std::optional<QByteArray> pdf;
        if (parser.isSet(u"pdf"_s)) {
            QString readError;
            pdf = Files::read(parser.value(u"pdf"_s), &readError);
            if (!pdf)
                return fail(u"%1: cannot read the file: %2"_s.arg(parser.value(u"pdf"_s), readError));
        } else {
            pdf =
                DocumentExport::invoicePdf(context.invoice, context.profile, inputs.styling, context.related);
        }
        if (!pdf) {
            qCWarning(lcEInvoice) << "Failed to create PDF for ZUGFeRD export";
            return fail(
                u"%1: Failed to create ZUGFeRD PDF: the PDF could not be rendered"_s.arg(arguments[0]));
        }
        ZUGFeRDGenerator generator;
        const std::optional<QByteArray> hybrid = generator.create(*pdf, xml);
        if (!hybrid) {
            qCWarning(lcEInvoice).noquote() << "ZUGFeRD export failed:" << generator.errorString();
            return fail(u"%1: Failed to create ZUGFeRD PDF: %2"_s.arg(arguments[0], generator.errorString()));
        }
        if (const auto error = Files::writeAtomically(output, *hybrid)) {
            qCWarning(lcEInvoice).noquote() << "ZUGFeRD export failed:" << *error;
            return fail(u"%1: Failed to create ZUGFeRD PDF: %2"_s.arg(output, *error));
        }
        qCInfo(lcEInvoice).noquote() << "ZUGFeRD PDF saved to" << output;
        out() << output << Qt::endl;
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeZugferdCommand()
{
    return std::make_unique<ZugferdCommand>();
}
