#include "Images.h"

#include <QFile>
#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

namespace {
QString resourcePath(const QString &name)
{
    return QStringLiteral(":/images/%1.svg").arg(name);
}
} // namespace

QPixmap Images::imageNamed(const QString &name, const QSize &pointSize)
{
    static QHash<QString, QPixmap> cache;
    const qreal ratio = qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
    const QString key = QStringLiteral("%1@%2x%3@%4")
                            .arg(name)
                            .arg(pointSize.width())
                            .arg(pointSize.height())
                            .arg(ratio);
    if (const auto found = cache.constFind(key); found != cache.cend())
        return *found;

    QSvgRenderer renderer(resourcePath(name));
    if (!renderer.isValid())
        return {};
    QPixmap pixmap(pointSize * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(pointSize)));
    painter.end();
    cache.insert(key, pixmap);
    return pixmap;
}
