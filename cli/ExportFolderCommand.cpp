#include "Commands.h"

#include "tasks/AutoExport.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

// The automatic export of the active profile: where its documents go, which ones, and a run.
class ExportFolderCommand : public ActionCommand
{
public:
    QString name() const override { return u"export-folder"_s; }
    QString summary() const override
    {
        return u"Set up the automatic export of invoice documents into a folder, and run it."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addPositionalArgument(
            u"action"_s,
            u"set DIR (turns the export on) | show | run (every eligible invoice now) | off | clear | "
            u"enable xml|zugferd|all-eligible | disable xml|zugferd|all-eligible. Eligible are invoices and "
            u"cancellations that are not drafts."_s,
            u"ACTION [ARGS...]"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser&) override
    {
        Workspace& data = workspace();
        AutoExportHelper helper(data, data.settings());
        const Profile& profile = data.activeProfile();
        if (action == u"set") {
            action.expect(1);
            if (!QDir().mkpath(action.args[0]) || !QFileInfo(action.args[0]).isDir())
                throw CliError(u"%1: cannot create the folder"_s.arg(action.args[0]));
            helper.setFolder(profile, action.args[0]);
            helper.setEnabled(true);
            return show(helper, profile);
        }
        if (action == u"show") {
            action.expect(0);
            return show(helper, profile);
        }
        if (action == u"off") {
            action.expect(0);
            helper.setEnabled(false);
            return show(helper, profile);
        }
        if (action == u"clear") {
            action.expect(0);
            helper.clearFolder(profile);
            return show(helper, profile);
        }
        if (action == u"enable" || action == u"disable") {
            action.expect(1);
            const bool on = action == u"enable";
            if (action.args[0] == u"xml")
                helper.setXmlEnabled(on);
            else if (action.args[0] == u"zugferd")
                helper.setZugferdEnabled(on);
            else if (action.args[0] == u"all-eligible")
                helper.setExportAllEligible(on);
            else
                throw CliError(u"unknown kind \"%1\" (xml, zugferd, all-eligible)"_s.arg(action.args[0]));
            return show(helper, profile);
        }
        if (action == u"run") {
            action.expect(0);
            if (!helper.isEnabled())
                throw CliError(
                    u"the automatic export is off; turn it on with: ledra export-folder set DIR"_s);
            if (!helper.resolvedFolder(profile))
                throw CliError(u"profile \"%1\" has no export folder that exists; choose one with: ledra "
                               u"export-folder set DIR"_s.arg(profile.displayName()));
            const QStringList written = helper.exportAllEligibleNow();
            for (const QString& file : written)
                out() << file << '\n';
            out() << written.size() << " file(s) written\n";
            return ExitCode::ok;
        }
        return std::nullopt;
    }

private:
    static int show(const AutoExportHelper& helper, const Profile& profile)
    {
        out() << "Automatic export: " << (helper.isEnabled() ? "on" : "off") << '\n'
              << "Folder of \"" << profile.displayName()
              << "\": " << helper.folderPath(profile).value_or(u"(none)"_s) << '\n'
              << "Documents: PDF" << (helper.xmlEnabled() ? ", XRechnung XML" : "")
              << (helper.zugferdEnabled() ? ", ZUGFeRD PDF" : "") << '\n'
              << "After a save: " << (helper.exportAllEligible() ? "every eligible invoice" : "that invoice")
              << '\n';
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeExportFolderCommand()
{
    return std::make_unique<ExportFolderCommand>();
}
