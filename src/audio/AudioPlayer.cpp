#include "AudioPlayer.h"

#include "AudioDecoder.h"
#include "PulseOutput.h"

#include <QPointer>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace {

// What the stream carries: the server converts to whatever the device wants.
constexpr AudioDecoder::OutputFormat kFormat { 48000, 2, AudioDecoder::SampleFormat::Int16 };
// Decoded ahead of the listener: enough to ride out a busy moment of the machine, small
// enough that memory never depends on the recording's length.
constexpr std::size_t kBufferBytes = std::size_t(kFormat.sampleRate) / 4 * 4;
constexpr qint64 kChunkFrames = 1024;
// A phone's audio policy treats media streams as music: it corks them for a call.
constexpr const char *kMediaRole = "music";
constexpr int kReconnectMs = 1000;

} // namespace

// The part of the player that its decoding thread and the audio server's thread share.
// Locks are taken in one order only: outputLock, then the server's own lock (inside
// PulseOutput), then lock; the server's thread holds its lock when it takes lock.
struct AudioPlayer::Engine
{
    explicit Engine(AudioPlayer *owner) : player(owner) { decoder.setAbortFlag(&abort); }

    // Runs on the server thread whenever it wants samples.
    std::size_t pull(char *data, std::size_t bytes);
    void run(const QString &path);
    void openOutput(const QString &sink, std::unique_lock<std::mutex> &held);
    void decodeChunk(std::unique_lock<std::mutex> &held);
    template <typename Call> void post(Call call)
    {
        QMetaObject::invokeMethod(player, std::move(call), Qt::QueuedConnection);
    }

    AudioPlayer *player;              // only for posting to; touched on its own thread
    AudioDecoder decoder { kFormat }; // the decoding thread's alone
    std::atomic<bool> abort { false };
    std::atomic<qint64> handedOver { 0 };
    std::thread thread;

    // Guards the output's existence against the player's time queries.
    mutable std::mutex outputLock;
    std::unique_ptr<PulseOutput> output;

    // Everything below is guarded by lock.
    std::mutex lock;
    std::condition_variable wake;
    bool quit { false };
    bool prepared { false }; // decode ahead from now on
    bool openRequested { false };
    QString openSink;
    bool moveRequested { false };
    QString moveSink;
    bool playing { false };        // what the stream should be doing
    bool playingApplied { false }; // what it was last told
    bool seekRequested { false };
    double seekTarget { 0 };
    int generation { 0 };                   // of the last seek asked for
    std::atomic<int> heardGeneration { 0 }; // of the last seek the stream was flushed for
    bool seeking { false };
    bool endOfFile { false };
    bool decodeFailed { false };
    bool allHandedOver { false }; // the end of the file is with the server
    bool drainAsked { false };
    bool starved { false };
    std::vector<char> ring = std::vector<char>(kBufferBytes);
    std::size_t ringStart { 0 };
    std::size_t ringSize { 0 };
    std::vector<double> average =
        std::vector<double>(kFormat.channels, AudioDecoder::SilenceDecibels);
    std::vector<double> peak = std::vector<double>(kFormat.channels, AudioDecoder::SilenceDecibels);
};

std::size_t AudioPlayer::Engine::pull(char *data, std::size_t bytes)
{
    const std::lock_guard held(lock);
    if (seeking || ringSize == 0) {
        starved = !endOfFile;
        return 0;
    }
    const std::size_t count = std::min(bytes, ringSize);
    const std::size_t first = std::min(count, ring.size() - ringStart);
    std::memcpy(data, ring.data() + ringStart, first);
    std::memcpy(data + first, ring.data(), count - first);
    ringStart = (ringStart + count) % ring.size();
    ringSize -= count;
    handedOver.fetch_add(qint64(count), std::memory_order_relaxed);
    // The server asks once for what it has room for: the rest is written when decoded.
    starved = count < bytes && !endOfFile;
    if (ringSize == 0 && endOfFile)
        allHandedOver = true;
    wake.notify_one();
    return count;
}

void AudioPlayer::Engine::run(const QString &path)
{
    pthread_setname_np(pthread_self(), "vantrel-decode");
    const bool ok = decoder.open(path);
    const double duration = decoder.duration();
    const QString error = decoder.errorString();
    post([p = player, ok, duration, error] { p->didLoad(ok, duration, error); });
    if (!ok)
        return;

    std::unique_lock held(lock);
    for (;;) {
        wake.wait(held, [&] {
            return quit || openRequested || moveRequested || seekRequested ||
                   playing != playingApplied || (allHandedOver && !drainAsked) ||
                   (prepared && output && !endOfFile && ring.size() - ringSize >= kChunkFrames * 4);
        });
        if (quit)
            return;
        if (openRequested) {
            openRequested = false;
            openOutput(openSink, held);
        } else if (seekRequested) {
            // The buffer and the server both forget the old position before any of the new
            // one is decoded, and the server is told nothing until both have.
            seekRequested = false;
            const int target = generation;
            const double seconds = seekTarget;
            ringSize = 0;
            seeking = true;
            endOfFile = decodeFailed = allHandedOver = drainAsked = false;
            // The server asks for what a flush dropped only once, maybe before any of it is
            // decoded: what is decoded is offered at once.
            starved = true;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->flush();
            }
            decoder.seek(seconds);
            heardGeneration = target;
            held.lock();
            seeking = false;
        } else if (playing != playingApplied) {
            const bool play = playing;
            playingApplied = play;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->setPlaying(play);
            }
            held.lock();
        } else if (moveRequested) {
            moveRequested = false;
            const QString sink = moveSink;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->moveToSink(sink);
            }
            held.lock();
        } else if (allHandedOver && !drainAsked) {
            drainAsked = true;
            const int target = generation;
            const bool successfully = !decodeFailed;
            held.unlock();
            {
                const std::lock_guard out(outputLock);
                if (output)
                    output->drain([this, target, successfully] {
                        post([p = player, target, successfully] {
                            p->didHearTheEnd(target, successfully);
                        });
                    });
            }
            held.lock();
        } else {
            decodeChunk(held);
        }
    }
}

