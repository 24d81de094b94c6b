#include "NotifyCenter.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace {

struct SignalName
{
    QString interface;
    QString member;
};

// The interface is the name up to its last dot, the member its last component.
SignalName split(const QString &name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return { name.left(dot), name.mid(dot + 1) };
}

} // namespace

bool NotifyCenter::notify_post(const QString &name)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const SignalName signal = split(name);
    return bus.send(QDBusMessage::createSignal(QString::fromLatin1(kObjectPath), signal.interface,
                                               signal.member));
}

bool NotifyCenter::addObserver(const QString &name, QObject *receiver, const char *slot)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const SignalName signal = split(name);
    return bus.connect(QString(), QString::fromLatin1(kObjectPath), signal.interface, signal.member,
                       receiver, slot);
}
