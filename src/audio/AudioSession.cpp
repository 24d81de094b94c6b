#include "AudioSession.h"

#include "AudioOutputs.h"
#include "SpeakerSwitch.h"

#include <QCoreApplication>
#include <QPointer>

namespace {

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
}

void AudioSession::setSpeakerSwitch(SpeakerSwitch *speakerSwitch)
{
    if (m_speakerSwitch)
        m_speakerSwitch->disconnect(this);
    m_speakerSwitch = speakerSwitch;
    if (speakerSwitch)
        connect(speakerSwitch, &SpeakerSwitch::availabilityChanged, this,
                &AudioSession::outputsChanged);
    outputsChanged();
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
    if (phoneSwitches())
        m_speakerSwitch->setLoudspeaker(category == AVAudioSessionCategoryPlayback);
    outputsChanged();
    return true;
}

void AudioSession::attach(AudioPlayer *player)
{
    const auto handOver = [this, player] { player->setRoute(route()); };
    connect(this, &AudioSession::routeChanged, player, handOver);
    connect(this, &AudioSession::callActiveChanged, player, handOver);
    handOver();
}

AudioRoute AudioSession::route() const
{
    AudioRoute route { m_outputName, {}, callActive() };
    for (const AudioOutputs::Output &output : m_outputs->outputs())
        route.outputs << output.name;
    return route;
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
    if (!phoneSwitches() && defaultOutput != outputs.end() &&
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
