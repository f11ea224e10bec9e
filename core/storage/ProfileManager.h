#pragma once

#include "model/Profile.h"
#include "storage/FileWatcherManager.h"

#include <QList>
#include <QLoggingCategory>
#include <QObject>
#include <QSettings>
#include <QString>

#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcStorage)

// Owns the data folder and the sender profiles in it: one sub-folder per profile, named after
// the profile, holding "profile.json" and the "Invoices" folder. Remembers the active profile
// and the user's chosen data folder in the settings ("activeProfileId", "customDataPathBookmark").
class ProfileManager : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* activeProfileKey = "activeProfileId";
    static constexpr const char* customDataPathKey = "customDataPathBookmark";

    // `defaultDataFolder` is where data lives unless the user chose a folder (normally
    // defaultDataFolderPath()); `region` presets new profiles.
    ProfileManager(QSettings& settings, QString defaultDataFolder, Country region, QObject* parent = nullptr);
    ProfileManager(QSettings& settings, QString defaultDataFolder, QObject* parent = nullptr);

    // The folder "Data" in the application data location.
    static QString defaultDataFolderPath();

    // Resolves the data folder, loads every profile, creates "Default" when there is none and
    // picks the active profile. Starts watching the data folder.
    void load();

    QString dataFolder() const { return m_dataFolder; }
    std::optional<QString> customDataPath() const { return m_customDataPath; }
    const QList<Profile>& profiles() const { return m_profiles; }
    quint64 profilesRevision() const { return m_profilesRevision; }
    // Absent only before load().
    const Profile* activeProfile() const;
    const Profile* profile(const QUuid& id) const;
    const Profile* profileNamed(const QString& name) const;

    QString profileFolder(const Profile& profile) const;
    // A sub-folder of the active profile's folder, created on request ("Invoices").
    std::optional<QString> activeSubfolder(const QString& name) const;
    std::optional<QString> activeProfileFolder() const;

    // Writes the profile's "profile.json" and takes the new values. Returns the error text.
    std::optional<QString> saveProfile(const Profile& profile);
    // A new profile with region defaults in a new folder of that name.
    std::optional<QString> createProfile(const QString& name, Profile* created = nullptr);
    std::optional<QString> renameProfile(const QUuid& id, const QString& newName);
    // Removes the profile with its folder; the first remaining profile becomes active. The id
    // is a copy: callers often pass the id of the very profile being removed from the list.
    std::optional<QString> deleteProfile(QUuid id);
    void setActiveProfile(const QUuid& id);

    // Copies the whole data folder to `folder`, switches to it and reloads. The old location
    // stays as it is, and stays in use when the copy fails.
    std::optional<QString> changeDataFolder(const QString& folder);
    // Moves the data back to the default folder.
    std::optional<QString> resetDataFolder();

    // True for the profile that the first start created when it is still as it was made: the
    // only profile, its settings the defaults, no invoices, no logo or style sheet. An import
    // into such an installation replaces it (a new machine gets the user's data).
    bool isUntouchedFirstProfile(const Profile& profile) const;

    // A name that can be a folder name: not empty, no slash, not "." or "..".
    static std::optional<QString> checkProfileName(const QString& name);

Q_SIGNALS:
    void profilesChanged();      // profilesRevision increased
    void activeProfileChanged(); // another profile became active, or the active one was reloaded
    void customDataPathChanged();

private:
    void resolveDataFolder();
    void loadProfiles();
    void resolveActiveProfile();
    void bumpRevision();
    void onDirectoryChanged();
    QString fingerprint() const;
    std::optional<QString> migrate(const QString& from, const QString& to, const QString& direction);

    QSettings& m_settings;
    QString m_defaultDataFolder;
    Country m_region;
    QString m_dataFolder;
    std::optional<QString> m_customDataPath;
    QList<Profile> m_profiles;
    quint64 m_profilesRevision = 0;
    std::optional<QUuid> m_activeProfileId;
    ProfileDirectoryWatcher m_watcher;
    QString m_fingerprint; // the folders as the store last saw or wrote them
    // Set while the store itself changes folders, so its own changes don't trigger reloads.
    bool m_isResolvingActiveProfile = false;
    bool m_isPerformingProfileMutation = false;
};
