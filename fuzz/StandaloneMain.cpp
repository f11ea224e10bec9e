// Runs a fuzz target once on each file named (folders: each file inside, sorted), without
// libFuzzer: the seed corpora become smoke tests of every normal build, and a finding can be
// replayed under a debugger with a plain compiler.
#include "FuzzSupport.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cstdio>

int main(int argc, char** argv)
{
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        if (QFileInfo(path).isDir()) {
            QStringList inside;
            QDirIterator it(path, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext())
                inside.append(it.next());
            std::sort(inside.begin(), inside.end());
            files += inside;
        } else {
            files.append(path);
        }
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\n", argv[0]);
        return 2;
    }
    QElapsedTimer timer;
    timer.start();
    for (const QString& path : files) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
            return 1;
        }
        const QByteArray data = file.readAll();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.constData()),
                               static_cast<size_t>(data.size()));
    }
    std::printf("%lld inputs in %lld ms\n", static_cast<long long>(files.size()),
                static_cast<long long>(timer.elapsed()));
    return 0;
}
