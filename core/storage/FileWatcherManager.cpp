#include "storage/FileWatcherManager.h"

#include "util/Clock.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcWatch, "ledra.watch", QtWarningMsg)

FileWatcherManager::FileWatcherManager(QObject* parent) : QObject(parent)
{
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &FileWatcherManager::onFileChanged);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &FileWatcherManager::onDirectoryChanged);
    m_rearmTimer.setInterval(100);
    connect(&m_rearmTimer, &QTimer::timeout, this, &FileWatcherManager::rearm);
}

bool FileWatcherManager::watchFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists() || info.isDir()) {
        qCWarning(lcWatch).noquote() << "FileWatcherManager: File does not exist:" << path;
        return false;
    }
    if (!m_watcher.files().contains(path) && !m_watcher.addPath(path)) {
        qCWarning(lcWatch).noquote() << "FileWatcherManager: Failed to open file for watching:" << path;
        return false;
    }
    m_files.insert(path);
    return true;
}

bool FileWatcherManager::watchDirectory(const QString& path)
{
    if (!QFileInfo(path).isDir()) {
        qCWarning(lcWatch).noquote() << "FileWatcherManager: Directory does not exist:" << path;
        return false;
    }
    if (!m_watcher.directories().contains(path) && !m_watcher.addPath(path)) {
        qCWarning(lcWatch).noquote() << "FileWatcherManager: Failed to open directory for watching:" << path;
        return false;
    }
    m_directories.insert(path);
    return true;
}

void FileWatcherManager::stopAll()
{
    const QStringList paths = m_watcher.files() + m_watcher.directories();
    if (!paths.isEmpty())
        m_watcher.removePaths(paths);
    m_files.clear();
    m_directories.clear();
    m_rearmTimer.stop();
}

void FileWatcherManager::onFileChanged(const QString& path)
{
    m_lastFileChangeDate = Clock::nowTimestamp();
    qCInfo(lcWatch).noquote() << "FileWatcherManager: File change detected at" << path;
    // inotify drops the watch when the file is replaced by a rename; watch the new file.
    if (!m_watcher.files().contains(path)) {
        if (!QFileInfo::exists(path) || !m_watcher.addPath(path))
            m_rearmTimer.start();
    }
    Q_EMIT fileChanged(path);
}

void FileWatcherManager::onDirectoryChanged(const QString& path)
{
    m_lastFileChangeDate = Clock::nowTimestamp();
    qCInfo(lcWatch).noquote() << "FileWatcherManager: Directory change detected at" << path;
    if (!m_watcher.directories().contains(path))
        m_rearmTimer.start();
    Q_EMIT directoryChanged(path);
}

void FileWatcherManager::rearm()
{
    bool missing = false;
    const QStringList watchedFiles = m_watcher.files();
    for (const QString& path : std::as_const(m_files)) {
        if (watchedFiles.contains(path))
            continue;
        if (QFileInfo::exists(path) && m_watcher.addPath(path))
            Q_EMIT fileChanged(path); // it came back with new content
        else
            missing = true;
    }
    const QStringList watchedDirectories = m_watcher.directories();
    for (const QString& path : std::as_const(m_directories)) {
        if (watchedDirectories.contains(path))
            continue;
        if (QFileInfo(path).isDir() && m_watcher.addPath(path))
            Q_EMIT directoryChanged(path);
        else
            missing = true;
    }
    if (!missing)
        m_rearmTimer.stop();
}

ProfileDirectoryWatcher::ProfileDirectoryWatcher(DirectoryFunction directory, QObject* parent)
    : QObject(parent), m_directory(std::move(directory))
{
    m_debounce.setSingleShot(true);
    m_debounce.setInterval(150);
    connect(&m_debounce, &QTimer::timeout, this, &ProfileDirectoryWatcher::changed);
    connect(&m_fileWatcher, &FileWatcherManager::directoryChanged, &m_debounce, qOverload<>(&QTimer::start));
    connect(&m_fileWatcher, &FileWatcherManager::fileChanged, &m_debounce, qOverload<>(&QTimer::start));
}

void ProfileDirectoryWatcher::refresh()
{
    m_fileWatcher.stopAll();
    m_debounce.stop();
    if (const auto folder = m_directory())
        m_fileWatcher.watchDirectory(*folder);
}
