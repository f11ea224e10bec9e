#include "AppFixture.h"

#include "DocumentActions.h"
#include "InvoiceListView.h"
#include "MessageBar.h"
#include "plugins/PluginManager.h"
#include "tasks/SampleData.h"

#include <QDir>
#include <QFile>
#include <QMenu>

using namespace Qt::Literals::StringLiterals;

// File › Export/Import/Update Invoices…: a plugin's entry points run from the menu, with the
// results in the window and the script's own error when it fails.
class PluginMenuTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        const QString folder = m_home.filePath(u"Names.ledraplugin"_s);
        QDir().mkpath(folder);
        write(folder + u"/plugin.json"_s, R"({"specVersion": 1, "name": "Names", "version": "1.0.0",
                                              "author": "Test", "fileExtension": "txt"})");
        write(folder + u"/main.js"_s, R"js(
exports.exportInvoices = function (invoices) {
    return invoices.map(function (i) { return i.recipient.name; }).join('\n');
};
exports.importInvoices = function (text) {
    if (text.indexOf('boom') >= 0)
        throw new Error('line 1 names no customer');
    return text.split('\n').filter(function (l) { return l; }).map(function (line) {
        return { recipient: { name: line }, items: [{ item: 'Work', quantity: 2, unitPrice: 50 }] };
    });
};
exports.updateInvoices = function (invoices) {
    var result = {};
    invoices.forEach(function (i) { if (i.status === 'Sent') result[i.id] = { status: 'Paid', date: '2026-11-20' }; });
    return result;
};
)js");
        PluginManager& plugins = window().pluginManager();
        plugins.install(folder);
        window().rebuildPluginMenus();
        window().documents()->chooseSaveFile = [this](const QString&, const QString& suggested,
                                                      const QString&) {
            m_suggested = QFileInfo(suggested).fileName();
            return m_home.filePath(u"export.txt"_s);
        };
        window().documents()->chooseOpenFiles = [this](const QString&, const QString&, const QString&) {
            return QStringList{m_home.filePath(u"names.txt"_s)};
        };
    }

    void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QAction* entry(const QString& menuName)
    {
        auto* menu = window().findChild<QMenu*>(menuName);
        EXPECT_TRUE(menu && menu->menuAction()->isVisible()) << menuName.toStdString();
        return menu && !menu->actions().isEmpty() ? menu->actions().first() : nullptr;
    }

    QString m_suggested;
};

TEST_F(PluginMenuTest, ExportImportAndUpdateRunFromTheFileMenu)
{
    QAction* exportEntry = entry(u"exportPluginMenu"_s);
    ASSERT_TRUE(exportEntry);
    EXPECT_EQ(exportEntry->text(), u"Names…"_s);
    const Invoice first = workspace().invoices().invoices().first();
    ASSERT_TRUE(window().list()->selectId(first.id));
    exportEntry->trigger();
    QFile exported(m_home.filePath(u"export.txt"_s));
    ASSERT_TRUE(exported.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(exported.readAll()), first.name);
    EXPECT_TRUE(m_suggested.startsWith(u"Invoice "_s) && m_suggested.endsWith(u".txt"_s))
        << m_suggested.toStdString();

    const qsizetype before = workspace().invoices().invoices().size();
    write(m_home.filePath(u"names.txt"_s), "Ada Byron\nAlan Kay\n");
    entry(u"importPluginMenu"_s)->trigger();
    ASSERT_EQ(workspace().invoices().invoices().size(), before + 2);
    int imported = 0;
    for (const Invoice& invoice : workspace().invoices().invoices())
        if (invoice.name == u"Ada Byron" || invoice.name == u"Alan Kay")
            ++imported;
    EXPECT_EQ(imported, 2);

    int sent = 0;
    for (const Invoice& invoice : workspace().invoices().invoices())
        sent += invoice.status == Status::sent ? 1 : 0;
    ASSERT_GT(sent, 0) << "the sample data has no sent invoice";
    entry(u"updatePluginMenu"_s)->trigger();
    for (const Invoice& invoice : workspace().invoices().invoices())
        EXPECT_NE(invoice.status, Status::sent) << invoice.name.toStdString();
}

TEST_F(PluginMenuTest, TheScriptsOwnErrorIsShownAndNothingIsCreated)
{
    const qsizetype before = workspace().invoices().invoices().size();
    write(m_home.filePath(u"names.txt"_s), "boom\n");
    entry(u"importPluginMenu"_s)->trigger();
    EXPECT_EQ(workspace().invoices().invoices().size(), before);
    EXPECT_TRUE(window().messages()->text().contains(u"line 1 names no customer"_s))
        << window().messages()->text().toStdString();

    // Switched off, it leaves the menu.
    window().pluginManager().setEnabled(u"Names"_s, false);
    window().rebuildPluginMenus();
    EXPECT_FALSE(window().findChild<QMenu*>(u"importPluginMenu"_s)->menuAction()->isVisible());
}
