#include "IdleTimer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <mutex>

namespace {
std::mutex s_lock;
bool s_disabled = false;
uint s_cookie = 0; // the screen saver's token for our inhibition; 0 when it holds none

QDBusMessage screenSaverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.ScreenSaver"),
                                          QStringLiteral("/org/freedesktop/ScreenSaver"),
                                          QStringLiteral("org.freedesktop.ScreenSaver"), method);
}
} // namespace

void IdleTimer::setIdleTimerDisabled(bool disabled)
{
    const std::lock_guard held(s_lock);
    if (disabled == s_disabled)
        return;
    s_disabled = disabled;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    if (disabled) {
        QDBusMessage call = screenSaverCall(QStringLiteral("Inhibit"));
        call << QStringLiteral("Vantrel Plus") << QStringLiteral("Packing recordings");
        const QDBusReply<uint> reply = bus.call(call, QDBus::Block, 2000);
        s_cookie = reply.isValid() ? reply.value() : 0;
    } else if (s_cookie != 0) {
        QDBusMessage call = screenSaverCall(QStringLiteral("UnInhibit"));
        call << s_cookie;
        bus.call(call, QDBus::NoBlock);
        s_cookie = 0;
    }
}

bool IdleTimer::isIdleTimerDisabled()
{
    const std::lock_guard held(s_lock);
    return s_disabled;
}
