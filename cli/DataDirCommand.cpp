#include "Commands.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class DataDirCommand : public Command
{
public:
    QString name() const override { return u"data-dir"_s; }
    QString summary() const override
    {
        return u"Show the data folder, or move all data to another folder (or back to the default)."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"reset"_s, u"Move the data back to the default folder."_s});
        parser.addPositionalArgument(
            u"PATH"_s, u"New data folder; the data is copied there, then removed here."_s, u"[PATH]"_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList args = parser.positionalArguments();
        if (args.size() > 1 || (parser.isSet(u"reset"_s) && !args.isEmpty()))
            return usageError(u"give either a PATH or --reset"_s);
        ProfileManager& profiles = workspace().profiles();
        std::optional<QString> error;
        if (parser.isSet(u"reset"_s))
            error = profiles.resetDataFolder();
        else if (!args.isEmpty())
            error = profiles.changeDataFolder(args[0]);
        if (error)
            return fail(*error);
        out() << profiles.dataFolder() << (profiles.customDataPath() ? "" : "  (default)") << '\n';
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeDataDirCommand()
{
    return std::make_unique<DataDirCommand>();
}
