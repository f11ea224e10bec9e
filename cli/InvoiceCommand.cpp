#include "Commands.h"
#include "JsonEdit.h"

#include "model/InvoiceJson.h"
#include "numbering/NumberFormat.h"
#include "tasks/ContactTasks.h"
#include "tasks/SyncTasks.h"
#include "util/Clock.h"

#include <algorithm>
#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

std::optional<Status> parseStatus(const QString& text)
{
    for (Status status : allCases<Status>())
        if (rawValue(status).compare(text, Qt::CaseInsensitive) == 0)
            return status;
    return std::nullopt;
}

std::optional<Unit> parseUnit(const QString& text)
{
    for (Unit unit : allCases<Unit>())
        if (rawValue(unit).compare(text, Qt::CaseInsensitive) == 0 ||
            rawValue(unit).remove(u' ').compare(text, Qt::CaseInsensitive) == 0)
            return unit;
    return std::nullopt;
}

double parseNumber(const QString& option, const QString& text)
{
    bool ok = false;
    const double value = QString(text).replace(u',', u'.').toDouble(&ok);
    if (!ok)
        throw CliError(QStringLiteral("--%1: \"%2\" is not a number").arg(option, text));
    return value;
}

class InvoiceCommand : public ActionCommand
{
public:
    QString name() const override { return u"invoice"_s; }
    QString summary() const override
    {
        return u"Create, list, show, edit, cancel and delete invoices and quotes of the active profile."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output."_s});
        parser.addOption(
            {u"status"_s, u"list: only invoices with this status (Draft, Sent, Paid, Cancelled)."_s, u"S"_s});
        parser.addOption({u"overdue"_s, u"list: only overdue invoices."_s});
        parser.addOption({u"force"_s, u"delete: delete even a sent invoice."_s});
        parser.addOption({u"from-vcard"_s,
                          u"new: one invoice per contact of this vCard file (- for standard input), "
                          u"addressed to it."_s,
                          u"FILE"_s});
        parser.addOption({u"description"_s, u"add-item: the line's text."_s, u"TEXT"_s});
        parser.addOption({u"quantity"_s, u"add-item: quantity (default 1)."_s, u"Q"_s});
        parser.addOption(
            {u"unit"_s, u"add-item: Piece, Hour, Day, Week or \"Lump Sum\" (default Piece)."_s, u"U"_s});
        parser.addOption(
            {u"price"_s, u"add-item: unit price (default: the profile's rate for the unit)."_s, u"P"_s});
        parser.addOption({u"vat"_s, u"add-item: VAT rate in percent (default: the profile's)."_s, u"R"_s});
        parser.addPositionalArgument(
            u"action"_s,
            u"new [--from-vcard FILE] | quote | list | show ID | set ID FIELD VALUE | add-item ID | "
            u"cancel ID | duplicate ID | accept QUOTE_ID | status ID STATUS | renumber ID | delete ID. ID is "
            u"an id, an "
            u"id prefix or the displayed number; "
            u"FIELD is a key of the invoice file, e.g. recipient.name, recipient.address.city, date, note."_s,
            u"ACTION [ARGS...]"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser& parser) override
    {
        m_json = parser.isSet(u"json"_s);
        Workspace& stores = workspace();
        InvoiceManager& invoices = stores.invoices();
        if (parser.isSet(u"from-vcard"_s) && action != u"new")
            throw CliError(u"--from-vcard goes with \"new\" only"_s);
        if (action == u"new" && parser.isSet(u"from-vcard"_s)) {
            action.expect(0);
            return fromVCard(parser.value(u"from-vcard"_s));
        }
        if (action == u"new" || action == u"quote") {
            action.expect(0);
            return created(action == u"new" ? invoices.createInvoice() : invoices.createQuote());
        }
        if (action == u"list") {
            action.expect(0);
            return list(parser);
        }
        if (action == u"show") {
            action.expect(1);
            return show(stores.find(action.args[0]));
        }
        if (action == u"set") {
            action.expect(3);
            const Invoice& invoice = stores.find(action.args[0]);
            Invoice changed;
            try {
                changed = InvoiceJson::decode(
                    setJsonField(InvoiceJson::encode(invoice), action.args[1], action.args[2]));
            } catch (const JsonDecodeError& error) {
                throw CliError(error.message());
            }
            return saved(changed);
        }
        if (action == u"add-item") {
            action.expect(1);
            return addItem(stores.find(action.args[0]), parser);
        }
        if (action == u"status") {
            action.expect(2);
            const auto status = parseStatus(action.args[1]);
            if (!status)
                throw CliError(QStringLiteral("unknown status \"%1\" (expected one of: %2)")
                                   .arg(action.args[1], rawValueList<Status>()));
            const QUuid id = stores.find(action.args[0]).id;
            SyncTasks::setStatus(stores, id, *status);
            const Invoice& changed = *invoices.invoice(id);
            return m_json ? created(changed) : (out() << "Saved " << number(changed) << '\n', ExitCode::ok);
        }
        if (action == u"renumber") {
            action.expect(1);
            const Invoice& invoice = stores.find(action.args[0]);
            const QString before = number(invoice);
            const QString after = SyncTasks::renumber(stores, invoice.id);
            out() << "Renumbered " << before << " to " << after << '\n';
            return ExitCode::ok;
        }
        if (action == u"cancel") {
            action.expect(1);
            const Invoice& invoice = stores.find(action.args[0]);
            if (invoice.type != InvoiceType::invoice)
                throw CliError(u"only an ordinary invoice can be cancelled"_s);
            return created(*invoices.cancelInvoice(invoice.id));
        }
        if (action == u"duplicate") {
            action.expect(1);
            return created(*invoices.duplicateInvoice(stores.find(action.args[0]).id));
        }
        if (action == u"accept") {
            action.expect(1);
            const Invoice& quote = stores.find(action.args[0]);
            if (quote.type != InvoiceType::quote)
                throw CliError(QStringLiteral("%1 is not a quote").arg(action.args[0]));
            return created(*invoices.createInvoiceFromQuote(quote.id));
        }
        if (action == u"delete") {
            action.expect(1);
            const Invoice invoice = stores.find(action.args[0]);
            const QString warning = InvoiceManager::deletionWarning(invoice);
            if (!warning.isEmpty() && !parser.isSet(u"force"_s))
                throw CliError(warning + u" (use --force to delete it anyway)"_s);
            if (const auto error = invoices.deleteInvoice(invoice.id))
                throw CliError(*error);
            out() << "Deleted " << number(invoice) << '\n';
            return ExitCode::ok;
        }
        return std::nullopt;
    }

private:
    static QString number(const Invoice& invoice)
    {
        return NumberFormat::displayNumber(invoice, workspace().activeProfile());
    }

    static QString recipient(const Invoice& invoice)
    {
        return invoice.businessName.isEmpty() ? invoice.name : invoice.businessName;
    }

    int created(const Invoice& invoice)
    {
        if (m_json) {
            out() << InvoiceJson::encode(invoice);
            return ExitCode::ok;
        }
        out() << "Created " << labelText(invoice.type).toLower() << ' ' << number(invoice) << "  (id "
              << invoice.id.toString(QUuid::WithoutBraces).toUpper() << ")\n";
        return ExitCode::ok;
    }

    int fromVCard(const QString& file)
    {
        const QString shownName = inputName(file);
        const QByteArray data = readInputArgument(file);
        QList<Invoice> made;
        try {
            made = ContactTasks::createInvoicesFromVCard(workspace(), data);
        } catch (const TaskError& error) {
            throw CliError(u"%1: %2"_s.arg(shownName, error.message()));
        }
        if (m_json) {
            // Several contacts make several invoices: always an array, so scripts need not guess.
            QByteArrayList objects;
            for (const Invoice& invoice : made)
                objects.append(InvoiceJson::encode(invoice).trimmed());
            out() << "[\n" << objects.join(",\n") << "\n]\n";
            return ExitCode::ok;
        }
        for (const Invoice& invoice : made)
            created(invoice);
        return ExitCode::ok;
    }

    int saved(const Invoice& invoice)
    {
        // Marking as sent by editing the field is marking as sent all the same.
        if (const Invoice* stored = workspace().invoices().invoice(invoice.id);
            stored && stored->status != Status::sent && invoice.status == Status::sent)
            SyncTasks::requireUniqueNumber(workspace(), invoice);
        if (const auto error = workspace().invoices().saveInvoice(invoice))
            throw CliError(*error);
        return m_json ? created(invoice) : (out() << "Saved " << number(invoice) << '\n', ExitCode::ok);
    }

    int addItem(Invoice invoice, const QCommandLineParser& parser)
    {
        const Profile& profile = workspace().activeProfile();
        InvoiceItem item = InvoiceItem::makeNew();
        item.item = parser.value(u"description"_s);
        if (parser.isSet(u"unit"_s)) {
            const auto unit = parseUnit(parser.value(u"unit"_s));
            if (!unit)
                throw CliError(QStringLiteral("--unit: unknown unit \"%1\" (expected one of: %2)")
                                   .arg(parser.value(u"unit"_s), rawValueList<Unit>()));
            item.unit = *unit;
        }
        item.quantity =
            parser.isSet(u"quantity"_s) ? parseNumber(u"quantity"_s, parser.value(u"quantity"_s)) : 1;
        // The profile's rates preset the price of time-based lines, as in the editor.
        item.unitPrice = item.unit == Unit::hour   ? profile.hourlyRate
                         : item.unit == Unit::day  ? profile.dailyRate
                         : item.unit == Unit::week ? profile.weeklyRate
                                                   : 0;
        if (parser.isSet(u"price"_s))
            item.unitPrice = parseNumber(u"price"_s, parser.value(u"price"_s));
        item.vatPercentage =
            parser.isSet(u"vat"_s) ? parseNumber(u"vat"_s, parser.value(u"vat"_s)) : profile.vatPercentage;
        invoice.items.append(item);
        return saved(invoice);
    }

    int list(const QCommandLineParser& parser)
    {
        std::optional<Status> status;
        if (parser.isSet(u"status"_s)) {
            status = parseStatus(parser.value(u"status"_s));
            if (!status)
                throw CliError(QStringLiteral("unknown status \"%1\" (expected one of: %2)")
                                   .arg(parser.value(u"status"_s), rawValueList<Status>()));
        }
        QList<Invoice> shown;
        for (const Invoice& invoice : workspace().invoices().invoices()) {
            if (status && invoice.status != *status)
                continue;
            if (parser.isSet(u"overdue"_s) && !invoice.isOverdue())
                continue;
            shown.append(invoice);
        }
        std::sort(shown.begin(), shown.end(), [](const Invoice& a, const Invoice& b) {
            return std::tie(a.date, a.number) < std::tie(b.date, b.number);
        });
        if (m_json) {
            JsonWriter w;
            w.beginArray();
            for (const Invoice& invoice : shown) {
                w.beginObject();
                w.field("id"_L1, invoice.id);
                w.field("number"_L1, number(invoice));
                w.field("type"_L1, rawValue(invoice.type));
                w.field("date"_L1, invoice.date.localDate().toString(Qt::ISODate));
                w.field("dueDate"_L1, invoice.dueDate().localDate().toString(Qt::ISODate));
                w.field("status"_L1, rawValue(invoice.status));
                w.field("overdue"_L1, invoice.isOverdue());
                w.field("recipient"_L1, recipient(invoice));
                w.field("currency"_L1, invoice.currency.code);
                w.field("grossTotal"_L1, Totals::round2(Totals::grossTotal(invoice)));
                w.endObject();
            }
            w.endArray();
            out() << w.take();
            return ExitCode::ok;
        }
        for (const Invoice& invoice : shown) {
            out() << number(invoice).leftJustified(16) << ' '
                  << invoice.date.localDate().toString(Qt::ISODate) << "  "
                  << (labelText(invoice.status) + (invoice.isOverdue() ? u" (overdue)"_s : QString()))
                         .leftJustified(20)
                  << recipient(invoice).leftJustified(28, u' ', true)
                  << formatAmount(Totals::grossTotal(invoice)).rightJustified(12) << ' '
                  << invoice.currency.code << "  "
                  << invoice.id.toString(QUuid::WithoutBraces).toUpper().left(8) << '\n';
        }
        return ExitCode::ok;
    }

    int show(const Invoice& invoice)
    {
        if (m_json) {
            out() << InvoiceJson::encode(invoice);
            return ExitCode::ok;
        }
        out() << labelText(invoice.type) << ' ' << number(invoice) << "  (" << labelText(invoice.status)
              << (invoice.isOverdue() ? u", overdue"_s : QString()) << ")\n"
              << "Id:        " << invoice.id.toString(QUuid::WithoutBraces).toUpper() << '\n'
              << "Recipient: " << joinNonEmpty({invoice.businessName, invoice.name}) << '\n'
              << "Date:      " << invoice.date.localDate().toString(Qt::ISODate) << ", due "
              << invoice.dueDate().localDate().toString(Qt::ISODate) << '\n';
        for (const InvoiceItem& item : invoice.items)
            out() << "  " << item.item.leftJustified(36, u' ', true)
                  << QString::number(item.quantity).rightJustified(6) << ' '
                  << labelText(item.unit).leftJustified(10) << formatAmount(item.unitPrice).rightJustified(10)
                  << "  " << item.vatPercentage << " %\n";
        printTotals(out(), Totals::summarize(invoice), invoice.currency.code);
        return ExitCode::ok;
    }

    bool m_json = false;
};

} // namespace

std::unique_ptr<Command> makeInvoiceCommand()
{
    return std::make_unique<InvoiceCommand>();
}
