#include "Commands.h"
#include "JsonEdit.h"

#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "reminders/ReminderJson.h"
#include "reminders/ReminderManager.h"
#include "reminders/ReminderVariable.h"
#include "tasks/DocumentTasks.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <tuple>

using namespace Qt::Literals::StringLiterals;

namespace {

QString shortId(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper().left(8);
}

QString isoDate(Timestamp moment)
{
    return moment.localDate().toString(Qt::ISODate);
}

class ReminderCommand : public ActionCommand
{
public:
    QString name() const override { return u"reminder"_s; }
    QString summary() const override
    {
        return u"Write payment reminders for overdue invoices: create, list, show, edit, print and delete."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output."_s});
        parser.addOption({u"force"_s, u"new: write a reminder even for an invoice that is not overdue."_s});
        parser.addOption({{u"o"_s, u"output"_s},
                          u"pdf: the PDF file to write (default: the reminder file's name with .pdf, in the "
                          u"current folder)."_s,
                          u"FILE"_s});
        parser.addPositionalArgument(
            u"action"_s,
            u"new INVOICE | list [INVOICE] | show ID | set ID FIELD VALUE | pdf ID | delete ID. INVOICE is "
            u"an invoice's id, id prefix or displayed number; ID is a reminder's id or an unambiguous id "
            u"prefix; FIELD is a key of the reminder file: date, number, text, interestPercentage, fee."_s,
            u"ACTION [ARGS...]"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser& parser) override
    {
        m_json = parser.isSet(u"json"_s);
        if (action == u"new") {
            action.expect(1);
            return create(workspace().find(action.args[0]), parser.isSet(u"force"_s));
        }
        if (action == u"list") {
            if (action.args.size() > 1)
                throw CliError(u"list takes at most 1 argument(s)"_s);
            return list(action.args.isEmpty() ? std::nullopt
                                              : std::optional(workspace().find(action.args[0]).id));
        }
        if (action == u"show") {
            action.expect(1);
            return show(find(action.args[0]));
        }
        if (action == u"set") {
            action.expect(3);
            return set(find(action.args[0]), action.args[1], action.args[2]);
        }
        if (action == u"pdf") {
            action.expect(1);
            return pdf(find(action.args[0]), parser.value(u"output"_s));
        }
        if (action == u"delete") {
            action.expect(1);
            const Reminder reminder = find(action.args[0]);
            if (const auto error = reminders().deleteReminder(reminder.id))
                throw CliError(*error);
            out() << "Deleted " << describe(reminder) << '\n';
            return ExitCode::ok;
        }
        return std::nullopt;
    }

private:
    ReminderManager& reminders()
    {
        ReminderManager& store = workspace().reminders();
        if (!m_reportedLoadErrors) {
            // Broken files are skipped, never silently: say which and why.
            for (const QString& problem : store.loadErrors())
                err() << "ledra reminder: skipped " << problem << '\n';
            m_reportedLoadErrors = true;
        }
        return store;
    }

    static const Profile& profile() { return workspace().activeProfile(); }

    static const Invoice& invoiceOf(const Reminder& reminder)
    {
        const Invoice* invoice = workspace().invoices().invoice(reminder.invoiceId);
        if (!invoice)
            throw CliError(u"reminder %1 belongs to invoice %2, which is not in profile \"%3\""_s.arg(
                shortId(reminder.id), reminder.invoiceId.toString(QUuid::WithoutBraces).toUpper(),
                profile().displayName()));
        return *invoice;
    }

    static QString invoiceNumber(const Reminder& reminder)
    {
        const Invoice* invoice = workspace().invoices().invoice(reminder.invoiceId);
        return invoice ? NumberFormat::displayNumber(*invoice, profile()) : u"(missing invoice)"_s;
    }

    static QString describe(const Reminder& reminder)
    {
        return u"%1 %2 for invoice %3"_s.arg(Strings::ui(Reminder::titleKey(reminder.number)).toLower(),
                                             shortId(reminder.id), invoiceNumber(reminder));
    }

    // A reminder by id or unambiguous id prefix.
    Reminder find(const QString& reference)
    {
        const QString wanted = reference.trimmed().toUpper();
        static const QRegularExpression hexDigits(u"^[0-9A-F-]+$"_s);
        QList<const Reminder*> matches;
        if (hexDigits.match(wanted).hasMatch()) {
            for (const Reminder& reminder : reminders().reminders()) {
                const QString id = reminder.id.toString(QUuid::WithoutBraces).toUpper();
                if (id == wanted)
                    return reminder;
                if (id.startsWith(wanted))
                    matches.append(&reminder);
            }
        }
        if (matches.size() == 1)
            return *matches.first();
        if (matches.isEmpty())
            throw CliError(u"no reminder \"%1\" in profile \"%2\""_s.arg(reference, profile().displayName()));
        QStringList names;
        for (const Reminder* reminder : matches)
            names.append(shortId(reminder->id));
        throw CliError(u"\"%1\" is ambiguous: %2"_s.arg(reference, names.join(u", "_s)));
    }

    int printRecord(const Reminder& reminder, const QString& verb)
    {
        if (m_json) {
            out() << ReminderJson::encode(reminder);
            return ExitCode::ok;
        }
        out() << verb << ' ' << describe(reminder) << "  (id "
              << reminder.id.toString(QUuid::WithoutBraces).toUpper() << ")\n";
        return ExitCode::ok;
    }

    int create(const Invoice& invoice, bool force)
    {
        if (invoice.type != InvoiceType::invoice)
            throw CliError(u"%1 is a %2; reminders are for invoices"_s.arg(
                NumberFormat::displayNumber(invoice, profile()), labelText(invoice.type).toLower()));
        if (!invoice.isOverdue() && !force)
            throw CliError(
                u"invoice %1 is not overdue (%2, due %3); use --force to write a reminder anyway"_s.arg(
                    NumberFormat::displayNumber(invoice, profile()), labelText(invoice.status),
                    isoDate(invoice.dueDate())));
        Reminder created;
        if (const auto error = reminders().createReminder(invoice.id, &created))
            throw CliError(*error);
        return printRecord(created, u"Created"_s);
    }

    int list(const std::optional<QUuid>& invoiceId)
    {
        QList<Reminder> shown;
        for (const Reminder& reminder : reminders().reminders())
            if (!invoiceId || reminder.invoiceId == *invoiceId)
                shown.append(reminder);
        std::sort(shown.begin(), shown.end(), [](const Reminder& a, const Reminder& b) {
            return std::tuple(invoiceNumber(a), a.number) < std::tuple(invoiceNumber(b), b.number);
        });
        if (m_json) {
            JsonWriter w;
            w.beginArray();
            for (const Reminder& reminder : shown) {
                w.beginObject();
                w.field("id"_L1, reminder.id);
                w.field("invoiceId"_L1, reminder.invoiceId);
                w.field("invoiceNumber"_L1, invoiceNumber(reminder));
                w.field("number"_L1, reminder.number);
                w.field("title"_L1, Strings::ui(Reminder::titleKey(reminder.number)));
                w.field("date"_L1, isoDate(reminder.date));
                w.field("interestPercentage"_L1, reminder.interestPercentage);
                w.field("fee"_L1, reminder.fee);
                w.field("file"_L1,
                        QFileInfo(reminders().filePath(reminder.id).value_or(QString())).fileName());
                w.endObject();
            }
            w.endArray();
            out() << w.take();
            return ExitCode::ok;
        }
        for (const Reminder& reminder : shown)
            out() << shortId(reminder.id) << "  " << invoiceNumber(reminder).leftJustified(16) << ' '
                  << QString::number(reminder.number).rightJustified(2) << "  "
                  << Strings::ui(Reminder::titleKey(reminder.number)).leftJustified(26)
                  << isoDate(reminder.date) << "  fee " << formatAmount(reminder.fee) << '\n';
        return ExitCode::ok;
    }

    int show(const Reminder& reminder)
    {
        if (m_json) {
            out() << ReminderJson::encode(reminder);
            return ExitCode::ok;
        }
        const Invoice& invoice = invoiceOf(reminder);
        const Profile& p = profile();
        const QString currency = invoice.currency.code;
        out() << Strings::ui(Reminder::titleKey(reminder.number)) << " (number " << reminder.number
              << ") for invoice " << NumberFormat::displayNumber(invoice, p) << '\n'
              << "Id:        " << reminder.id.toString(QUuid::WithoutBraces).toUpper() << '\n'
              << "Date:      " << isoDate(reminder.date) << ", pay by "
              << isoDate(ReminderVariables::paymentDeadline(reminder, p)) << '\n'
              << "Invoice:   " << formatAmount(ReminderVariables::amountDue(invoice)) << ' ' << currency
              << ", due " << isoDate(invoice.dueDate()) << " ("
              << ReminderVariables::daysLate(reminder, invoice) << " days late)\n"
              << "Interest:  " << reminder.interestPercentage
              << " % per year = " << formatAmount(ReminderVariables::interestAmount(reminder, invoice)) << ' '
              << currency << '\n'
              << "Fee:       " << formatAmount(reminder.fee) << ' ' << currency << '\n'
              << "File:      " << reminders().filePath(reminder.id).value_or(QString()) << "\n\n"
              << ReminderVariables::substitute(reminder.text, reminder, invoice, p) << '\n';
        return ExitCode::ok;
    }

    int set(const Reminder& reminder, const QString& field, const QString& value)
    {
        if (field == u"invoiceId")
            throw CliError(u"\"invoiceId\" cannot be set; create a reminder for the other invoice instead"_s);
        Reminder changed;
        try {
            changed = ReminderJson::decode(setJsonField(ReminderJson::encode(reminder), field, value));
        } catch (const JsonDecodeError& error) {
            throw CliError(error.message());
        }
        if (const auto error = reminders().saveReminder(changed))
            throw CliError(*error);
        return printRecord(changed, u"Saved"_s);
    }

    int pdf(const Reminder& reminder, QString output)
    {
        if (output.isEmpty()) {
            const QString file = reminders().filePath(reminder.id).value_or(shortId(reminder.id));
            output = QFileInfo(file).completeBaseName() + u".pdf"_s;
        }
        const QByteArray pdf =
            DocumentTasks::reminderPdf(reminder, DocumentSource::of(workspace(), invoiceOf(reminder)));
        DocumentTasks::writeFile(output, pdf);
        out() << output << Qt::endl;
        return ExitCode::ok;
    }

    bool m_reportedLoadErrors = false;
    bool m_json = false;
};

} // namespace

std::unique_ptr<Command> makeReminderCommand()
{
    return std::make_unique<ReminderCommand>();
}
