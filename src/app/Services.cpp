#include "Services.h"

#include "audio/AudioSession.h"
#include "desktop/CallAudioDaemon.h"
#include "playback/VantrelProgressView.h"
#include "toolkit/Accessibility.h"

void Services::install()
{
    Accessibility::install();
    VantrelProgressView::installAccessibility();
    AudioSession *session = AudioSession::sharedInstance();
    if (!session->speakerSwitch())
        session->setSpeakerSwitch(new CallAudioDaemon(session));
}
