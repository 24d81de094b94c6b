#pragma once

#include "AudioPlayer.h"
#include "SpeakerSwitch.h"

#include <QObject>
#include <QPointer>
#include <QString>

class AudioOutputs;

// The process's audio session. Its category is the whole of the speaker state:
// "AVAudioSessionCategoryPlayback" plays through the loudspeaker and
// "AVAudioSessionCategoryPlayAndRecord" through the receiver, phone held to the ear.
//
// Setting the category routes the sound. Where the phone has a speaker switch of its own,
// the switch moves the sound and it stays on the default output. Elsewhere the receiver is
// the output whose name or description says earpiece, receiver or handset, and the
// loudspeaker the default output (or, should that be the earpiece, the first other one).
class AudioSession : public QObject
{
    Q_OBJECT
public:
    static inline const QString AVAudioSessionCategoryPlayback =
        QStringLiteral("AVAudioSessionCategoryPlayback");
    static inline const QString AVAudioSessionCategoryPlayAndRecord =
        QStringLiteral("AVAudioSessionCategoryPlayAndRecord");

    // The one session of the application, made on first use.
    static AudioSession *sharedInstance();

    // The phone's own speaker switch, which then moves the sound instead of the session;
    // null for none. Not owned.
    void setSpeakerSwitch(SpeakerSwitch *speakerSwitch);
    SpeakerSwitch *speakerSwitch() const { return m_speakerSwitch; }

    QString category() const { return m_category; }
    // Answers false, and keeps the category, for a category it does not know.
    bool setCategory(const QString &category);

    // Hands the player where its sound goes now, and again at each change, for as long as
    // both live.
    void attach(AudioPlayer *player);
    AudioRoute route() const;

    // The audio server's name of the output the category plays on; empty while the server's
    // outputs are not known.
    QString outputName() const;
    bool hasOutput(const QString &name) const;
    // A call is under way on the sound server.
    bool callActive() const;

signals:
    void categoryChanged(const QString &category);
    // Output devices appeared or vanished, or the output moved to another device.
    void routeChanged();
    // outputName() answers something else.
    void outputChanged();
    // A call began or ended.
    void callActiveChanged(bool active);

private:
    explicit AudioSession(QObject *parent);
    void outputsChanged();
    bool phoneSwitches() const { return m_speakerSwitch && m_speakerSwitch->isAvailable(); }

    QString m_category { AVAudioSessionCategoryPlayback };
    AudioOutputs *m_outputs; // a child
    QString m_outputName;
    QPointer<SpeakerSwitch> m_speakerSwitch;
};
