#include "Commands.h"

#include "tasks/DocumentTasks.h"

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
        addDocumentOptions(parser);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one invoice"_s);
        try {
            const DocumentSource source = documentSource(parser, arguments[0]);
            QString output = parser.value(u"output"_s);
            if (output.isEmpty())
                output = defaultOutputPath(arguments[0], source, u".pdf"_s);
            DocumentTasks::writeFile(output, DocumentTasks::invoicePdf(source));
            out() << output << Qt::endl;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makePdfCommand()
{
    return std::make_unique<PdfCommand>();
}
