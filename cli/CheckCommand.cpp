#include "Commands.h"

#include "tasks/SyncTasks.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

QString kindName(SyncTasks::RecordKind kind)
{
    switch (kind) {
    case SyncTasks::RecordKind::invoice:
        return u"invoice"_s;
    case SyncTasks::RecordKind::reminder:
        return u"reminder"_s;
    case SyncTasks::RecordKind::profile:
        return u"profile"_s;
    case SyncTasks::RecordKind::styling:
        return u"styling"_s;
    case SyncTasks::RecordKind::folder:
        return u"folder"_s;
    }
    return {};
}

QString shortId(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper().left(8);
}

// What a data folder that a sync engine shares looks like after the engines met: records
// changed on two machines at once, invoice numbers given twice.
class CheckCommand : public Command
{
public:
    QString name() const override { return u"check"_s; }
    QString summary() const override
    {
        return u"Report records changed on two machines at once (sync conflicts) and invoice numbers used "
               u"twice. Exit status 1 when there is any."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output."_s});
    }

    int run(const QCommandLineParser& parser) override
    {
        try {
            Workspace& data = workspace();
            const SyncTasks::Report report = SyncTasks::check(data);
            if (parser.isSet(u"json"_s))
                printJson(data, report);
            else
                printText(data, report);
            return report.isClean() ? ExitCode::ok : ExitCode::failure;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
    }

private:
    static QString describe(Workspace& data, const QUuid& id)
    {
        const Invoice* invoice = data.invoices().invoice(id);
        if (!invoice)
            return shortId(id);
        const QString recipient = joinNonEmpty({invoice->businessName, invoice->name});
        return u"%1 (id %2, %3%4)"_s.arg(
            QFileInfo(data.invoices().filePath(id).value_or(QString())).fileName(), shortId(id),
            labelText(invoice->status), recipient.isEmpty() ? QString() : u", "_s + recipient);
    }

    static void printText(Workspace& data, const SyncTasks::Report& report)
    {
        if (report.isClean()) {
            out() << "No conflicts and no invoice numbers used twice in profile \""
                  << data.activeProfile().displayName() << "\"." << Qt::endl;
            return;
        }
        for (const SyncTasks::Conflict& conflict : report.conflicts) {
            if (conflict.kind == SyncTasks::RecordKind::folder) {
                out()
                    << "Left-over folder: " << conflict.otherPath
                    << " holds records but no profile.json (a profile renamed on another machine while this "
                       "one changed it)\n"
                    << "  resolve with:  ledra resolve \"" << conflict.otherPath
                    << "\" --keep both (its files join profile \"" << conflict.profileName
                    << "\") or --keep this (the folder is removed)\n";
                continue;
            }
            out() << "Conflict: " << conflict.subject << " (profile \"" << conflict.profileName
                  << "\") was changed on another machine at the same time\n"
                  << "  this version:  " << conflict.path << '\n'
                  << "  other version: " << conflict.otherPath << " (changed "
                  << conflict.otherModified.toString(u"yyyy-MM-dd HH:mm"_s) << ")\n"
                  << "  resolve with:  ledra resolve \"" << QFileInfo(conflict.otherPath).fileName()
                  << "\" --keep this|other"
                  << (conflict.kind == SyncTasks::RecordKind::invoice ? "|both" : "") << '\n';
        }
        for (const SyncTasks::DuplicateNumber& duplicate : report.duplicates) {
            out() << "Number used twice: " << labelText(duplicate.type) << ' ' << duplicate.number
                  << " (profile \"" << duplicate.profileName << "\")\n";
            for (const QUuid& id : duplicate.ids)
                out() << "  " << describe(data, id) << '\n';
            out() << "  renumber a draft with: ledra invoice renumber ID\n";
        }
        out() << report.conflicts.size() << (report.conflicts.size() == 1 ? " conflict, " : " conflicts, ")
              << report.duplicates.size()
              << (report.duplicates.size() == 1 ? " number used twice." : " numbers used twice.") << Qt::endl;
    }

    static void printJson(Workspace& data, const SyncTasks::Report& report)
    {
        JsonWriter w;
        w.beginObject();
        w.field("profile"_L1, data.activeProfile().displayName());
        w.key("conflicts"_L1);
        w.beginArray();
        for (const SyncTasks::Conflict& conflict : report.conflicts) {
            w.beginObject();
            w.field("kind"_L1, kindName(conflict.kind));
            w.field("profile"_L1, conflict.profileName);
            w.key("id"_L1);
            if (conflict.id.isNull())
                w.null();
            else
                w.value(conflict.id);
            w.field("subject"_L1, conflict.subject);
            w.field("file"_L1, conflict.path);
            w.field("otherFile"_L1, conflict.otherPath);
            w.endObject();
        }
        w.endArray();
        w.key("duplicateNumbers"_L1);
        w.beginArray();
        for (const SyncTasks::DuplicateNumber& duplicate : report.duplicates) {
            w.beginObject();
            w.field("profile"_L1, duplicate.profileName);
            w.field("type"_L1, rawValue(duplicate.type));
            w.field("number"_L1, duplicate.number);
            w.key("invoices"_L1);
            w.beginArray();
            for (qsizetype i = 0; i < duplicate.ids.size(); ++i) {
                w.beginObject();
                w.field("id"_L1, duplicate.ids[i]);
                w.field("file"_L1, duplicate.paths.value(i));
                if (const Invoice* invoice = data.invoices().invoice(duplicate.ids[i]))
                    w.field("status"_L1, rawValue(invoice->status));
                w.endObject();
            }
            w.endArray();
            w.endObject();
        }
        w.endArray();
        w.endObject();
        out() << QString::fromUtf8(w.take());
    }
};

class ResolveCommand : public Command
{
public:
    QString name() const override { return u"resolve"_s; }
    QString summary() const override
    {
        return u"Resolve a sync conflict that `ledra check` reported: keep this version, the other version, "
               u"or "
               u"(invoices) both, the other then becoming an invoice of its own with the next number."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"keep"_s, u"this, other or both."_s, u"WHICH"_s});
        parser.addOption(
            {u"compare"_s, u"Show the fields in which the two versions differ; change nothing."_s});
        parser.addPositionalArgument(u"OTHER_FILE"_s,
                                     u"The other version's file, as `ledra check` names it."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"name one other version's file"_s);
        if (parser.isSet(u"compare"_s) == parser.isSet(u"keep"_s))
            return usageError(u"give either --keep this|other|both or --compare"_s);
        try {
            Workspace& data = workspace();
            const SyncTasks::Conflict conflict = SyncTasks::findConflict(data, arguments.first());
            if (parser.isSet(u"compare"_s)) {
                out() << conflict.subject << ": this version | other version\n";
                for (const SyncTasks::FieldRow& row : SyncTasks::compare(data, conflict))
                    if (row.differs)
                        out() << "  " << row.field << ": " << row.thisValue << " | " << row.otherValue
                              << '\n';
                return ExitCode::ok;
            }
            const QString which = parser.value(u"keep"_s).toLower();
            const auto choice = which == u"this"    ? SyncTasks::Choice::keepThis
                                : which == u"other" ? SyncTasks::Choice::keepOther
                                : which == u"both"  ? SyncTasks::Choice::keepBoth
                                                    : std::optional<SyncTasks::Choice>();
            if (!choice)
                return usageError(
                    u"--keep takes this, other or both, not \"%1\""_s.arg(parser.value(u"keep"_s)));
            out() << SyncTasks::resolve(data, conflict, *choice) << Qt::endl;
            return ExitCode::ok;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
    }
};

} // namespace

std::unique_ptr<Command> makeCheckCommand()
{
    return std::make_unique<CheckCommand>();
}

std::unique_ptr<Command> makeResolveCommand()
{
    return std::make_unique<ResolveCommand>();
}
