#include "AppFixture.h"

#include "AppSettings.h"
#include "l10n/Strings.h"
#include "storage/ProfileManager.h"

#include <QDir>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

void AppFixture::SetUp()
{
    ASSERT_TRUE(m_home.isValid());
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(u"data"_s)));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(u"config"_s)));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(m_home.filePath(u"cache"_s)));
    qputenv("LEDRA_REGION", "DE");
    m_settings = Workspace::userSettings();
    m_settings->setValue(AppSettings::interfaceLanguageKey, u"en"_s);
    DesktopApplication::applyInterfaceLanguage(*m_settings);
}

void AppFixture::TearDown()
{
    m_window.reset();
    m_workspace.reset();
    m_settings.reset();
    Strings::setInterfaceLanguage(std::nullopt);
}

void AppFixture::openWindow(const std::function<void(Workspace&)>& prepare)
{
    m_workspace = std::make_unique<Workspace>(*m_settings, ProfileManager::defaultDataFolderPath());
    if (prepare)
        prepare(*m_workspace);
    m_window = std::make_unique<MainWindow>(*m_workspace, *m_settings);
    // On the off-screen platform's small screen a first start opens maximised; the tests want
    // the room of a large screen, where list, form and preview are side by side.
    m_window->setWindowState(Qt::WindowNoState);
    m_window->resize(1920, 1010);
    m_window->show();
    QApplication::processEvents();
}

QString AppFixture::dataFolder() const
{
    return m_workspace->profiles().dataFolder();
}

QString AppFixture::invoicesFolder() const
{
    return *m_workspace->invoices().invoicesFolder();
}

QProcessEnvironment AppFixture::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
    environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
    environment.insert(u"LEDRA_REGION"_s, u"DE"_s);
    return environment;
}

void AppFixture::trigger(const QString& actionName)
{
    QAction* action = m_window->action(actionName);
    ASSERT_NE(action, nullptr) << actionName.toStdString();
    ASSERT_TRUE(action->isEnabled()) << actionName.toStdString() << " is disabled";
    action->trigger();
}

bool AppFixture::waitFor(const std::function<bool()>& condition, int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void AppFixture::spin(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents, 20);
}

void AppFixture::whenModal(std::function<void(QWidget*)> answer, int milliseconds)
{
    auto* timer = new QTimer(qApp);
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, timer,
                     [timer, answer = std::move(answer), deadline = QDeadlineTimer(milliseconds)] {
                         if (deadline.hasExpired()) {
                             timer->stop();
                             timer->deleteLater();
                             return;
                         }
                         if (QWidget* modal = QApplication::activeModalWidget()) {
                             timer->stop();
                             timer->deleteLater();
                             answer(modal);
                         }
                     });
    timer->start();
}
