#include "storage/ProfileManager.h"

#include "model/ProfileJson.h"
#include "model/Region.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

Q_LOGGING_CATEGORY(lcStorage, "ledra.storage", QtInfoMsg)

namespace {

const QString profileFileName = QStringLiteral("profile.json");
const QString defaultProfileName = QStringLiteral("Default");

// Guards a flag for the lifetime of a scope.
class FlagGuard
{
public:
    explicit FlagGuard(bool& flag) : m_flag(flag), m_previous(flag) { m_flag = true; }
    ~FlagGuard() { m_flag = m_previous; }

private:
    bool& m_flag;
    bool m_previous;
};

} // namespace

ProfileManager::ProfileManager(QSettings& settings, QString defaultDataFolder, Country region,
                               QObject* parent)
    : QObject(parent), m_settings(settings), m_defaultDataFolder(std::move(defaultDataFolder)),
      m_region(std::move(region)), m_watcher([this]() -> std::optional<QString> {
          return m_dataFolder.isEmpty() ? std::nullopt : std::optional(m_dataFolder);
      })
{
    connect(&m_watcher, &ProfileDirectoryWatcher::changed, this, &ProfileManager::onDirectoryChanged);
}

ProfileManager::ProfileManager(QSettings& settings, QString defaultDataFolder, QObject* parent)
    : ProfileManager(settings, std::move(defaultDataFolder), Region::system(), parent)
{}

QString ProfileManager::defaultDataFolderPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/Data");
}

void ProfileManager::load()
{
    resolveDataFolder();
    loadProfiles();
    if (m_profiles.isEmpty()) {
        Profile created;
        if (const auto error = createProfile(defaultProfileName, &created))
            qCWarning(lcStorage).noquote() << "ProfileManager: Error loading profiles:" << *error;
    }
    resolveActiveProfile();
}

bool ProfileManager::isUntouchedFirstProfile(const Profile& profile) const
{
    if (m_profiles.size() != 1 || m_profiles.first().id != profile.id ||
        profile.profileName != defaultProfileName)
        return false;
    Profile fresh = Profile::makeNew(m_region);
    fresh.id = profile.id;
    fresh.profileName = profile.profileName;
    if (ProfileJson::encode(fresh) != ProfileJson::encode(profile))
        return false;
    // Only what the first start writes: the profile, an empty invoice folder, the styling.
    const QDir folder(profileFolder(profile));
    for (const QFileInfo& entry :
         folder.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (entry.isFile() &&
            (entry.fileName() == profileFileName || entry.fileName() == QStringLiteral("styling.json")))
            continue;
        if (entry.isDir() && !entry.isSymLink() && entry.fileName() == QStringLiteral("Invoices") &&
            QDir(entry.filePath()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot))
            continue;
        return false;
    }
    return true;
}

void ProfileManager::resolveDataFolder()
{
    m_dataFolder = m_defaultDataFolder;
    m_customDataPath.reset();
    const QString stored = m_settings.value(QLatin1StringView(customDataPathKey)).toString();
    if (!stored.isEmpty()) {
        if (QFileInfo(stored).isDir()) {
            m_dataFolder = stored;
            m_customDataPath = stored;
        } else {
            // The chosen folder is gone (an unplugged disk, a deleted folder).
            qCWarning(lcStorage) << "ProfileManager: Security-scoped bookmark is stale, clearing custom path";
            m_settings.remove(QLatin1StringView(customDataPathKey));
        }
    }
    QDir().mkpath(m_dataFolder);
}

