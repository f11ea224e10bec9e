#include "AppFixture.h"

#include "AppSettings.h"
#include "DetailArea.h"
#include "InvoiceListModel.h"
#include "InvoiceListView.h"
#include "PreviewWidget.h"
#include "WindowMemory.h"
#include "storage/ProfileManager.h"
#include "tasks/SampleData.h"

#include <QHeaderView>
#include <QScreen>
#include <QTabBar>

#include <string>

using namespace Qt::Literals::StringLiterals;

class WindowLayoutTest : public AppFixture
{
protected:
    // The window as it opens on a screen whose free area is `size`, with the default split.
    void showAt(const QSize& size)
    {
        window().setWindowState(Qt::WindowNoState);
        window().resize(size);
        window().distributeWidth(size.width());
        QApplication::processEvents();
    }

    // Every text of the list's first rows fits its column, and all columns fit the list.
    void expectListReadable(const char* where)
    {
        InvoiceListView* list = window().list();
        QAbstractItemModel* model = list->model();
        ASSERT_GT(model->rowCount(), 3);
        EXPECT_LE(list->header()->length(), list->viewport()->width())
            << where << ": the columns are wider than the list, the last ones are out of sight";
        for (int column = 0; column < model->columnCount(); ++column) {
            EXPECT_FALSE(list->isColumnHidden(column)) << where;
            for (int row = 0; row < model->rowCount(); ++row) {
                const QModelIndex index = model->index(row, column);
                EXPECT_LE(list->sizeHintForIndex(index).width(), list->columnWidth(column))
                    << where << ": \"" << index.data().toString().toStdString() << "\" is cut in column "
                    << column << " (window " << window().width() << ", list " << list->width() << ", fitting "
                    << list->fittingWidth() << ")";
            }
        }
    }

    // The page can be read: shown beside the form at a zoom of 55 % or more, or in its own tab.
    void expectPreviewReadable(const char* where)
    {
        DetailArea* detail = window().detailArea();
        if (detail->isTabbed()) {
            EXPECT_TRUE(detail->tabs()->isVisible()) << where;
            detail->showTab(DetailArea::previewTab);
            QApplication::processEvents();
        }
        EXPECT_TRUE(window().preview()->isVisible()) << where;
        EXPECT_GE(window().preview()->zoom(), 0.55) << where;
        detail->showTab(DetailArea::formTab);
    }
};

TEST(WindowPlacement, FirstStartTakesTheScreenAndARememberedWindowIsFittedIntoIt)
{
    // A laptop: all of it, maximised.
    const QRect laptop(0, 32, 1366, 736);
    WindowMemory::Placement first = WindowMemory::firstStart(laptop);
    EXPECT_TRUE(first.maximized);
    EXPECT_EQ(first.geometry, laptop);
    // A large screen: most of it, centred, never beyond it.
    const QRect desktop(0, 0, 2560, 1400);
    first = WindowMemory::firstStart(desktop);
    EXPECT_FALSE(first.maximized);
    EXPECT_TRUE(desktop.contains(first.geometry));
    EXPECT_GE(first.geometry.width(), 2000);
    EXPECT_EQ(first.geometry.center(), desktop.center());

    // Left on a bigger screen to the right: shrunk and moved onto this one.
    EXPECT_EQ(WindowMemory::clampedToScreen(QRect(2000, 100, 1900, 1100), laptop), laptop);
    EXPECT_EQ(WindowMemory::clampedToScreen(QRect(900, 500, 800, 600), laptop), QRect(566, 168, 800, 600));
    EXPECT_EQ(WindowMemory::clampedToScreen(QRect(-300, -50, 800, 600), laptop), QRect(0, 32, 800, 600));
    // One that fits stays where it was.
    EXPECT_EQ(WindowMemory::clampedToScreen(QRect(100, 100, 800, 600), laptop), QRect(100, 100, 800, 600));
}

