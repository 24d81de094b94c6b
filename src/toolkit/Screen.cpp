#include "Screen.h"

#include <QGuiApplication>
#include <QScreen>

namespace {
QSize &overrideSize()
{
    static QSize size;
    return size;
}
} // namespace

void Screen::setOverrideSize(const QSize &size)
{
    overrideSize() = size;
}

QRect Screen::mainScreenBounds()
{
    if (overrideSize().isValid())
        return QRect(QPoint(0, 0), overrideSize());
    if (const QScreen *screen = qGuiApp ? QGuiApplication::primaryScreen() : nullptr) {
        const QRect available = screen->availableGeometry();
        if (available.width() < 500)
            return QRect(QPoint(0, 0), available.size());
    }
    return QRect(QPoint(0, 0), kPhoneSize);
}
