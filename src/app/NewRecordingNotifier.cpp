#include "NewRecordingNotifier.h"

#include "core/Log.h"
#include "desktop/LauncherBadge.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLocale>
#include <QWidget>

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kPlay = QStringLiteral("play");
const QString kCallBack = QStringLiteral("call-back");
} // namespace

NewRecordingNotifier::NewRecordingNotifier(QWidget *window, std::function<qsizetype()> unheard,
                                           QObject *parent)
    : QObject(parent), m_window(window), m_unheard(std::move(unheard))
{
    m_pace.setInterval(kPaceMs);
    connect(&m_pace, &QTimer::timeout, this, &NewRecordingNotifier::showNext);

    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                SLOT(actionInvoked(uint, QString)));
    bus.connect(kService, kPath, kService, QStringLiteral("NotificationClosed"), this,
                SLOT(notificationClosed(uint, uint)));
}

NewRecordingNotifier::~NewRecordingNotifier()
{
    // Off the bus while still whole: the bus would otherwise take its hooks down on its own
    // thread while this object is half destroyed, which crashes now and then at exit.
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.disconnect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                   SLOT(actionInvoked(uint, QString)));
    bus.disconnect(kService, kPath, kService, QStringLiteral("NotificationClosed"), this,
                   SLOT(notificationClosed(uint, uint)));
}

void NewRecordingNotifier::recordingsArrived(const QList<Entry> &entries)
{
    if (m_window && m_window->isActiveWindow())
        return;
    // The list is newest first; a burst is announced oldest first, as it came.
    for (auto entry = entries.crbegin(); entry != entries.crend(); ++entry)
        m_waiting.append(*entry);
    if (!m_waiting.isEmpty() && !m_pace.isActive()) {
        showNext();
        m_pace.start();
    }
}

void NewRecordingNotifier::showNext()
{
    if (m_waiting.isEmpty()) {
        m_pace.stop();
        return;
    }
    const Entry entry = m_waiting.takeFirst();
    const qsizetype unheard = m_unheard();
    LauncherBadge::setApplicationIconBadgeNumber(int(unheard));

    const QString caller = entry.name.isEmpty() ? entry.address : entry.name;
    const QString time =
        entry.date ? QLocale().toString(entry.date->time(), QLocale::ShortFormat) : QString();
    QString body = time.isEmpty() ? caller : QStringLiteral("%1, %2").arg(caller, time);
    // With others waiting too, the notification says how many, as the badge does; for the
    // one alone it would only repeat itself.
    if (unheard > 1)
        body += QStringLiteral("\n%1 unheard recordings").arg(unheard);
    QDBusMessage notify =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    notify << QStringLiteral("Vantrel Plus") << uint(0) << QStringLiteral("net.zorvath.vantrel")
           << QStringLiteral("New voicemail") << body
           << QStringList { kPlay, QStringLiteral("Play"), kCallBack, QStringLiteral("Call back") }
           << QVariantMap { { QStringLiteral("desktop-entry"),
                              QStringLiteral("net.zorvath.vantrel") },
                            { QStringLiteral("category"), QStringLiteral("im.received") } }
           << int(-1);
    auto *call = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(notify), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this, call, entry] {
        call->deleteLater();
        const QDBusPendingReply<uint> reply = *call;
        if (reply.isError()) {
            // Said once: a desktop without a notification server stays without one.
            if (!std::exchange(m_serverMissingLogged, true))
                mylog(QStringLiteral("VantrelLog : no notification shown: %1")
                          .arg(reply.error().message()));
            return;
        }
        m_shown.insert(reply.value(), entry);
    });
}

void NewRecordingNotifier::actionInvoked(uint id, const QString &action)
{
    const auto shown = m_shown.constFind(id);
    if (shown == m_shown.cend())
        return; // another application's notification
    if (action == kPlay || action == QLatin1String("default"))
        emit playRequested(shown->filename);
    else if (action == kCallBack)
        emit callBackRequested(shown->address);
}

void NewRecordingNotifier::notificationClosed(uint id, uint)
{
    m_shown.remove(id);
}