void ProfileManager::loadProfiles()
{
    QList<Profile> loaded;
    const QDir root(m_dataFolder);
    if (!root.exists()) {
        qCWarning(lcStorage).noquote()
            << "ProfileManager: Error reading profile folders:" << m_dataFolder << "does not exist";
    }
    const QStringList folders = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& folder : folders) {
        const QString path = root.filePath(folder + u'/' + profileFileName);
        if (!QFileInfo::exists(path))
            continue; // not a profile folder
        QString readError;
        const auto bytes = Files::read(path, &readError);
        if (!bytes) {
            qCWarning(lcStorage).noquote()
                << "ProfileManager: Error loading profile from" << path + u':' << readError;
            continue;
        }
        try {
            Profile profile = ProfileJson::decode(*bytes, m_region);
            profile.profileName = folder;
            loaded.append(profile);
        } catch (const JsonDecodeError& error) {
            qCWarning(lcStorage).noquote()
                << "ProfileManager: Error loading profile from" << path + u':' << error.message();
        }
    }
    if (loaded.isEmpty() && !m_profiles.isEmpty()) {
        // Every folder gone at once is an unmounted disk or a sync engine mid-way, not the
        // user's wish: the profiles stay in memory until the folders are back.
        qCWarning(lcStorage).noquote()
            << "ProfileManager: No profile folder left in" << m_dataFolder << "- keeping the profiles";
        return;
    }
    m_profiles = loaded;
    // Listeners of the change read the active profile: it must be one of the list already.
    if (!m_profiles.isEmpty() && (!m_activeProfileId || !profile(*m_activeProfileId)))
        m_activeProfileId = m_profiles.first().id;
    bumpRevision();
}

void ProfileManager::resolveActiveProfile()
{
    FlagGuard guard(m_isResolvingActiveProfile);
    const QUuid stored = QUuid::fromString(m_settings.value(QLatin1StringView(activeProfileKey)).toString());
    m_activeProfileId.reset();
    if (profile(stored))
        m_activeProfileId = stored;
    else if (!m_profiles.isEmpty())
        m_activeProfileId = m_profiles.first().id;
    if (m_activeProfileId && *m_activeProfileId != stored)
        m_settings.setValue(QLatin1StringView(activeProfileKey),
                            m_activeProfileId->toString(QUuid::WithoutBraces).toUpper());
    m_watcher.refresh();
    if (const auto folder = activeProfileFolder())
        m_watcher.fileWatcher().watchDirectory(*folder);
    m_fingerprint = fingerprint();
    Q_EMIT activeProfileChanged();
}

QString ProfileManager::fingerprint() const
{
    // What the watcher can see change: the profile folders and their profile files.
    QString result;
    const QDir root(m_dataFolder);
    for (const QString& folder : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QFileInfo file(root.filePath(folder + u'/' + profileFileName));
        result += folder + u'|' +
                  QString::number(file.exists() ? file.lastModified().toMSecsSinceEpoch() : -1) + u'|' +
                  QString::number(file.size()) + u'\n';
    }
    return result;
}

void ProfileManager::bumpRevision()
{
    ++m_profilesRevision;
    Q_EMIT profilesChanged();
}

const Profile* ProfileManager::activeProfile() const
{
    return m_activeProfileId ? profile(*m_activeProfileId) : nullptr;
}

const Profile* ProfileManager::profile(const QUuid& id) const
{
    for (const Profile& p : m_profiles)
        if (p.id == id)
            return &p;
    return nullptr;
}

const Profile* ProfileManager::profileNamed(const QString& name) const
{
    for (const Profile& p : m_profiles)
        if (p.profileName == name)
            return &p;
    return nullptr;
}

QString ProfileManager::profileFolder(const Profile& profile) const
{
    return m_dataFolder + u'/' + profile.profileName.value_or(defaultProfileName);
}

std::optional<QString> ProfileManager::activeProfileFolder() const
{
    const Profile* active = activeProfile();
    return active ? std::optional(profileFolder(*active)) : std::nullopt;
}

std::optional<QString> ProfileManager::activeSubfolder(const QString& name) const
{
    const auto folder = activeProfileFolder();
    if (!folder)
        return std::nullopt;
    const QString path = *folder + u'/' + name;
    if (!QDir().mkpath(path))
        return std::nullopt;
    return path;
}

