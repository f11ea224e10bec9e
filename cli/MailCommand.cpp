#include "Commands.h"

#include "exchange/MailExtensionSync.h"
#include "tasks/MailExtensionHandler.h"

#include <QDir>
#include <QEventLoop>
#include <QFileSystemWatcher>
#include <QSocketNotifier>

#include <csignal>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

int g_stopPipe[2] = {-1, -1};

void stop(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_stopPipe[1], &byte, 1);
}

// The exchange with a mail-client add-on (docs/mail-extension.md).
class MailCommand : public ActionCommand
{
public:
    QString name() const override { return u"mail"_s; }
    QString summary() const override
    {
        return u"Write the mail add-on's invoice list and serve its requests for attachments."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"once"_s, u"serve: serve a waiting request and quit."_s});
        parser.addPositionalArgument(
            u"action"_s,
            u"sync (writes MailExtensionSync.json) | serve [--once] (answers ExportRequest.json as it "
            u"comes, until interrupted). The shared folder is "_s +
                MailExtension::containerPath() + u'.',
            u"ACTION"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser& parser) override
    {
        MailExtensionExportHandler handler(workspace());
        if (action == u"sync") {
            action.expect(0);
            if (!handler.sync())
                throw CliError(u"the sync file could not be written (see the message above)"_s);
            out() << MailExtension::containerPath() << '/' << MailExtension::syncFileName << '\n';
            return ExitCode::ok;
        }
        if (action == u"serve") {
            action.expect(0);
            handler.sync();
            if (parser.isSet(u"once"_s)) {
                if (const auto written = handler.handlePendingRequestNow())
                    out() << *written << '\n';
                else
                    err() << "No attachment written: no request waiting, or one that could not be served.\n";
                return ExitCode::ok;
            }
            return serve(handler);
        }
        return std::nullopt;
    }

private:
    static int serve(MailExtensionExportHandler& handler)
    {
        QDir().mkpath(handler.attachmentsFolder());
        QFileSystemWatcher watcher({handler.attachmentsFolder()});
        auto serveWaiting = [&] {
            handler.handlePendingRequest([](std::optional<QString> written) {
                if (written) {
                    out() << *written << Qt::endl;
                }
            });
        };
        QObject::connect(&watcher, &QFileSystemWatcher::directoryChanged, &watcher, serveWaiting);
        serveWaiting();
        // Ctrl+C ends the loop cleanly, so that nothing is left half written.
        if (::pipe(g_stopPipe) != 0)
            throw CliError(u"cannot wait for requests"_s);
        QSocketNotifier stopped(g_stopPipe[0], QSocketNotifier::Read);
        QEventLoop loop;
        QObject::connect(&stopped, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
        std::signal(SIGINT, stop);
        std::signal(SIGTERM, stop);
        err() << "Serving requests in " << handler.attachmentsFolder() << "; Ctrl+C stops." << Qt::endl;
        loop.exec();
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeMailCommand()
{
    return std::make_unique<MailCommand>();
}
