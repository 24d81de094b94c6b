#include "LauncherBadge.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>

void LauncherBadge::setApplicationIconBadgeNumber(int number)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage update = QDBusMessage::createSignal(
        QStringLiteral("/net/zorvath/vantrel"), QStringLiteral("com.canonical.Unity.LauncherEntry"),
        QStringLiteral("Update"));
    update << QString::fromLatin1(kDesktopEntry)
           << QVariantMap { { QStringLiteral("count"), qint64(number) },
                            { QStringLiteral("count-visible"), number > 0 } };
    bus.send(update);
}
