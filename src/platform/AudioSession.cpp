#include "AudioSession.h"

#include <QCoreApplication>
#include <QPointer>

AudioSession *AudioSession::sharedInstance()
{
    // A child of the application object: it goes when the application does, never after.
    static QPointer<AudioSession> session;
    if (!session)
        session = new AudioSession(QCoreApplication::instance());
    return session;
}

bool AudioSession::setCategory(const QString &category)
{
    if (category != AVAudioSessionCategoryPlayback &&
        category != AVAudioSessionCategoryPlayAndRecord)
        return false;
    if (m_category != category) {
        m_category = category;
        emit categoryChanged(category);
    }
    return true;
}
