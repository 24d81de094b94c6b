#include "SoundMonitor.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace {
constexpr qsizetype kTailSamples = SoundMonitor::kRate / 4;
constexpr double kLoud = -20;
constexpr double kSilent = -60;
// What a recording is measured in: short enough that its edges cost little, long enough for
// a tone's pitch (20 periods of 440 Hz).
constexpr qsizetype kSliceSamples = SoundMonitor::kRate / 20;
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

void SoundMonitor::take()
{
    const QByteArray arrived = m_parec.readAllStandardOutput();
    if (m_recording)
        m_recorded += arrived;
    m_samples += arrived;
    const qsizetype keep = 2 * kRate;
    if (m_samples.size() > keep)
        m_samples.remove(0, m_samples.size() - keep - m_samples.size() % 2);
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
            return m_samples.size() >= 2 * kTailSamples && level() > kLoud &&
                   std::abs(this->pitch() - pitch) < pitch * 0.03;
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
                   (m_samples.size() >= 2 * kTailSamples && level() < kSilent);
        },
        timeoutMs);
}

QList<qint16> SoundMonitor::tail() const
{
    const qsizetype count = m_samples.size() / 2;
    const qsizetype taken = std::min(count, kTailSamples);
    QList<qint16> samples(taken);
    if (taken > 0)
        std::memcpy(samples.data(), m_samples.constData() + 2 * (count - taken), 2 * taken);
    return samples;
}

double SoundMonitor::level() const
{
    const QList<qint16> window = tail();
    double sum = 0;
    for (const qint16 sample : window)
        sum += double(sample) * sample;
    const double mean = window.isEmpty() ? 0 : sum / double(window.size());
    return 10 * std::log10(std::max(mean, 1e-9) / (32768.0 * 32768.0));
}

double SoundMonitor::pitch() const
{
    const QList<qint16> window = tail();
    int crossings = 0;
    for (qsizetype i = 1; i < window.size(); ++i)
        crossings += (window[i - 1] < 0) != (window[i] < 0);
    return window.isEmpty() ? 0 : crossings / 2.0 / (double(window.size()) / kRate);
}

QString SoundMonitor::description() const
{
    return QStringLiteral("%1 dB at %2 Hz").arg(level(), 0, 'f', 1).arg(pitch(), 0, 'f', 0);
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

QList<double> SoundMonitor::loudSlicePitches()
{
    take();
    QList<double> pitches;
    const auto *samples = reinterpret_cast<const qint16 *>(m_recorded.constData());
    const qsizetype count = m_recorded.size() / 2;
    for (qsizetype start = 0; start + kSliceSamples <= count; start += kSliceSamples) {
        double sum = 0;
        int crossings = 0;
        for (qsizetype i = start; i < start + kSliceSamples; ++i) {
            sum += double(samples[i]) * samples[i];
            if (i > start)
                crossings += (samples[i - 1] < 0) != (samples[i] < 0);
        }
        const double level =
            10 * std::log10(std::max(sum / kSliceSamples, 1e-9) / (32768.0 * 32768.0));
        if (level > kLoud)
            pitches << crossings / 2.0 / (double(kSliceSamples) / kRate);
    }
    return pitches;
}

double SoundMonitor::secondsOfTone(double pitch)
{
    const QList<double> pitches = loudSlicePitches();
    const auto slices = std::count_if(pitches.cbegin(), pitches.cend(), [pitch](double heard) {
        return std::abs(heard - pitch) < pitch * 0.03;
    });
    return double(slices) * kSliceSamples / kRate;
}

double SoundMonitor::secondsOfSound()
{
    return double(loudSlicePitches().size()) * kSliceSamples / kRate;
}

QString SoundMonitor::recordingDescription()
{
    const QList<double> pitches = loudSlicePitches();
    const double mean =
        pitches.isEmpty() ? 0
                          : std::accumulate(pitches.cbegin(), pitches.cend(), 0.0) / pitches.size();
    return QStringLiteral("%1 s of sound at %2 Hz on average, of %3 s recorded")
        .arg(secondsOfSound(), 0, 'f', 2)
        .arg(mean, 0, 'f', 0)
        .arg(double(m_recorded.size() / 2) / kRate, 0, 'f', 2);
}
