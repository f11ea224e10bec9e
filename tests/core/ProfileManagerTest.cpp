#include "storage/ProfileManager.h"

#include "model/ProfileJson.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>

class ProfileManagerTest : public StorageFixture
{
protected:
    void writeProfile(const QString& folder, const Profile& profile)
    {
        QDir().mkpath(dataFolder() + u'/' + folder);
        ASSERT_FALSE(Files::writeAtomically(dataFolder() + u'/' + folder + u"/profile.json"_qs,
                                            ProfileJson::encode(profile)));
    }
};

TEST_F(ProfileManagerTest, FirstStartCreatesTheDefaultProfile)
{
    ProfileManager& manager = profiles();
    ASSERT_EQ(manager.profiles().size(), 1);
    const Profile* active = manager.activeProfile();
    ASSERT_NE(active, nullptr);
    EXPECT_EQ(active->profileName, u"Default");
    EXPECT_EQ(active->language, Language::german); // region DE
    EXPECT_TRUE(QFile::exists(dataFolder() + u"/Default/profile.json"_qs));
    EXPECT_EQ(QUuid::fromString(m_settings.value(u"activeProfileId"_qs).toString()), active->id);

    // A second start finds the same profile rather than creating another.
    ProfileManager again(m_settings, dataFolder(), Country{QStringLiteral("DE")});
    again.load();
    ASSERT_EQ(again.profiles().size(), 1);
    EXPECT_EQ(again.activeProfile()->id, active->id);
}

TEST_F(ProfileManagerTest, ActiveProfileFromSettingsElseTheFirst)
{
    Profile a = Profile::makeNew(Country{QStringLiteral("DE")});
    Profile b = Profile::makeNew(Country{QStringLiteral("AT")});
    writeProfile(u"Agency"_qs, a);
    writeProfile(u"Bakery"_qs, b);
    QDir().mkpath(dataFolder() + u"/Not a profile"_qs);
    QDir().mkpath(dataFolder() + u"/Broken"_qs);
    QFile broken(dataFolder() + u"/Broken/profile.json"_qs);
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("{ \"language\": \"fr\" }");
    broken.close();

    m_settings.setValue(u"activeProfileId"_qs, b.id.toString());
    ProfileManager& manager = profiles();
    EXPECT_EQ(manager.profiles().size(), 2); // the folder without profile.json and the broken one are skipped
    EXPECT_EQ(manager.activeProfile()->id, b.id);
    EXPECT_EQ(manager.activeProfile()->profileName, u"Bakery");

    m_settings.setValue(u"activeProfileId"_qs, QUuid::createUuid().toString());
    ProfileManager other(m_settings, dataFolder(), Country{QStringLiteral("DE")});
    other.load();
    EXPECT_EQ(other.activeProfile()->id, a.id);
}

TEST_F(ProfileManagerTest, RenameMovesTheFolderAndRefusesClashes)
{
    ProfileManager& manager = profiles();
    ASSERT_FALSE(manager.createProfile(u"Second"_qs));
    const QUuid defaultId = manager.profileNamed(u"Default"_qs)->id;

    EXPECT_EQ(manager.renameProfile(defaultId, u"Second"_qs), u"destination already exists");
    EXPECT_TRUE(QFileInfo(dataFolder() + u"/Default"_qs).isDir());
    EXPECT_TRUE(QFileInfo(dataFolder() + u"/Second"_qs).isDir());
    EXPECT_EQ(manager.profile(defaultId)->profileName, u"Default");

    EXPECT_TRUE(manager.renameProfile(defaultId, u"a/b"_qs).has_value());
    EXPECT_FALSE(manager.renameProfile(defaultId, u"Studio"_qs));
    EXPECT_FALSE(QFileInfo::exists(dataFolder() + u"/Default"_qs));
    EXPECT_TRUE(QFile::exists(dataFolder() + u"/Studio/profile.json"_qs));
    EXPECT_EQ(manager.profile(defaultId)->displayName(), u"Studio");
}

TEST_F(ProfileManagerTest, DeletingTheActiveProfileActivatesTheFirstRemaining)
{
    ProfileManager& manager = profiles();
    ASSERT_FALSE(manager.createProfile(u"Other"_qs));
    const QUuid defaultId = manager.activeProfile()->id;
    EXPECT_TRUE(manager.deleteProfile(manager.profileNamed(u"Other"_qs)->id) == std::nullopt);
    // The last profile stays.
    EXPECT_TRUE(manager.deleteProfile(defaultId).has_value());

    ASSERT_FALSE(manager.createProfile(u"Zebra"_qs));
    EXPECT_FALSE(manager.deleteProfile(defaultId));
    EXPECT_EQ(manager.activeProfile()->profileName, u"Zebra");
    EXPECT_FALSE(QFileInfo::exists(dataFolder() + u"/Default"_qs));
}

