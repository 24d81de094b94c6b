#include "CallAudioDaemon.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace {
const QString kService = QStringLiteral("org.mobian_project.CallAudio");
const QString kPath = QStringLiteral("/org/mobian_project/CallAudio");
} // namespace

CallAudioDaemon::CallAudioDaemon(QObject *parent) : SpeakerSwitch(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    auto *watcher = new QDBusServiceWatcher(kService, bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &owner) {
                setRunning(!owner.isEmpty());
            });
    auto *asked = new QDBusPendingCallWatcher(
        bus.interface()->asyncCall(QStringLiteral("NameHasOwner"), kService), this);
    connect(asked, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<bool> reply = *call;
        call->deleteLater();
        if (reply.isValid())
            setRunning(reply.value());
    });
}

void CallAudioDaemon::setRunning(bool running)
{
    if (running == m_running)
        return;
    m_running = running;
    emit availabilityChanged();
}

void CallAudioDaemon::setLoudspeaker(bool loudspeaker)
{
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService,
                                                       QStringLiteral("EnableSpeaker"));
    call << loudspeaker;
    QDBusConnection::sessionBus().asyncCall(call);
}
