#include "exchange/ProfileExchange.h"

#include "l10n/Strings.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "model/ValueCheck.h"
#include "reminders/ReminderJson.h"
#include "storage/ProfileManager.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUuid>

Q_LOGGING_CATEGORY(lcExchange, "ledra.exchange", QtInfoMsg)

using namespace Qt::Literals::StringLiterals;

namespace {

const QString profileFile = u"profile.json"_s;

QString dated(const QString& name, QDate date)
{
    return name + u'-' + date.toString(u"yyyy-MM-dd"_s) + u".ledradata"_s;
}

QString exportErrorText(ProfileExportErrorCase errorCase)
{
    switch (errorCase) {
    case ProfileExportErrorCase::fileOperationFailed:
        return Strings::ui(u"A file could not be read or written.");
    case ProfileExportErrorCase::noProfilesFound:
        return Strings::ui(u"There are no profiles to export.");
    case ProfileExportErrorCase::zipCreationFailed:
        return Strings::ui(u"The Ledra Data file could not be written.");
    case ProfileExportErrorCase::invalidPath:
        return Strings::ui(u"The chosen place cannot hold the Ledra Data file.");
    }
    return {};
}

// The folders of an unpacked archive that hold a profile: at its top, or one level deeper
// (an archive of a folder that held the profile folders).
QStringList profileFolders(const QString& root)
{
    QStringList found;
    const QDir top(root);
    const QStringList children = top.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& child : children)
        if (QFileInfo(top.filePath(child) + u'/' + profileFile).isFile())
            found.append(top.filePath(child));
    if (!found.isEmpty())
        return found;
    for (const QString& child : children) {
        const QDir level(top.filePath(child));
        for (const QString& grandchild : level.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
            if (QFileInfo(level.filePath(grandchild) + u'/' + profileFile).isFile())
                found.append(level.filePath(grandchild));
    }
    return found;
}

// The styling record is read by the renderer, which lives above this layer: its strings are
// checked as lines here, its colours as six hexadecimal digits.
std::optional<ValueCheck::Problem> checkStyling(const QByteArray& bytes)
{
    static const QRegularExpression hex(u"^[0-9A-Fa-f]{6}$"_s);
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it->isString())
            continue;
        const QString value = it->toString();
        if ((it.key() == u"primaryColor" || it.key() == u"accentColor") && !hex.match(value).hasMatch())
            return ValueCheck::Problem{
                it.key(), u"\"%1\" is not a colour of six hexadecimal digits"_s.arg(value.left(40))};
        if (auto problem = ValueCheck::line(it.key(), value))
            return problem;
    }
    return std::nullopt;
}

// What a profile folder from a data file holds, checked before any of it reaches the data
// folder: the profile, its styling, and every invoice and reminder that decodes (the stores
// skip the others). The message names the file, relative to the archive, and the field.
std::optional<QString> checkProfileFolder(const QString& folder)
{
    const QDir dir(folder);
    const QString shown = dir.dirName() + u'/';
    auto describe = [&](const QString& file, const ValueCheck::Problem& problem) {
        return shown + file + u": "_s + problem.text();
    };
    try {
        const auto profileBytes = Files::read(dir.filePath(profileFile));
        if (auto problem = ValueCheck::profile(ProfileJson::decode(profileBytes.value_or(QByteArray()))))
            return describe(profileFile, *problem);
    } catch (const std::exception&) {
        // An undecodable profile fails on its own further on, with the decoder's words.
    }
    if (const auto styling = Files::read(dir.filePath(u"styling.json"_s)))
        if (auto problem = checkStyling(*styling))
            return describe(u"styling.json"_s, *problem);
    const QDir invoices(dir.filePath(u"Invoices"_s));
    for (const QString& name : invoices.entryList({u"*.json"_s}, QDir::Files, QDir::Name)) {
        const auto bytes = Files::read(invoices.filePath(name));
        if (!bytes)
            continue;
        try {
            if (name.contains(u"-reminder"_s)) {
                const Reminder reminder = ReminderJson::decode(*bytes);
                if (auto problem = ValueCheck::text(u"text"_s, reminder.text))
                    return describe(u"Invoices/"_s + name, *problem);
            } else if (auto problem = ValueCheck::invoice(InvoiceJson::decode(*bytes))) {
                return describe(u"Invoices/"_s + name, *problem);
            }
        } catch (const std::exception&) {
            continue;
        }
    }
    return std::nullopt;
}

} // namespace

