#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>

// What a sink of the test's audio server plays, as its monitor records it (parec, as any
// recorder would hear it), at 8 kHz mono. A monitor delivers with a lag that varies, and
// nothing at all while its sink is idle, so it is asked what it hears within a time rather
// than at a moment.
class SoundMonitor
{
public:
    explicit SoundMonitor(const QString &sink);
    ~SoundMonitor();

    // Waits until the last quarter second recorded is a clear tone of that pitch (within 3%).
    bool hears(double pitch, int timeoutMs = 4000);
    // Waits until the last quarter second recorded is silent, or nothing was recorded for
    // half a second.
    bool hearsSilence(int timeoutMs = 4000);
    // The last quarter second's level and pitch; for messages.
    QString description() const;

    // Keeps all that is recorded from now on, to measure a whole passage by its sound rather
    // than by any clock: waits until the monitor delivers.
    bool record(int timeoutMs = 4000);
    // Of what was kept since record(): seconds of a clear tone of that pitch (within 3%), in
    // slices of 50 ms.
    double secondsOfTone(double pitch);
    // Its seconds of any sound that is not silence, and their pitch; for messages.
    QString recordingDescription();

private:
    // In dB of full scale, and in Hz from the zero crossings.
    struct Sound
    {
        double level;
        double pitch;
    };
    static Sound measure(const QByteArray &samples, qsizetype first, qsizetype count);
    // The last quarter second's, which is all that take() keeps.
    Sound last() const { return measure(m_samples, 0, m_samples.size() / 2); }
    // Reads what arrived, keeping the last quarter second.
    void take();
    // Only what is recorded from now on counts for the last quarter second.
    void startOver();
    // The kept recording's 50 ms slices that are loud.
    QList<Sound> loudSlices();

    QProcess m_parec;
    QByteArray m_samples;
    bool m_recording { false };
    QByteArray m_recorded;
};
