#include "Command.h"

#include <QRegularExpression>

#include <cstdio>

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

int Command::execute(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(summary());
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    parser.addOption(help);
    configure(parser);
    m_parser = &parser;

    // The parser sees the command name as the program name.
    const bool parsed = parser.parse(arguments.mid(1));
    if (parser.isSet(help)) {
        // QCommandLineParser names the program by its path; show the command as users type it.
        QString text = parser.helpText();
        text.replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                     QStringLiteral("Usage: ledra ") + name());
        out() << text;
        out().flush();
        return ExitCode::ok;
    }
    if (!parsed)
        return usageError(parser.errorText());
    const int status = run(parser);
    out().flush();
    err().flush();
    return status;
}

int Command::fail(const QString& message, int status) const
{
    err() << "ledra " << name() << ": " << message << Qt::endl;
    return status;
}

int Command::usageError(const QString& message) const
{
    err() << "ledra " << name() << ": " << message << Qt::endl
          << "Try 'ledra " << name() << " --help'." << Qt::endl;
    return ExitCode::usage;
}
