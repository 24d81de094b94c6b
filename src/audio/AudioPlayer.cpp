#include "AudioPlayer.h"

#include "AudioPlayerEngine.h"
#include "TempoFilter.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace {
constexpr int kReconnectMs = 1000;
} // namespace

AudioPlayer::AudioPlayer(const QString &path, QObject *parent)
    : QObject(parent), m_path(path), m_average(Engine::kFormat.channels, AudioDecoder::SilenceDecibels),
      m_peak(Engine::kFormat.channels, AudioDecoder::SilenceDecibels),
      m_engine(std::make_unique<Engine>(this))
{
    m_reconnect.setInterval(kReconnectMs);
    connect(&m_reconnect, &QTimer::timeout, this, &AudioPlayer::requestOutput);
    m_engine->thread = std::thread([engine = m_engine.get(), path] { engine->run(path); });
}

AudioPlayer::~AudioPlayer()
{
    // The server's thread goes first, so that nothing pulls from the buffer or posts to this
    // player once the decoding thread is gone.
    {
        const std::lock_guard out(m_engine->outputLock);
        m_engine->output.reset();
    }
    m_engine->abort = true;
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->quit = true;
    }
    m_engine->wake.notify_one();
    m_engine->thread.join();
    // The decoding thread may have made a stream after the first reset.
    const std::lock_guard out(m_engine->outputLock);
    m_engine->output.reset();
}

void AudioPlayer::didLoad(bool ok, double duration, const QString &error)
{
    m_status = ok ? Status::Ready : Status::Failed;
    m_duration = duration;
    m_error = error;
    if (ok && (m_outputRequested || m_playing))
        requestOutput();
    const bool wasPlaying = std::exchange(m_playing, m_playing && ok);
    emit loaded(ok);
    if (!ok && wasPlaying && m_delegate)
        m_delegate->audioPlayerDidFinishPlaying(this, false);
}

void AudioPlayer::requestOutput()
{
    m_outputRequested = true;
    if (m_status != Status::Ready)
        return;
    m_sink = m_route.output;
    // A new stream counts what it plays from zero: it starts where the listener is.
    const double at = currentTime();
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->prepared = true;
        m_engine->openRequested = true;
        m_engine->openSink = m_sink;
    }
    seekEngine(at);
}

void AudioPlayer::seekEngine(double seconds)
{
    m_seekBase = seconds;
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->seekRequested = true;
        m_engine->seekTarget = seconds;
        m_engine->rate = m_rate;
        m_generation = ++m_engine->generation;
    }
    m_engine->wake.notify_one();
}

void AudioPlayer::didOpenOutput(bool ok, const QString &error)
{
    m_outputOpen = ok;
    if (ok) {
        m_reconnect.stop();
        const std::lock_guard held(m_engine->lock);
        m_engine->playing = m_playing;
        m_engine->wake.notify_one();
    }
    if (ok && m_interrupted) {
        setInterrupted(false);
        return;
    }
    if (ok || m_reconnect.isActive())
        return;
    // No audio server: whoever pressed play hears nothing and is told why; a player only
    // made ready tries again at play.
    m_outputRequested = false;
    const bool wasPlaying = std::exchange(m_playing, false);
    if (!wasPlaying)
        return;
    if (m_delegate)
        m_delegate->audioPlayerDecodeErrorDidOccur(
            this, QStringLiteral("play %1: %2").arg(m_path, error));
    if (m_delegate)
        m_delegate->audioPlayerDidFinishPlaying(this, false);
}

bool AudioPlayer::prepareToPlay()
{
    if (m_status == Status::Failed)
        return false;
    if (!m_outputRequested)
        requestOutput();
    return true;
}

bool AudioPlayer::play()
{
    if (m_status == Status::Failed)
        return false;
    m_playing = true;
    if (!m_outputRequested) {
        requestOutput();
        return true;
    }
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->playing = true;
    }
    m_engine->wake.notify_one();
    return true;
}

void AudioPlayer::pause()
{
    m_playing = false;
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->playing = false;
    }
    m_engine->wake.notify_one();
}

void AudioPlayer::stop()
{
    pause();
    m_reconnect.stop();
}

double AudioPlayer::currentTime() const
{
    double seconds = m_seekBase;
    {
        const std::lock_guard out(m_engine->outputLock);
        // Until the stream has dropped what it held, the listener is where the seek put them.
        if (m_engine->output && m_engine->heardGeneration == m_generation)
            seconds += double(m_engine->output->playedMicroseconds()) / 1e6 * m_rate;
    }
    return std::clamp(seconds, 0.0, m_duration);
}

void AudioPlayer::setCurrentTime(double seconds)
{
    if (m_status != Status::Ready || !std::isfinite(seconds))
        return;
    seekEngine(std::clamp(seconds, 0.0, m_duration));
}

bool AudioPlayer::canChangeRate()
{
    return TempoFilter::isAvailable();
}

