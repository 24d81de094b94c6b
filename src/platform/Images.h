#pragma once

#include <QIcon>
#include <QPixmap>
#include <QString>

// The application's glyphs by name ("share", "trash", "Settings", ...), drawn as SVG and
// rendered sharp at the screen's pixel ratio.
namespace Images {
// A null pixmap when there is no glyph of that name.
QPixmap imageNamed(const QString &name, const QSize &pointSize);
} // namespace Images
