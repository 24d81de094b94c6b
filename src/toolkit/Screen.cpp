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

bool Screen::isPhone()
{
    const QScreen *screen = qGuiApp ? QGuiApplication::primaryScreen() : nullptr;
    return !overrideSize().isValid() && screen && screen->availableGeometry().width() < 500;
}

QRect Screen::mainScreenBounds()
{
    if (overrideSize().isValid())
        return QRect(QPoint(0, 0), overrideSize());
    if (isPhone())
        return QRect(QPoint(0, 0), QGuiApplication::primaryScreen()->availableGeometry().size());
    return QRect(QPoint(0, 0), kPhoneSize);
}
