#include "DesktopApplication.h"

#include "AppSettings.h"
#include "AppText.h"
#include "BackgroundServices.h"
#include "DetailArea.h"
#include "DocumentActions.h"
#include "EInvoiceViewer.h"
#include "Icons.h"
#include "InvoiceEditor.h"
#include "InvoiceListView.h"
#include "MainWindow.h"
#include "PlainTextLabels.h"
#include "PluginsDialog.h"
#include "PreferencesDialog.h"
#include "PreviewWidget.h"
#include "ProfileDialog.h"
#include "RemindersDialog.h"
#include "StylingDialog.h"
#include "TextExtractionDialog.h"
#include "exchange/BackupManager.h"
#include "plugins/PluginError.h"
#include "plugins/PluginManager.h"
#include "render/RenderEnvironment.h"
#include "storage/ProfileManager.h"
#include "tasks/SampleData.h"
#include "tasks/Workspace.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLibraryInfo>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QStyle>
#include <QStyleFactory>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <QTranslator>
#include <QTreeWidget>

#include <cstdio>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

void setUpApplication()
{
    QApplication::setApplicationName(u"Ledra"_s);
    QApplication::setApplicationDisplayName(u"Ledra"_s);
    QApplication::setApplicationVersion(QStringLiteral(LEDRA_VERSION));
    QApplication::setDesktopFileName(u"com.varnhelm.Ledra"_s);
    QApplication::setWindowIcon(Icons::application());
    PlainTextLabels::install(*qApp);
    if (qEnvironmentVariableIsEmpty("LEDRA_VERBOSE"))
        QLoggingCategory::setFilterRules(u"ledra.*.info=false"_s);
}

// A home of its own for --demo and the screenshots: the user's data is never touched.
std::unique_ptr<QTemporaryDir> useTemporaryHome()
{
    auto home = std::make_unique<QTemporaryDir>(QDir::tempPath() + u"/ledra-demo-XXXXXX"_s);
    qputenv("XDG_DATA_HOME", QFile::encodeName(home->filePath(u"data"_s)));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home->filePath(u"config"_s)));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home->filePath(u"cache"_s)));
    return home;
}

// The example plugins: where `cmake --install` put them, else those of this build's sources.
QStringList examplePlugins()
{
    QStringList roots = QStandardPaths::locateAll(
        QStandardPaths::GenericDataLocation, u"ledra/example-plugins"_s, QStandardPaths::LocateDirectory);
    roots.append(QStringLiteral(LEDRA_EXAMPLE_PLUGINS));
    for (const QString& root : roots) {
        const QDir folder(root);
        QStringList plugins;
        for (const QString& name : folder.entryList({u"*.ledraplugin"_s}, QDir::Dirs, QDir::Name))
            plugins.append(folder.filePath(name));
        if (!plugins.isEmpty())
            return plugins;
    }
    return {};
}

// A sample business comes with something in File › Export Invoices and the plugin list.
void installExamplePlugins(MainWindow& window)
{
    for (const QString& folder : examplePlugins()) {
        try {
            window.pluginManager().install(folder);
        } catch (const PluginError& error) {
            std::fprintf(stderr, "%s: %s\n", qPrintable(folder), error.what());
        }
    }
}

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x2B, 0x2B, 0x2E);
    const QColor base(0x1F, 0x1F, 0x22);
    const QColor text(0xE8, 0xE8, 0xEA);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x9A, 0x9A, 0xA0));
    p.setColor(QPalette::Highlight, QColor(0x3D, 0x7E, 0xD6));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x6C, 0xAE, 0xF5));
    p.setColor(QPalette::Mid, QColor(0x44, 0x44, 0x48));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x77, 0x77, 0x7C));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x77, 0x77, 0x7C));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x77, 0x77, 0x7C));
    return p;
}

// Runs the event loop until the preview has drawn its pages (or the time is up).
void waitForPreview(MainWindow& window)
{
    const int before = window.preview()->renderedCount();
    QDeadlineTimer deadline(15000);
    while (window.preview()->renderedCount() == before && !deadline.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents, 50);
    // The frames swap in after their fonts; give the compositor a moment.
    QDeadlineTimer settle(400);
    while (!settle.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents, 20);
}

