#include "PluginsDialog.h"

#include "AppText.h"
#include "WindowMemory.h"
#include "plugins/PluginError.h"
#include "plugins/PluginManager.h"
#include "plugins/forge/PluginUpdater.h"

#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStyle>
#include <QTreeWidget>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

enum Column
{
    nameColumn,
    versionColumn,
    authorColumn,
    updateColumn,
};

bool isPluginLocation(const QString& path)
{
    const QFileInfo file(path);
    return path.endsWith(QLatin1StringView(Plugin::archiveSuffix), Qt::CaseInsensitive) ||
           (file.isDir() && file.suffix() == QLatin1StringView(Plugin::folderExtension)) ||
           (file.isDir() && QFileInfo::exists(path + u"/plugin.json"_s));
}

} // namespace

PluginsDialog::PluginsDialog(PluginManager& plugins, QWidget* parent)
    : QDialog(parent), m_plugins(plugins), m_list(new QTreeWidget), m_description(new QLabel),
      m_message(new QLabel), m_uninstall(new QPushButton(ui(u"Uninstall…"))),
      m_check(new QPushButton(ui(u"Check for Updates"))), m_update(new QPushButton(ui(u"Update")))
{
    setObjectName(u"plugins"_s);
    setWindowTitle(ui(u"Plugins"));
    setAcceptDrops(true);
    auto* layout = new QVBoxLayout(this);

    auto* intro = new QLabel(ui(u"Plugins are scripts that export, import or update your invoices. Drop a "
                                u".ledraplugin.zip here or choose one to install it."));
    intro->setWordWrap(true);
    layout->addWidget(intro);

    m_list->setObjectName(u"pluginList"_s);
    m_list->setAccessibleName(ui(u"Installed Plugins"));
    m_list->setRootIsDecorated(false);
    m_list->setHeaderLabels({ui(u"Plugin"), ui(u"Version"), ui(u"Author"), ui(u"Update")});
    m_list->header()->setSectionResizeMode(nameColumn, QHeaderView::Stretch);
    m_list->header()->setStretchLastSection(false);
    for (int column : {versionColumn, authorColumn, updateColumn})
        m_list->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    layout->addWidget(m_list, 1);

    // What the selected plugin does, in its author's words.
    m_description->setObjectName(u"pluginDescription"_s);
    m_description->setWordWrap(true);
    m_description->setTextFormat(Qt::RichText);
    m_description->setForegroundRole(QPalette::PlaceholderText);
    m_description->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_description);

    m_message->setObjectName(u"pluginMessage"_s);
    m_message->setWordWrap(true);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_message->hide();
    layout->addWidget(m_message);

    auto* actions = new QHBoxLayout;
    auto* install = new QPushButton(ui(u"Install…"));
    install->setObjectName(u"installPlugin"_s);
    m_uninstall->setObjectName(u"uninstallPlugin"_s);
    m_check->setObjectName(u"checkPluginUpdates"_s);
    m_update->setObjectName(u"updatePlugin"_s);
    actions->addWidget(install);
    actions->addWidget(m_uninstall);
    actions->addStretch();
    actions->addWidget(m_check);
    actions->addWidget(m_update);
    layout->addLayout(actions);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);
    layout->addWidget(buttons);

    connect(install, &QPushButton::clicked, this, &PluginsDialog::chooseAndInstall);
    connect(m_uninstall, &QPushButton::clicked, this, &PluginsDialog::uninstallSelected);
    connect(m_check, &QPushButton::clicked, this, &PluginsDialog::checkForUpdates);
    connect(m_update, &QPushButton::clicked, this, &PluginsDialog::updateSelected);
    connect(m_list, &QTreeWidget::currentItemChanged, this, &PluginsDialog::refresh);
    // The check box beside a name switches the plugin on and off.
    connect(m_list, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int column) {
        if (m_refreshing || column != nameColumn)
            return;
        m_plugins.setEnabled(item->data(nameColumn, Qt::UserRole).toString(),
                             item->checkState(nameColumn) == Qt::Checked);
    });
    connect(&m_plugins, &PluginManager::pluginsChanged, this, &PluginsDialog::refresh);
    connect(&m_plugins, &PluginManager::updatesChanged, this, &PluginsDialog::refresh);

    refresh();
    resize(640, 380);
    WindowMemory::attach(this, u"pluginsDialog"_s);
}

QString PluginsDialog::selectedId() const
{
    const QTreeWidgetItem* current = m_list->currentItem();
    return current ? current->data(nameColumn, Qt::UserRole).toString() : QString();
}

