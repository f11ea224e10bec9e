#include "Commands.h"

#include "exchange/BackupManager.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Backups of all profiles: the ones the desktop program makes on its own, by hand, and back.
class BackupCommand : public ActionCommand
{
public:
    QString name() const override { return u"backup"_s; }
    QString summary() const override
    {
        return u"Back up all profiles, list and prune the backups, restore one."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addPositionalArgument(
            u"action"_s,
            u"now | auto (a backup only when one is due, as the desktop program does at start) | list | "
            u"prune | "
            u"restore FILE | set frequency daily|every3days|weekly|monthly | "
            u"set retention 10|20|30|50|100|all. Backups are Ledra Data files in "_s +
                BackupManager::defaultBackupsDirectory() +
                u"; restoring adds their profiles beside the existing ones."_s,
            u"ACTION [ARGS...]"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser&) override
    {
        Workspace& data = workspace();
        BackupManager backups(data.profiles(), data.settings(), BackupManager::defaultBackupsDirectory());
        if (action == u"now") {
            action.expect(0);
            QString error;
            const auto written = backups.backupNow(&error);
            if (!written)
                throw CliError(u"Backup failed: "_s + error);
            out() << *written << '\n';
            return ExitCode::ok;
        }
        if (action == u"auto") {
            action.expect(0);
            if (const auto written = backups.backupIfNeeded())
                out() << *written << '\n';
            else
                out() << "No backup due (" << BackupManager::label(backups.frequency()).toLower()
                      << "; the newest is from "
                      << (backups.backups().isEmpty() ? u"never"_s
                                                      : backups.backups().first().date.toString(Qt::ISODate))
                      << ")\n";
            return ExitCode::ok;
        }
        if (action == u"list") {
            action.expect(0);
            out() << "Frequency: " << BackupManager::label(backups.frequency()) << "; "
                  << BackupManager::label(backups.retention()) << '\n';
            for (const BackupManager::Backup& backup : backups.backups())
                out() << backup.date.toString(Qt::ISODate) << "  " << backup.path << '\n';
            return ExitCode::ok;
        }
        if (action == u"prune") {
            action.expect(0);
            const qsizetype before = backups.backups().size();
            backups.pruneBackups();
            out() << "Removed " << before - backups.backups().size() << " backup(s)\n";
            return ExitCode::ok;
        }
        if (action == u"restore") {
            action.expect(1);
            return importDataFile(u"backup"_s, action.args[0], u"Restored"_s);
        }
        if (action == u"set") {
            action.expect(2);
            const QString value = action.args[1].toLower().remove(u' ');
            if (action.args[0] == u"frequency") {
                for (const BackupFrequency frequency : BackupManager::frequencies()) {
                    if (BackupManager::label(frequency).toLower().remove(u' ') == value ||
                        QString::number(int(frequency)) == value) {
                        backups.setFrequency(frequency);
                        out() << "Backups: " << BackupManager::label(frequency) << '\n';
                        return ExitCode::ok;
                    }
                }
                throw CliError(
                    u"unknown frequency \"%1\" (daily, every3days, weekly, monthly)"_s.arg(action.args[1]));
            }
            if (action.args[0] == u"retention") {
                for (const BackupRetention retention : BackupManager::retentions()) {
                    const auto kept = BackupManager::count(retention);
                    if ((kept && QString::number(*kept) == value) || (!kept && value == u"all")) {
                        backups.setRetention(retention);
                        out() << BackupManager::label(retention) << '\n';
                        return ExitCode::ok;
                    }
                }
                throw CliError(u"unknown retention \"%1\" (10, 20, 30, 50, 100, all)"_s.arg(action.args[1]));
            }
            throw CliError(u"set takes frequency or retention"_s);
        }
        return std::nullopt;
    }
};

} // namespace

std::unique_ptr<Command> makeBackupCommand()
{
    return std::make_unique<BackupCommand>();
}
