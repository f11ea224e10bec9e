#pragma once

#include "util/Timestamp.h"

#include <QFileSystemWatcher>
#include <QLoggingCategory>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <functional>
#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcWatch)

// Watches files and folders for changes by others (a sync client, a second window, a plugin).
// Watches survive atomic replacement: when a watched file is deleted or renamed over, the
// watch is re-armed as soon as the path exists again.
class FileWatcherManager : public QObject
{
    Q_OBJECT
public:
    explicit FileWatcherManager(QObject* parent = nullptr);

    bool watchFile(const QString& path);
    bool watchDirectory(const QString& path);
    void stopAll();

    std::optional<Timestamp> lastFileChangeDate() const { return m_lastFileChangeDate; }

Q_SIGNALS:
    void fileChanged(const QString& path);
    void directoryChanged(const QString& path);

private:
    void onFileChanged(const QString& path);
    void onDirectoryChanged(const QString& path);
    void rearm();

    QFileSystemWatcher m_watcher;
    QSet<QString> m_files;       // files we want watched, present or not
    QSet<QString> m_directories; // the same for folders
    QTimer m_rearmTimer;         // retries paths that are briefly missing during a replace
    std::optional<Timestamp> m_lastFileChangeDate;
};

// Watches one folder, given by a function so it follows the active profile; reports changes
// to its owner, merged over a short interval (a save touches the folder several times).
class ProfileDirectoryWatcher : public QObject
{
    Q_OBJECT
public:
    using DirectoryFunction = std::function<std::optional<QString>()>;

    explicit ProfileDirectoryWatcher(DirectoryFunction directory, QObject* parent = nullptr);

    // Starts watching the folder the function yields now (stops watching the previous one).
    void refresh();
    FileWatcherManager& fileWatcher() { return m_fileWatcher; }

Q_SIGNALS:
    void changed();

private:
    DirectoryFunction m_directory;
    FileWatcherManager m_fileWatcher;
    QTimer m_debounce;
};
