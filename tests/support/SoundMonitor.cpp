#include "SoundMonitor.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <algorithm>
#include <cmath>

namespace {
constexpr int kRate = 8000;
constexpr qsizetype kTailSamples = kRate / 4;
// What a recording is measured in: short enough that its edges cost little, long enough for
// a tone's pitch (20 periods of 440 Hz).
constexpr qsizetype kSliceSamples = kRate / 20;
constexpr double kLoud = -20;
constexpr double kSilent = -60;
} // namespace

SoundMonitor::SoundMonitor(const QString &sink)
{
    m_parec.start("parec", { "--device=" + sink + ".monitor", "--format=s16le",
                             "--rate=" + QString::number(kRate), "--channels=1", "--raw",
                             "--latency-msec=20" });
    m_parec.waitForStarted();
}

SoundMonitor::~SoundMonitor()
{
    m_parec.kill();
    m_parec.waitForFinished();
}

SoundMonitor::Sound SoundMonitor::measure(const QByteArray &samples, qsizetype first,
                                          qsizetype count)
{
    const auto *sample = reinterpret_cast<const qint16 *>(samples.constData()) + first;
    double sum = 0;
    int crossings = 0;
    for (qsizetype i = 0; i < count; ++i) {
        sum += double(sample[i]) * sample[i];
        crossings += i > 0 && (sample[i - 1] < 0) != (sample[i] < 0);
    }
    const double mean = count > 0 ? sum / double(count) : 0;
    return { 10 * std::log10(std::max(mean, 1e-9) / (32768.0 * 32768.0)),
             count > 0 ? crossings / 2.0 / (double(count) / kRate) : 0 };
}

void SoundMonitor::take()
{
    const QByteArray arrived = m_parec.readAllStandardOutput();
    if (m_recording)
        m_recorded += arrived;
    m_samples += arrived;
    // Whole samples are removed, so that the first byte kept starts one.
    const qsizetype extra = m_samples.size() - 2 * kTailSamples;
    if (extra > 0)
        m_samples.remove(0, extra - extra % 2);
}

void SoundMonitor::startOver()
{
    QCoreApplication::processEvents();
    take();
    m_samples.clear();
}

bool SoundMonitor::hears(double pitch, int timeoutMs)
{
    startOver();
    return QTest::qWaitFor(
        [&] {
            take();
            const Sound heard = last();
            return m_samples.size() >= 2 * kTailSamples && heard.level > kLoud &&
                   std::abs(heard.pitch - pitch) < pitch * 0.03;
        },
        timeoutMs);
}

bool SoundMonitor::hearsSilence(int timeoutMs)
{
    startOver();
    QElapsedTimer quiet;
    quiet.start();
    return QTest::qWaitFor(
        [&] {
            const qsizetype before = m_samples.size();
            take();
            if (m_samples.size() != before)
                quiet.restart();
            return quiet.hasExpired(500) ||
                   (m_samples.size() >= 2 * kTailSamples && last().level < kSilent);
        },
        timeoutMs);
}

QString SoundMonitor::description() const
{
    const Sound heard = last();
    return QStringLiteral("%1 dB at %2 Hz").arg(heard.level, 0, 'f', 1).arg(heard.pitch, 0, 'f', 0);
}

bool SoundMonitor::record(int timeoutMs)
{
    startOver();
    m_recorded.clear();
    m_recording = true;
    return QTest::qWaitFor(
        [&] {
            take();
            return !m_recorded.isEmpty();
        },
        timeoutMs);
}

QList<SoundMonitor::Sound> SoundMonitor::loudSlices()
{
    take();
    QList<Sound> loud;
    for (qsizetype first = 0; first + kSliceSamples <= m_recorded.size() / 2;
         first += kSliceSamples) {
        if (const Sound slice = measure(m_recorded, first, kSliceSamples); slice.level > kLoud)
            loud << slice;
    }
    return loud;
}

double SoundMonitor::secondsOfTone(double pitch)
{
    const QList<Sound> loud = loudSlices();
    const auto slices = std::count_if(loud.cbegin(), loud.cend(), [pitch](const Sound &slice) {
        return std::abs(slice.pitch - pitch) < pitch * 0.03;
    });
    return double(slices) * kSliceSamples / kRate;
}

QString SoundMonitor::recordingDescription()
{
    const QList<Sound> loud = loudSlices();
    double pitches = 0;
    for (const Sound &slice : loud)
        pitches += slice.pitch;
    return QStringLiteral("%1 s of sound at %2 Hz on average, of %3 s recorded")
        .arg(double(loud.size()) * kSliceSamples / kRate, 0, 'f', 2)
        .arg(loud.isEmpty() ? 0 : pitches / double(loud.size()), 0, 'f', 0)
        .arg(double(m_recorded.size() / 2) / kRate, 0, 'f', 2);
}
