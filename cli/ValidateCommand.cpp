#include "Commands.h"

#include "tasks/ValidationTasks.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::Literals::StringLiterals;

namespace {

class ValidateCommand : public Command
{
public:
    QString name() const override { return u"validate"_s; }
    QString summary() const override
    {
        return u"Check e-invoices (CII or UBL XML, or hybrid PDFs) against the EN 16931 and XRechnung rules."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Print the verdicts as JSON."_s});
        parser.addOption(
            {u"rules"_s,
             u"en16931 or xrechnung (EN 16931 and XRechnung). Default: XRechnung when the document "
             u"declares it, EN 16931 otherwise."_s,
             u"RULES"_s});
        parser.addPositionalArgument(u"FILE"_s, u"E-invoice files."_s, u"FILE..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList files = parser.positionalArguments();
        if (files.isEmpty())
            return usageError(u"give at least one FILE"_s);
        const auto rules = ValidationTasks::parseRules(parser.value(u"rules"_s));
        if (!rules)
            return usageError(u"--rules takes en16931 or xrechnung"_s);
        const auto checked = ValidationTasks::validateFiles(files, *rules);
        bool allValid = true;
        QJsonArray verdicts;
        for (const auto& file : checked) {
            allValid = allValid && file.report.valid();
            if (parser.isSet(u"json"_s))
                verdicts.append(ValidationTasks::json(file));
            else
                out() << ValidationTasks::text(file);
        }
        if (parser.isSet(u"json"_s))
            out() << QJsonDocument(verdicts).toJson(QJsonDocument::Indented);
        return allValid ? ExitCode::ok : ExitCode::failure;
    }
};

} // namespace

std::unique_ptr<Command> makeValidateCommand()
{
    return std::make_unique<ValidateCommand>();
}