ProfileExportError::ProfileExportError(ProfileExportErrorCase errorCase, const QString& message)
    : std::runtime_error((message.isEmpty() ? exportErrorText(errorCase) : message).toStdString()),
      m_case(errorCase)
{}

ProfileImportError::ProfileImportError(ProfileImportErrorCase errorCase, const QString& detail)
    : std::runtime_error(detail.toStdString()), m_case(errorCase), m_detail(detail)
{}

QString ProfileImportError::message() const
{
    switch (m_case) {
    case ProfileImportErrorCase::invalidFileFormat:
        return Strings::ui(u"The selected file is not a valid Ledra Data file.");
    case ProfileImportErrorCase::zipExtractionFailed:
        return Strings::ui(u"Failed to extract the Ledra Data file.");
    case ProfileImportErrorCase::noProfilesFound:
        return Strings::ui(u"No valid profiles found in the Ledra Data file.");
    }
    return {};
}

ProfileExporter::ProfileExporter(const ProfileManager& profiles) : m_profiles(profiles) {}

QString ProfileExporter::suggestedFileName(const Profile& profile, QDate date)
{
    return dated(profile.displayName(), date);
}

QString ProfileExporter::suggestedAllProfilesFileName(QDate date)
{
    return dated(Strings::ui(u"Profiles"), date);
}

QList<std::pair<QString, QString>> ProfileExporter::archiveFolders(const QList<Profile>& profiles) const
{
    QList<std::pair<QString, QString>> folders;
    for (const Profile& profile : profiles) {
        if (!profile.profileName || profile.profileName->trimmed().isEmpty())
            throw ProfileExportError(ProfileExportErrorCase::fileOperationFailed, u"Profile has no name"_s);
        const QString folder = m_profiles.profileFolder(profile);
        if (!QFileInfo(folder).isDir())
            throw ProfileExportError(ProfileExportErrorCase::fileOperationFailed,
                                     u"Profile directory not found: "_s + folder);
        folders.append({folder, *profile.profileName});
    }
    if (folders.isEmpty())
        throw ProfileExportError(ProfileExportErrorCase::noProfilesFound, {});
    return folders;
}

void ProfileExporter::writeArchive(const QList<Profile>& profiles, const QString& destination) const
{
    writeArchive(archiveFolders(profiles), destination);
}

void ProfileExporter::writeArchive(const QList<std::pair<QString, QString>>& folders,
                                   const QString& destination)
{
    if (folders.isEmpty())
        throw ProfileExportError(ProfileExportErrorCase::noProfilesFound, {});
    const QFileInfo target(destination);
    if (destination.isEmpty() || target.isDir() || !target.absoluteDir().exists())
        throw ProfileExportError(ProfileExportErrorCase::invalidPath, {});
    try {
        ZipArchive::create(destination, folders);
    } catch (const ZipArchive::ZipError& error) {
        throw ProfileExportError(ProfileExportErrorCase::zipCreationFailed,
                                 exportErrorText(ProfileExportErrorCase::zipCreationFailed) + u' ' +
                                     error.message());
    }
}

ZipArchive::Limits ProfileImporter::limits()
{
    // A profile of ten thousand invoices with reminders and a logo stays far below these.
    return {qint64(2) * 1024 * 1024 * 1024, 250000};
}

ProfileImporter::ProfileImporter(ProfileManager& profiles) : m_profiles(profiles) {}

QString ProfileImporter::uniqueName(const QString& name, bool identityTaken) const
{
    const QDir data(m_profiles.dataFolder());
    auto taken = [&](const QString& candidate) {
        if (!m_replacedName.isEmpty() && candidate == m_replacedName)
            return false;
        return m_profiles.profileNamed(candidate) != nullptr || QFileInfo::exists(data.filePath(candidate));
    };
    if (!identityTaken && !taken(name))
        return name;
    QString candidate = name + u" Copy"_s;
    for (int n = 2; taken(candidate); ++n)
        candidate = name + u" Copy "_s + QString::number(n);
    return candidate;
}

