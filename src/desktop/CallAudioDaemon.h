#pragma once

#include "audio/SpeakerSwitch.h"

// The call-audio daemon of Linux phones (Phosh, Plasma Mobile, Sxmo) as the speaker switch.
// Whether it runs is followed on the session bus, never asked on the way.
class CallAudioDaemon : public SpeakerSwitch
{
    Q_OBJECT
public:
    explicit CallAudioDaemon(QObject *parent = nullptr);

    bool isAvailable() const override { return m_running; }
    void setLoudspeaker(bool loudspeaker) override;

private:
    void setRunning(bool running);

    bool m_running { false };
};
