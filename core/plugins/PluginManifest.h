#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// "plugin.json": what a plugin says about itself. Unknown keys are ignored; only `name` is
// required.
struct PluginManifest
{
    std::optional<int> specVersion;
    QString name;
    std::optional<QString> description;
    std::optional<QString> version;
    std::optional<QString> url; // the repository link that updates are looked up from
    std::optional<QString> author;
    std::optional<QString> authorUrl;
    std::optional<QString> fileExtension; // without the dot
    std::optional<QString> minLedraVersion;
    QStringList capabilities; // "commands" gives the script the command bridge
    std::optional<int> timer; // minutes between automatic update runs; < 1 means none

    static constexpr const char* fileName = "plugin.json";
    static constexpr const char* commandsCapability = "commands";

    // Throws JsonDecodeError for invalid JSON, a missing name or a value of the wrong type.
    static PluginManifest decode(const QByteArray& bytes);

    bool hasCapability(const QString& capability) const { return capabilities.contains(capability); }

    friend bool operator==(const PluginManifest&, const PluginManifest&) = default;
};

// A plugin folder ("Bank Sync.ledraplugin") with its manifest.
struct Plugin
{
    static constexpr const char* folderExtension = "ledraplugin";
    static constexpr const char* archiveSuffix = ".ledraplugin.zip";
    static constexpr const char* mainScript = "main.js";
    // Written by the updater: the release tag or commit the installed copy came from.
    static constexpr const char* sourceVersionFile = ".ledra-source-version";

    PluginManifest manifest;
    QString directory; // absolute path of the plugin folder

    // The folder's name without the extension: keys settings, runtimes, timers and updates.
    QString id() const;
    // The first "icon" image in the order of preference png, svg, jpg, jpeg, gif, webp.
    std::optional<QString> iconPath() const;
    // The trimmed ".ledra-source-version", when the updater wrote one.
    std::optional<QString> sourceVersion() const;

    // Reads the manifest of a plugin folder and checks for "main.js"; nullopt when either fails.
    static std::optional<Plugin> load(const QString& directory);
    // The id that a folder of this name would have ("Bank Sync.ledraplugin" -> "Bank Sync").
    static QString idForFolderName(const QString& folderName);

    friend bool operator==(const Plugin&, const Plugin&) = default;
};

// Compares version texts as numbers part by part ("1.10" is above "1.9"; "1.2" equals
// "1.2.0"). Negative, zero or positive like strcmp. Text after the numeric parts is ignored.
int compareVersions(const QString& a, const QString& b);
