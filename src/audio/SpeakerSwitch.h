#pragma once

#include <QObject>

// The phone's own switch between loudspeaker and receiver, where a phone has one (its
// call-audio daemon). While it is there, sound stays on the default output and the switch
// moves it; the audio session only tells it which way to go.
class SpeakerSwitch : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual bool isAvailable() const = 0;
    // Not waited for: the switch moves while the sound goes on.
    virtual void setLoudspeaker(bool loudspeaker) = 0;

signals:
    void availabilityChanged();
};
