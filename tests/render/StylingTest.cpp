#include "render/StylingManager.h"
#include "render/WebFontManager.h"
#include "util/JsonReader.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

const Country germany{QStringLiteral("DE")};

} // namespace

TEST(StylingJson, MissingKeysTakeTheDefaults)
{
    const Styling styling = StylingJson::decode(R"({"id": "6B1A2F4C-1D2E-4F00-9A8B-7C6D5E4F3A2B"})", germany);
    Styling expected = Styling::makeNew(germany);
    expected.id = QUuid(QStringLiteral("6B1A2F4C-1D2E-4F00-9A8B-7C6D5E4F3A2B"));
    EXPECT_EQ(styling, expected);
    EXPECT_EQ(styling.pageFormat, PageFormat::a4);
    EXPECT_EQ(styling.accentColorUsage, QList<AccentColorUsage>{AccentColorUsage::important});
    // Files written before the payment code existed get it.
    EXPECT_TRUE(styling.girocode);
    EXPECT_FALSE(StylingJson::decode(R"({"girocode": false})", germany).girocode);
}

TEST(StylingJson, EncodesAllKeysInOrderAndReadsThemBack)
{
    Styling styling = Styling::makeNew(germany);
    styling.accentColorUsage = {AccentColorUsage::logo, AccentColorUsage::labels};
    styling.backgroundPattern = BackgroundPattern::dots;
    styling.lineStyle = LineStyle::doubleLine;
    styling.primaryFontFace = QStringLiteral("iAWriterDuo-Regular");
    const QByteArray json = StylingJson::encode(styling);
    const QStringList keys = QJsonDocument::fromJson(json).object().keys();
    EXPECT_EQ(keys.size(), 28);
    EXPECT_TRUE(json.indexOf("\"id\"") < json.indexOf("\"pageFormat\""));
    EXPECT_TRUE(json.indexOf("\"logoSize\"") < json.indexOf("\"recolorLogo\""));
    EXPECT_TRUE(json.indexOf("\"recolorLogo\"") < json.indexOf("\"girocode\": true\n}"));
    EXPECT_TRUE(json.contains("\"accentColorUsage\": [\n    \"Logo\",\n    \"Labels\"\n  ]") ||
                json.contains("\"Logo\""));
    EXPECT_TRUE(json.contains("\"backgroundPattern\": \"Dots\""));
    EXPECT_TRUE(json.contains("\"lineStyle\": \"Double\""));
    EXPECT_TRUE(json.contains("\"headlineFontFace\": null"));
    EXPECT_EQ(StylingJson::decode(json, germany), styling);
}

TEST(StylingJson, RetiredMonospaceFontBecomesItsSuccessor)
{
    const Styling styling =
        StylingJson::decode(R"({"primaryFont": "IBM Plex Mono", "primaryFontWeight": "500"})", germany);
    EXPECT_EQ(styling.primaryFont, QStringLiteral("iA Writer Duo"));
    EXPECT_EQ(styling.primaryFontWeight, QStringLiteral("500"));
}

TEST(StylingJson, RawValuesAreCaseSensitive)
{
    try {
        StylingJson::decode(R"({"backgroundPattern": "dots"})", germany);
        FAIL() << "lower-case dots accepted";
    } catch (const JsonDecodeError& error) {
        EXPECT_EQ(error.keyPath(), QStringLiteral("backgroundPattern"));
        EXPECT_TRUE(error.reason().contains(QStringLiteral("\"dots\"")));
    }
    EXPECT_THROW(StylingJson::decode(R"({"accentColorUsage": ["labels"]})", germany), JsonDecodeError);
    EXPECT_THROW(StylingJson::decode(R"({"logoSize": "big"})", germany), JsonDecodeError);
}

TEST(StylingJson, PageFormatFollowsTheRegion)
{
    for (const char* code : {"US", "CA", "PH", "MX", "CL"})
        EXPECT_EQ(defaultPageFormat(Country{QString::fromLatin1(code)}), PageFormat::usLetter) << code;
    for (const char* code : {"DE", "CH", "GB", "FR", "AU"})
        EXPECT_EQ(defaultPageFormat(Country{QString::fromLatin1(code)}), PageFormat::a4) << code;
}

TEST(StylingManager, FolderWithoutStylingGetsDefaultsWritten)
{
    QTemporaryDir folder;
    StylingManager manager(folder.path());
    ASSERT_TRUE(manager.styling());
    EXPECT_TRUE(QFile::exists(folder.filePath(QStringLiteral("styling.json"))));
    EXPECT_FALSE(manager.lastUpdated().isNull());

    StylingManager none;
    EXPECT_FALSE(none.styling());
    EXPECT_EQ(none.setLogo(QStringLiteral("/tmp/logo.png"))->description,
              QStringLiteral("No active profile selected"));
}

TEST(StylingManager, BrokenFileIsReplacedByDefaultsAndMigrationIsSaved)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("styling.json"));
    writeFile(path, R"({"primaryFont": "IBM Plex Mono"})");
    StylingManager manager(folder.path());
    EXPECT_EQ(manager.styling()->primaryFont, QStringLiteral("iA Writer Duo"));
    ASSERT_TRUE(manager.save());
    QFile saved(path);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_TRUE(saved.readAll().contains("\"primaryFont\": \"iA Writer Duo\""));

    writeFile(path, "{ not json");
    manager.load();
    ASSERT_TRUE(manager.styling());
    EXPECT_EQ(manager.styling()->primaryFont, QStringLiteral("iA Writer Duo"));
}

