#include "Icons.h"

#include <QApplication>
#include <QFile>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QSvgRenderer>

using namespace Qt::Literals::StringLiterals;

namespace Icons {

QIcon named(const QString& freedesktopName)
{
    if (QIcon::hasThemeIcon(freedesktopName))
        return QIcon::fromTheme(freedesktopName);
    QFile file(u":/app/icons/"_s + freedesktopName + u".svg"_s);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The shipped icons draw with "currentColor"; the palette decides it, so they suit dark themes.
    QByteArray svg = file.readAll();
    const QPalette palette = QApplication::palette();
    QIcon icon;
    for (const auto& [mode, role] : {std::pair{QIcon::Normal, QPalette::WindowText},
                                     std::pair{QIcon::Disabled, QPalette::PlaceholderText}}) {
        QByteArray coloured = svg;
        coloured.replace("currentColor", palette.color(QPalette::Active, role).name().toLatin1());
        QSvgRenderer renderer(coloured);
        for (const int size : {16, 22, 24, 32, 48}) {
            QPixmap pixmap(size, size);
            pixmap.fill(Qt::transparent);
            QPainter painter(&pixmap);
            renderer.render(&painter);
            painter.end();
            icon.addPixmap(pixmap, mode);
        }
    }
    return icon;
}

QIcon application()
{
    return QIcon(u":/app/com.varnhelm.Ledra.svg"_s);
}

} // namespace Icons
