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
    static constexpr int kRate = 8000;

    explicit SoundMonitor(const QString &sink);
    ~SoundMonitor();

    // Waits until the last quarter second recorded is a clear tone of that pitch (within 3%).
    bool hears(double pitch, int timeoutMs = 4000);
    // Waits until the last quarter second recorded is silent, or nothing was recorded for
    // half a second.
    bool hearsSilence(int timeoutMs = 4000);
    // Of the last quarter second recorded: its level in dB of full scale and its pitch in Hz
    // from the zero crossings; for messages.
    double level() const;
    double pitch() const;
    QString description() const;

    // Keeps all that is recorded from now on, to measure a whole passage by its sound rather
    // than by any clock: waits until the monitor delivers.
    bool record(int timeoutMs = 4000);
    // Of what was kept since record(): seconds of a clear tone of that pitch (within 3%), in
    // slices of 50 ms.
    double secondsOfTone(double pitch);
    // Seconds of any sound that is not silence, and its pitch over them; for messages.
    double secondsOfSound();
    QString recordingDescription();

private:
    // Reads what arrived, keeping the last second.
    void take();
    // Only what is recorded from now on counts for the tail.
    void startOver();
    QList<qint16> tail() const;
    // The kept recording's 50 ms slices that are loud, and their pitches.
    QList<double> loudSlicePitches();
    QProcess m_parec;
    QByteArray m_samples;
    bool m_recording { false };
    QByteArray m_recorded;
};
