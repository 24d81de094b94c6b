#pragma once

#include <QIcon>
#include <QString>

// The application's glyphs by name ("share", "trash", "Settings", ...): SVG drawn through
// Qt's SVG icon engine, so that each is rendered sharp at whatever pixel ratio it is painted.
namespace Images {
// A null icon when there is no glyph of that name.
QIcon imageNamed(const QString &name);
} // namespace Images