void AudioPlayer::Engine::openOutput(const QString &sink, std::unique_lock<std::mutex> &held)
{
    held.unlock();
    PulseOutput::Events events;
    events.suspendedChanged = [this](bool suspended) {
        post([p = player, suspended] { p->setInterrupted(suspended); });
    };
    events.corkRequested = [this](bool cork) {
        post([p = player, cork] { p->setInterrupted(cork); });
    };
    events.moved = [this](const QString &name) { post([p = player, name] { p->didMove(name); }); };
    events.failed = [this](const QString &reason) {
        post([p = player, reason] { p->didLoseOutput(reason); });
    };
    auto opened = std::make_unique<PulseOutput>();
    QString error;
    const bool ok = opened->open(
        kFormat.sampleRate, kFormat.channels, sink, QString::fromLatin1(kMediaRole),
        [this](char *data, std::size_t bytes) { return pull(data, bytes); }, std::move(events),
        &error);
    std::unique_ptr<PulseOutput> old;
    {
        const std::lock_guard out(outputLock);
        old = std::exchange(output, ok ? std::move(opened) : nullptr);
    }
    old.reset(); // closes the server connection it had, off the lock
    held.lock();
    playingApplied = false; // a new stream starts paused
    post([p = player, ok, error] { p->didOpenOutput(ok, error); });
}

void AudioPlayer::Engine::decodeChunk(std::unique_lock<std::mutex> &held)
{
    const int chunkGeneration = generation;
    held.unlock();
    char chunk[kChunkFrames * 4];
    const qint64 frames = decoder.read(chunk, kChunkFrames);
    const bool atEnd = decoder.atEnd() || decoder.hasError();
    const QString error = decoder.hasError() ? decoder.errorString() : QString();
    std::vector<double> averages(kFormat.channels), peaks(kFormat.channels);
    for (int channel = 0; channel < kFormat.channels; ++channel) {
        averages[channel] = decoder.averagePowerForChannel(channel);
        peaks[channel] = decoder.peakPowerForChannel(channel);
    }
    held.lock();
    // A seek asked while this was decoded makes it old audio.
    if (chunkGeneration != generation || seekRequested)
        return;
    const std::size_t bytes = std::size_t(frames) * 4;
    const std::size_t end = (ringStart + ringSize) % ring.size();
    const std::size_t first = std::min(bytes, ring.size() - end);
    std::memcpy(ring.data() + end, chunk, first);
    std::memcpy(ring.data(), chunk + first, bytes - first);
    ringSize += bytes;
    average = std::move(averages);
    peak = std::move(peaks);
    if (atEnd) {
        endOfFile = true;
        decodeFailed = !error.isEmpty();
        allHandedOver = ringSize == 0;
        if (decodeFailed)
            post([p = player, error] {
                if (p->m_delegate)
                    p->m_delegate->audioPlayerDecodeErrorDidOccur(p, error);
            });
    }
    if (std::exchange(starved, false)) {
        held.unlock();
        {
            const std::lock_guard out(outputLock);
            if (output)
                output->sourceReady();
        }
        held.lock();
    }
}

AudioPlayer::AudioPlayer(const QString &path, QObject *parent)
    : QObject(parent), m_path(path), m_average(kFormat.channels, AudioDecoder::SilenceDecibels),
      m_peak(kFormat.channels, AudioDecoder::SilenceDecibels),
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
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->prepared = true;
        m_engine->openRequested = true;
        m_engine->openSink = m_sink;
        // A new stream counts what it plays from zero: it starts where the listener is.
        m_seekBase = currentTime();
        m_engine->seekRequested = true;
        m_engine->seekTarget = m_seekBase;
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
            seconds += double(m_engine->output->playedMicroseconds()) / 1e6;
    }
    return std::clamp(seconds, 0.0, m_duration);
}

void AudioPlayer::setCurrentTime(double seconds)
{
    if (m_status != Status::Ready || !std::isfinite(seconds))
        return;
    m_seekBase = std::clamp(seconds, 0.0, m_duration);
    {
        const std::lock_guard held(m_engine->lock);
        m_engine->seekRequested = true;
        m_engine->seekTarget = m_seekBase;
        m_generation = ++m_engine->generation;
    }
    m_engine->wake.notify_one();
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
