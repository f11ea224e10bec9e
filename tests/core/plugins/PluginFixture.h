#pragma once

#include "plugins/PluginManifest.h"
#include "plugins/PluginRuntime.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStringList>

#include <sys/stat.h>
#include <zip.h>

#include <utility>

// Plugin folders and archives written for real into the test's temporary home.
class PluginFixture : public StorageFixture
{
protected:
    struct ZipEntry
    {
        QString name;
        QByteArray content;
        bool symlink = false;
    };

    QString pluginsFolder() const { return m_home.filePath(QStringLiteral("Plugins")); }

    static QByteArray manifest(const QString& name, const QByteArray& moreFields = {})
    {
        QByteArray json = "{\"name\":\"" + name.toUtf8() + "\",\"version\":\"1.0\"";
        if (!moreFields.isEmpty())
            json += ',' + moreFields;
        return json + '}';
    }

    static void writeFile(const QString& path, const QByteArray& content)
    {
        QDir().mkpath(QFileInfo(path).path());
        ASSERT_FALSE(Files::writeAtomically(path, content)) << qPrintable(path);
    }

    // A plugin folder with a manifest, "main.js" (unless null) and further files.
    static QString writePlugin(const QString& folder, const QString& name, const QByteArray& mainJs,
                               const QByteArray& moreManifestFields = {},
                               const QList<std::pair<QString, QByteArray>>& files = {})
    {
        writeFile(folder + QStringLiteral("/plugin.json"), manifest(name, moreManifestFields));
        if (!mainJs.isNull())
            writeFile(folder + QStringLiteral("/main.js"), mainJs);
        for (const auto& [path, content] : files)
            writeFile(folder + u'/' + path, content);
        return folder;
    }

    QString installedPlugin(const QString& id, const QString& name, const QByteArray& mainJs,
                            const QByteArray& moreManifestFields = {},
                            const QList<std::pair<QString, QByteArray>>& files = {})
    {
        return writePlugin(pluginsFolder() + u'/' + id + QStringLiteral(".ledraplugin"), name, mainJs,
                           moreManifestFields, files);
    }

    // A loaded runtime for a plugin folder; fails the test when it cannot be made.
    static std::unique_ptr<PluginRuntime> runtimeFor(const QString& folder, const RuntimeLimits& limits = {})
    {
        const auto plugin = Plugin::load(folder);
        if (!plugin) {
            ADD_FAILURE() << "not a plugin: " << qPrintable(folder);
            return nullptr;
        }
        auto runtime = PluginRuntime::create(*plugin, limits);
        if (runtime)
            runtime->load();
        return runtime;
    }

    static void makeZip(const QString& path, const QList<ZipEntry>& entries)
    {
        int error = 0;
        zip_t* archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        ASSERT_NE(archive, nullptr) << "zip_open failed: " << error;
        for (const ZipEntry& entry : entries) {
            const QByteArray name = entry.name.toUtf8();
            if (name.endsWith('/')) {
                ASSERT_GE(zip_dir_add(archive, name.constData(), ZIP_FL_ENC_UTF_8), 0);
                continue;
            }
            // ZIP_FL_FREE-less buffers must live until zip_close: libzip copies them then.
            zip_source_t* source =
                zip_source_buffer(archive, entry.content.constData(), zip_uint64_t(entry.content.size()), 0);
            const zip_int64_t index = zip_file_add(archive, name.constData(), source, ZIP_FL_ENC_UTF_8);
            ASSERT_GE(index, 0) << zip_strerror(archive);
            if (entry.symlink)
                zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                                 zip_uint32_t(S_IFLNK | 0777) << 16);
        }
        ASSERT_EQ(zip_close(archive), 0);
    }

    static QStringList filesBelow(const QString& folder)
    {
        QStringList files;
        QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            files.append(QDir(folder).relativeFilePath(it.next()));
        files.sort();
        return files;
    }
};

// Collects the log lines written while it lives.
class LogCapture
{
public:
    LogCapture() : m_previous(qInstallMessageHandler(&LogCapture::handle)) { s_lines = &m_lines; }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_lines = nullptr;
    }
    const QStringList& lines() const { return m_lines; }
    bool contains(const QString& text) const
    {
        return std::any_of(m_lines.begin(), m_lines.end(),
                           [&](const QString& line) { return line.contains(text); });
    }

private:
    static void handle(QtMsgType, const QMessageLogContext&, const QString& message)
    {
        if (s_lines)
            s_lines->append(message);
    }
    static inline QStringList* s_lines = nullptr;
    QStringList m_lines;
    QtMessageHandler m_previous;
};
