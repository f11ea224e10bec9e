#include "WindowMemory.h"

#include "tasks/Workspace.h"

#include <QEvent>
#include <QHeaderView>
#include <QSplitter>
#include <QTreeView>
#include <QWidget>

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
