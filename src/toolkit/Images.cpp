#include "Images.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QPointer>

namespace {

// One icon per glyph, so that the engine's rendered pixmaps are reused between paints. It is
// a child of the application object: icons must not outlive it.
class ImageCache : public QObject
{
public:
    using QObject::QObject;
    QHash<QString, QIcon> icons;
};

ImageCache *cache()
{
    static QPointer<ImageCache> instance;
    if (!instance)
        instance = new ImageCache(QCoreApplication::instance());
    return instance;
}

} // namespace

QIcon Images::imageNamed(const QString &name)
{
    QHash<QString, QIcon> &icons = cache()->icons;
    if (const auto found = icons.constFind(name); found != icons.cend())
        return *found;
    const QString path = QStringLiteral(":/images/%1.svg").arg(name);
    const QIcon icon = QFile::exists(path) ? QIcon(path) : QIcon();
    icons.insert(name, icon);
    return icon;
}
