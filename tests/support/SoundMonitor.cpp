#include "SoundMonitor.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTest>
#include <cmath>
#include <cstring>

namespace {
constexpr qsizetype kTailSamples = SoundMonitor::kRate / 4;
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

void SoundMonitor::take()
{
    m_samples += m_parec.readAllStandardOutput();
    const qsizetype keep = 2 * kRate;
    if (m_samples.size() > keep)
        m_samples.remove(0, m_samples.size() - keep - m_samples.size() % 2);
}

bool SoundMonitor::hears(double pitch, int timeoutMs)
{
    // Only what is recorded from now on counts.
    QCoreApplication::processEvents();
    m_parec.readAllStandardOutput();
    m_samples.clear();
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
    QCoreApplication::processEvents();
    m_parec.readAllStandardOutput();
    m_samples.clear();
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