TEST_F(ProfileManagerTest, SavingWritesProfileJsonAndKeepsTheFolderName)
{
    ProfileManager& manager = profiles();
    Profile changed = *manager.activeProfile();
    changed.businessName = u"Lindqvist Design"_qs;
    changed.profileName = u"Ignored"_qs;
    const quint64 revision = manager.profilesRevision();
    ASSERT_FALSE(manager.saveProfile(changed));
    EXPECT_GT(manager.profilesRevision(), revision);
    EXPECT_EQ(manager.activeProfile()->profileName, u"Default");
    const Profile reread = ProfileJson::decode(*Files::read(dataFolder() + u"/Default/profile.json"_qs));
    EXPECT_EQ(reread.businessName, u"Lindqvist Design");
}

TEST_F(ProfileManagerTest, StaleCustomFolderFallsBackToTheDefault)
{
    m_settings.setValue(u"customDataPathBookmark"_qs, m_home.filePath(u"gone"_qs));
    ProfileManager& manager = profiles();
    EXPECT_EQ(manager.dataFolder(), dataFolder());
    EXPECT_FALSE(manager.customDataPath());
    EXPECT_FALSE(m_settings.contains(u"customDataPathBookmark"_qs));
}

TEST_F(ProfileManagerTest, ChangingTheDataFolderMovesEverythingAndBack)
{
    ProfileManager& manager = profiles();
    const QUuid id = manager.activeProfile()->id;
    QFile marker(dataFolder() + u"/Default/Invoices/keep.json"_qs);
    ASSERT_TRUE(marker.open(QIODevice::WriteOnly));
    marker.write("{}");
    marker.close();

    const QString custom = m_home.filePath(u"Synced/Ledra"_qs);
    ASSERT_FALSE(manager.changeDataFolder(custom));
    EXPECT_EQ(manager.dataFolder(), custom);
    EXPECT_EQ(manager.customDataPath(), custom);
    EXPECT_EQ(m_settings.value(u"customDataPathBookmark"_qs).toString(), custom);
    EXPECT_TRUE(QFile::exists(custom + u"/Default/Invoices/keep.json"_qs));
    EXPECT_FALSE(QFileInfo::exists(dataFolder() + u"/Default"_qs));
    EXPECT_EQ(manager.activeProfile()->id, id);

    ASSERT_FALSE(manager.resetDataFolder());
    EXPECT_EQ(manager.dataFolder(), dataFolder());
    EXPECT_TRUE(QFile::exists(dataFolder() + u"/Default/Invoices/keep.json"_qs));
    EXPECT_FALSE(m_settings.contains(u"customDataPathBookmark"_qs));

    // A target that already holds a profile of the same name is refused; nothing moves.
    const QString occupied = m_home.filePath(u"Occupied"_qs);
    QDir().mkpath(occupied + u"/Default"_qs);
    EXPECT_TRUE(manager.changeDataFolder(occupied).has_value());
    EXPECT_EQ(manager.dataFolder(), dataFolder());
    EXPECT_TRUE(QFile::exists(dataFolder() + u"/Default/profile.json"_qs));
}

TEST_F(ProfileManagerTest, ListenersNeverSeeTheListWithoutAnActiveProfile)
{
    ProfileManager& manager = profiles();
    ASSERT_FALSE(manager.createProfile(u"Other"_qs));
    ASSERT_FALSE(manager.createProfile(u"Third"_qs));
    int withoutActive = 0;
    int changes = 0;
    QObject::connect(&manager, &ProfileManager::profilesChanged, [&] {
        ++changes;
        if (!manager.activeProfile())
            ++withoutActive;
    });

    manager.setActiveProfile(manager.profileNamed(u"Other"_qs)->id);
    EXPECT_FALSE(manager.deleteProfile(manager.activeProfile()->id));
    ASSERT_TRUE(manager.activeProfile());

    // Another machine removes the active profile's folder through the shared data folder.
    const QString removed = manager.activeProfile()->profileName.value();
    ASSERT_TRUE(QDir(dataFolder() + u'/' + removed).removeRecursively());
    ASSERT_TRUE(waitFor([&] { return !manager.profileNamed(removed); }));
    ASSERT_TRUE(manager.activeProfile());
    EXPECT_NE(manager.activeProfile()->profileName, removed);

    // The whole folder emptied (a disk unmounted mid-way): what was loaded stays usable.
    const qsizetype before = manager.profiles().size();
    for (const Profile& profile : manager.profiles())
        ASSERT_TRUE(QDir(dataFolder() + u'/' + profile.profileName.value()).removeRecursively());
    waitFor([] { return false; }, 1500);
    EXPECT_EQ(manager.profiles().size(), before);
    EXPECT_TRUE(manager.activeProfile());

    EXPECT_GE(changes, 2);
    EXPECT_EQ(withoutActive, 0);
}
