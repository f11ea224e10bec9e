#include "Commands.h"

#include "tasks/DocumentTasks.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The HTML of one page as the PDF renderer loads it: for working on the templates.
class HtmlCommand : public Command
{
public:
    QString name() const override { return u"html"_s; }
    QString summary() const override
    {
        return u"Print the page HTML of an invoice document (for templates)."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption(
            {u"page-kind"_s, u"single (default), first, middle or last."_s, u"K"_s, u"single"_s});
        addDocumentOptions(parser);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one invoice"_s);
        const auto kind = pageKindFromClass(parser.value(u"page-kind"_s));
        if (!kind)
            return usageError(
                u"unknown page kind '%1' (single, first, middle, last)"_s.arg(parser.value(u"page-kind"_s)));
        try {
            out() << DocumentTasks::invoiceHtml(documentSource(parser, arguments[0]), *kind);
        } catch (const TaskError& error) {
            return fail(error.message());
        }
        out().flush();
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeHtmlCommand()
{
    return std::make_unique<HtmlCommand>();
}
