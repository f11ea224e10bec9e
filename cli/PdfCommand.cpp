#include "Commands.h"
#include "DocumentInputs.h"

#include "render/DocumentExport.h"
#include "render/StylingManager.h"

#include <QSaveFile>

using namespace Qt::Literals::StringLiterals;

namespace {

class PdfCommand : public Command
{
public:
    QString name() const override { return u"pdf"_s; }
    QString summary() const override { return u"Write the PDF document of an invoice."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({{u"o"_s, u"output"_s},
                          u"The PDF file to write (default: the invoice file's name with .pdf)."_s,
                          u"FILE"_s});
        addDocumentInputOptions(parser);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one invoice"_s);
        DocumentInputs inputs;
        try {
            inputs = documentInputs(parser, arguments[0]);
        } catch (const CliError& error) {
            return fail(error.message());
        }
        const InvoiceContext& context = inputs.context;
        const Styling& styling = inputs.styling;
        QString output = parser.value(u"output"_s);
        if (output.isEmpty())
            output = defaultOutputPath(arguments[0], context, u".pdf"_s);
        const std::optional<QByteArray> pdf =
            DocumentExport::invoicePdf(context.invoice, context.profile, styling, context.related);
        if (!pdf)
            return fail(u"%1: the PDF could not be created"_s.arg(arguments[0]));
        QSaveFile file(output);
        if (!file.open(QIODevice::WriteOnly) || file.write(*pdf) < 0 || !file.commit())
            return fail(u"%1: cannot write the file: %2"_s.arg(output, file.errorString()));
        out() << output << Qt::endl;
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makePdfCommand()
{
    return std::make_unique<PdfCommand>();
}
