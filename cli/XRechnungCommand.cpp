#include "Commands.h"

#include "tasks/DocumentTasks.h"

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

class XRechnungCommand : public Command
{
public:
    QString name() const override { return u"xrechnung"_s; }
    QString summary() const override
    {
        return u"Write an invoice as an e-invoice (UN/CEFACT CII XML), by the rules of XRechnung or of EN "
               u"16931."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption(
            {{u"o"_s, u"output"_s}, u"Write the XML to FILE instead of standard output."_s, u"FILE"_s});
        addEInvoiceProfileOption(parser);
        parser.addPositionalArgument(u"INVOICE"_s, u"An invoice file, id or number."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"expected exactly one INVOICE"_s);
        try {
            DocumentSource source = DocumentSource::resolve(arguments.first(), workspace);
            applyEInvoiceProfileOption(parser, source);
            const QByteArray xml = DocumentTasks::eInvoiceXml(source);
            if (!parser.isSet(u"output"_s)) {
                out().flush();
                std::fwrite(xml.constData(), 1, std::size_t(xml.size()), stdout);
                return ExitCode::ok;
            }
            DocumentTasks::writeFile(parser.value(u"output"_s), xml);
        } catch (const IncompleteEInvoice& incomplete) {
            // An incomplete e-invoice would be refused by its receiver: say what is missing instead.
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

std::unique_ptr<Command> makeXRechnungCommand()
{
    return std::make_unique<XRechnungCommand>();
}
