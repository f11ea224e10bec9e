#pragma once

#include "model/Profile.h"
#include "util/ZipArchive.h"

#include <QDate>
#include <QList>
#include <QLoggingCategory>
#include <QString>
#include <QStringList>

#include <stdexcept>

Q_DECLARE_LOGGING_CATEGORY(lcExchange)

class ProfileManager;

// Why an export failed.
enum class ProfileExportErrorCase
{
    fileOperationFailed,
    noProfilesFound,
    zipCreationFailed,
    invalidPath
};

class ProfileExportError : public std::runtime_error
{
public:
    ProfileExportError(ProfileExportErrorCase errorCase, const QString& message);
    ProfileExportErrorCase errorCase() const { return m_case; }
    QString message() const { return QString::fromStdString(what()); }

private:
    ProfileExportErrorCase m_case;
};

// Why an import failed as a whole (single profiles fail on their own, see ProfileImportResult).
enum class ProfileImportErrorCase
{
    invalidFileFormat,
    zipExtractionFailed,
    noProfilesFound
};

class ProfileImportError : public std::runtime_error
{
public:
    explicit ProfileImportError(ProfileImportErrorCase errorCase, const QString& detail = {});
    ProfileImportErrorCase errorCase() const { return m_case; }
    // "The selected file is not a valid Ledra Data file." and the like, in the interface language.
    QString message() const;
    // What exactly went wrong (the unsafe entry, the zip library's reason); may be empty.
    QString detail() const { return m_detail; }

private:
    ProfileImportErrorCase m_case;
    QString m_detail;
};

// Ledra Data files: zip archives with one folder per profile, each a copy of the profile's
// folder in the data folder (profile, styling, logo, style sheet, invoices and reminders).
class ProfileExporter
{
public:
    static constexpr const char* extension = "ledradata";

    explicit ProfileExporter(const ProfileManager& profiles);

    // "Lindqvist Design-2025-03-14.ledradata"; "Profiles-2025-03-14.ledradata" for all.
    static QString suggestedFileName(const Profile& profile, QDate date);
    static QString suggestedAllProfilesFileName(QDate date);

    // Writes the archive of these profiles atomically; throws ProfileExportError.
    void writeArchive(const QList<Profile>& profiles, const QString& destination) const;

    // The folders of these profiles with their names in the archive; for writing elsewhere
    // (a backup on another thread). Throws ProfileExportError for a profile without folder.
    QList<std::pair<QString, QString>> archiveFolders(const QList<Profile>& profiles) const;
    static void writeArchive(const QList<std::pair<QString, QString>>& folders, const QString& destination);

private:
    const ProfileManager& m_profiles;
};

struct ProfileImportResult
{
    // The names the profiles were added under (" Copy" where one of them was there already).
    QStringList imported;
    // "Name: reason" for each profile that could not be added.
    QStringList failures;
};

class ProfileImporter
{
public:
    // Data files come from other machines and from e-mail: what they may unpack to.
    static ZipArchive::Limits limits();

    explicit ProfileImporter(ProfileManager& profiles);

    // Adds the profiles of a Ledra Data file beside the existing ones; never replaces one.
    // The data folder is touched only once a profile's folder is complete in the temporary
    // area. Throws ProfileImportError when the file as a whole cannot be used.
    ProfileImportResult importFile(const QString& path);

private:
    QString uniqueName(const QString& name, bool identityTaken) const;

    ProfileManager& m_profiles;
    QString m_replacedName; // the empty first profile that an import is replacing
};
