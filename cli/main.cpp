#include "Command.h"

#include "l10n/Strings.h"

#include <QCoreApplication>
#include <QLoggingCategory>

// Commands that print documents need a GUI application with Qt WebEngine set up.
#include "render/RenderEnvironment.h"

#include <QGuiApplication>

namespace {

void printOverview()
{
    out() << "Usage: ledra COMMAND [OPTIONS]\n\n"
             "Ledra keeps invoices, quotes and profiles as JSON files and issues them as\n"
             "PDF documents and e-invoices. Commands:\n\n";
    for (const auto& command : allCommands())
        out() << "  " << command->name().leftJustified(16) << command->summary() << '\n';
    out() << "\nRun 'ledra COMMAND --help' for the options of a command.\n";
    out().flush();
}

int run(int argc, char* argv[])
{
    QGuiApplication app(argc, argv);
    // Data in ~/.local/share/Ledra, settings in ~/.config/Ledra (no organisation folder).
    QCoreApplication::setApplicationName(QStringLiteral("Ledra"));
    // Store activity ("Loaded 12 invoices") is for debugging; warnings about broken files stay on.
    if (qEnvironmentVariableIsEmpty("LEDRA_VERBOSE"))
        QLoggingCategory::setFilterRules(QStringLiteral("ledra.*.info=false"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LEDRA_VERSION));

    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2 || arguments[1] == u"--help" || arguments[1] == u"-h" ||
        arguments[1] == u"help") {
        if (arguments.size() >= 3 && arguments[1] == u"help") {
            for (const auto& command : allCommands())
                if (command->name() == arguments[2])
                    return command->execute({arguments[0], arguments[2], QStringLiteral("--help")});
        }
        printOverview();
        return arguments.size() < 2 ? ExitCode::usage : ExitCode::ok;
    }
    if (arguments[1] == u"--version") {
        out() << "ledra " << QCoreApplication::applicationVersion() << Qt::endl;
        return ExitCode::ok;
    }
    for (const auto& command : allCommands()) {
        if (command->name() == arguments[1])
            return command->execute(arguments);
    }
    err() << "ledra: unknown command '" << arguments[1] << "'. Run 'ledra --help' for the list." << Qt::endl;
    return ExitCode::usage;
}

} // namespace

int main(int argc, char* argv[])
{
    RenderEnvironment::prepare();
    RenderEnvironment::adoptHelpers();
    // The application object (and with it the web engine) is gone when run() returns; its
    // helper processes end then, and the command returns only after they have.
    const int code = run(argc, argv);
    RenderEnvironment::awaitHelpers();
    return code;
}
