#include "AppFixture.h"

#include "PreviewWidget.h"
#include "StylingDialog.h"
#include "render/InvoiceDocument.h"
#include "render/WebFontManager.h"
#include "tasks/SampleData.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QSplitter>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

// Profile › Styling…: each change lands in styling.json and in the preview beside it.
class StylingDialogTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        trigger(u"editStyling"_s);
        m_dialog = window().findChild<StylingDialog*>();
        ASSERT_TRUE(m_dialog);
        ASSERT_TRUE(waitFor([&] { return m_dialog->preview()->renderedCount() > 0; }, 20000));
    }

    QString folder() { return workspace().styling().profileFolder(); }

    QJsonObject onDisk()
    {
        QFile file(workspace().styling().stylingPath());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    // Waits for the preview to show a render newer than `before`.
    bool rerendered(int before)
    {
        return waitFor([&] { return m_dialog->preview()->renderedCount() > before; }, 20000);
    }

    void drop(const QString& file)
    {
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(file)});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_dialog, &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent dropped(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_dialog, &dropped);
    }

    QString logoMessage()
    {
        auto* label = m_dialog->findChild<QLabel*>(u"logoMessage"_s);
        return label && label->isVisibleTo(m_dialog) ? label->text() : QString();
    }

    QStringList imagesInFolder()
    {
        return QDir(folder()).entryList({u"*.png"_s, u"*.svg"_s, u"*.gif"_s, u"*.jpg"_s}, QDir::Files);
    }

    StylingDialog* m_dialog = nullptr;
};

TEST_F(StylingDialogTest, ATypedPrimaryColourIsSavedAndRendered)
{
    auto* field = m_dialog->findChild<QLineEdit*>(u"primaryColor"_s);
    ASSERT_TRUE(field);
    const int before = m_dialog->preview()->renderedCount();
    const QString oldSheet = m_dialog->preview()->document()->styleSheet();
    field->selectAll();
    QTest::keyClicks(field, u"1e5aa8"_s);

    EXPECT_EQ(onDisk().value(u"primaryColor"_s).toString(), u"1E5AA8"_s);
    EXPECT_EQ(workspace().styling().styling()->primaryColor, u"1E5AA8"_s);
    ASSERT_TRUE(rerendered(before));
    EXPECT_EQ(m_dialog->preview()->document()->styling().primaryColor, u"1E5AA8"_s);
    EXPECT_NE(m_dialog->preview()->document()->styleSheet(), oldSheet);

    // Half a colour is not a colour: nothing is written while the field is incomplete.
    field->selectAll();
    QTest::keyClicks(field, u"abc"_s);
    EXPECT_EQ(onDisk().value(u"primaryColor"_s).toString(), u"1E5AA8"_s);
}

TEST_F(StylingDialogTest, SwitchesAndPickersChangeTheFileInItsOwnWords)
{
    auto* background = m_dialog->findChild<QComboBox*>(u"backgroundPattern"_s);
    auto* lines = m_dialog->findChild<QComboBox*>(u"lineStyle"_s);
    auto* page = m_dialog->findChild<QComboBox*>(u"pageFormat"_s);
    ASSERT_TRUE(background && lines && page);
    background->setCurrentIndex(background->findData(int(BackgroundPattern::dots)));
    lines->setCurrentIndex(lines->findData(int(LineStyle::doubleLine)));
    page->setCurrentIndex(page->findData(int(PageFormat::usLetter)));
    m_dialog->findChild<QCheckBox*>(u"marginalColumn"_s)->setChecked(false);
    m_dialog->findChild<QCheckBox*>(u"accent-Labels"_s)->setChecked(true);
    auto* girocode = m_dialog->findChild<QCheckBox*>(u"girocode"_s);
    ASSERT_TRUE(girocode && girocode->isChecked());
    girocode->setChecked(false);

    const QJsonObject saved = onDisk();
    EXPECT_EQ(saved.value(u"backgroundPattern"_s).toString(), u"Dots"_s);
    EXPECT_EQ(saved.value(u"lineStyle"_s).toString(), u"Double"_s);
    EXPECT_EQ(saved.value(u"pageFormat"_s).toString(), u"usLetter"_s);
    EXPECT_FALSE(saved.value(u"marginalColumn"_s).toBool());
    EXPECT_EQ(saved.value(u"girocode"_s), QJsonValue(false));
    EXPECT_EQ(saved.value(u"accentColorUsage"_s).toVariant().toStringList(),
              (QStringList{u"Most Important Info"_s, u"Labels"_s}));
    EXPECT_EQ(m_dialog->preview()->document()->pageFormat(), PageFormat::usLetter);
}