QString germanSampleMail()
{
    return u"Hallo Frau Schneider,\n\nwie besprochen bitte die Rechnung an:\n\nNordlicht Design UG "
           u"(haftungsbeschränkt)\nz. Hd. Jana Becker\nAm Markt 3a\n24103 Kiel\n\n"
           u"Leistungszeitraum: 01.03.2026 - 15.03.2026\n12 Std. Webdesign à 85,00 €\n"
           u"Pauschale Hosting: 120,-\n\nBestellnummer: 4711\n\nViele Grüße\nJana Becker\n"_s;
}

QString englishSampleMail()
{
    return u"Hi Anna,\n\nplease send the invoice to:\n\nHarbour Lights Ltd\nAttn: Tom Fisher\n"
           u"221B Baker Street\nLondon NW1 6XE\nUnited Kingdom\n\n10 hours consulting at £95/h\n"
           u"PO number: PO-20931\n\nBest regards,\nTom\n"_s;
}

bool savePicture(QWidget& widget, const QString& path)
{
    const bool saved = widget.grab().save(path);
    std::printf("%s%s\n", qPrintable(path), saved ? "" : "  (could not be written)");
    return saved;
}

// The main window as it opens on a screen of this size, in English and German: the form, and
// the preview when it has a tab of its own. Returns the number of pictures not written.
int writeScreenSizeShots(const QString& folder, const QSize& screen, const QPalette& palette)
{
    int failures = 0;
    const QString size = u"%1x%2"_s.arg(screen.width()).arg(screen.height());
    for (const Language language : {Language::english, Language::german}) {
        const auto home = useTemporaryHome();
        QApplication::setPalette(palette);
        const std::unique_ptr<QSettings> settings = Workspace::userSettings();
        settings->setValue(AppSettings::interfaceLanguageKey, rawValue(language));
        DesktopApplication::applyInterfaceLanguage(*settings);
        Workspace workspace(*settings, ProfileManager::defaultDataFolderPath());
        SampleData::populate(workspace);
        MainWindow window(workspace, *settings);
        // What a maximised window gets of the screen under a desktop's top bar and its own
        // title bar (the picture shows the window's inside).
        window.setWindowState(Qt::WindowNoState);
        window.resize(screen.width(), screen.height() - 70);
        window.distributeWidth(window.width());
        window.show();
        window.searchField()->clear();
        window.list()->setCurrentIndex(window.list()->model()->index(2, 0));
        waitForPreview(window);
        const QString name = u"main-"_s + rawValue(language) + u'-' + size;
        failures += savePicture(window, QDir(folder).filePath(name + u".png"_s)) ? 0 : 1;
        if (window.detailArea()->isTabbed()) {
            window.detailArea()->showTab(DetailArea::previewTab);
            QDeadlineTimer settle(1200);
            while (!settle.hasExpired())
                QApplication::processEvents(QEventLoop::AllEvents, 20);
            failures += savePicture(window, QDir(folder).filePath(name + u"-preview.png"_s)) ? 0 : 1;
        }
        window.close();
    }
    return failures;
}

} // namespace