void PluginsDialog::refresh()
{
    const QString selected = selectedId();
    const PluginUpdater& updater = m_plugins.updater();
    m_refreshing = true;
    if (m_list->topLevelItemCount() != m_plugins.plugins().size()) {
        m_list->clear();
        for (qsizetype i = 0; i < m_plugins.plugins().size(); ++i)
            new QTreeWidgetItem(m_list);
    }
    for (qsizetype i = 0; i < m_plugins.plugins().size(); ++i) {
        const Plugin& plugin = m_plugins.plugins()[i];
        QTreeWidgetItem* item = m_list->topLevelItem(int(i));
        item->setData(nameColumn, Qt::UserRole, plugin.id());
        item->setText(nameColumn, plugin.manifest.name);
        // Said once, here, rather than as a script error at every start.
        const auto missing = m_plugins.missingRequirement(plugin.id());
        item->setToolTip(nameColumn, missing ? *missing : plugin.manifest.description.value_or(QString()));
        item->setIcon(nameColumn, missing ? style()->standardIcon(QStyle::SP_MessageBoxWarning) : QIcon());
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(nameColumn, m_plugins.isEnabled(plugin.id()) ? Qt::Checked : Qt::Unchecked);
        item->setText(versionColumn, PluginUpdater::installedVersion(plugin));
        item->setText(authorColumn, plugin.manifest.author.value_or(QString()));
        QString update;
        if (updater.updatingIDs().contains(plugin.id()))
            update = ui(u"Updating…");
        else if (updater.checkingIDs().contains(plugin.id()))
            update = ui(u"Checking…");
        else if (updater.availableUpdates().contains(plugin.id()))
            update = ui(u"%1 available").arg(updater.availableUpdates().value(plugin.id()));
        item->setText(updateColumn, update);
        if (plugin.id() == selected)
            m_list->setCurrentItem(item);
    }
    if (!m_list->currentItem() && m_list->topLevelItemCount() > 0)
        m_list->setCurrentItem(m_list->topLevelItem(0));
    m_refreshing = false;

    const QString id = selectedId();
    const auto shown = m_plugins.plugin(id);
    QStringList about;
    if (shown && shown->manifest.description)
        about.append(shown->manifest.description->toHtmlEscaped());
    if (const auto missing = shown ? m_plugins.missingRequirement(id) : std::nullopt)
        about.append(
            u"<b>%1</b> %2"_s.arg(ui(u"Needs setting up:").toHtmlEscaped(), missing->toHtmlEscaped()));
    m_description->setText(about.join(u"<br><br>"_s));
    m_description->setVisible(!m_description->text().isEmpty());
    m_uninstall->setEnabled(!id.isEmpty());
    m_update->setEnabled(updater.availableUpdates().contains(id) && !updater.updatingIDs().contains(id));
    m_check->setEnabled(!updater.isChecking() && !m_plugins.plugins().isEmpty());
}

void PluginsDialog::showMessage(const QString& text)
{
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

bool PluginsDialog::install(const QString& location)
{
    try {
        const Plugin installed = m_plugins.install(location);
        showMessage(ui(u"Plugin “%1” installed").arg(installed.manifest.name));
        refresh();
        return true;
    } catch (const PluginError& error) {
        showMessage(error.message());
        return false;
    }
}

void PluginsDialog::chooseAndInstall()
{
    // A plugin folder is chosen by its manifest; a file dialog picks files or folders, not both.
    const QString file = QFileDialog::getOpenFileName(
        this, ui(u"Install Plugin"), QString(), ui(u"Ledra Plugins (*.ledraplugin.zip *.zip plugin.json)"));
    if (file.isEmpty())
        return;
    const QFileInfo chosen(file);
    install(chosen.fileName() == u"plugin.json" ? chosen.absolutePath() : file);
}

void PluginsDialog::uninstallSelected()
{
    const auto plugin = m_plugins.plugin(selectedId());
    if (!plugin)
        return;
    const auto answer = QMessageBox::question(
        this, ui(u"Uninstall Plugin"),
        ui(u"Uninstall the plugin “%1”? Its folder is removed.").arg(plugin->manifest.name));
    if (answer != QMessageBox::Yes)
        return;
    try {
        m_plugins.uninstall(*plugin);
        showMessage(ui(u"Plugin “%1” uninstalled").arg(plugin->manifest.name));
    } catch (const PluginError& error) {
        showMessage(error.message());
    }
    refresh();
}

void PluginsDialog::checkForUpdates()
{
    if (!m_plugins.checkForUpdatesEnabled()) {
        showMessage(ui(u"Update checks are switched off in Preferences."));
        return;
    }
    showMessage(ui(u"Looking for newer versions…"));
    m_plugins.updater().checkForUpdates(
        m_plugins.plugins(), [this](const QList<PluginUpdater::CheckResult>& results) {
            QStringList lines;
            for (const PluginUpdater::CheckResult& result : results) {
                const auto plugin = m_plugins.plugin(result.id);
                const QString name = plugin ? plugin->manifest.name : result.id;
                if (result.error)
                    lines.append(name + u": "_s + *result.error);
                else if (result.offeredVersion)
                    lines.append(ui(u"%1: version %2 is available.").arg(name, *result.offeredVersion));
            }
            showMessage(lines.isEmpty() ? ui(u"All plugins are up to date.") : lines.join(u'\n'));
            refresh();
        });
    refresh();
}

void PluginsDialog::updateSelected()
{
    const auto plugin = m_plugins.plugin(selectedId());
    if (!plugin)
        return;
    const QString name = plugin->manifest.name;
    m_plugins.updater().update(*plugin, [this, name](const std::optional<QString>& error) {
        showMessage(error ? *error : ui(u"Plugin “%1” updated").arg(name));
        refresh();
    });
    refresh();
}

void PluginsDialog::dragEnterEvent(QDragEnterEvent* event)
{
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile() && isPluginLocation(url.toLocalFile())) {
            event->acceptProposedAction();
            return;
        }
}

void PluginsDialog::dropEvent(QDropEvent* event)
{
    QStringList locations;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile() && isPluginLocation(url.toLocalFile()))
            locations.append(url.toLocalFile());
    event->acceptProposedAction();
    for (const QString& location : locations)
        install(location);
}
