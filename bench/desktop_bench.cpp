// How the desktop program feels with a big data folder: the window shown with 10,000 invoices,
// a keystroke in the search field, a keystroke in the editor and the preview that follows it.
// Usage: ledra-desktop-bench [COUNT]   (runs on the off-screen platform without a display)
#include "DesktopApplication.h"
#include "InvoiceEditor.h"
#include "InvoiceFilterModel.h"
#include "InvoiceListView.h"
#include "MainWindow.h"
#include "PreviewWidget.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "render/RenderEnvironment.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "tasks/Workspace.h"
#include "util/Files.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

Invoice benchInvoice(int index)
{
    static const QStringList cities{u"Berlin"_s, u"Hamburg"_s, u"München"_s, u"Köln"_s, u"Leipzig"_s};
    Invoice invoice = Invoice::makeNew();
    invoice.number = index + 1;
    invoice.numberFormat = u"{YYYY}-{NNNNN}"_s;
    invoice.date = Timestamp::fromDateTime(QDateTime(QDate(2025, 1, 1).addDays(index % 365), QTime(10, 0)));
    invoice.serviceDateStart = invoice.date;
    invoice.status = Status(index % 3);
    invoice.name = u"Customer %1"_s.arg(index);
    invoice.businessName = u"Business %1 GmbH"_s.arg(index % 700);
    invoice.addressLineOne = u"Hauptstraße %1"_s.arg(index % 200);
    invoice.addressPostcode = u"80331"_s;
    invoice.addressCity = cities[index % cities.size()];
    invoice.addressCountry = Country{u"DE"_s};
    invoice.email = u"customer%1@example.org"_s.arg(index);
    invoice.senderName = u"Mira Lindqvist"_s;
    for (int i = 0; i < 5; ++i)
        invoice.items.append({QUuid::createUuid(), u"Design work, part %1"_s.arg(i), 1.5 + i, Unit::hour,
                              85.25 + i, i % 2 ? 19.0 : 7.0});
    return invoice;
}

void spin(int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired())
        QApplication::processEvents(QEventLoop::AllEvents, 10);
}

bool waitFor(const std::function<bool()>& condition, int milliseconds)
{
    QDeadlineTimer deadline(milliseconds);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

const char* verdict(double value, double target)
{
    return value < target ? "OK" : "SLOW";
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    RenderEnvironment::prepare();
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(u"data"_s)));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(u"config"_s)));
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Ledra"_s);
    QLoggingCategory::setFilterRules(u"ledra.*.info=false"_s);
    const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10000;

    // The data folder, written directly: the store's file names, one profile.
    const QString profileFolder = ProfileManager::defaultDataFolderPath() + u"/Default"_s;
    QDir().mkpath(profileFolder + u"/Invoices"_s);
    Profile profile = Profile::makeNew(Country{u"DE"_s});
    profile.name = u"Mira Lindqvist"_s;
    Files::writeAtomically(profileFolder + u"/profile.json"_s, ProfileJson::encode(profile));
    for (int i = 0; i < count; ++i) {
        const Invoice invoice = benchInvoice(i);
        Files::writeAtomically(profileFolder + u"/Invoices/"_s +
                                   invoice.date.localDate().toString(u"yyyy-MM-dd"_s) + u'-' +
                                   invoice.id.toString(QUuid::WithoutBraces).toUpper() + u".json"_s,
                               InvoiceJson::encode(invoice));
    }
    const std::unique_ptr<QSettings> settings = Workspace::userSettings();
    settings->setValue(u"interfaceLanguage"_s, u"en"_s);
    DesktopApplication::applyInterfaceLanguage(*settings);
    // The web engine starts once per program run, before the window; it is not the window's cost.
    {
        PreviewWidget warmUp;
        spin(300);
    }

    // 1. From nothing to a window with its list filled.
    QElapsedTimer clock;
    clock.start();
    Workspace workspace(*settings, ProfileManager::defaultDataFolderPath());
    MainWindow window(workspace, *settings);
    window.resize(1440, 900);
    window.show();
    waitFor([&] { return window.filterModel()->rowCount() == count; }, 30000);
    QApplication::processEvents();
    const double shownSeconds = clock.nsecsElapsed() / 1e9;
    std::printf("window: shown with %d invoices in %.3f s (target < 1 s)  %s\n",
                window.filterModel()->rowCount(), shownSeconds, verdict(shownSeconds, 1.0));

    // 2. Keystrokes in the search field, each filtering every invoice.
    QList<double> searchMs;
    for (const QChar c : u"business 4"_s) {
        clock.restart();
        QTest::keyClick(window.searchField(), c.toLatin1());
        searchMs.append(clock.nsecsElapsed() / 1e6);
    }
    std::printf("search: %.1f ms per keystroke, slowest %.1f ms over %d invoices (target < 50 ms)  %s\n",
                median(searchMs), *std::max_element(searchMs.begin(), searchMs.end()), count,
                verdict(*std::max_element(searchMs.begin(), searchMs.end()), 50));
    window.searchField()->clear();

    // 3. Keystrokes in the editor return at once; the preview follows.
    window.list()->setCurrentIndex(window.list()->model()->index(0, 0));
    PreviewWidget* preview = window.preview();
    waitFor([&] { return preview->renderedCount() > 0; }, 20000);
    auto* name = window.findChild<QLineEdit*>(u"Recipient name"_s);
    name->setFocus();
    QList<double> keyMs;
    QList<double> followMs;
    for (int round = 0; round < 8; ++round) {
        const int before = preview->renderedCount();
        clock.restart();
        QTest::keyClick(name, char('a' + round));
        keyMs.append(clock.nsecsElapsed() / 1e6);
        waitFor([&] { return preview->renderedCount() > before; }, 5000);
        followMs.append(clock.nsecsElapsed() / 1e6);
        spin(200);
    }
    const double slowestKey = *std::max_element(keyMs.begin(), keyMs.end());
    std::printf("editor: a keystroke returns in %.1f ms, slowest %.1f ms (target < 16 ms)  %s\n",
                median(keyMs), slowestKey, verdict(slowestKey, 16));
    std::printf("preview: follows a keystroke in %.0f ms, slowest %.0f ms (target < 500 ms)  %s\n",
                median(followMs), *std::max_element(followMs.begin(), followMs.end()),
                verdict(median(followMs), 500));
    window.close();
    return 0;
}
