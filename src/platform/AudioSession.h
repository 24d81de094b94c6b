#pragma once

#include <QObject>
#include <QString>

// The process's audio session. Its category is the whole of the speaker state:
// "AVAudioSessionCategoryPlayback" plays through the loudspeaker and
// "AVAudioSessionCategoryPlayAndRecord" through the receiver, phone held to the ear.
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

    QString category() const { return m_category; }
    // Answers false, and keeps the category, for a category it does not know.
    bool setCategory(const QString &category);

signals:
    void categoryChanged(const QString &category);
    // Output devices appeared or vanished, or the output moved to another device.
    void routeChanged();

private:
    using QObject::QObject;
    QString m_category { AVAudioSessionCategoryPlayback };
};