TEST(StylingManager, LogoTypesAndCopy)
{
    QTemporaryDir profile;
    QTemporaryDir elsewhere;
    StylingManager manager(profile.path());

    const QString gif = elsewhere.filePath(QStringLiteral("logo.gif"));
    writeFile(gif, "GIF89a");
    const auto refused = manager.setLogo(gif);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->domain, QStringLiteral("StylingManager"));
    EXPECT_EQ(refused->code, 2);
    EXPECT_EQ(refused->description,
              QStringLiteral(
                  "Invalid file type. Only SVG, PNG, JPG, JPEG, and WebP files are supported for logos."));

    const QString jpeg = elsewhere.filePath(QStringLiteral("Logo.JPEG"));
    writeFile(jpeg, "\xFF\xD8\xFF");
    EXPECT_FALSE(manager.setLogo(jpeg));
    EXPECT_EQ(manager.styling()->logo, profile.filePath(QStringLiteral("Logo.JPEG")));
    EXPECT_TRUE(QFile::exists(profile.filePath(QStringLiteral("Logo.JPEG"))));
    // A second copy under the same name is the file system's refusal.
    EXPECT_TRUE(manager.setLogo(jpeg));

    StylingManager reloaded(profile.path());
    EXPECT_EQ(reloaded.styling()->logo, profile.filePath(QStringLiteral("Logo.JPEG")));
}

TEST(StylingManager, FirstStyleSheetIsUsedAndChangesReload)
{
    QTemporaryDir folder;
    writeFile(folder.filePath(QStringLiteral("a.css")), "body { color: red; }");
    writeFile(folder.filePath(QStringLiteral("b.CSS")), "body { color: blue; }");
    StylingManager manager(folder.path());
    EXPECT_EQ(manager.styling()->css, QStringLiteral("body { color: red; }"));

    QSignalSpy reloaded(&manager, &StylingManager::lastUpdatedChanged);
    writeFile(folder.filePath(QStringLiteral("a.css")), "body { color: green; }");
    ASSERT_TRUE(reloaded.wait(5000));
    EXPECT_EQ(manager.styling()->css, QStringLiteral("body { color: green; }"));

    QFile file(folder.filePath(QStringLiteral("styling.json")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QByteArray json = file.readAll();
    file.close();
    json.replace("\"marginalColumn\": true", "\"marginalColumn\": false");
    writeFile(folder.filePath(QStringLiteral("styling.json")), json);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !manager.styling()->marginalColumn; }, 5000));
}

TEST(WebFonts, ShippedFamiliesAndFaces)
{
    WebFontManager fonts;
    QSignalSpy loaded(&fonts, &WebFontManager::fontCatalogDidLoad);
    fonts.load(WebFontManager::defaultBundledFolder(), false);
    EXPECT_EQ(loaded.count(), 1);
    ASSERT_GE(fonts.availableFamilies().size(), 2);
    EXPECT_EQ(fonts.availableFamilies()[0].name, QStringLiteral("Source Serif"));
    EXPECT_TRUE(fonts.availableFamilies()[0].isBundled);

    const QList<FontCut> duo = fonts.cuts(QStringLiteral("iA Writer Duo"));
    ASSERT_GE(duo.size(), 2);
    // Regular before Italic: same weight, upright first.
    EXPECT_EQ(duo[0].cssWeight, QStringLiteral("400"));
    EXPECT_FALSE(duo[0].isItalic);
    EXPECT_EQ(duo[1].cssWeight, QStringLiteral("400"));
    EXPECT_TRUE(duo[1].isItalic);
    EXPECT_EQ(duo[1].displayName, QStringLiteral("Italic"));

    const auto regular = fonts.face(QStringLiteral("Source Serif"), QStringLiteral("400"));
    ASSERT_TRUE(regular);
    EXPECT_EQ(fonts.cut(regular->faceID), regular);
    EXPECT_FALSE(fonts.face(QStringLiteral("No Such Family"), QStringLiteral("400")));

    const QString rules = fonts.fontFaceRules(Styling::makeNew(germany));
    EXPECT_TRUE(rules.startsWith(QStringLiteral("@font-face {\n    font-family: '")));
    EXPECT_TRUE(
        rules.contains(QStringLiteral("src: url('qrc:/render/Fonts/ia-writer-duo-latin-400-normal.woff2') "
                                      "format('woff2');")));

    QTemporaryDir folder;
    StylingManager manager(folder.path());
    EXPECT_TRUE(manager.resolveFontFaces(fonts));
    EXPECT_EQ(manager.styling()->primaryFontFace, QStringLiteral("iAWriterDuo-Regular"));
    EXPECT_FALSE(manager.resolveFontFaces(fonts));
}

TEST(WebFonts, WeightsAndStylesFromNames)
{
    EXPECT_EQ(WebFontManager::weightFromName(QStringLiteral("source-serif-4-latin-600-normal")), 600);
    EXPECT_EQ(WebFontManager::weightFromName(QStringLiteral("Inter SemiBold")), 600);
    EXPECT_EQ(WebFontManager::weightFromName(QStringLiteral("Inter ExtraLight")), 200);
    EXPECT_EQ(WebFontManager::weightFromName(QStringLiteral("Inter Regular")), 400);
    EXPECT_EQ(WebFontManager::weightFromName(QStringLiteral("Inter")), 400);
    EXPECT_TRUE(WebFontManager::isItalicName(QStringLiteral("Serif-BoldItalic.woff2")));
    EXPECT_TRUE(WebFontManager::isItalicName(QStringLiteral("serif-it.woff2")));
    EXPECT_FALSE(WebFontManager::isItalicName(QStringLiteral("serif-latin-400-normal.woff2")));
}
