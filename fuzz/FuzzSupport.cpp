#include "FuzzSupport.h"

#include <QCoreApplication>
#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

namespace FuzzSupport {

void setUp()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    static int argc = 1;
    static char name[] = "ledra-fuzz";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "fatal: %s\n", qPrintable(message));
    });
}

bool accept(size_t size, size_t maxSize)
{
    return size <= maxSize;
}

void fail(const char* what)
{
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
}

} // namespace FuzzSupport
