#include "exchange/ProfileExchange.h"

#include "core/plugins/PluginFixture.h"
#include "model/ProfileJson.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QScopeGuard>
#include <QSet>
#include <QTemporaryDir>

using namespace Qt::Literals::StringLiterals;

namespace {

// Every file below a folder with its bytes, so that "unchanged" means byte for byte.
QMap<QString, QByteArray> snapshot(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(QDir(folder).relativeFilePath(path), Files::read(path).value_or("<unreadable>"));
    }
    return files;
}

QStringList entriesBelow(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

class ProfileExchangeTest : public PluginFixture
{
protected:
    // A profile with everything a real one carries: invoices (one unreadable), a reminder, a
    // styling with logo and style sheet.
    Profile populatedProfile(const QString& name)
    {
        Profile created = Profile::makeNew(Country{u"DE"_s});
        EXPECT_FALSE(profiles().createProfile(name, &created));
        profiles().setActiveProfile(created.id);
        Invoice invoice = invoices().createInvoice();
        invoice.name = u"Jana Becker"_s;
        invoice.items = {TestSupport::line(2, 85, 19)};
        EXPECT_FALSE(invoices().saveInvoice(invoice));
        const QString folder = profiles().profileFolder(created);
        writeFile(folder + u"/Invoices/2025-03-01-BROKEN.json"_s, "{ not json");
        writeFile(folder + u"/Invoices/"_s +
                      InvoiceManager::reminderFileName(InvoiceManager::fileStem(invoice), 1),
                  R"({"id":"0d7f0f4e-1d1a-4d8e-9c53-2b9f6c2f4a11","number":1})");
        writeFile(folder + u"/Styling/styling.json"_s, R"({"accentColor":"#3366ff"})");
        writeFile(folder + u"/Styling/logo.png"_s,
                  QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(500, '\x7f'));
        writeFile(folder + u"/Styling/custom.css"_s, "h1 { letter-spacing: 0.02em; }");
        return *profiles().profile(created.id);
    }

    QString exportFile(const QList<Profile>& chosen, const QString& name = u"out.ledradata"_s)
    {
        const QString path = m_home.filePath(name);
        ProfileExporter(profiles()).writeArchive(chosen, path);
        return path;
    }

    // The error an import throws; fails the test when the import goes through.
    std::optional<ProfileImportError> importError(const QString& path)
    {
        try {
            ProfileImporter(profiles()).importFile(path);
        } catch (const ProfileImportError& error) {
            return error;
        }
        ADD_FAILURE() << "imported " << qPrintable(path);
        return std::nullopt;
    }
};

TEST_F(ProfileExchangeTest, SuggestedNamesCarryTheDate)
{
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.profileName = u"Lindqvist Design"_s;
    const QDate date(2025, 3, 14);
    EXPECT_EQ(ProfileExporter::suggestedFileName(profile, date), u"Lindqvist Design-2025-03-14.ledradata");
    EXPECT_EQ(ProfileExporter::suggestedAllProfilesFileName(date), u"Profiles-2025-03-14.ledradata");
}

TEST_F(ProfileExchangeTest, AProfileTravelsToAnotherInstallationByteForByte)
{
    const Profile profile = populatedProfile(u"Lindqvist Design"_s);
    const QString original = profiles().profileFolder(profile);
    const QString file = exportFile({profile});
    // A temporary folder of this test's own, so that other tests' imports running beside it
    // cannot be mistaken for working folders this one left behind.
    QTemporaryDir ownTemp;
    const QByteArray savedTemp = qgetenv("TMPDIR");
    qputenv("TMPDIR", ownTemp.path().toLocal8Bit());
    const auto restoreTemp = qScopeGuard([&] { qputenv("TMPDIR", savedTemp); });

    // Another machine: a data home of its own with only its default profile.
    QTemporaryDir otherHome;
    QSettings otherSettings(otherHome.filePath(u"settings.ini"_s), QSettings::IniFormat);
    ProfileManager other(otherSettings, otherHome.filePath(u"Data"_s), Country{u"DE"_s});
    other.load();
    const ProfileImportResult result = ProfileImporter(other).importFile(file);
    EXPECT_EQ(result.imported, QStringList{u"Lindqvist Design"_s});
    EXPECT_TRUE(result.failures.isEmpty()) << qPrintable(result.failures.join(u'\n'));

    other.load();
    const Profile* arrived = other.profileNamed(u"Lindqvist Design"_s);
    ASSERT_NE(arrived, nullptr);
    EXPECT_EQ(arrived->id, profile.id); // a new installation keeps the identity
    EXPECT_EQ(snapshot(other.profileFolder(*arrived)), snapshot(original));
    // No working folders stay behind, in the data folder or the temporary one.
    EXPECT_EQ(entriesBelow(other.dataFolder()).filter(u".ledra-import"_s), QStringList());
    EXPECT_EQ(entriesBelow(QDir::tempPath()).filter(u"LedraDataImport"_s), QStringList());
}

TEST_F(ProfileExchangeTest, ImportingIntoTheSameInstallationAddsCopiesAndNeverReplaces)
{
    const Profile profile = populatedProfile(u"Lindqvist Design"_s);
    const auto before = snapshot(profiles().profileFolder(profile));
    const QString file = exportFile({profile});

    EXPECT_EQ(ProfileImporter(profiles()).importFile(file).imported, QStringList{u"Lindqvist Design Copy"_s});
    EXPECT_EQ(ProfileImporter(profiles()).importFile(file).imported,
              QStringList{u"Lindqvist Design Copy 2"_s});
    profiles().load();

    EXPECT_EQ(snapshot(profiles().profileFolder(profile)), before);
    QSet<QUuid> ids{profile.id};
    for (const QString& name : {u"Lindqvist Design Copy"_s, u"Lindqvist Design Copy 2"_s}) {
        const Profile* copy = profiles().profileNamed(name);
        ASSERT_NE(copy, nullptr) << qPrintable(name);
        EXPECT_EQ(copy->profileName, name);
        ids.insert(copy->id);
        // The copy's file names its new identity, and its invoices came along.
        const auto stored =
            ProfileJson::decode(*Files::read(profiles().profileFolder(*copy) + u"/profile.json"_s));
        EXPECT_EQ(stored.id, copy->id);
        EXPECT_EQ(snapshot(profiles().profileFolder(*copy) + u"/Invoices"_s),
                  snapshot(profiles().profileFolder(profile) + u"/Invoices"_s));
    }
    EXPECT_EQ(ids.size(), 3);
}

TEST_F(ProfileExchangeTest, AllProfilesGoInOneFileAndComeBackBeside)
{
    populatedProfile(u"Lindqvist Design"_s);
    populatedProfile(u"Studio Nord"_s);
    const QList<Profile> all = profiles().profiles();
    ASSERT_EQ(all.size(), 3); // with the default profile
    const QString file = exportFile(all, ProfileExporter::suggestedAllProfilesFileName(QDate(2025, 3, 14)));

    QStringList tops;
    for (const QString& entry : ZipArchive::entryNames(file))
        tops.append(entry.section(u'/', 0, 0));
    tops.removeDuplicates();
    tops.sort();
    QStringList names;
    for (const Profile& profile : all)
        names.append(*profile.profileName);
    names.sort();
    EXPECT_EQ(tops, names);

    const auto result = ProfileImporter(profiles()).importFile(file);
    EXPECT_EQ(result.imported.size(), 3);
    EXPECT_TRUE(result.imported.contains(u"Studio Nord Copy"_s));
    profiles().load();
    EXPECT_EQ(profiles().profiles().size(), 6);
}

TEST_F(ProfileExchangeTest, ProfileFoldersOneLevelDeeperAreFound)
{
    const QString zip = m_home.filePath(u"nested.ledradata"_s);
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.profileName = u"Atelier"_s;
    makeZip(zip, {{u"Export/Atelier/profile.json"_s, ProfileJson::encode(profile)},
                  {u"Export/Atelier/Invoices/2025-03-01-AAAAAA.json"_s, "{}"},
                  {u"Export/readme.txt"_s, "hello"}});
    EXPECT_EQ(ProfileImporter(profiles()).importFile(zip).imported, QStringList{u"Atelier"_s});
    profiles().load();
    ASSERT_NE(profiles().profileNamed(u"Atelier"_s), nullptr);
    EXPECT_TRUE(QFileInfo::exists(dataFolder() + u"/Atelier/Invoices/2025-03-01-AAAAAA.json"_s));
}

TEST_F(ProfileExchangeTest, AProfileThatCannotBeReadFailsAloneAndTheOthersArrive)
{
    Profile good = Profile::makeNew(Country{u"DE"_s});
    good.profileName = u"Atelier"_s;
    const QString zip = m_home.filePath(u"mixed.ledradata"_s);
    makeZip(zip,
            {{u"Atelier/profile.json"_s, ProfileJson::encode(good)}, {u"Broken/profile.json"_s, "[1,2"}});
    LogCapture log;
    const auto result = ProfileImporter(profiles()).importFile(zip);
    EXPECT_EQ(result.imported, QStringList{u"Atelier"_s});
    ASSERT_EQ(result.failures.size(), 1);
    EXPECT_TRUE(result.failures.first().startsWith(u"Broken: "));
    EXPECT_TRUE(log.contains(u"Failed to import profile 'Broken'"_s));
    EXPECT_FALSE(QFileInfo::exists(dataFolder() + u"/Broken"_s));
}

// Ledra Data files arrive by e-mail: what is refused leaves the data folder as it was.
TEST_F(ProfileExchangeTest, RefusedFilesLeaveTheDataFolderUntouched)
{
    populatedProfile(u"Lindqvist Design"_s);
    Profile stranger = Profile::makeNew(Country{u"DE"_s});
    stranger.profileName = u"Stranger"_s;
    const QByteArray profileJson = ProfileJson::encode(stranger);
    const auto before = snapshot(dataFolder());

    const QString renamed = m_home.filePath(u"profiles.zip"_s);
    makeZip(renamed, {{u"Stranger/profile.json"_s, profileJson}});
    auto error = importError(renamed);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->errorCase(), ProfileImportErrorCase::invalidFileFormat);
    EXPECT_EQ(error->message(), u"The selected file is not a valid Ledra Data file.");

    const QString notZip = m_home.filePath(u"text.ledradata"_s);
    writeFile(notZip, "just some text");
    error = importError(notZip);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message(), u"Failed to extract the Ledra Data file.");

    const QString empty = m_home.filePath(u"empty.ledradata"_s);
    makeZip(empty, {{u"Stranger/notes.txt"_s, "no profile here"}});
    error = importError(empty);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message(), u"No valid profiles found in the Ledra Data file.");

    const QList<QList<ZipEntry>> hostile = {
        {{u"Stranger/profile.json"_s, profileJson}, {u"Stranger/../../evil.json"_s, "x"}},
        {{u"Stranger/profile.json"_s, profileJson}, {u"/tmp/evil.json"_s, "x"}},
        {{u"Stranger/profile.json"_s, profileJson}, {u"Stranger\\..\\evil.json"_s, "x"}},
        {{u"Stranger/profile.json"_s, profileJson}, {u"C:/evil.json"_s, "x"}},
        {{u"Stranger/profile.json"_s, profileJson}, {u"Stranger/Invoices"_s, "/etc", true}},
    };
    for (const auto& entries : hostile) {
        const QString zip = m_home.filePath(u"hostile.ledradata"_s);
        makeZip(zip, entries);
        error = importError(zip);
        ASSERT_TRUE(error) << qPrintable(entries.last().name);
        EXPECT_EQ(error->errorCase(), ProfileImportErrorCase::zipExtractionFailed)
            << qPrintable(entries.last().name);
        EXPECT_FALSE(error->detail().isEmpty());
    }
    EXPECT_EQ(snapshot(dataFolder()), before);
    EXPECT_FALSE(QFileInfo::exists(m_home.filePath(u"evil.json"_s)));
}

