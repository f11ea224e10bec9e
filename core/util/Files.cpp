#include "util/Files.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Files {

namespace {

QString systemError(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// Closes a descriptor when it goes out of scope.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

QString sizeText(qint64 bytes)
{
    if (bytes >= Bounds::megabyte)
        return QStringLiteral("%1 MB").arg(bytes / Bounds::megabyte);
    return QStringLiteral("%1 KB").arg(bytes / 1024);
}

} // namespace

std::optional<QByteArray> read(const QString& path, QString* error, const ReadLimits& limits)
{
    auto failed = [error](const QString& reason) -> std::optional<QByteArray> {
        if (error)
            *error = reason;
        return std::nullopt;
    };
    // O_NONBLOCK: opening a FIFO must not wait for a writer. Regular files ignore it.
    int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (!limits.followLink)
        flags |= O_NOFOLLOW;
    const Descriptor fd(::open(QFile::encodeName(path).constData(), flags));
    if (!fd.valid()) {
        const int code = errno;
        if (code == ELOOP && !limits.followLink)
            return failed(QStringLiteral("it is a symbolic link"));
        return failed(systemError(code));
    }
    struct stat info
    {};
    if (::fstat(fd.get(), &info) != 0)
        return failed(systemError(errno));
    if (S_ISDIR(info.st_mode))
        return failed(systemError(EISDIR));
    const bool regular = S_ISREG(info.st_mode);
    if (!regular && limits.regularOnly)
        return failed(QStringLiteral("it is not a regular file"));
    if (regular && info.st_size > limits.maxBytes)
        return failed(QStringLiteral("it is larger than %1").arg(sizeText(limits.maxBytes)));
    if (!regular) {
        // A pipe the user named: wait for its data like any reader would.
        ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    }
    QByteArray bytes;
    if (regular)
        bytes.reserve(qsizetype(info.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return failed(systemError(errno));
        }
        if (got == 0)
            break;
        // A file that grows while it is read is held to the same limit.
        if (bytes.size() + got > limits.maxBytes)
            return failed(QStringLiteral("it is larger than %1").arg(sizeText(limits.maxBytes)));
        bytes.append(buffer, got);
    }
    return bytes;
}

std::optional<QString> writeAtomically(const QString& path, const QByteArray& content, FolderLink folderLink)
{
    const QFileInfo target(path);
    const QString fileName = target.fileName();
    if (fileName.isEmpty() || fileName == QLatin1StringView(".") || fileName == QLatin1StringView(".."))
        return QStringLiteral("%1 is not a file name").arg(path);
    int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    if (folderLink == FolderLink::refused)
        folderFlags |= O_NOFOLLOW;
    const Descriptor folder(::open(QFile::encodeName(target.absolutePath()).constData(), folderFlags));
    if (!folder.valid()) {
        const int code = errno;
        if (folderLink == FolderLink::refused && (code == ELOOP || code == ENOTDIR))
            return QStringLiteral("the folder %1 is a symbolic link").arg(target.absolutePath());
        return systemError(code);
    }
    const QByteArray name = QFile::encodeName(fileName);

    // Keep the permissions of a file being replaced; a link or anything else gets the default.
    mode_t mode = 0666;
    bool keepMode = false;
    struct stat existing
    {};
    if (::fstatat(folder.get(), name.constData(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISDIR(existing.st_mode))
            return systemError(EISDIR);
        if (S_ISREG(existing.st_mode)) {
            mode = existing.st_mode & 07777;
            keepMode = true;
        }
    }

    QByteArray temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        temporary = '.' + name + ".tmp-" + QByteArray::number(QRandomGenerator::global()->generate64(), 36);
        fd = ::openat(folder.get(), temporary.constData(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, keepMode ? 0600 : mode);
        if (fd < 0 && errno != EEXIST)
            return systemError(errno);
    }
    if (fd < 0)
        return systemError(EEXIST);
    const Descriptor file(fd);
    auto abandon = [&](int code) -> std::optional<QString> {
        ::unlinkat(folder.get(), temporary.constData(), 0);
        return systemError(code);
    };
    if (keepMode && ::fchmod(file.get(), mode) != 0)
        return abandon(errno);
    const char* data = content.constData();
    qsizetype left = content.size();
    while (left > 0) {
        const ssize_t written = ::write(file.get(), data, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return abandon(errno);
        }
        data += written;
        left -= written;
    }
    if (::fsync(file.get()) != 0)
        return abandon(errno);
    // rename() replaces whatever entry has the name, a link included, and never follows it.
    if (::renameat(folder.get(), temporary.constData(), folder.get(), name.constData()) != 0)
        return abandon(errno);
    return std::nullopt;
}

std::optional<QString> replace(const QString& source, const QString& destination)
{
    if (::rename(QFile::encodeName(source).constData(), QFile::encodeName(destination).constData()) != 0)
        return systemError(errno);
    return std::nullopt;
}

std::optional<QString> copyRecursively(const QString& source, const QString& destination)
{
    const QDir sourceDir(source);
    if (!sourceDir.exists())
        return QStringLiteral("%1 does not exist").arg(source);
    // Look first, copy after: a refused folder leaves nothing behind.
    QDirIterator it(source, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System,
                    QDirIterator::Subdirectories);
    QList<QFileInfo> entries;
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (info.isSymLink())
            return QStringLiteral("%1 is a symbolic link; folders with links are not copied")
                .arg(info.filePath());
        if (!info.isDir() && !info.isFile())
            return QStringLiteral("%1 is not a regular file").arg(info.filePath());
        entries.append(info);
    }
    if (!QDir().mkpath(destination))
        return QStringLiteral("cannot create %1").arg(destination);
    for (const QFileInfo& info : entries) {
        const QString path = info.filePath();
        const QString target = destination + u'/' + sourceDir.relativeFilePath(path);
        if (info.isDir()) {
            if (!QDir().mkpath(target))
                return QStringLiteral("cannot create %1").arg(target);
        } else {
            QDir().mkpath(QFileInfo(target).path());
            QFile::remove(target);
            QFile file(path);
            if (!file.copy(target))
                return QStringLiteral("cannot copy %1 to %2: %3").arg(path, target, file.errorString());
        }
    }
    return std::nullopt;
}

} // namespace Files
