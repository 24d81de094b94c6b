#include "AudioSession.h"

AudioSession *AudioSession::sharedInstance()
{
    static AudioSession session;
    return &session;
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