ProfileImportResult ProfileImporter::importFile(const QString& path)
{
    if (QFileInfo(path).suffix().toLower() != QLatin1StringView(ProfileExporter::extension))
        throw ProfileImportError(ProfileImportErrorCase::invalidFileFormat, path);
    QTemporaryDir work(QDir::tempPath() + u"/LedraDataImport-XXXXXX"_s);
    if (!work.isValid())
        throw ProfileImportError(ProfileImportErrorCase::zipExtractionFailed, work.errorString());
    const QString unpacked = work.filePath(u"unpacked"_s);
    try {
        ZipArchive::extract(path, unpacked, limits());
    } catch (const ZipArchive::ZipError& error) {
        throw ProfileImportError(ProfileImportErrorCase::zipExtractionFailed, error.message());
    }
    const QStringList folders = profileFolders(unpacked);
    if (folders.isEmpty())
        throw ProfileImportError(ProfileImportErrorCase::noProfilesFound, path);

    ProfileImportResult result;
    const QDir data(m_profiles.dataFolder());
    QDir().mkpath(data.path());
    // On a new machine the only profile is the empty one of the first start: the imported
    // profiles take its place instead of joining it, and the first of them becomes active.
    std::optional<Profile> replaced;
    if (m_profiles.profiles().size() == 1 &&
        m_profiles.isUntouchedFirstProfile(m_profiles.profiles().first()))
        replaced = m_profiles.profiles().first();
    const QString replacedFolder = replaced ? m_profiles.profileFolder(*replaced) : QString();
    const QString asideFolder =
        data.filePath(u".ledra-replaced-"_s + QUuid::createUuid().toString(QUuid::Id128));
    if (replaced && !QDir().rename(replacedFolder, asideFolder))
        replaced.reset();
    m_replacedName = replaced ? replaced->displayName() : QString();
    std::optional<QUuid> firstImported;
    // Complete profile folders wait here, inside the data folder (one file system, so the last
    // step is a rename) but one level down, where the profile store does not look for profiles.
    const QString staging = data.filePath(u".ledra-import-"_s + QUuid::createUuid().toString(QUuid::Id128));
    for (const QString& folder : folders) {
        const QString sourceName = QFileInfo(folder).fileName();
        try {
            // Nothing of a profile that holds a value we refuse goes into the data folder.
            if (const auto problem = checkProfileFolder(folder))
                throw std::runtime_error(problem->toStdString());
            const auto bytes = Files::read(folder + u'/' + profileFile);
            Profile profile = ProfileJson::decode(bytes.value_or(QByteArray()));
            const bool identityTaken = m_profiles.profile(profile.id) != nullptr;
            const QString name = uniqueName(sourceName, identityTaken);
            if (identityTaken) {
                profile.id = QUuid::createUuid();
                profile.profileName = name;
                if (const auto error =
                        Files::writeAtomically(folder + u'/' + profileFile, ProfileJson::encode(profile)))
                    qCWarning(lcExchange).noquote()
                        << "Warning: Could not update profile ID and name:" << *error;
            }
            const QString staged = staging + u'/' + name;
            QDir().mkpath(staging);
            // Where the temporary folder shares the data folder's file system, the unpacked
            // folder just moves; elsewhere it is copied.
            if (!QDir().rename(folder, staged))
                if (const auto error = Files::copyRecursively(folder, staged))
                    throw std::runtime_error(error->toStdString());
            if (!QDir().rename(staged, data.filePath(name)))
                throw std::runtime_error(
                    QStringLiteral("could not move the profile into %1").arg(data.path()).toStdString());
            result.imported.append(name);
            if (!firstImported)
                firstImported = profile.id;
        } catch (const std::exception& error) {
            qCWarning(lcExchange).noquote()
                << u"Failed to import profile '%1'"_s.arg(sourceName) << QString::fromUtf8(error.what());
            result.failures.append(sourceName + u": "_s + QString::fromUtf8(error.what()));
        }
    }
    QDir(staging).removeRecursively();
    m_replacedName.clear();
    if (replaced) {
        // The empty profile goes only when something came in; else it is put back as it was.
        if (firstImported)
            QDir(asideFolder).removeRecursively();
        else
            QDir().rename(asideFolder, replacedFolder);
    }
    m_profiles.load();
    if (replaced && firstImported)
        m_profiles.setActiveProfile(*firstImported);
    return result;
}
