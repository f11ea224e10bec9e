#pragma once

#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <memory>
#include <vector>

// Exit statuses shared by all subcommands.
namespace ExitCode {
inline constexpr int ok = 0;
inline constexpr int failure = 1;    // bad input file, failed operation
inline constexpr int incomplete = 2; // the document lacks required fields (e-invoices)
inline constexpr int usage = 64;     // wrong arguments
} // namespace ExitCode

QTextStream& out();
QTextStream& err();

// One subcommand of `ledra`. Each sets up its own parser, so `ledra CMD --help` describes
// exactly that command.
class Command
{
public:
    virtual ~Command() = default;

    virtual QString name() const = 0;
    virtual QString summary() const = 0;

    // `arguments` starts with the program and command name ("ledra totals").
    int execute(const QStringList& arguments);

protected:
    virtual void configure(QCommandLineParser& parser) = 0;
    virtual int run(const QCommandLineParser& parser) = 0;

    // Prints "ledra CMD: message" to stderr and returns the status to exit with.
    int fail(const QString& message, int status = ExitCode::failure) const;
    int usageError(const QString& message) const;

    QCommandLineParser* m_parser = nullptr;
};

std::vector<std::unique_ptr<Command>> allCommands();