TEST_F(WindowLayoutTest, FirstStartOpensMaximisedOnASmallScreenAndLaterWithinIt)
{
    m_workspace = std::make_unique<Workspace>(*m_settings, ProfileManager::defaultDataFolderPath());
    m_window = std::make_unique<MainWindow>(*m_workspace, *m_settings);
    // The off-screen platform's screen is a small one.
    const QRect available = m_window->screen()->availableGeometry();
    ASSERT_LT(available.width(), 1680);
    EXPECT_TRUE(m_window->windowState() & Qt::WindowMaximized);
    m_window->show();
    QApplication::processEvents();
    EXPECT_TRUE(available.contains(m_window->geometry()))
        << m_window->geometry().width() << "x" << m_window->geometry().height();

    // Closed larger than this screen (another one was attached): opened again within it.
    m_window->setWindowState(Qt::WindowNoState);
    m_window->setGeometry(QRect(available.right() - 100, available.top() + 50, 1900, 1100));
    m_window->close();
    m_window.reset();
    m_window = std::make_unique<MainWindow>(*m_workspace, *m_settings);
    m_window->placeOnScreen(QRect(0, 0, 1366, 736));
    EXPECT_FALSE(m_window->windowState() & Qt::WindowMaximized);
    EXPECT_TRUE(QRect(0, 0, 1366, 736).contains(m_window->geometry()))
        << m_window->geometry().x() << "," << m_window->geometry().y() << " " << m_window->geometry().width()
        << "x" << m_window->geometry().height();
}

TEST_F(WindowLayoutTest, HiddenPreviewStaysHiddenAtTheNextStart)
{
    openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
    showAt({1920, 1010});
    ASSERT_TRUE(window().preview()->isVisible());
    trigger(u"showPreview"_s);
    EXPECT_FALSE(window().preview()->isVisible());
    EXPECT_TRUE(window().editor()->isVisible());
    window().close();

    m_window.reset();
    openWindow();
    showAt({1920, 1010});
    EXPECT_FALSE(window().action(u"showPreview"_s)->isChecked());
    EXPECT_FALSE(window().preview()->isVisible());
    EXPECT_FALSE(window().detailArea()->tabs()->isVisible()) << "tabs with nothing to switch to";
    trigger(u"showPreview"_s);
    EXPECT_TRUE(window().preview()->isVisible());
    EXPECT_TRUE(m_settings->value(AppSettings::showPreviewKey).toBool());

    // On a narrow window the preview, shown again, comes to the front of its tab.
    trigger(u"showPreview"_s);
    showAt({1366, 698});
    ASSERT_TRUE(window().detailArea()->isTabbed());
    trigger(u"showPreview"_s);
    EXPECT_TRUE(window().preview()->isVisible());
    EXPECT_FALSE(window().editor()->isVisible());
    window().detailArea()->tabs()->setCurrentIndex(DetailArea::formTab);
    EXPECT_TRUE(window().editor()->isVisible());
    EXPECT_FALSE(window().preview()->isVisible());
}

TEST_F(WindowLayoutTest, ListShowsWholeTextsAndThePageCanBeReadFromLaptopScreensUp)
{
    for (const char* language : {"en", "de"}) {
        m_settings->setValue(AppSettings::interfaceLanguageKey, QString::fromLatin1(language));
        DesktopApplication::applyInterfaceLanguage(*m_settings);
        // The free area of 1366×768, 1600×900 and 1920×1080 screens under a top bar and a title bar,
        // each a first start on that screen.
        for (const QSize size : {QSize(1366, 698), QSize(1600, 830), QSize(1920, 1010)}) {
            m_window.reset();
            m_workspace.reset();
            m_settings->remove(u"mainWindow"_s);
            m_workspace = std::make_unique<Workspace>(*m_settings, ProfileManager::defaultDataFolderPath());
            if (m_workspace->invoices().invoices().isEmpty())
                SampleData::populate(*m_workspace);
            m_window = std::make_unique<MainWindow>(*m_workspace, *m_settings);
            m_window->setWindowState(Qt::WindowNoState);
            m_window->resize(size);
            m_window->show();
            QApplication::processEvents();
            const std::string where = std::string(language) + " " + std::to_string(size.width()) + "x" +
                                      std::to_string(size.height());
            expectListReadable(where.c_str());
            expectPreviewReadable(where.c_str());
        }
        EXPECT_FALSE(window().detailArea()->isTabbed()) << "side by side at 1920";
    }
}
