#include "Commands.h"

#include "einvoice/ZUGFeRDGenerator.h"
#include "tasks/DocumentTasks.h"
#include "util/Files.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class ZugferdCommand : public Command
{
public:
    QString name() const override { return u"zugferd"_s; }
    QString summary() const override
    {
        return u"Write an invoice as a hybrid e-invoice: a PDF/A-3 with its XML inside (ZUGFeRD, Factur-X), "
               u"profile XRechnung or EN 16931."_s;
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
        addEInvoiceProfileOption(parser);
        addDocumentOptions(parser);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one invoice"_s);
        try {
            DocumentSource source = documentSource(parser, arguments[0]);
            applyEInvoiceProfileOption(parser, source);
            // Checked before rendering: an incomplete invoice gets its list at once.
            const QByteArray xml = DocumentTasks::eInvoiceXml(source);
            QString output = parser.value(u"output"_s);
            if (output.isEmpty())
                output = defaultOutputPath(arguments[0], source, u"-zugferd.pdf"_s);
            QByteArray pdf;
            if (parser.isSet(u"pdf"_s)) {
                QString readError;
                const auto bytes = Files::read(parser.value(u"pdf"_s), &readError);
                if (!bytes)
                    return fail(u"%1: cannot read the file: %2"_s.arg(parser.value(u"pdf"_s), readError));
                pdf = *bytes;
            } else {
                pdf = DocumentTasks::invoicePdf(source);
            }
            DocumentTasks::writeFile(output, DocumentTasks::hybridPdf(source, pdf, xml));
            qCInfo(lcEInvoice).noquote() << "ZUGFeRD PDF saved to" << output;
            out() << output << Qt::endl;
        } catch (const IncompleteEInvoice& incomplete) {
            printMissingFields(name(), incomplete);
            return ExitCode::incomplete;
        } catch (const RejectedEInvoice& rejected) {
            printBrokenRules(name(), rejected);
            return ExitCode::failure;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeZugferdCommand()
{
    return std::make_unique<ZugferdCommand>();
}
