#pragma once

#include <QObject>
#include <QString>

class QWidget;

// Remembers a window's size and position, its splitters and its list columns under `key` in
// the user's settings: restored when attached, saved whenever the window is hidden.
class WindowMemory : public QObject
{
    Q_OBJECT
public:
    // Attach at the end of the window's constructor, once its children exist.
    static void attach(QWidget* window, const QString& key);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    WindowMemory(QWidget* window, const QString& key);
    void restore();
    void save();

    QWidget* m_window;
    QString m_key;
};
