#pragma once

#include "Command.h"

#include "calc/Totals.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "util/JsonWriter.h"

std::unique_ptr<Command> makeTotalsCommand();
std::unique_ptr<Command> makeNumberCommand();
std::unique_ptr<Command> makeDemoCommand();
std::unique_ptr<Command> makeProfileCommand();
std::unique_ptr<Command> makeInvoiceCommand();
std::unique_ptr<Command> makeDataDirCommand();
std::unique_ptr<Command> makeBenchCommand();
std::unique_ptr<Command> makePdfCommand();
std::unique_ptr<Command> makeHtmlCommand();
std::unique_ptr<Command> makeImportPdfCommand();
std::unique_ptr<Command> makeStylingCommand();
std::unique_ptr<Command> makeXRechnungCommand();
std::unique_ptr<Command> makeImportEInvoiceCommand();
std::unique_ptr<Command> makeCsvCommand();
std::unique_ptr<Command> makeZugferdCommand();
std::unique_ptr<Command> makeAttachmentsCommand();
std::unique_ptr<Command> makeReminderCommand();
std::unique_ptr<Command> makePluginCommand();

// Shared by the commands that read record files.
class CliError : public std::runtime_error
{
public:
    explicit CliError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromStdString(what()); }
};

// A command whose first argument names what to do ("ledra invoice set ID FIELD VALUE"): the
// action is split off once, a missing or unknown one is a usage error, and CliError thrown by
// an action becomes the failure message.
class ActionCommand : public Command
{
protected:
    struct Action
    {
        QString name;
        QStringList args;
        bool operator==(QStringView other) const { return name == other; }
        // Throws CliError unless exactly `count` arguments follow the action.
        void expect(qsizetype count) const;
    };

    // Runs the action; nullopt when the command has no action of that name.
    virtual std::optional<int> runAction(const Action& action, const QCommandLineParser& parser) = 0;

private:
    int run(const QCommandLineParser& parser) final;
};

// Reads and decodes an invoice file; the error names the file and what is wrong with it.
Invoice readInvoiceFile(const QString& path);

// What a command needs to issue a document: the invoice and the profile it belongs to.
struct InvoiceContext
{
    Invoice invoice;
    Profile profile;
    // The profile's folder (styling, logo, CSS) when the invoice came from the data folder.
    std::optional<QString> profileFolder;
    // The invoices beside it, for a document that names the invoice it cancels or the quote it
    // came from; empty when the invoice refers to none.
    QList<Invoice> related;
};

// An INVOICE argument as users give it: a path to an invoice JSON file, or an id, an
// unambiguous id prefix or the displayed number of an invoice of the active profile.
// Throws CliError naming the argument and the problem.
InvoiceContext resolveInvoice(const QString& argument);

// The profile folder whose styling a document uses: --profile-dir when given, else the
// folder of the invoice's profile in the data folder. Throws CliError for a missing folder.
std::optional<QString> stylingFolder(const QCommandLineParser& parser, const InvoiceContext& context);

// For commands with actions ("profile rename OLD NEW"): throws CliError unless `arguments`
// holds exactly `count` values.
void expectArguments(const QString& action, const QStringList& arguments, qsizetype count);

// The non-empty parts joined with ", ".
QString joinNonEmpty(const QStringList& parts);

// "1234.50" — amounts on the command line are plain, locale-independent, two decimals.
QString formatAmount(double amount);
void printTotals(QTextStream& stream, const Totals::Summary& summary, const QString& currency);
void writeTotals(JsonWriter& writer, const Totals::Summary& summary, const QString& currency);