std::optional<QString> ProfileManager::saveProfile(const Profile& updated)
{
    auto it = std::find_if(m_profiles.begin(), m_profiles.end(),
                           [&](const Profile& p) { return p.id == updated.id; });
    if (it == m_profiles.end())
        return QStringLiteral("no such profile");
    Profile toSave = updated;
    toSave.profileName = it->profileName; // the folder name changes only through renameProfile
    const QString folder = profileFolder(toSave);
    if (!QFileInfo(folder).isDir()) {
        qCWarning(lcStorage) << "ProfileManager: Error saving profile: directory not found";
        return QStringLiteral("directory not found: %1").arg(folder);
    }
    QByteArray bytes;
    try {
        bytes = ProfileJson::encode(toSave);
    } catch (const JsonEncodeError& error) {
        qCWarning(lcStorage) << "ProfileManager: Error saving profile:" << error.what();
        return QString::fromUtf8(error.what());
    }
    if (const auto error = Files::writeAtomically(folder + u'/' + profileFileName, bytes)) {
        qCWarning(lcStorage).noquote() << "ProfileManager: Error saving profile:" << *error;
        return error;
    }
    *it = toSave;
    m_fingerprint = fingerprint();
    bumpRevision();
    return std::nullopt;
}

std::optional<QString> ProfileManager::checkProfileName(const QString& name)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("a profile needs a name");
    if (trimmed.contains(u'/') || trimmed.contains(u'\\') || trimmed == u"." || trimmed == u"..")
        return QStringLiteral("\"%1\" cannot be a folder name").arg(name);
    return std::nullopt;
}

std::optional<QString> ProfileManager::createProfile(const QString& name, Profile* created)
{
    if (const auto invalid = checkProfileName(name))
        return invalid;
    const QString folderName = name.trimmed();
    FlagGuard guard(m_isPerformingProfileMutation);
    const QString folder = m_dataFolder + u'/' + folderName;
    if (QFileInfo::exists(folder))
        return QStringLiteral("a profile named \"%1\" already exists").arg(folderName);
    if (!QDir().mkpath(folder + QStringLiteral("/Invoices")))
        return QStringLiteral("cannot create %1").arg(folder);
    Profile profile = Profile::makeNew(m_region);
    profile.profileName = folderName;
    if (const auto error =
            Files::writeAtomically(folder + u'/' + profileFileName, ProfileJson::encode(profile))) {
        qCWarning(lcStorage).noquote() << "ProfileManager: Error saving profile:" << *error;
        QDir(folder).removeRecursively();
        return error;
    }
    m_profiles.append(profile);
    m_fingerprint = fingerprint();
    bumpRevision();
    if (created)
        *created = profile;
    return std::nullopt;
}

std::optional<QString> ProfileManager::renameProfile(const QUuid& id, const QString& newName)
{
    if (const auto invalid = checkProfileName(newName))
        return invalid;
    auto it =
        std::find_if(m_profiles.begin(), m_profiles.end(), [&](const Profile& p) { return p.id == id; });
    if (it == m_profiles.end())
        return QStringLiteral("no such profile");
    const QString target = newName.trimmed();
    if (it->profileName == target)
        return std::nullopt;
    FlagGuard guard(m_isPerformingProfileMutation);
    const QString source = profileFolder(*it);
    const QString destination = m_dataFolder + u'/' + target;
    if (!QFileInfo(source).isDir()) {
        qCWarning(lcStorage) << "ProfileManager: Error renaming profile folder: source not found";
        return QStringLiteral("source not found");
    }
    if (QFileInfo::exists(destination)) {
        qCWarning(lcStorage) << "ProfileManager: Error renaming profile folder: destination already exists";
        return QStringLiteral("destination already exists");
    }
    if (!QDir().rename(source, destination)) {
        const QString error = QStringLiteral("cannot move %1 to %2").arg(source, destination);
        qCWarning(lcStorage).noquote() << "ProfileManager: Error renaming profile folder:" << error;
        return error;
    }
    it->profileName = target;
    bumpRevision();
    if (m_activeProfileId == id)
        resolveActiveProfile(); // its folder moved
    m_fingerprint = fingerprint();
    return std::nullopt;
}

