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

private:
    // Reads what arrived, keeping the last second.
    void take();
    QList<qint16> tail() const;
    QProcess m_parec;
    QByteArray m_samples;
};
