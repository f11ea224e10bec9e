#include "WindowMemory.h"

#include "tasks/Workspace.h"

#include <QEvent>
#include <QHeaderView>
#include <QSplitter>
#include <QTreeView>
#include <QWidget>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

WindowMemory::WindowMemory(QWidget* window, const QString& key)
    : QObject(window), m_window(window), m_key(key)
{}

void WindowMemory::attach(QWidget* window, const QString& key)
{
    auto* memory = new WindowMemory(window, key);
    memory->restore();
    window->installEventFilter(memory);
}

bool WindowMemory::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window && event->type() == QEvent::Hide)
        save();
    return QObject::eventFilter(watched, event);
}

void WindowMemory::restore()
{
    const auto settings = Workspace::userSettings();
    settings->beginGroup(m_key);
    m_window->restoreGeometry(settings->value(u"geometry"_s).toByteArray());
    const auto splitters = m_window->findChildren<QSplitter*>();
    for (qsizetype i = 0; i < splitters.size(); ++i)
        splitters[i]->restoreState(settings->value(u"splitter%1"_s.arg(i)).toByteArray());
    const auto trees = m_window->findChildren<QTreeView*>();
    for (qsizetype i = 0; i < trees.size(); ++i)
        trees[i]->header()->restoreState(settings->value(u"columns%1"_s.arg(i)).toByteArray());
}

void WindowMemory::save()
{
    const auto settings = Workspace::userSettings();
    settings->beginGroup(m_key);
    settings->setValue(u"geometry"_s, m_window->saveGeometry());
    const auto splitters = m_window->findChildren<QSplitter*>();
    for (qsizetype i = 0; i < splitters.size(); ++i)
        settings->setValue(u"splitter%1"_s.arg(i), splitters[i]->saveState());
    const auto trees = m_window->findChildren<QTreeView*>();
    for (qsizetype i = 0; i < trees.size(); ++i)
        settings->setValue(u"columns%1"_s.arg(i), trees[i]->header()->saveState());
}

WindowMemory::Placement WindowMemory::firstStart(const QRect& available)
{
    // Up to 1680 × 1050: the list, the form and a readable page only fit side by side in all of it.
    if (available.width() <= 1680 || available.height() <= 1000)
        return {available, true};
    QRect geometry(QPoint(), QSize(available.width() * 9 / 10, available.height() * 9 / 10));
    geometry.moveCenter(available.center());
    return {geometry, false};
}

QRect WindowMemory::clampedToScreen(const QRect& geometry, const QRect& available)
{
    if (available.isEmpty())
        return geometry;
    QRect fitted(geometry.topLeft(), geometry.size().boundedTo(available.size()));
    fitted.moveLeft(std::clamp(fitted.left(), available.left(), available.right() - fitted.width() + 1));
    fitted.moveTop(std::clamp(fitted.top(), available.top(), available.bottom() - fitted.height() + 1));
    return fitted;
}