std::optional<QString> ProfileManager::deleteProfile(QUuid id)
{
    const Profile* doomed = profile(id);
    if (!doomed)
        return QStringLiteral("no such profile");
    if (m_profiles.size() == 1)
        return QStringLiteral("the only profile cannot be deleted");
    FlagGuard guard(m_isPerformingProfileMutation);
    const QString folder = profileFolder(*doomed);
    if (!QDir(folder).removeRecursively())
        return QStringLiteral("cannot remove %1").arg(folder);
    m_profiles.removeIf([&](const Profile& p) { return p.id == id; });
    // Another profile becomes active before anyone hears of the change, so no listener ever
    // finds the list without an active profile.
    if (m_activeProfileId == id)
        setActiveProfile(m_profiles.first().id);
    bumpRevision();
    m_fingerprint = fingerprint();
    return std::nullopt;
}

void ProfileManager::setActiveProfile(const QUuid& id)
{
    if (!profile(id))
        return;
    m_settings.setValue(QLatin1StringView(activeProfileKey), id.toString(QUuid::WithoutBraces).toUpper());
    resolveActiveProfile();
}

std::optional<QString> ProfileManager::migrate(const QString& from, const QString& to,
                                               const QString& direction)
{
    if (!QFileInfo(from).isDir()) {
        qCWarning(lcStorage).noquote()
            << "ProfileManager: Migration: Source directory does not exist:" << from;
        return QStringLiteral("source directory does not exist: %1").arg(from);
    }
    if (QFileInfo(to).isDir() && !QDir(to).isEmpty()) {
        // Never mix two data folders: a profile folder of the same name would be overwritten.
        for (const QString& entry : QDir(from).entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
            if (QFileInfo::exists(to + u'/' + entry)) {
                const QString error = QStringLiteral("%1 already holds \"%2\"").arg(to, entry);
                qCWarning(lcStorage).noquote()
                    << "ProfileManager: Error migrating data" << direction + u':' << error;
                return error;
            }
        }
    }
    if (const auto error = Files::copyRecursively(from, to)) {
        qCWarning(lcStorage).noquote()
            << "ProfileManager: Error migrating data" << direction + u':' << *error;
        return error;
    }
    // The copy is complete: only now does the source go.
    QDir(from).removeRecursively();
    return std::nullopt;
}

std::optional<QString> ProfileManager::changeDataFolder(const QString& folder)
{
    const QString target = QDir::cleanPath(QDir(folder).absolutePath());
    if (target == QDir::cleanPath(m_dataFolder))
        return std::nullopt;
    if (target.startsWith(QDir::cleanPath(m_dataFolder) + u'/'))
        return QStringLiteral("the new folder cannot be inside the current data folder");
    FlagGuard guard(m_isPerformingProfileMutation);
    if (const auto error = migrate(m_dataFolder, target, QStringLiteral("to custom path")))
        return error;
    m_settings.setValue(QLatin1StringView(customDataPathKey), target);
    load();
    Q_EMIT customDataPathChanged();
    return std::nullopt;
}

std::optional<QString> ProfileManager::resetDataFolder()
{
    if (!m_customDataPath)
        return std::nullopt;
    FlagGuard guard(m_isPerformingProfileMutation);
    if (const auto error =
            migrate(m_dataFolder, m_defaultDataFolder, QStringLiteral("from custom path back to default")))
        return error;
    m_settings.remove(QLatin1StringView(customDataPathKey));
    load();
    Q_EMIT customDataPathChanged();
    return std::nullopt;
}

void ProfileManager::onDirectoryChanged()
{
    if (m_isPerformingProfileMutation || m_isResolvingActiveProfile)
        return;
    // Events arrive after the store's own writes too; only a difference on disk counts.
    const QString now = fingerprint();
    if (now == m_fingerprint)
        return;
    m_fingerprint = now;
    const std::optional<QUuid> active = m_activeProfileId;
    const std::optional<QString> activeFolder = activeProfileFolder();
    loadProfiles();
    if (!m_profiles.isEmpty() && (!active || !profile(*active) || activeProfileFolder() != activeFolder))
        resolveActiveProfile();
}
