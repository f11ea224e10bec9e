#include "plugins/PluginManifest.h"

#include "util/Files.h"

#include "util/JsonReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QVersionNumber>

using namespace Qt::Literals::StringLiterals;

PluginManifest PluginManifest::decode(const QByteArray& bytes)
{
    const JsonDocument document(bytes);
    const JsonFieldReader r(document, DateEncoding::referenceSeconds);
    PluginManifest manifest;
    r.require("name"_L1);
    r.read("specVersion"_L1, manifest.specVersion);
    r.read("name"_L1, manifest.name);
    r.read("description"_L1, manifest.description);
    r.read("version"_L1, manifest.version);
    r.read("url"_L1, manifest.url);
    r.read("author"_L1, manifest.author);
    r.read("authorUrl"_L1, manifest.authorUrl);
    r.read("fileExtension"_L1, manifest.fileExtension);
    r.read("minLedraVersion"_L1, manifest.minLedraVersion);
    r.read("timer"_L1, manifest.timer);
    if (const auto capabilities = r.raw("capabilities"_L1)) {
        simdjson::dom::array array;
        if (capabilities->get_array().get(array) != simdjson::SUCCESS)
            r.fail("capabilities"_L1, u"expected an array of strings"_s);
        for (simdjson::dom::element element : array) {
            std::string_view text;
            if (element.get_string().get(text) != simdjson::SUCCESS)
                r.fail("capabilities"_L1, u"expected an array of strings"_s);
            manifest.capabilities.append(QString::fromUtf8(text.data(), qsizetype(text.size())));
        }
    }
    return manifest;
}

QString Plugin::idForFolderName(const QString& folderName)
{
    const QString suffix = u'.' + QLatin1StringView(folderExtension);
    return folderName.endsWith(suffix) ? folderName.chopped(suffix.size()) : folderName;
}

QString Plugin::id() const
{
    return idForFolderName(QFileInfo(directory).fileName());
}

std::optional<QString> Plugin::iconPath() const
{
    static const QStringList preferred{u"png"_s, u"svg"_s, u"jpg"_s, u"jpeg"_s, u"gif"_s, u"webp"_s};
    const QFileInfoList files = QDir(directory).entryInfoList({u"icon.*"_s}, QDir::Files);
    std::optional<QString> best;
    qsizetype bestRank = preferred.size();
    for (const QFileInfo& file : files) {
        if (file.completeBaseName() != u"icon")
            continue;
        const qsizetype rank = preferred.indexOf(file.suffix().toLower());
        if (rank >= 0 && rank < bestRank) {
            bestRank = rank;
            best = file.absoluteFilePath();
        }
    }
    return best;
}

std::optional<QString> Plugin::sourceVersion() const
{
    const auto bytes = Files::read(QDir(directory).filePath(QLatin1StringView(sourceVersionFile)), nullptr,
                                   {4096, true, true});
    if (!bytes)
        return std::nullopt;
    const QString version = QString::fromUtf8(*bytes).trimmed();
    return version.isEmpty() ? std::nullopt : std::optional(version);
}

std::optional<Plugin> Plugin::load(const QString& directory)
{
    const QDir dir(directory);
    const auto bytes = Files::read(dir.filePath(QLatin1StringView(PluginManifest::fileName)), nullptr,
                                   {Bounds::jsonRecordBytes, true, true});
    if (!bytes)
        return std::nullopt;
    Plugin plugin;
    try {
        plugin.manifest = PluginManifest::decode(*bytes);
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
    if (!QFileInfo(dir.filePath(QLatin1StringView(mainScript))).isFile())
        return std::nullopt;
    plugin.directory = dir.absolutePath();
    return plugin;
}

int compareVersions(const QString& a, const QString& b)
{
    return QVersionNumber::compare(QVersionNumber::fromString(a.trimmed()).normalized(),
                                   QVersionNumber::fromString(b.trimmed()).normalized());
}