namespace DesktopApplication {

void applyInterfaceLanguage(const QSettings& settings)
{
    Strings::setInterfaceLanguage(AppSettings::interfaceLanguage(settings));
    const Language language = Strings::interfaceLanguage();
    // Numbers and dates in the fields read as they do in the documents of that language.
    QLocale::setDefault(language == Language::german ? QLocale(QLocale::German, QLocale::Germany)
                                                     : QLocale(QLocale::English, QLocale::UnitedStates));
    static QTranslator* qtTexts = nullptr;
    if (qtTexts) {
        QApplication::removeTranslator(qtTexts);
        delete qtTexts;
        qtTexts = nullptr;
    }
    if (language == Language::german) {
        // The buttons of Qt's own dialogs ("Cancel", "Save") from Debian's Qt translations.
        qtTexts = new QTranslator;
        if (qtTexts->load(QLocale(QLocale::German), u"qtbase"_s, u"_"_s,
                          QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
            QApplication::installTranslator(qtTexts);
    }
}

std::optional<QList<QSize>> parseScreenSizes(const QString& text)
{
    QList<QSize> sizes;
    static const QRegularExpression size(u"^\\s*(\\d{3,5})\\s*[x×]\\s*(\\d{3,5})\\s*$"_s);
    for (const QString& part : text.split(u',', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = size.match(part);
        if (!match.hasMatch())
            return std::nullopt;
        sizes.append(QSize(match.captured(1).toInt(), match.captured(2).toInt()));
    }
    if (sizes.isEmpty())
        return std::nullopt;
    return sizes;
}

int writeScreenshots(const QString& folder, const QList<QSize>& screens)
{
    QDir().mkpath(folder);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    const QPalette light = QApplication::style()->standardPalette();
    int failures = 0;
    struct Shot
    {
        QString name;
        Language language;
        bool dark;
        bool sample;
    };
    const QList<Shot> shots{{u"main-en-light"_s, Language::english, false, true},
                            {u"main-de-light"_s, Language::german, false, true},
                            {u"main-en-dark"_s, Language::english, true, true},
                            {u"main-de-dark"_s, Language::german, true, true},
                            {u"first-start-en"_s, Language::english, false, false}};
    for (const Shot& shot : shots) {
        const auto home = useTemporaryHome();
        QApplication::setPalette(shot.dark ? darkPalette() : light);
        const std::unique_ptr<QSettings> settings = Workspace::userSettings();
        settings->setValue(AppSettings::interfaceLanguageKey, rawValue(shot.language));
        settings->setValue(AppSettings::invoiceDarkModeKey, shot.dark);
        applyInterfaceLanguage(*settings);
        Workspace workspace(*settings, ProfileManager::defaultDataFolderPath());
        if (shot.sample)
            SampleData::populate(workspace);
        MainWindow window(workspace, *settings);
        // A 1920×1080 screen's free area: filters, list, form and page side by side.
        window.setWindowState(Qt::WindowNoState);
        window.resize(1920, 1010);
        window.distributeWidth(window.width());
        window.show();
        if (shot.sample) {
            window.searchField()->clear();
            // An open invoice of the recent ones, with a few lines to show.
            window.list()->setCurrentIndex(window.list()->model()->index(2, 0));
            waitForPreview(window);
        } else {
            QDeadlineTimer settle(800);
            while (!settle.hasExpired())
                QApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        failures += savePicture(window, QDir(folder).filePath(shot.name + u".png"_s)) ? 0 : 1;
        if (shot.sample && !shot.dark) {
            // A backup to list on the backups page.
            window.services()->backups().backupNow();
            PreferencesDialog preferences(workspace, *settings, *window.services(), &window);
            preferences.show();
            QApplication::processEvents();
            const QString name = u"preferences-"_s + rawValue(shot.language) + u".png"_s;
            failures += savePicture(preferences, QDir(folder).filePath(name)) ? 0 : 1;
            if (auto* pages = preferences.findChild<QTabWidget*>()) {
                for (int page = 1; page < pages->count(); ++page) {
                    pages->setCurrentIndex(page);
                    QApplication::processEvents();
                    const QString pageName =
                        u"preferences-%1-%2.png"_s.arg(page + 1).arg(rawValue(shot.language));
                    failures += savePicture(preferences, QDir(folder).filePath(pageName)) ? 0 : 1;
                }
            }
            preferences.close();

            installExamplePlugins(window);
            PluginsDialog plugins(window.pluginManager(), &window);
            plugins.show();
            QApplication::processEvents();
            const QString pluginsName = u"plugins-"_s + rawValue(shot.language) + u".png"_s;
            failures += savePicture(plugins, QDir(folder).filePath(pluginsName)) ? 0 : 1;
            plugins.close();

            // No model server in the screenshot home: the offline reading of a customer's e-mail.
            TextExtractionDialog fromText(*settings, &window);
            fromText.show();
            fromText.setText(shot.language == Language::german ? germanSampleMail() : englishSampleMail());
            QDeadlineTimer settle(1500);
            while (!settle.hasExpired())
                QApplication::processEvents(QEventLoop::AllEvents, 20);
            const QString textName = u"from-text-"_s + rawValue(shot.language) + u".png"_s;
            failures += savePicture(fromText, QDir(folder).filePath(textName)) ? 0 : 1;
            fromText.close();

            // The first reminder of an overdue invoice, its letter beside it.
            for (const Invoice& invoice : workspace.invoices().invoices())
                if (invoice.type == InvoiceType::invoice && invoice.isOverdue() &&
                    window.list()->selectId(invoice.id)) {
                    window.showReminders();
                    if (auto* reminders = window.findChild<RemindersDialog*>()) {
                        QDeadlineTimer deadline(15000);
                        while (reminders->preview()->renderedCount() == 0 && !deadline.hasExpired())
                            QApplication::processEvents(QEventLoop::AllEvents, 50);
                        QDeadlineTimer letter(600);
                        while (!letter.hasExpired())
                            QApplication::processEvents(QEventLoop::AllEvents, 20);
                        const QString reminderName = u"reminders-"_s + rawValue(shot.language) + u".png"_s;
                        failures += savePicture(*reminders, QDir(folder).filePath(reminderName)) ? 0 : 1;
                        reminders->close();
                    }
                    break;
                }

            // The styling editor beside the open invoice, and the profile editor.
            window.list()->setCurrentIndex(window.list()->model()->index(2, 0));
            window.action(u"editStyling"_s)->trigger();
            if (auto* styling = window.findChild<StylingDialog*>()) {
                QDeadlineTimer deadline(15000);
                while (styling->preview()->renderedCount() == 0 && !deadline.hasExpired())
                    QApplication::processEvents(QEventLoop::AllEvents, 50);
                QDeadlineTimer pause(600);
                while (!pause.hasExpired())
                    QApplication::processEvents(QEventLoop::AllEvents, 20);
                const QString stylingName = u"styling-"_s + rawValue(shot.language) + u".png"_s;
                failures += savePicture(*styling, QDir(folder).filePath(stylingName)) ? 0 : 1;
                styling->close();
            }
            ProfileDialog profile(workspace, *settings, ProfileDialog::Mode::edit, &window);
            profile.show();
            QApplication::processEvents();
            const QString profileName = u"profile-"_s + rawValue(shot.language) + u".png"_s;
            failures += savePicture(profile, QDir(folder).filePath(profileName)) ? 0 : 1;
            if (auto* tabs = profile.findChild<QTabWidget*>()) {
                tabs->setCurrentIndex(2);
                QApplication::processEvents();
                const QString numbersName = u"profile-numbers-"_s + rawValue(shot.language) + u".png"_s;
                failures += savePicture(profile, QDir(folder).filePath(numbersName)) ? 0 : 1;
            }
            profile.close();

            // A print shop's e-invoice to the sample business, as the viewer shows it.
            const QString received = QDir(home->path()).filePath(u"RE-2026-2318.xml"_s);
            QFile file(received);
            if (file.open(QIODevice::WriteOnly))
                file.write(SampleData::receivedEInvoice(workspace.activeProfile()));
            file.close();
            // The same with two common mistakes, a broken rule chosen in the list.
            const QString faulty = QDir(home->path()).filePath(u"RE-2026-2319.xml"_s);
            QFile faultyFile(faulty);
            if (faultyFile.open(QIODevice::WriteOnly))
                faultyFile.write(SampleData::faultyReceivedEInvoice(workspace.activeProfile()));
            faultyFile.close();
            EInvoiceViewer* viewer = window.showEInvoiceViewer();
            // As it fits a small laptop's screen.
            viewer->resize(1366, 700);
            for (const QString& shown : {received, faulty}) {
                const int loaded = viewer->loadedCount();
                viewer->openFiles({shown});
                QDeadlineTimer deadline(15000);
                while ((viewer->loadedCount() == loaded || viewer->isChecking()) && !deadline.hasExpired())
                    QApplication::processEvents(QEventLoop::AllEvents, 50);
                const bool invalid = shown == faulty;
                // The first rule that points at a part of the page.
                for (int i = 0; invalid && i < viewer->ruleList()->topLevelItemCount(); ++i)
                    if (QTreeWidgetItem* rule = viewer->ruleList()->topLevelItem(i);
                        !rule->data(0, Qt::UserRole).toString().isEmpty()) {
                        viewer->ruleList()->setCurrentItem(rule);
                        break;
                    }
                QDeadlineTimer page(800);
                while (!page.hasExpired())
                    QApplication::processEvents(QEventLoop::AllEvents, 20);
                const QString viewerName =
                    (invalid ? u"viewer-invalid-"_s : u"viewer-"_s) + rawValue(shot.language) + u".png"_s;
                failures += savePicture(*viewer, QDir(folder).filePath(viewerName)) ? 0 : 1;
            }
            viewer->close();

            // An export that a rule stops: a recipient's electronic address with a scheme that
            // is no code of the list (BR-CL-25), caught before the file dialog.
            window.resize(1366, 698);
            window.distributeWidth(window.width());
            window.list()->setCurrentIndex(window.list()->model()->index(2, 0));
            auto* address = window.editor()->findChild<QLineEdit*>(u"Recipient electronic address"_s);
            auto* scheme = window.editor()->findChild<QLineEdit*>(u"Recipient electronic address scheme"_s);
            if (address && scheme) {
                // Typed as the user would.
                for (const auto& [edit, text] :
                     {std::pair{address, u"einkauf@example.com"_s}, {scheme, u"9999"_s}}) {
                    edit->setText(text);
                    Q_EMIT edit->textEdited(text);
                }
                window.documents()->chooseSaveFile = [](const QString&, const QString&, const QString&) {
                    return QString();
                };
                window.action(u"exportXRechnung"_s)->trigger();
                QDeadlineTimer message(600);
                while (!message.hasExpired())
                    QApplication::processEvents(QEventLoop::AllEvents, 20);
                const QString blockedName = u"export-blocked-"_s + rawValue(shot.language) + u".png"_s;
                failures += savePicture(window, QDir(folder).filePath(blockedName)) ? 0 : 1;
            }
        }
        if (!shot.sample) {
            ProfileDialog onboarding(workspace, *settings, ProfileDialog::Mode::onboarding, &window);
            onboarding.show();
            QApplication::processEvents();
            failures +=
                savePicture(onboarding, QDir(folder).filePath(u"onboarding-welcome-en.png"_s)) ? 0 : 1;
            if (auto* next = onboarding.findChild<QPushButton*>(u"next"_s))
                next->click();
            QApplication::processEvents();
            failures += savePicture(onboarding, QDir(folder).filePath(u"onboarding-sender-en.png"_s)) ? 0 : 1;
        }
        window.close();
    }
    for (const QSize& screen : screens)
        failures += writeScreenSizeShots(folder, screen, light);
    return failures == 0 ? 0 : 1;
}

int run(int argc, char* argv[])
{
    RenderEnvironment::prepare();
    // --demo decides where the data lives before anything reads the paths.
    std::unique_ptr<QTemporaryDir> demoHome;
    for (int i = 1; i < argc; ++i)
        if (qstrcmp(argv[i], "--demo") == 0)
            demoHome = useTemporaryHome();
    QApplication app(argc, argv);
    setUpApplication();

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Ledra: invoices, quotes and e-invoices."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption(
        {u"demo"_s, u"Open a sample data folder in a temporary place (your own data is not touched)."_s});
    parser.addOption({u"screenshots"_s, u"Write pictures of the window into DIR and quit."_s, u"DIR"_s});
    parser.addOption({u"size"_s,
                      u"With --screenshots: also picture the window as it opens on screens of these sizes "
                      u"(for example 1366x768,1920x1080)."_s,
                      u"WxH,..."_s});
    parser.addOption(
        {u"show"_s,
         u"Open the invoice of a search result (PROFILE-ID/INVOICE-ID, as `ledra search` gives it)."_s,
         u"ID"_s});
    parser.addOption({u"viewer"_s, u"Show the FILEs in the e-invoice viewer instead of importing them."_s});
    parser.addPositionalArgument(
        u"FILE"_s, u"PDF files or e-invoices to import (or to view, with --viewer)."_s, u"[FILE...]"_s);
    parser.process(app);

    if (parser.isSet(u"screenshots"_s)) {
        QList<QSize> screens;
        if (parser.isSet(u"size"_s)) {
            const auto sizes = parseScreenSizes(parser.value(u"size"_s));
            if (!sizes) {
                std::fprintf(stderr, "ledra-desktop: --size wants sizes like 1366x768,1920x1080\n");
                return 2;
            }
            screens = *sizes;
        }
        return writeScreenshots(parser.value(u"screenshots"_s), screens);
    }

    const std::unique_ptr<QSettings> settings = Workspace::userSettings();
    applyInterfaceLanguage(*settings);
    Workspace workspace(*settings, ProfileManager::defaultDataFolderPath());
    if (demoHome) {
        SampleData::populate(workspace);
        settings->setValue(AppSettings::onboardingDoneKey, true);
    }
    MainWindow window(workspace, *settings);
    if (demoHome)
        installExamplePlugins(window);
    window.show();
    const QStringList files = parser.positionalArguments();
    const QString shown = parser.value(u"show"_s);
    const bool view = parser.isSet(u"viewer"_s);
    QTimer::singleShot(0, &window, [&window, files, shown, view] {
        // Someone looking at a received invoice has not come to set up a profile.
        if (view) {
            window.showEInvoiceViewer(files);
            return;
        }
        window.offerOnboarding();
        if (!files.isEmpty())
            window.openFiles(files);
        if (!shown.isEmpty())
            window.showSearchResult(shown);
    });
    // The day's backup, once the window is there; it is written on another thread.
    if (!demoHome)
        QTimer::singleShot(2000, &window, [&window] { window.services()->backupIfNeeded(); });
    return app.exec();
}

} // namespace DesktopApplication