TEST_F(StylingDialogTest, FontsComeFromTheCatalogueAndAMissingFamilyIsKept)
{
    const auto& families = WebFontManager::shared().availableFamilies();
    const auto bundled = std::find_if(families.begin(), families.end(), [](const auto& family) {
        return family.isBundled && family.name != u"iA Writer Duo";
    });
    ASSERT_NE(bundled, families.end()) << "the shipped fonts are missing";
    auto* picker = m_dialog->findChild<FontPicker*>(u"primaryFont"_s);
    auto* family = picker->findChildren<QComboBox*>().value(0);
    ASSERT_TRUE(family);
    family->setCurrentIndex(family->findData(bundled->name, Qt::UserRole));
    Q_EMIT family->activated(family->currentIndex());

    QJsonObject saved = onDisk();
    EXPECT_EQ(saved.value(u"primaryFont"_s).toString(), bundled->name);
    const auto face = WebFontManager::shared().cut(saved.value(u"primaryFontFace"_s).toString());
    ASSERT_TRUE(face);
    EXPECT_EQ(face->family, bundled->name);

    // A family from another computer: shown with a warning, kept through unrelated changes.
    Styling foreign = *workspace().styling().styling();
    foreign.headlineFont = u"Nowhere Grotesk"_s;
    foreign.headlineFontFace.reset();
    workspace().styling().setStyling(foreign);
    auto* headline = m_dialog->findChild<FontPicker*>(u"headlineFont"_s);
    const auto labels = headline->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [&](const QLabel* label) {
        return label->isVisibleTo(m_dialog) &&
               label->text().contains(u"“Nowhere Grotesk” is not installed"_s);
    }));
    m_dialog->findChild<QCheckBox*>(u"tintRowBackground"_s)->toggle();
    EXPECT_EQ(onDisk().value(u"headlineFont"_s).toString(), u"Nowhere Grotesk"_s);
}

TEST_F(StylingDialogTest, LogosAreDroppedReplacedAndBadFilesRefused)
{
    QTemporaryDir elsewhere;
    const QString gif = elsewhere.filePath(u"logo.gif"_s);
    QImage image(40, 20, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    ASSERT_TRUE(image.save(gif, "GIF") || QFile(gif).open(QIODevice::WriteOnly));
    drop(gif);
    EXPECT_TRUE(logoMessage().contains(u"Only SVG, PNG, JPG, JPEG, and WebP"_s))
        << logoMessage().toStdString();

    // A text file under an image's name is no image, whatever its name says.
    const QString fake = elsewhere.filePath(u"fake.png"_s);
    {
        QFile file(fake);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("not a picture at all");
    }
    drop(fake);
    EXPECT_TRUE(logoMessage().contains(u"“fake.png” is not a readable image"_s))
        << logoMessage().toStdString();
    EXPECT_TRUE(imagesInFolder().isEmpty());

    const QString first = elsewhere.filePath(u"first.png"_s);
    ASSERT_TRUE(image.save(first));
    const int before = m_dialog->preview()->renderedCount();
    drop(first);
    EXPECT_TRUE(logoMessage().isEmpty());
    EXPECT_EQ(imagesInFolder(), QStringList{u"first.png"_s});
    EXPECT_EQ(workspace().styling().styling()->logo, QDir(folder()).filePath(u"first.png"_s));
    EXPECT_TRUE(rerendered(before));

    const QString second = elsewhere.filePath(u"second.svg"_s);
    {
        QFile file(second);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(
            R"(<svg xmlns="http://www.w3.org/2000/svg" width="40" height="20"><rect width="40" height="20"/></svg>)");
    }
    ASSERT_TRUE(m_dialog->chooseLogo(second));
    EXPECT_EQ(imagesInFolder(), QStringList{u"second.svg"_s});

    QTest::mouseClick(m_dialog->findChild<QPushButton*>(u"removeLogo"_s), Qt::LeftButton);
    EXPECT_TRUE(imagesInFolder().isEmpty());
    EXPECT_FALSE(workspace().styling().styling()->logo);
}

TEST_F(StylingDialogTest, CustomCssIsWrittenWhenTypingPausesAndChangesFromOutsideShow)
{
    auto* css = m_dialog->findChild<QPlainTextEdit*>(u"customCss"_s);
    QTest::keyClicks(css, u".headline { color: red; }"_s);
    const QString sheet = QDir(folder()).filePath(u"custom.css"_s);
    ASSERT_TRUE(waitFor([&] { return QFile::exists(sheet); }));
    QFile written(sheet);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), ".headline { color: red; }");
    ASSERT_TRUE(waitFor(
        [&] { return m_dialog->preview()->document()->styling().css == u".headline { color: red; }"_s; }));

    // Another program rewrites styling.json: the controls follow.
    QJsonObject changed = onDisk();
    changed.insert(u"lineStyle"_s, u"Dashed"_s);
    QSaveFile file(workspace().styling().stylingPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(changed).toJson());
    ASSERT_TRUE(file.commit());
    auto* lines = m_dialog->findChild<QComboBox*>(u"lineStyle"_s);
    EXPECT_TRUE(waitFor([&] { return lines->currentData().toInt() == int(LineStyle::dashed); }));
}

TEST_F(StylingDialogTest, TheEditorOpensAgainWithItsSizeAndDivider)
{
    auto* splitter = m_dialog->findChild<QSplitter*>(u"stylingSplitter"_s);
    ASSERT_TRUE(splitter);
    m_dialog->resize(1000, 700);
    const int total = splitter->sizes().value(0) + splitter->sizes().value(1);
    splitter->setSizes({total / 2, total - total / 2});
    const QList<int> sizes = splitter->sizes();
    m_dialog->close();
    ASSERT_TRUE(waitFor([&] { return !window().findChild<StylingDialog*>(); }));

    trigger(u"editStyling"_s);
    auto* again = window().findChild<StylingDialog*>();
    ASSERT_TRUE(again);
    EXPECT_EQ(again->size(), QSize(1000, 700));
    EXPECT_EQ(again->findChild<QSplitter*>(u"stylingSplitter"_s)->sizes(), sizes);
}
