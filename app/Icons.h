#pragma once

#include <QIcon>
#include <QString>

// Toolbar and menu icons: the desktop theme's icon of that freedesktop name when the theme has
// one, else the shipped line icon drawn in the palette's text colour.
namespace Icons {

QIcon named(const QString& freedesktopName);
// The program's own icon.
QIcon application();

} // namespace Icons
