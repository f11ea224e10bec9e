#pragma once

#include "Command.h"

#include "calc/Totals.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "tasks/DocumentSource.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
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
std::unique_ptr<Command> makeBackupCommand();
std::unique_ptr<Command> makeExportFolderCommand();
std::unique_ptr<Command> makeMailCommand();
std::unique_ptr<Command> makeSearchCommand();
std::unique_ptr<Command> makeExtractCommand();
std::unique_ptr<Command> makeValidateCommand();
std::unique_ptr<Command> makeCheckCommand();
std::unique_ptr<Command> makeResolveCommand();

// A wrong argument or a refused action; like every task failure, its message is shown as it
// stands.
class CliError : public TaskError
{
public:
    using TaskError::TaskError;
};

// A command whose first argument names what to do ("ledra invoice set ID FIELD VALUE"): the
// action is split off once, a missing or unknown one is a usage error, and TaskError thrown by
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

// The user's data folder, opened on first use so that commands that don't touch it never
// create it.
Workspace& workspace();

// The INVOICE argument of the document commands with --profile-dir: an invoice file, or an
// invoice of the active profile, styled by its profile or by the named folder.
void addDocumentOptions(QCommandLineParser& parser);
DocumentSource documentSource(const QCommandLineParser& parser, const QString& argument);

// --profile of the e-invoice commands: the rules the XML follows, xrechnung or en16931, instead
// of the invoice's own choice (or its profile's, or the one its customer calls for). Throws
// CliError for another value.
void addEInvoiceProfileOption(QCommandLineParser& parser);
void applyEInvoiceProfileOption(const QCommandLineParser& parser, DocumentSource& source);

// Where a document is written without -o: beside an invoice file, with its name, or in the
// current folder under the invoice's id. `ending` follows the base name ("-zugferd.pdf").
QString defaultOutputPath(const QString& argument, const DocumentSource& source, const QString& ending);

// "ARG: the e-invoice lacks:" and one missing field per line, on stderr.
void printMissingFields(const QString& command, const IncompleteEInvoice& incomplete);
// "ARG: the e-invoice breaks the rules …" and one broken rule per line (id, flag, text and the
// form field to mend), on stderr.
void printBrokenRules(const QString& command, const RejectedEInvoice& rejected);

// For commands with actions ("profile rename OLD NEW"): throws CliError unless `arguments`
// holds exactly `count` values.
void expectArguments(const QString& action, const QStringList& arguments, qsizetype count);

// Adds the profiles of a Ledra Data file (an export or a backup) beside the existing ones and
// reports each as "<verb> profile "NAME"". Exit status 1 when none came in; throws CliError
// when the file cannot be used.
int importDataFile(const QString& command, const QString& path, const QString& verb);

// What a FILE argument names: the file's bytes, or standard input for "-". Throws CliError
// naming the file ("standard input" for "-") and what went wrong.
QByteArray readInputArgument(const QString& file);
// "standard input" for "-", else the file as given.
QString inputName(const QString& file);

// The non-empty parts joined with ", ".
QString joinNonEmpty(const QStringList& parts);

// "1234.50" — amounts on the command line are plain, locale-independent, two decimals.
QString formatAmount(double amount);
void printTotals(QTextStream& stream, const Totals::Summary& summary, const QString& currency);
void writeTotals(JsonWriter& writer, const Totals::Summary& summary, const QString& currency);
