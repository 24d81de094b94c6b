#include "AudioSession.h"

#include "AudioOutputs.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QPointer>

namespace {

// The call-audio daemon of Linux phones (Phosh, Plasma Mobile, Sxmo).
const QString kCallAudioService = QStringLiteral("org.mobian_project.CallAudio");
const QString kCallAudioPath = QStringLiteral("/org/mobian_project/CallAudio");

bool isReceiver(const AudioOutputs::Output &output)
{
    for (const char *word : { "earpiece", "receiver", "handset" }) {
        if (output.name.contains(QLatin1String(word), Qt::CaseInsensitive) ||
            output.description.contains(QLatin1String(word), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

} // namespace

AudioSession *AudioSession::sharedInstance()
{
    // A child of the application object: it goes when the application does, never after.
    static QPointer<AudioSession> session;
    if (!session)
        session = new AudioSession(QCoreApplication::instance());
    return session;
}

AudioSession::AudioSession(QObject *parent) : QObject(parent), m_outputs(new AudioOutputs(this))
{
    connect(m_outputs, &AudioOutputs::changed, this, &AudioSession::outputsChanged);
    connect(m_outputs, &AudioOutputs::callActiveChanged, this, &AudioSession::callActiveChanged);
    // Whether the call-audio daemon runs is followed on the bus, never asked on the way.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    auto *watcher = new QDBusServiceWatcher(kCallAudioService, bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &owner) {
                m_callAudioDaemon = !owner.isEmpty();
                outputsChanged();
            });
    auto *asked = new QDBusPendingCallWatcher(
        bus.interface()->asyncCall(QStringLiteral("NameHasOwner"), kCallAudioService), this);
    connect(asked, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<bool> reply = *call;
        call->deleteLater();
        if (reply.isValid() && reply.value() != m_callAudioDaemon) {
            m_callAudioDaemon = reply.value();
            outputsChanged();
        }
    });
}

bool AudioSession::setCategory(const QString &category)
{
    if (category != AVAudioSessionCategoryPlayback &&
        category != AVAudioSessionCategoryPlayAndRecord)
        return false;
    if (m_category == category)
        return true;
    m_category = category;
    emit categoryChanged(category);
    if (m_callAudioDaemon)
        tellCallAudioDaemon();
    outputsChanged();
    return true;
}

void AudioSession::tellCallAudioDaemon()
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        kCallAudioService, kCallAudioPath, kCallAudioService, QStringLiteral("EnableSpeaker"));
    call << (m_category == AVAudioSessionCategoryPlayback);
    // Not waited for: the daemon switches while the sound goes on.
    QDBusConnection::sessionBus().asyncCall(call);
}

QString AudioSession::outputName() const
{
    return m_outputName;
}

bool AudioSession::hasOutput(const QString &name) const
{
    return m_outputs->contains(name);
}

bool AudioSession::callActive() const
{
    return m_outputs->callActive();
}

void AudioSession::outputsChanged()
{
    const QList<AudioOutputs::Output> outputs = m_outputs->outputs();
    const auto isDefault = [&](const AudioOutputs::Output &output) {
        return output.name == m_outputs->defaultName();
    };
    QString name = m_outputs->defaultName();
    const bool receiver = m_category == AVAudioSessionCategoryPlayAndRecord;
    const auto defaultOutput = std::find_if(outputs.begin(), outputs.end(), isDefault);
    // With the daemon, the default output is the phone's own, whichever way it is switched.
    if (!m_callAudioDaemon && defaultOutput != outputs.end() &&
        isReceiver(*defaultOutput) != receiver) {
        const auto other = std::find_if(outputs.begin(), outputs.end(), [&](const auto &output) {
            return isReceiver(output) == receiver;
        });
        if (other != outputs.end())
            name = other->name;
    }
    if (name != m_outputName) {
        m_outputName = name;
        emit outputChanged();
    }
    emit routeChanged();
}