TEST_F(ProfileExchangeTest, ArchivesBeyondTheLimitsAreRefusedBeforeUnpacking)
{
    const QString zip = m_home.filePath(u"big.zip"_s);
    makeZip(zip, {{u"a/1.txt"_s, QByteArray(3000, 'a')}, {u"a/2.txt"_s, QByteArray(3000, 'b')}});
    const QString target = m_home.filePath(u"unpacked"_s);
    EXPECT_THROW(ZipArchive::extract(zip, target, {5000, 100}), ZipArchive::ZipError);
    EXPECT_THROW(ZipArchive::extract(zip, target, {100000, 1}), ZipArchive::ZipError);
    EXPECT_FALSE(QFileInfo::exists(target));
    ZipArchive::extract(zip, target, {6000, 2});
    EXPECT_EQ(filesBelow(target), (QStringList{u"a/1.txt"_s, u"a/2.txt"_s}));
}

TEST_F(ProfileExchangeTest, ExportFailuresSayWhy)
{
    auto exportCase = [&](const QList<Profile>& chosen, const QString& destination) {
        try {
            ProfileExporter(profiles()).writeArchive(chosen, destination);
        } catch (const ProfileExportError& error) {
            return std::optional(error.errorCase());
        }
        return std::optional<ProfileExportErrorCase>();
    };
    EXPECT_EQ(exportCase({}, m_home.filePath(u"x.ledradata"_s)), ProfileExportErrorCase::noProfilesFound);
    EXPECT_EQ(exportCase(profiles().profiles(), m_home.filePath(u"missing/x.ledradata"_s)),
              ProfileExportErrorCase::invalidPath);
    EXPECT_EQ(exportCase(profiles().profiles(), m_home.path()), ProfileExportErrorCase::invalidPath);

    Profile ghost = Profile::makeNew(Country{u"DE"_s});
    ghost.profileName = u"Ghost"_s;
    try {
        ProfileExporter(profiles()).writeArchive({ghost}, m_home.filePath(u"x.ledradata"_s));
        FAIL() << "exported a profile without folder";
    } catch (const ProfileExportError& error) {
        EXPECT_EQ(error.errorCase(), ProfileExportErrorCase::fileOperationFailed);
        EXPECT_TRUE(error.message().startsWith(u"Profile directory not found: "));
    }
    EXPECT_FALSE(QFileInfo::exists(m_home.filePath(u"x.ledradata"_s)));

    // An existing file is replaced whole, never appended to.
    const QString file = m_home.filePath(u"again.ledradata"_s);
    writeFile(file, "old content");
    ProfileExporter(profiles()).writeArchive(profiles().profiles(), file);
    EXPECT_FALSE(ZipArchive::entryNames(file).isEmpty());
}
