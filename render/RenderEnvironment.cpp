#include "render/RenderEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QLoggingCategory>

#include <cerrno>
#include <sys/stat.h>
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

} // namespace RenderEnvironment
