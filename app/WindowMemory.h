#pragma once

#include <QObject>
#include <QRect>
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

    // Where a main window opens the first time on a screen with this free area: maximised on
    // laptop-sized screens, where every pixel is wanted; most of the area, centred, on larger
    // ones. Never larger than the area.
    struct Placement
    {
        QRect geometry;
        bool maximized = false;
    };
    static Placement firstStart(const QRect& available);
    // A remembered geometry shrunk to fit the free area and moved inside it.
    static QRect clampedToScreen(const QRect& geometry, const QRect& available);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    WindowMemory(QWidget* window, const QString& key);
    void restore();
    void save();

    QWidget* m_window;
    QString m_key;
};
