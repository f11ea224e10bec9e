#include "render/RenderEnvironment.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace RenderEnvironment {

namespace {

QLoggingCategory::CategoryFilter s_previousFilter = nullptr;

void quietEngineReport(QLoggingCategory* category)
{
    if (s_previousFilter)
        s_previousFilter(category);
    if (qstrcmp(category->categoryName(), "qt.webenginecontext") == 0) {
        category->setEnabled(QtInfoMsg, false);
        category->setEnabled(QtWarningMsg, false);
    }
}

// Without a GPU the engine warns on every start that it found no graphics backend; documents
// are drawn in software by design, so that one line says nothing to a user.
QtMessageHandler s_previousHandler = nullptr;

void dropBackendWarning(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtWarningMsg && message.trimmed() == QLatin1String("No suitable graphics backend found"))
        return;
    if (s_previousHandler)
        s_previousHandler(type, context, message);
}

} // namespace

void prepare()
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Documents need no GPU; software rendering starts faster and works on headless machines.
    if (qEnvironmentVariableIsEmpty("QTWEBENGINE_CHROMIUM_FLAGS")) {
        QByteArray flags = "--disable-gpu --disable-logging";
        if (geteuid() == 0)
            flags += " --no-sandbox";
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", flags);
    } else if (geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX")) {
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    }
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        qputenv("QT_QUICK_BACKEND", "software");
    // Headless sessions (CI, ssh) have no runtime folder; Qt complains on every start without one.
    if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
        const QByteArray runtime =
            QDir::tempPath().toLocal8Bit() + "/ledra-runtime-" + QByteArray::number(geteuid());
        if (::mkdir(runtime.constData(), 0700) == 0 || errno == EEXIST)
            qputenv("XDG_RUNTIME_DIR", runtime);
    }
    // The engine's start-up report is noise on a command line. A filter rather than a rule, so
    // that rules set by the program later keep it.
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES")) {
        s_previousFilter = QLoggingCategory::installFilter(quietEngineReport);
        s_previousHandler = qInstallMessageHandler(dropBackendWarning);
    }
}

void adoptHelpers()
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

namespace {

// The processes whose parent is this one, from /proc.
QList<pid_t> childProcesses()
{
    QList<pid_t> children;
    const pid_t self = ::getpid();
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool number = false;
        const pid_t pid = entry.toInt(&number);
        if (!number)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (name) state ppid ...": the name may hold spaces and brackets, so from the last ')'.
        const QByteArray line = stat.read(4096);
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1 && fields[1].toInt() == self)
            children.append(pid);
    }
    return children;
}

// Collects every child that has ended; false once there is none left.
bool reapEnded()
{
    for (;;) {
        const pid_t pid = ::waitpid(-1, nullptr, WNOHANG);
        if (pid > 0)
            continue;
        return !(pid < 0 && errno == ECHILD);
    }
}

} // namespace

void awaitHelpers(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (reapEnded()) {
        if (deadline.hasExpired()) {
            for (const pid_t pid : childProcesses())
                ::kill(pid, SIGKILL);
            while (::waitpid(-1, nullptr, 0) > 0) {
            }
            return;
        }
        QThread::msleep(10);
    }
}

} // namespace RenderEnvironment