void AudioPlayer::setRate(double rate)
{
    if (!std::isfinite(rate))
        return;
    rate = std::clamp(rate, kMinimumRate, kMaximumRate);
    if (rate == m_rate)
        return;
    // The new speed starts where the listener is: what the old one left queued is dropped,
    // so the change is heard at once and the position does not jump.
    const double at = currentTime();
    m_rate = rate;
    if (m_status == Status::Ready) {
        seekEngine(at);
        return;
    }
    // Until the file is open the first seek carries the rate.
    const std::lock_guard held(m_engine->lock);
    m_engine->rate = rate;
}

void AudioPlayer::didHearTheEnd(int generation, bool successfully)
{
    // Also when paused on the last moment: all of it was heard.
    if (generation != m_generation)
        return;
    pause();
    setCurrentTime(0);
    if (m_delegate)
        m_delegate->audioPlayerDidFinishPlaying(this, successfully);
}

void AudioPlayer::setInterrupted(bool interrupted)
{
    // Only what stops a playing stream interrupts it: a paused one that the server suspends
    // for being idle was not interrupted, and must not start when the server wakes.
    if (interrupted == m_interrupted || (interrupted && !m_playing))
        return;
    m_interrupted = interrupted;
    m_interruptedByCall = false;
    if (!m_delegate)
        return;
    if (interrupted)
        m_delegate->audioPlayerBeginInterruption(this);
    else
        m_delegate->audioPlayerEndInterruption(this);
}

void AudioPlayer::followCall(bool active)
{
    // A call interrupts even a paused player, and its end ends the interruption: the listener
    // decides what comes after it. While playing, the server's own cork request for the call
    // has usually begun the interruption already, and its uncork request ends it.
    if (active && !m_interrupted) {
        m_interrupted = true;
        m_interruptedByCall = true;
        if (m_delegate)
            m_delegate->audioPlayerBeginInterruption(this);
    } else if (!active && m_interruptedByCall) {
        setInterrupted(false);
    }
}

void AudioPlayer::didLoseOutput(const QString &reason)
{
    m_outputOpen = false;
    m_seekBase = currentTime();
    {
        const std::lock_guard out(m_engine->outputLock);
        m_engine->output.reset();
    }
    if (m_delegate)
        m_delegate->audioPlayerDecodeErrorDidOccur(
            this, QStringLiteral("play %1: %2").arg(m_path, reason));
    // The server's outputs may have vanished a moment earlier and interrupted playback
    // already: either way the stream is made again once the server is back.
    m_lostSink.clear();
    if (m_playing || m_interrupted) {
        setInterrupted(true);
        m_reconnect.start();
    }
    m_outputRequested = m_reconnect.isActive();
}

void AudioPlayer::didMove(const QString &sinkName)
{
    if (sinkName != m_sink)
        noticeLostOutput();
}

void AudioPlayer::noticeLostOutput()
{
    // The output the stream played on went away and the server moved the stream elsewhere: a
    // phone pauses then, as for a call, and goes on when the device returns.
    if (m_sink.isEmpty() || hasOutput(m_sink) ||
        !m_lostSink.isEmpty())
        return;
    m_lostSink = m_sink;
    setInterrupted(true);
}

void AudioPlayer::setRoute(const AudioRoute &route)
{
    const AudioRoute was = std::exchange(m_route, route);
    const bool first = !std::exchange(m_routed, true);
    if (first || route.output != was.output)
        followRoute();
    // A call already under way when the player was made interrupts nothing it began.
    if (!first && route.callActive != was.callActive)
        followCall(route.callActive);
}

void AudioPlayer::followRoute()
{
    const QString sink = m_route.output;
    if (!m_outputOpen) {
        m_sink = sink;
        return;
    }
    noticeLostOutput();
    const bool returning = !m_lostSink.isEmpty() && sink == m_lostSink;
    if (returning)
        m_lostSink.clear();
    // A returning device takes the stream back from where the server rescued it to.
    if (sink.isEmpty() || (sink == m_sink && !returning))
        return;
    m_sink = sink;
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->moveRequested = true;
        m_engine->moveSink = sink;
    }
    m_engine->wake.notify_one();
    if (returning)
        setInterrupted(false);
}

void AudioPlayer::updateMeters()
{
    if (!m_meteringEnabled)
        return;
    const std::lock_guard held(m_engine->lock);
    m_average = m_engine->average;
    m_peak = m_engine->peak;
}

double AudioPlayer::averagePowerForChannel(int channel) const
{
    if (!m_meteringEnabled || channel < 0 || channel >= int(m_average.size()))
        return AudioDecoder::SilenceDecibels;
    return m_average[channel];
}

double AudioPlayer::peakPowerForChannel(int channel) const
{
    if (!m_meteringEnabled || channel < 0 || channel >= int(m_peak.size()))
        return AudioDecoder::SilenceDecibels;
    return m_peak[channel];
}

QString AudioPlayer::outputName() const
{
    const std::lock_guard out(m_engine->outputLock);
    return m_engine->output ? m_engine->output->sinkName() : QString();
}

qint64 AudioPlayer::handedOverBytes() const
{
    return m_engine->handedOver.load(std::memory_order_relaxed);
}
